// The poll set and the task "IPCP" that waits on it and hands each ready descriptor to the handler
// registered with it.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"
#include "ipc/ipc_internal.h"

#include "mesh_epoll.h"
#include "ruk_mem.h"
#include "ruk_task.h"

namespace zol::ipc {

// Written when the poll task is created (before it starts), read by the task and by every registering task.
std::atomic<s32> g_iIpcEpollFd{-1};
std::atomic<u32> g_ulIpcPollTaskId{0};

namespace {

// A record is only trusted when the memory service knows it as live and it carries the magic: an event may
// outlive its record (another handler of the same wait may have ended that watch and released it).
bool IsLiveRecord(const IPC_EPOLL_HANDLER_S *pstRec) {
    u32 ulRefs = 0;
    return pstRec != nullptr && RUK_MemRefGet(const_cast<IPC_EPOLL_HANDLER_S *>(pstRec), &ulRefs) == RUK_OK &&
           pstRec->ulMagic == IPC_EPOLL_MAGIC;
}

// An event nobody can handle would fire for ever: stop watching its descriptor and drop the registration.
// Only a record of ours tells which descriptor that is; anything else is just counted.
void DropInvalidEvent(IPC_EPOLL_HANDLER_S *pstRec) {
    ZOL_LOG_TAG(log::kIpcEpollInfo, "IPC_HEE", "epoll event ptr is not valid.");
    IPC_AddErrStat(IPC_EVENT_PARA_INVALID);
    if (!IsLiveRecord(pstRec)) {
        return;
    }
    const s32 iFd = static_cast<s32>(pstRec->ulFd);
    (void)MESH_EpollCtl(g_iIpcEpollFd.load(std::memory_order_relaxed), MESH_EPOLL_CTL_DEL, iFd, nullptr);
    (void)MESH_Close(iFd);
    pstRec->ulMagic = 0;
    (void)ZOL_MemFree(pstRec, kFileIpc, __LINE__);
}

void IPC_HandleEpollEvent(MESH_EPOLL_EVENT_S *pstEvents, s32 iNum) {
    for (s32 i = 0; i < iNum; ++i) {
        auto *pstRec = static_cast<IPC_EPOLL_HANDLER_S *>(pstEvents[i].pData);
        if (IsLiveRecord(pstRec) && pstRec->pfHandler != nullptr) {
            (void)pstRec->pfHandler(pstRec, pstEvents[i].ulEvents);
            continue;
        }
        DropInvalidEvent(pstRec);
    }
}

// Runs until the poll set is gone or the wait fails; nothing restarts it.
void IPC_PollTask(uintptr_t, uintptr_t, uintptr_t, uintptr_t) {
    MESH_EPOLL_EVENT_S astEvents[kEpollWaitMax];
    for (;;) {
        const s32 iEpFd = g_iIpcEpollFd.load(std::memory_order_relaxed);
        if (iEpFd == -1) {
            return;
        }
        const s32 iNum = MESH_EpollWait(iEpFd, astEvents, kEpollWaitMax, -1);
        if (iNum < 0) {
            ZOL_LOG_MSG(log::kIpcRpcProcessErr, "IPC_PT", "Ipc epoll failed.", "fd:%d status:%d.", iEpFd,
                        MESH_GetErrorNo());
            return;
        }
        IPC_HandleEpollEvent(astEvents, iNum);
    }
}

} // namespace

bool IpcOnPollTask() {
    const u32 ulPollTask = g_ulIpcPollTaskId.load(std::memory_order_relaxed);
    return ulPollTask != 0 && RUK_TaskCurrentIdGet() == ulPollTask;
}

void IpcReleaseEpollRecord(IPC_EPOLL_HANDLER_S *pstRec) {
    if (pstRec != nullptr) {
        pstRec->ulMagic = 0;
        (void)ZOL_MemFree(pstRec, kFileIpcUtil, __LINE__);
    }
}

} // namespace zol::ipc

using namespace zol::ipc;

extern "C" {

ZOL_EXPORT u32 IPC_PollTaskCreate(void) {
    const s32 iEpFd = MESH_EpollCreate();
    if (iEpFd < 0) {
        g_iIpcEpollFd.store(-1, std::memory_order_relaxed);
        return IPC_ERR_NO_POLL_SET;
    }
    g_iIpcEpollFd.store(iEpFd, std::memory_order_relaxed);
    u32 ulTaskId = 0;
    uintptr_t auArgs[4] = {0, 0, 0, 0};
    if (RUK_TaskCreate(kPollTaskName, &ulTaskId, IPC_PollTask, m_aulTaskPrio[kPollTaskPrioIndex], 0, 0, auArgs) !=
        RUK_OK) {
        (void)MESH_Close(iEpFd);
        g_iIpcEpollFd.store(-1, std::memory_order_relaxed);
        return IPC_ERR_NO_POLL_TASK;
    }
    g_ulIpcPollTaskId.store(ulTaskId, std::memory_order_relaxed);
    return IPC_OK;
}

ZOL_EXPORT u32 IPC_EpollAddFd(u32 ulFd, u32 ulUserData, IPC_EPOLL_HANDLER_PF pfHandler, u32 ulEvents) {
    auto *pstRec = static_cast<IPC_EPOLL_HANDLER_S *>(
        zol::ZOL_MemAlloc(zol::kModIpc, sizeof(IPC_EPOLL_HANDLER_S), kFileIpcUtil, __LINE__));
    if (pstRec == nullptr) {
        return IPC_ERR_NO_MEMORY;
    }
    pstRec->ulMagic = IPC_EPOLL_MAGIC;
    pstRec->ulUserData = ulUserData;
    pstRec->ulFd = ulFd;
    pstRec->ulEvents = ulEvents;
    pstRec->pfHandler = pfHandler;
    MESH_EPOLL_EVENT_S stEvent = {ulEvents, pstRec};
    if (MESH_EpollCtl(g_iIpcEpollFd.load(std::memory_order_relaxed), MESH_EPOLL_CTL_ADD, static_cast<s32>(ulFd),
                      &stEvent) < 0) {
        IpcReleaseEpollRecord(pstRec);
        return IPC_ERR_EPOLL_ADD;
    }
    return IPC_OK;
}

ZOL_EXPORT void IPC_EpollDelFd(u32 ulFd) {
    (void)MESH_EpollCtl(g_iIpcEpollFd.load(std::memory_order_relaxed), MESH_EPOLL_CTL_DEL, static_cast<s32>(ulFd),
                        nullptr);
}

} // extern "C"
