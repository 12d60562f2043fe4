// Sending and delivery within the own node: the checks of IPC_Send, the header in network order, the
// receiver's copy, the hand-overs to the destination and back to the source channel, and their counts.
#include "foundation/log_points.h"
#include "ipc/ipc_byteorder.h"
#include "ipc/ipc_chan_internal.h"

#include <cstring>

#include "ruk_queue.h"

namespace zol::ipc {
namespace {

// The checks that leave the message untouched, in the order the callers rely on.
u32 IPC_CheckSendPara(u32 ulSrcChan, u32 ulDstNode, u32 ulDstChan, u32 ulFlag, const void *pMsg, u32 ulLen) {
    if (!IPC_IsInit()) {
        return IPC_ERR_NOT_INIT;
    }
    if (IPC_NodeProcIdx(ulDstNode) >= IPC_MAX_PROC_NUM) {
        return IPC_ERR_DST_PROC;
    }
    if (ulSrcChan >= IPC_MAX_CHAN_NUM || ulDstChan >= IPC_MAX_CHAN_NUM) {
        IPC_AddErrStat(IPC_PARAM_ERR);
        return IPC_ERR_CHAN;
    }
    if (pMsg == nullptr || ulLen == 0) {
        IPC_AddErrStat(IPC_MSG_ERR);
        return IPC_ERR_MSG;
    }
    if ((ulFlag & IPC_SEND_FLAG_SYNC) != 0 && IpcOnPollTask()) {
        IPC_AddErrStat(IPC_PARAM_ERR);
        return IPC_ERR_SYNC_ON_POLL;
    }
    if ((ulFlag & IPC_SEND_FLAG_MULTICAST) != 0) {
        IPC_AddErrStat(IPC_SEND_MC_NOT_SUPPORT);
        return IPC_ERR_UNREACHABLE;
    }
    if (IPC_GetChanRegCtrl(ulSrcChan) == nullptr) {
        IPC_AddErrStat(IPC_CHAN_ERR);
        return IPC_ERR_CHAN_NOT_REG;
    }
    return IPC_OK;
}

// Only a message its user holds may be sent; anything else is counted by what its mark says.
u32 IPC_CheckMsgMemFlag(const IPC_MSG_HEAD_S *pstHead, u32 ulSrcChan, u32 ulDstChan, u32 ulLen) {
    const u8 ucMark = IpcReadMemFlag(pstHead);
    if (ucMark == IPC_MEM_USED) {
        return IPC_OK;
    }
    IPC_AddErrStat(ucMark == IPC_MEM_FREED     ? IPC_MEMORY_RELEASED
                   : ucMark == IPC_MEM_SENDING ? IPC_MEMORY_SEND
                                               : IPC_MEMORY_OTHERS);
    IPC_AddErrStat(IPC_SEND_MEMORY_ERR);
    ZOL_LOG_MSG(log::kIpcMsgErr, "IPC_SD", "Message check fail", "sNode=0x%x, sChan=%d, dChan=%d, len=%d",
                g_ulIpcSelfNodeId, ulSrcChan, ulDstChan, ulLen);
    return IPC_ERR_MSG_OWNER;
}

void IPC_CountDelivery(u32 ulChanId, u32 ulNotifyType, u8 ucKind, u32 ulLen) {
    const u32 ulCell = ulChanId * kTrafficCells + (ucKind == 1 ? 0u : 4u) + (ulNotifyType == IPC_NOTIFY_RECV ? 0u : 2u);
    IpcTraffic::AddPair(ulCell, 1u, ulLen); // the count, then its bytes
}

// Queue mode: the owner's queue gets {kind, message, length, 0}. On failure the message is lost (released).
bool IPC_NotifyQueue(const IPC_CHAN_S *pstChan, u32 ulNotifyType, void *pPayload, u32 ulLen) {
    const u64 aullRecord[4] = {ulNotifyType, reinterpret_cast<uintptr_t>(pPayload), ulLen, 0};
    const u32 ulRet = RUK_Que_Write(pstChan->ulQueId, aullRecord, RUK_NOWAIT, 0);
    if (ulRet == RUK_OK) {
        return true;
    }
    IPC_FreeMsg(pPayload);
    IPC_AddErrStat(IPC_NOTIFY_QUE_FAIL);
    ZOL_LOG_MSG(log::kIpcPlatformInfo, "IPC_NC", "write queue unsuccess", "queue(%d), ret=%d", pstChan->ulQueId, ulRet);
    return false;
}

} // namespace

void IPC_NotifyChan(IPC_CHAN_S *pstChan, IPC_MSG_HEAD_S *pstHead, u32 ulNotifyType) {
    if (pstChan == nullptr) {
        return;
    }
    const IpcRouting stRoute = LoadRoutingNet(pstHead);
    const bool bRecv = ulNotifyType == IPC_NOTIFY_RECV;
    const u32 ulOwnChan = bRecv ? stRoute.usDstChanId : stRoute.usSrcChanId;
    const u32 ulPeerNode = bRecv ? stRoute.ulSrcNodeId : stRoute.ulDstNodeId;
    const u32 ulPeerChan = bRecv ? stRoute.usSrcChanId : stRoute.usDstChanId;
    pstHead->ucMemFlag = IPC_MEM_USED;
    StoreRoutingHost(pstHead, stRoute);
    const u8 ucKind = pstHead->ucSendFlag;
    // From here on the message belongs to the channel's owner, who may release it at once.
    void *pPayload = MsgPayload(pstHead);
    if (pstChan->usMode == IPC_CHAN_MODE_CALLBACK) {
        (void)pstChan->pfCallback(ulNotifyType, ulOwnChan, ulPeerNode, ulPeerChan, pPayload, stRoute.ulMsgLen);
    } else if (!IPC_NotifyQueue(pstChan, ulNotifyType, pPayload, stRoute.ulMsgLen)) {
        return;
    }
    if (IPC_GetChanRegCtrl(ulOwnChan) == nullptr) {
        IPC_AddErrStat(IPC_NOTIFY_CB_NULL);
        return;
    }
    IPC_CountDelivery(ulOwnChan, ulNotifyType, ucKind, stRoute.ulMsgLen);
}

u32 IPC_Send2SelfNode(IPC_MSG_HEAD_S *pstHead, u32 ulFlag) {
    IPC_CHAN_S *pstDstChan = IPC_GetChanRegCtrl(NetToHost16(pstHead->usDstChanId));
    if (pstDstChan == nullptr) {
        return IPC_ERR_CHAN_NOT_REG;
    }
    const u32 ulLen = NetToHost32(pstHead->ulMsgLen);
    if (ulLen > IPC_MAX_MSG_LEN) {
        return IPC_ERR_MSG_OWNER;
    }
    pstHead->ucMemFlag = IPC_MEM_USED;
    void *pCopy = IpcAllocMsg(ulLen, IPC_MOD_ID, "IPC_Send2SelfNode", __LINE__);
    if (pCopy == nullptr) {
        return IPC_ERR_NO_MEMORY;
    }
    // Header and payload at once: the copy starts as a duplicate of the sent header (network order).
    IPC_MSG_HEAD_S *pstCopy = MsgHead(pCopy);
    // Both blocks hold exactly this many bytes (the length was bounded above), so no checked copy is needed.
    memcpy(pstCopy, pstHead, ulLen + IPC_MSG_HEAD_LEN);
    IPC_NotifyChan(pstDstChan, pstCopy, IPC_NOTIFY_RECV);
    if ((ulFlag & IPC_SEND_FLAG_SYNC) != 0) {
        return IPC_OK;
    }
    IPC_NotifyChan(IPC_GetChanRegCtrl(NetToHost16(pstHead->usSrcChanId)), pstHead, IPC_NOTIFY_SEND_FINISH);
    return IPC_OK;
}

} // namespace zol::ipc

