// RPC start-up and the module registry: claiming channel 0, the receive task and queue "RPCR", and the
// registration of modules in callback or queue mode.
#include "foundation/foundation_internal.h"
#include "ipc/rpc_internal.h"

#include "bounds_checked.h"
#include "ruk_mutex.h"
#include "ruk_queue.h"
#include "ruk_task.h"

namespace zol::rpc {

// Set up statically (an empty list points at its own head), so that a registration made before
// IPC_RPC_Init finds a usable registry instead of null links.
IPC_MSG_LIST_S g_stRpcModList = {{&g_stRpcModList.stHead, nullptr}, &g_stRpcModList.stHead, 0};
std::atomic<u32> g_ulRpcSeq{0};
std::atomic<u32> g_ulRpcTaskId{0};
std::atomic<u32> g_ulRpcQueId{0};

namespace {

constexpr u32 kMutexNone = 0, kMutexMaking = 1, kMutexReady = 2;
RUK_MUTEX_S g_stRpcMutex;
std::atomic<u32> g_ulRpcMutexState{kMutexNone};

// The platform mutex is made on first use (nothing runs at load). One thread makes it while any other
// first user yields; a failed attempt leaves it to be tried again by the next user.
bool RpcMutexReady() {
    for (;;) {
        u32 ulState = g_ulRpcMutexState.load(std::memory_order_acquire);
        if (ulState == kMutexReady) {
            return true;
        }
        if (ulState == kMutexNone &&
            g_ulRpcMutexState.compare_exchange_strong(ulState, kMutexMaking, std::memory_order_acq_rel)) {
            const bool bOk = RUK_MutexInit(&g_stRpcMutex, nullptr) == RUK_OK;
            g_ulRpcMutexState.store(bOk ? kMutexReady : kMutexNone, std::memory_order_release);
            return bOk;
        }
        RUK_TaskDelay(0);
    }
}

// Registration refusals for the mode and its arguments, in the order they are checked.
u32 CheckRegisterArgs(IPC_RPC_CALLBACK_PF pfCallback, u32 ulQueId, u32 ulMode, u32 ulTaskId, u32 ulEvent) {
    if (ulMode != IPC_RPC_MODE_QUEUE && ulMode != IPC_RPC_MODE_CALLBACK) {
        IPC_RPC_AddErrStat(RPC_REG_ERR);
        return IPC_RPC_ERR_PARAM;
    }
    if (ulMode == IPC_RPC_MODE_CALLBACK) {
        return pfCallback == nullptr ? IPC_RPC_ERR_PARAM : IPC_RPC_OK; // not counted
    }
    if (ulQueId == 0 || (ulTaskId != 0 && ulEvent == 0)) {
        IPC_RPC_AddErrStat(RPC_REG_ERR);
        return IPC_RPC_ERR_PARAM;
    }
    return IPC_RPC_OK;
}

} // namespace

RpcLock::RpcLock() : bHeld_(RpcMutexReady() && RUK_MutexLock(&g_stRpcMutex) == RUK_OK) {}

RpcLock::~RpcLock() {
    if (bHeld_) {
        RUK_MutexUnlock(&g_stRpcMutex);
    }
}

IPC_RPC_MOD_S *IPC_RPC_FindMod(u32 ulModId) {
    IPC_MSG_LIST_NODE_S *pstHead = &g_stRpcModList.stHead;
    if (g_stRpcModList.ulCount != 0 && pstHead->pNext != nullptr) {
        for (IPC_MSG_LIST_NODE_S *pstNode = pstHead->pNext; pstNode != pstHead; pstNode = pstNode->pNext) {
            auto *pstMod = static_cast<IPC_RPC_MOD_S *>(pstNode->pData);
            if (pstMod != nullptr && pstMod->ulModId == ulModId) {
                return pstMod;
            }
        }
    }
    IPC_RPC_AddErrStat(RPC_FIND_MOD_FAIL);
    return nullptr;
}

IPC_RPC_MOD_S *IPC_RPC_CreateMod(u32 ulModId) {
    auto *pstMod = static_cast<IPC_RPC_MOD_S *>(ZOL_MemAlloc(kModRpc, sizeof(IPC_RPC_MOD_S), kFileRpc, __LINE__));
    if (pstMod == nullptr) {
        return nullptr;
    }
    if (memset_s(pstMod, sizeof(*pstMod), 0, sizeof(*pstMod)) != 0) {
        (void)ZOL_MemFree(pstMod, kFileRpc, __LINE__);
        return nullptr;
    }
    // The list node is the pending list's own: appended after the tail, which it becomes.
    if (IPC_InsertMsgCtx(&g_stRpcModList, pstMod) != IPC_OK) {
        IPC_RPC_AddErrStat(RPC_REG_MOD_MALLOC_FAIL);
        (void)ZOL_MemFree(pstMod, kFileRpc, __LINE__);
        return nullptr;
    }
    pstMod->ulModId = ulModId;
    return pstMod;
}

} // namespace zol::rpc

