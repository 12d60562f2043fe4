// IPC's layer state and initialisation: the own node, the registry and channel table, the reserve message,
// the poll task and the OM diagnostic service; plus the connection-notify table and the small settings.
#include "ipc/ipc_chan_internal.h"
#include "ipc/diag_cmd_internal.h"

#include "bounds_checked.h"

namespace zol::ipc {

u32 g_ulIpcInitFlag = 0;
u32 g_ulIpcSelfNodeId = 0;
u32 g_ulIpcAckMsgQueLen = 800;
IPC_CONN_NOTIFY_S g_astIpcConnNotify[IPC_CONN_NOTIFY_NUM] = {};
IPC_MSG_HEAD_S *g_pstIpcReserveMsg = nullptr;

namespace {

// Registry, channel table and reserve message; all or nothing.
u32 IPC_TablesInit(u32 ulNodeId) {
    if (IPC_NodeTblInit(ulNodeId) != IPC_OK) {
        return IPC_ERR_NO_MEMORY;
    }
    if (IPC_ChanTblInit() != IPC_OK) {
        IPC_NodeTblDestroy();
        return IPC_ERR_NO_MEMORY;
    }
    // Held for the life of the process, so that one maximum-size block is always there.
    void *pReserve = IPC_AllocMsg_X(IPC_MAX_MSG_LEN, IPC_MOD_ID, "IPC_Init", __LINE__);
    if (pReserve == nullptr) {
        IPC_ChanTblDestroy();
        IPC_NodeTblDestroy();
        return IPC_ERR_NO_MEMORY;
    }
    g_pstIpcReserveMsg = MsgHead(pReserve);
    return IPC_OK;
}

void IPC_TablesDestroy() {
    IPC_FreeMsg(MsgPayload(g_pstIpcReserveMsg));
    g_pstIpcReserveMsg = nullptr;
    IPC_ChanTblDestroy();
    IPC_NodeTblDestroy();
}

// The poll task and the OM service outlive a failed initialisation. A repeated call reuses them rather
// than starting second ones: a second OM client would subscribe this process's paths again while the
// first one's connection task still runs. The OM service gets the poll set, or -1 when there is none
// (its connection task then retries until a later call has made one).
u32 IPC_StartServices() {
    static bool s_bOmStarted = false;
    const u32 ulPollRet = g_iIpcEpollFd.load() != -1 ? IPC_OK : IPC_PollTaskCreate();
    u32 ulOmRet = IPC_OK;
    if (!s_bOmStarted) {
        ulOmRet = zol::diag::ZOL_OmCmdStart(g_iIpcEpollFd.load());
        s_bOmStarted = ulOmRet == IPC_OK;
    }
    return ulPollRet + ulOmRet;
}

} // namespace
} // namespace zol::ipc

using namespace zol::ipc;

extern "C" {

ZOL_EXPORT u32 IPC_Init(u32 ulNodeId) {
    if (IPC_IsInit()) {
        return IPC_ERR_ALREADY;
    }
    if (IPC_NodeProcIdx(ulNodeId) >= IPC_MAX_PROC_NUM) {
        return IPC_ERR_PARAM;
    }
    g_ulIpcSelfNodeId = ulNodeId;
    (void)memset_s(g_astIpcConnNotify, sizeof(g_astIpcConnNotify), 0, sizeof(g_astIpcConnNotify));
    const u32 ulTblRet = IPC_TablesInit(ulNodeId);
    if (ulTblRet != IPC_OK) {
        return ulTblRet;
    }
    const u32 ulSvcRet = IPC_StartServices();
    if (ulSvcRet != IPC_OK) {
        IPC_TablesDestroy();
        return ulSvcRet;
    }
    __atomic_store_n(&g_ulIpcInitFlag, 1u, __ATOMIC_RELEASE);
    return IPC_OK;
}

ZOL_EXPORT u32 IPC_SetAckMsgQueLen(u32 ulLen) {
    if (ulLen == 0 || ulLen > IPC_ACK_QUE_LEN_MAX) {
        return IPC_ERR_ALREADY;
    }
    g_ulIpcAckMsgQueLen = ulLen;
    return IPC_OK;
}

ZOL_EXPORT u32 IPC_RegConnectNofity(IPC_CONN_NOTIFY_PF pfNotify) {
    if (pfNotify == nullptr) {
        return IPC_ERR_PARAM;
    }
    for (IPC_CONN_NOTIFY_S &stEntry : g_astIpcConnNotify) {
        if (stEntry.ulUsed != 1) {
            stEntry.ulUsed = 1;
            stEntry.pfNotify = pfNotify;
            return IPC_OK;
        }
    }
    IPC_AddErrStat(IPC_MAX_REGISTER_ERR);
    return IPC_ERR_ALREADY;
}

} // extern "C"