using namespace zol::ipc;

extern "C" ZOL_EXPORT u32 IPC_Send(u32 ulSrcChan, u32 ulDstNode, u32 ulDstChan, u32 ulFlag, void *pMsg, u32 ulLen) {
    u32 ulRet = IPC_CheckSendPara(ulSrcChan, ulDstNode, ulDstChan, ulFlag, pMsg, ulLen);
    if (ulRet != IPC_OK) {
        return ulRet;
    }
    IPC_MSG_HEAD_S *pstHead = MsgHead(pMsg);
    ulRet = IPC_CheckMsgMemFlag(pstHead, ulSrcChan, ulDstChan, ulLen);
    if (ulRet != IPC_OK) {
        return ulRet;
    }
    IPC_ReleaseMsgCtx(pstHead);
    pstHead->ucMemFlag = IPC_MEM_SENDING;
    StoreRoutingNet(pstHead, IpcRouting{g_ulIpcSelfNodeId, ulDstNode, static_cast<u16>(ulSrcChan),
                                        static_cast<u16>(ulDstChan), ulLen});
    pstHead->ucSendFlag = 1; // delivery within the own node
    ulRet = ulDstNode == g_ulIpcSelfNodeId ? IPC_Send2SelfNode(pstHead, ulFlag) : IPC_ERR_UNREACHABLE;
    if (ulRet != IPC_OK) {
        IPC_StatAdd(&g_pstIpcChanTbl[ulSrcChan].ulSendFailNum, 1u);
        pstHead->ucMemFlag = IPC_MEM_USED;
    }
    return ulRet;
}
