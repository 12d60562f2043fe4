// The synchronous call: a context with a semaphore in the calling module's pending list, the request
// sent on channel 0, the wait, and on the receive side the matching of a reply to its waiting caller.
#include "foundation/log_points.h"
#include "ipc/rpc_internal.h"

#include "ruk_sem.h"
#include "ruk_task.h"

namespace zol::rpc {

namespace {

constexpr u32 kLatePostWaitMs = 1000; // bound for a post that failed (it is normally microseconds away)

// Finds the calling module, creates its waiting context and stamps the request with the next sequence
// number. IPC_RPC_OK, IPC_RPC_ERR_NO_SRC or IPC_RPC_ERR_NO_MEMORY; nothing is left behind on failure.
u32 SetUpCall(u32 ulSrcMod, u32 ulDstMod, u8 ucFlag, void *pReq, IPC_RPC_MOD_S **ppstMod, IPC_MSG_CTX_S **ppstCtx) {
    RpcLock lock;
    if (!lock.Held()) {
        return IPC_RPC_ERR_NO_MEMORY;
    }
    IPC_RPC_MOD_S *pstMod = IPC_RPC_FindMod(ulSrcMod);
    if (pstMod == nullptr) {
        return IPC_RPC_ERR_NO_SRC;
    }
    IPC_MSG_CTX_S *pstCtx = IPC_ProcCreateCtx(1, nullptr, 0, &pstMod->stMsgCtxList, 1);
    if (pstCtx == nullptr) {
        return IPC_RPC_ERR_NO_MEMORY;
    }
    const u32 ulSeq = g_ulRpcSeq.fetch_add(1, std::memory_order_relaxed);
    pstCtx->ulSeqOrLen = ulSeq;
    RpcStoreHead(RpcHead(RpcPayload(pReq)), RpcHeadHost{IPC_RPC_MSG_REQUEST, ucFlag, ulSeq, ulSrcMod, ulDstMod});
    *ppstMod = pstMod;
    *ppstCtx = pstCtx;
    return IPC_RPC_OK;
}

// Takes the context out of its pending list. Once out, the receive task can no longer attach a reply,
// so the caller may read and release what is there. The lock is waited for: deleting a context that is
// still listed would leave the receive task a dangling pointer.
void DetachCtx(IPC_RPC_MOD_S *pstMod, IPC_MSG_CTX_S *pstCtx) {
    for (;;) {
        RpcLock lock;
        if (lock.Held()) {
            IPC_RemoveMsgCtx(&pstMod->stMsgCtxList, pstCtx);
            return;
        }
        RUK_TaskDelay(1);
    }
}

// With the context detached: releases a reply not handed out (or attached after the time-out), then the
// context and its semaphore.
void ReleaseCtx(IPC_MSG_CTX_S *pstCtx) {
    if (pstCtx->pMsg != nullptr) {
        IPC_FreeMsg(pstCtx->pMsg);
    }
    IPC_DeleteMsgCtx(pstCtx, 1);
}

// The wait ended with a reply and the context is detached: hand out its data (the reply then belongs to the caller) or
// report an answer without data or from an unregistered module.
u32 TakeReply(IPC_MSG_CTX_S *pstCtx, void **ppRsp, u32 *pulRspLen) {
    RpcStatAdd(&g_pstRpcStat->ulSendOkNum);
    if (ppRsp == nullptr) {
        return IPC_RPC_OK;
    }
    void *pMsg = pstCtx->pMsg;
    const u32 ulLen = pstCtx->ulSeqOrLen;
    const u16 usType =
        (pMsg == nullptr || ulLen < IPC_RPC_HEAD_LEN) ? IPC_RPC_MSG_REPLY_EMPTY : RpcLoadHead(RpcHead(pMsg)).usMsgType;
    if (usType == IPC_RPC_MSG_REPLY_EMPTY || usType == IPC_RPC_MSG_NOT_REG) {
        *ppRsp = nullptr;
        *pulRspLen = 0;
        if (usType == IPC_RPC_MSG_NOT_REG) {
            RpcStatAdd(&g_pstRpcStat->ulNotRegNum);
            return IPC_RPC_ERR_NOT_REG;
        }
        return IPC_RPC_OK;
    }
    *ppRsp = RpcData(pMsg);
    *pulRspLen = ulLen - IPC_RPC_HEAD_LEN;
    pstCtx->pMsg = nullptr;
    RpcStatAdd(&g_pstRpcStat->ulRcvOkNum);
    return IPC_RPC_OK;
}

} // namespace

// A context whose reply is already attached keeps the reply's length in ulSeqOrLen until its caller
// removes it, so it is passed over: that length must not be mistaken for another call's sequence number.
IPC_MSG_CTX_S *IPC_RPC_FindMsgCtx(u32 ulModId, u32 ulSeq) {
    IPC_RPC_MOD_S *pstMod = IPC_RPC_FindMod(ulModId);
    if (pstMod == nullptr) {
        return nullptr;
    }
    IPC_MSG_LIST_S *pstList = &pstMod->stMsgCtxList;
    if (pstList->ulCount == 0 || pstList->stHead.pNext == nullptr) {
        return nullptr;
    }
    for (IPC_MSG_LIST_NODE_S *pstNode = pstList->stHead.pNext; pstNode != &pstList->stHead; pstNode = pstNode->pNext) {
        auto *pstCtx = static_cast<IPC_MSG_CTX_S *>(pstNode->pData);
        if (pstCtx == nullptr) {
            IPC_RPC_AddErrStat(RPC_FIND_MSG_CTX_NULL);
            continue;
        }
        if (pstCtx->ulSeqOrLen == ulSeq && pstCtx->pMsg == nullptr) {
            return pstCtx;
        }
    }
    return nullptr;
}

void IPC_RPC_ProcReply(void *pMsg, u32 ulLen) {
    const RpcHeadHost stHead = RpcLoadHead(RpcHead(pMsg));
    IPC_MSG_CTX_S *pstCtx = nullptr;
    u32 ulSemId = 0, ulRet = RUK_OK;
    {
        // Attach under the lock; post after it, so that the woken caller does not run straight into
        // the lock still held here (on one core that costs two more task switches per call).
        RpcLock lock;
        pstCtx = lock.Held() ? IPC_RPC_FindMsgCtx(stHead.ulDstMod, stHead.ulSeq) : nullptr;
        if (pstCtx != nullptr) {
            pstCtx->pMsg = pMsg;
            pstCtx->ulSeqOrLen = ulLen;
            ulSemId = pstCtx->ulSemId;
        }
    }
    if (pstCtx != nullptr) {
        ulRet = RUK_Sm_V(ulSemId);
    }
    if (pstCtx == nullptr) {
        IPC_RPC_AddErrStat(RPC_REPLY_FIND_CTX_FAIL);
        ZOL_LOG_MSG(log::kRpcEventInfo, "RPC_PR", "Can't find message ctx", "sMod=0x%x, dMod=0x%x, seq=%d",
                    stHead.ulSrcMod, stHead.ulDstMod, static_cast<int>(stHead.ulSeq));
        IPC_FreeMsg(pMsg);
        return;
    }
    if (ulRet != RUK_OK) {
        // The reply stays attached; the caller's clean-up releases it when its wait ends.
        IPC_RPC_AddErrStat(RPC_REPLY_SM_V_FAIL);
        ZOL_LOG_MSG(log::kRpcPlatformInfo, "RPC_PR", "wakeup sender unsuccess", "semId=%d, ret=%d",
                    static_cast<int>(ulSemId), static_cast<int>(ulRet));
    }
}

} // namespace zol::rpc