using namespace zol::rpc;

extern "C" ZOL_EXPORT u32 IPC_RPC_Init(void) {
    {
        RpcLock lock; // a registry that cannot be locked is still reset: nothing else can run yet
        g_ulRpcSeq.store(0, std::memory_order_relaxed);
        zol::ipc::IpcInitMsgList(&g_stRpcModList);
    }
    u32 ulRet = IPC_Create(0, IPC_CHAN_MODE_CALLBACK, 0, IPC_RPC_RecvCallback);
    if (ulRet != IPC_OK) {
        return ulRet;
    }
    // The task only acts on its first event, which comes after a message was queued; so it may start
    // before its queue exists.
    u32 ulTaskId = 0;
    uintptr_t auArgs[4] = {0, 0, 0, 0};
    ulRet = RUK_TaskCreate(kRpcTaskName, &ulTaskId, IPC_RPC_Task, m_aulTaskPrio[kRpcTaskPrioIndex], 0, 0, auArgs);
    if (ulRet != RUK_OK) {
        IPC_RPC_AddErrStat(RPC_INIT_ERR);
        return ulRet;
    }
    g_ulRpcTaskId.store(ulTaskId, std::memory_order_release);
    u32 ulQueId = 0;
    ulRet = RUK_Que_Create(kRpcTaskName, kRpcQueDepth, kRpcQueFlags, &ulQueId);
    if (ulRet != RUK_OK) {
        IPC_RPC_AddErrStat(RPC_INIT_ERR);
        return ulRet;
    }
    g_ulRpcQueId.store(ulQueId, std::memory_order_release);
    return IPC_RPC_OK;
}

extern "C" ZOL_EXPORT u32 IPC_RPC_RegisterEnhance(u32 ulModId, IPC_RPC_CALLBACK_PF pfCallback, u32 ulQueId, u32 ulMode,
                                                  u32 ulTaskId, u32 ulEvent) {
    const u32 ulRet = CheckRegisterArgs(pfCallback, ulQueId, ulMode, ulTaskId, ulEvent);
    if (ulRet != IPC_RPC_OK) {
        return ulRet;
    }
    RpcLock lock;
    if (!lock.Held()) {
        return IPC_RPC_ERR_NO_MEMORY;
    }
    if (IPC_RPC_FindMod(ulModId) != nullptr) {
        IPC_RPC_AddErrStat(RPC_REG_ERR);
        return IPC_RPC_ERR_EXIST;
    }
    IPC_RPC_MOD_S *pstMod = IPC_RPC_CreateMod(ulModId);
    if (pstMod == nullptr) {
        return IPC_RPC_ERR_NO_MEMORY;
    }
    pstMod->ulQueId = ulQueId;
    pstMod->ulTaskId = ulTaskId;
    pstMod->ulEvent = ulEvent;
    pstMod->ulMode = ulMode;
    pstMod->pfCallback = pfCallback;
    zol::ipc::IpcInitMsgList(&pstMod->stMsgCtxList);
    return IPC_RPC_OK;
}

extern "C" ZOL_EXPORT u32 IPC_RPC_Register(u32 ulModId, IPC_RPC_CALLBACK_PF pfCallback) {
    return IPC_RPC_RegisterEnhance(ulModId, pfCallback, 0, IPC_RPC_MODE_CALLBACK, 0, 0);
}

extern "C" ZOL_EXPORT u32 IPC_RPC_RegisterEx(u32 ulModId, IPC_RPC_CALLBACK_PF pfCallback, u32 ulQueId, u32 ulMode) {
    return IPC_RPC_RegisterEnhance(ulModId, pfCallback, ulQueId, ulMode, 0, 0);
}
