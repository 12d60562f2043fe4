// The receive side of RPC: channel 0's callback queues every arriving message for the task "RPCR",
// which passes replies to the matching and requests to their module (a timed callback call, or a record
// in the module's own queue), answering requests for unregistered modules at once.
#include "foundation/log_points.h"
#include "ipc/rpc_internal.h"

#include <sys/time.h>

#include "ruk_event.h"
#include "ruk_queue.h"
#include "ruk_task.h"

namespace zol::rpc {

namespace {

constexpr u32 kRunSliceMs = 500; // the receive loop yields after running this long
constexpr u32 kRunPauseMs = 10;
constexpr u64 kUsPerSec = 1000000;

u64 WallClockUs() {
    struct timeval tv = {};
    (void)gettimeofday(&tv, nullptr);
    return static_cast<u64>(tv.tv_sec) * kUsPerSec + static_cast<u64>(tv.tv_usec);
}

// Only "RPCR" writes the timing; the display reads it from the poll task, hence the atomic accesses.
// An equal cost replaces the older longest call.
void RecordCallTime(IPC_RPC_MOD_S *pstMod, u32 ulCost, u64 ullEndSec) {
    __atomic_store_n(&pstMod->ulLastCost, ulCost, __ATOMIC_RELAXED);
    __atomic_store_n(&pstMod->ullLastTime, ullEndSec, __ATOMIC_RELAXED);
    if (ulCost >= __atomic_load_n(&pstMod->ulLongestCost, __ATOMIC_RELAXED)) {
        __atomic_store_n(&pstMod->ulLongestCost, ulCost, __ATOMIC_RELAXED);
        __atomic_store_n(&pstMod->ullLongestTime, ullEndSec, __ATOMIC_RELAXED);
    }
}

u64 PtrWord(const void *p) {
    return static_cast<u64>(reinterpret_cast<uintptr_t>(p));
}

} // namespace

u32 IPC_RPC_RecvCallback(u32 ulNotifyType, u32 ulOwnChan, u32 ulPeerNode, u32 ulPeerChan, void *pMsg, u32 ulLen) {
    (void)ulOwnChan;
    (void)ulPeerChan;
    if (pMsg == nullptr || ulLen == 0) {
        IPC_RPC_AddErrStat(RPC_RECV_MSG_CHECK_FAIL);
        return 0;
    }
    if (ulNotifyType == IPC_NOTIFY_SEND_FINISH) {
        // Every request and reply RPC sends comes back here once.
        IPC_RPC_AddErrStat(RPC_RECV_MSG_FLAG_FINISH);
        IPC_FreeMsg(pMsg);
        return 0;
    }
    const u64 aullRec[4] = {PtrWord(pMsg), ulLen, ulPeerNode, 0};
    const u32 ulQueId = g_ulRpcQueId.load(std::memory_order_acquire);
    u32 ulRet = RUK_Que_Write(ulQueId, aullRec, RUK_NOWAIT, 0);
    if (ulRet != RUK_OK) {
        IPC_RPC_AddErrStat(RPC_RECV_QUE_WRITE_FAIL);
        ZOL_LOG_MSG(log::kRpcPlatformInfo, "RPC_PRM_F", "Can't write queue", "queue=%d,ret=%d",
                    static_cast<int>(ulQueId), static_cast<int>(ulRet));
        IPC_FreeMsg(pMsg);
        return 0;
    }
    const u32 ulTaskId = g_ulRpcTaskId.load(std::memory_order_acquire);
    ulRet = RUK_Ev_Write(ulTaskId, kRpcEvent);
    if (ulRet != RUK_OK) {
        // The record stays queued and is taken with the next event.
        IPC_RPC_AddErrStat(RPC_RECV_EV_WRITE_FAIL);
        ZOL_LOG_MSG(log::kRpcPlatformInfo, "RPC_PRM_F", "Can't write task event", "task=%d,ret=%d",
                    static_cast<int>(ulTaskId), static_cast<int>(ulRet));
    }
    return 0;
}

// One event drains the whole queue, one message after another.
void IPC_RPC_Task(uintptr_t, uintptr_t, uintptr_t, uintptr_t) {
    for (;;) {
        u32 ulReceived = 0;
        if (RUK_Ev_Read(kRpcEvent, &ulReceived, RUK_WAIT | RUK_EV_ANY, 0) != RUK_OK) {
            continue;
        }
        u64 aullRec[4] = {};
        while (RUK_Que_Read(g_ulRpcQueId.load(std::memory_order_acquire), aullRec, RUK_NOWAIT, 0) == RUK_OK) {
            IPC_RPC_ProcRecvMsg(reinterpret_cast<void *>(static_cast<uintptr_t>(aullRec[0])),
                                static_cast<u32>(aullRec[1]), static_cast<u32>(aullRec[2]));
            RUK_TaskRunDelay(kRunSliceMs, kRunPauseMs);
        }
    }
}

void IPC_RPC_ProcRecvMsg(void *pMsg, u32 ulLen, u32 ulSrcNode) {
    if (ulLen < IPC_RPC_HEAD_LEN) {
        // Not an RPC message (channel 0 carries nothing else): it cannot be answered.
        IPC_RPC_AddErrStat(RPC_RECV_MSG_CHECK_FAIL);
        IPC_FreeMsg(pMsg);
        return;
    }
    const RpcHeadHost stHead = RpcLoadHead(RpcHead(pMsg));
    if (stHead.usMsgType >= IPC_RPC_MSG_REPLY && stHead.usMsgType <= IPC_RPC_MSG_NOT_REG) {
        IPC_RPC_ProcReply(pMsg, ulLen);
        return;
    }
    IPC_RPC_MOD_S *pstMod = nullptr;
    {
        RpcLock lock;
        pstMod = lock.Held() ? IPC_RPC_FindMod(stHead.ulDstMod) : nullptr;
    }
    if (pstMod == nullptr) {
        IPC_RPC_AddErrStat(RPC_RECV_FIND_MOD_FAIL);
        ZOL_LOG_MSG(log::kRpcEventInfo, "RPC_PRM", "Mod not register", "dMod(0x%x), sMod(0x%x)", stHead.ulDstMod,
                    stHead.ulSrcMod);
        IPC_RPC_SendReply(nullptr, 0, ulSrcNode, stHead.ulSrcMod, stHead.ulDstMod, stHead.ulSeq, IPC_RPC_MSG_NOT_REG,
                          stHead.ucUserFlag);
        IPC_FreeMsg(pMsg);
        return;
    }
    IPC_RPC_DeliverReq(pstMod, pMsg, ulLen, ulSrcNode);
}

void IPC_RPC_DeliverReq(IPC_RPC_MOD_S *pstMod, void *pMsg, u32 ulLen, u32 ulSrcNode) {
    if (pstMod->ulMode == IPC_RPC_MODE_CALLBACK) {
        IPC_RPC_DirectCall(pstMod, pMsg, ulLen, ulSrcNode);
        return;
    }
    const u64 aullRec[4] = {IPC_RPC_DELIVER_MSG_TYPE, PtrWord(RpcData(pMsg)), ulLen - IPC_RPC_HEAD_LEN, ulSrcNode};
    u32 ulRet = RUK_Que_Write(pstMod->ulQueId, aullRec, RUK_NOWAIT, 0);
    if (ulRet != RUK_OK) {
        // Lost: the caller is not answered and ends with its time-out.
        IPC_RPC_AddErrStat(RPC_DELIVER_QUE_WRITE_FAIL);
        ZOL_LOG_MSG(log::kRpcPlatformInfo, "RPC_DRP", "write queue unsuccess", "queue=%d, ret=%d",
                    static_cast<int>(pstMod->ulQueId), static_cast<int>(ulRet));
        IPC_FreeMsg(pMsg);
        return;
    }
    // The module's task owns the request now. The event goes out even when task and event are 0 (a
    // module registered without them), where the platform refuses it and the refusal is counted.
    ulRet = RUK_Ev_Write(pstMod->ulTaskId, pstMod->ulEvent);
    if (ulRet != RUK_OK) {
        IPC_RPC_AddErrStat(RPC_DELIVER_EV_WRITE_FAIL);
        ZOL_LOG_MSG(log::kRpcPlatformInfo, "RPC_DRP", "send task event unsuccess", "task=%d, event=%d, ret=%d",
                    static_cast<int>(pstMod->ulTaskId), static_cast<int>(pstMod->ulEvent), static_cast<int>(ulRet));
    }
}

void IPC_RPC_DirectCall(IPC_RPC_MOD_S *pstMod, void *pMsg, u32 ulLen, u32 ulSrcNode) {
    const RpcHeadHost stHead = RpcLoadHead(RpcHead(pMsg));
    void *pRsp = nullptr;
    u32 ulRspLen = 0;
    const u64 ullStart = WallClockUs();
    (void)pstMod->pfCallback(ulSrcNode, stHead.ulSrcMod, RpcData(pMsg), ulLen - IPC_RPC_HEAD_LEN, &pRsp, &ulRspLen);
    const u64 ullEnd = WallClockUs();
    const u32 ulCost = static_cast<u32>(ullEnd - ullStart);
    RecordCallTime(pstMod, ulCost, ullEnd / kUsPerSec);
    if (ulCost > kRpcLongCallUs) {
        ZOL_LOG_MSG(log::kRpcEventInfo, "RPC_DPBC", "time too long.", "srcMod:%u, dstMod:%u", stHead.ulSrcMod,
                    stHead.ulDstMod);
    }
    IPC_RPC_SendReply(pRsp, ulRspLen, ulSrcNode, stHead.ulSrcMod, stHead.ulDstMod, stHead.ulSeq, IPC_RPC_MSG_REPLY,
                      stHead.ucUserFlag);
    IPC_FreeMsg(pMsg);
}

} // namespace zol::rpc