using namespace zol::rpc;

extern "C" ZOL_EXPORT u32 IPC_RPC_SyncCall(u32 ulSrcMod, u32 ulDstNode, u32 ulDstMod, u8 ucFlag, void *pReq,
                                           u32 ulReqLen, void **ppRsp, u32 *pulRspLen, u32 ulTimeout) {
    if (pReq == nullptr) {
        return IPC_RPC_ERR_PARAM;
    }
    if (ulReqLen == 0 || (ppRsp != nullptr && pulRspLen == nullptr)) {
        IPC_RPC_FreeMsg(pReq);
        return IPC_RPC_ERR_PARAM;
    }
    IPC_RPC_MOD_S *pstMod = nullptr;
    IPC_MSG_CTX_S *pstCtx = nullptr;
    u32 ulRet = SetUpCall(ulSrcMod, ulDstMod, ucFlag, pReq, &pstMod, &pstCtx);
    if (ulRet != IPC_RPC_OK) {
        IPC_RPC_FreeMsg(pReq);
        return ulRet;
    }
    // On success IPC delivers inside the send: the request is in the "RPCR" queue when it returns, and
    // the sent message comes back to channel 0, which releases it.
    ulRet = IPC_Send(0, ulDstNode, 0, 0, RpcPayload(pReq), RpcIpcLen(ulReqLen));
    if (ulRet != IPC_OK) {
        RpcStatAdd(&g_pstRpcStat->ulSendFailNum);
        IPC_RPC_AddErrStat(RPC_SEND_FAIL);
        DetachCtx(pstMod, pstCtx);
        ReleaseCtx(pstCtx);
        IPC_RPC_FreeMsg(pReq); // a refused message stays with its sender
        return ulRet;
    }
    const u32 ulWait = RUK_Sm_P(pstCtx->ulSemId, RUK_WAIT, ulTimeout);
    // Detached first in every outcome: a listed context whose reply was taken would look free again.
    DetachCtx(pstMod, pstCtx);
    if (ulWait != RUK_OK) {
        if (pstCtx->pMsg != nullptr) {
            // A reply was attached after the wait ended: its post is on its way (it is made after the
            // lock is left) and must find the semaphore alive, so absorb it before deleting.
            (void)RUK_Sm_P(pstCtx->ulSemId, RUK_WAIT, kLatePostWaitMs);
        }
        RpcStatAdd(&g_pstRpcStat->ulTimeoutNum);
        IPC_RPC_AddErrStat(RPC_TIMEOUT_ERR);
        ulRet = ulWait;
    } else {
        ulRet = TakeReply(pstCtx, ppRsp, pulRspLen);
    }
    ReleaseCtx(pstCtx);
    return ulRet;
}
