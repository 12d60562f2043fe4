// The process's connection to the OM framework: the client "Zol_" + process name with its two
// subscriptions, the task "Zol_CONN_OMCC" that connects every 3 s until it succeeds, and the poll-task
// handler that serves requests and starts a new connection task after a hang-up.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"
#include "ipc/ipc_internal.h"

#include <unistd.h>

#include "zol_ipc.h"

#include "bounds_checked.h"
#include "mesh_epoll.h"
#include "ruk_task.h"

#include "diag_cmd_internal.h"

namespace zol::diag {

// Until the connection task registers the descriptor it alone writes iFd; from then on only the poll
// task touches the state, until its teardown starts the next connection task. So no lock.
OM_AGENT_S g_stOmAgent = {nullptr, -1, -1};

namespace {

constexpr u32 kConnTaskPrio = 1;
constexpr u32 kConnectFailed = 1;

void ClearAgent() {
    g_stOmAgent = OM_AGENT_S{nullptr, 0, 0};
}

void Disconnect() {
    if (g_stOmAgent.iFd != -1) {
        omcc_disconnect(g_stOmAgent.pClient);
    }
    g_stOmAgent.iFd = -1;
}

// One connection attempt: 0 when connected and activated, else the failure's code.
u32 Connect() {
    g_stOmAgent.iFd = omcc_connect(g_stOmAgent.pClient, 0);
    if (g_stOmAgent.iFd < 0) {
        ZOL_LOG_MSG(log::kRpcMsgErr, "ZOAS", "Connect to om failed.", "return fd less than 0.");
        return kConnectFailed;
    }
    s32 iRet = omcc_activate(g_stOmAgent.pClient, 0, 0, 0);
    if (iRet != 0) {
        ZOL_LOG_MSG(log::kRpcMsgErr, "ZOAS", "Activate failed.", "ret:%d", iRet);
        return static_cast<u32>(iRet);
    }
    return 0;
}

u32 OmFdEventProc(IPC_EPOLL_HANDLER_S *pstRec, u32 ulEvents);

void OmConnTask(uintptr_t, uintptr_t, uintptr_t, uintptr_t) {
    for (u32 ulTimes = 0;; sleep(kOmConnRetrySec)) {
        u32 ulRet = Connect();
        if (ulRet == 0 && IPC_EpollAddFd(static_cast<u32>(g_stOmAgent.iFd), 0, OmFdEventProc, kOmFdEvents) == 0) {
            ZOL_LOG_MSG(log::kRpcEventInfo, "ZCCOTP", "Connect to om success.", "times:%u.", ulTimes);
            return;
        }
        Disconnect();
        ++ulTimes;
        if ((ulTimes & (ulTimes - 1)) == 0) {
            ZOL_LOG_MSG(log::kRpcEventInfo, "ZCCOTP", "Connect to om try info.", "times:%u, lastRet:%u.", ulTimes,
                        ulRet);
        }
    }
}

void CreateConnTask() {
    u32 ulTaskId = 0;
    uintptr_t auArgs[4] = {0, 0, 0, 0};
    u32 ulRet = RUK_TaskCreate(kOmConnTaskName, &ulTaskId, OmConnTask, kConnTaskPrio, 0, 0, auArgs);
    if (ulRet != 0) {
        ZOL_LOG_MSG(log::kRpcMsgErr, "ZCCCOT", "Create task failed.", "ret:%u,name:%s", ulRet, kOmConnTaskName);
    }
}

// Runs on the poll task: serves what arrived; a hang-up or a failed run ends this connection and
// starts a new connection task.
u32 OmFdEventProc(IPC_EPOLL_HANDLER_S *pstRec, u32 ulEvents) {
    s32 iRun = (ulEvents & MESH_EPOLLIN) != 0 ? omcc_run(g_stOmAgent.pClient, 0) : 0;
    if ((ulEvents & MESH_EPOLLHUP) == 0 && iRun >= 0) {
        return 0;
    }
    IPC_EpollDelFd(pstRec->ulFd);
    ipc::IpcReleaseEpollRecord(pstRec);
    Disconnect();
    CreateConnTask();
    return 0;
}

// Creates the client and its subscriptions; on any failure the agent is left without a client.
void CreateClient(const char *pcName) {
    g_stOmAgent.pClient = omcc_client_new(pcName, OMCC_SUB_KIND_REQUEST);
    if (g_stOmAgent.pClient == nullptr) {
        ZOL_LOG_MSG(log::kRpcMsgErr, "ZOAC", "New omcc client failed.", "omcc return fail.");
        ClearAgent();
        return;
    }
    for (OM_CMD_S &stCmd : g_astOmCmdTable) {
        if (omcc_subscribe(g_stOmAgent.pClient, &stCmd.stSub) != 0) {
            ZOL_LOG_MSG(log::kRpcMsgErr, "ZOAC", "Subscribe failed,", "path:%s", stCmd.szPath);
            ClearAgent(); // the client itself stays allocated: the OM client library has no release
            return;
        }
    }
}

} // namespace

u32 ZOL_OmCmdStart(s32 iPollFd) {
    u32 ulPid = static_cast<u32>(getpid());
    (void)ZOL_OmCmdBuildPaths(ulPid);
    char szName[kOmClientNameLen] = {};
    s32 iLen = sprintf_s(szName, sizeof szName, "Zol_");
    if (iLen < 0) {
        return 1;
    }
    ZOL_GetProcNameById(ulPid, szName + iLen, kOmClientNameLen - static_cast<u32>(iLen));
    g_stOmAgent.iFd = -1;
    g_stOmAgent.iPollFd = -1;
    CreateClient(szName);
    g_stOmAgent.iPollFd = iPollFd;
    CreateConnTask();
    return 0;
}

} // namespace zol::diag
