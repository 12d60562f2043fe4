// RPC messages: the 24-byte header in network byte order, allocation and release, and the replies that
// answer a request (from a callback's result or from a queue-mode module's IPC_RPC_SendAckMsg).
#include "foundation/log_points.h"
#include "ipc/ipc_byteorder.h"
#include "ipc/rpc_internal.h"

namespace zol::rpc {

namespace {

constexpr u32 kEmptyReplyLen = 4; // body of an answer without data (its bytes are not set)
constexpr u8 kHeadFlagSet = 1;

} // namespace

RpcHeadHost RpcLoadHead(const IPC_RPC_MSG_HEAD_S *pstHead) {
    return RpcHeadHost{ipc::NetToHost16(pstHead->usMsgType), pstHead->ucUserFlag, ipc::NetToHost32(pstHead->ulSeq),
                       ipc::NetToHost32(pstHead->ulSrcMod), ipc::NetToHost32(pstHead->ulDstMod)};
}

void RpcStoreHead(IPC_RPC_MSG_HEAD_S *pstHead, const RpcHeadHost &stHost) {
    pstHead->usMsgType = ipc::HostToNet16(stHost.usMsgType);
    pstHead->ucUserFlag = stHost.ucUserFlag;
    pstHead->ulSeq = ipc::HostToNet32(stHost.ulSeq);
    pstHead->ulSrcMod = ipc::HostToNet32(stHost.ulSrcMod);
    pstHead->ulDstMod = ipc::HostToNet32(stHost.ulDstMod);
}

// The IPC length of ulDataLen data bytes; a length beyond IPC's limit maps to one IPC refuses rather
// than wrapping around to a small one.
u32 RpcIpcLen(u32 ulDataLen) {
    return ulDataLen > IPC_RPC_MAX_DATA_LEN ? IPC_MAX_MSG_LEN + 1 : ulDataLen + IPC_RPC_HEAD_LEN;
}

void IPC_RPC_SendReply(void *pRsp, u32 ulRspLen, u32 ulDstNode, u32 ulCallerMod, u32 ulCalleeMod, u32 ulSeq, u16 usType,
                       u8 ucUserFlag) {
    if (pRsp == nullptr) {
        pRsp = IPC_RPC_AllocMsg_X(kEmptyReplyLen, IPC_RPC_MOD_ID, kFileRpc, __LINE__);
        if (pRsp == nullptr) {
            IPC_RPC_AddErrStat(RPC_SEND_REPLY_MALLOC_FAIL);
            return;
        }
        ulRspLen = kEmptyReplyLen;
        if (usType != IPC_RPC_MSG_NOT_REG) {
            usType = IPC_RPC_MSG_REPLY_EMPTY;
        }
    }
    void *pPayload = RpcPayload(pRsp);
    RpcStoreHead(RpcHead(pPayload), RpcHeadHost{usType, ucUserFlag, ulSeq, ulCalleeMod, ulCallerMod});
    const u32 ulRet = IPC_Send(0, ulDstNode, 0, 0, pPayload, RpcIpcLen(ulRspLen));
    if (ulRet != IPC_OK) {
        IPC_RPC_AddErrStat(RPC_SEND_REPLY_SEND_FAIL);
        ZOL_LOG_MSG(log::kRpcEventInfo, "RPC_SR", "send reply unsuccess", "ret=%d", static_cast<int>(ulRet));
        IPC_FreeMsg(pPayload); // a refused message stays with its sender
    }
}

} // namespace zol::rpc

using namespace zol::rpc;

extern "C" ZOL_EXPORT void *IPC_RPC_AllocMsg_X(u32 ulLen, u32 ulModId, const char *pcFuncName, u32 ulLine) {
    if (ulLen == 0) {
        return nullptr;
    }
    void *pPayload = IPC_AllocMsg_X(RpcIpcLen(ulLen), ulModId, pcFuncName, ulLine);
    if (pPayload == nullptr) {
        IPC_RPC_AddErrStat(RPC_MEMORY_ERR);
        return nullptr;
    }
    IPC_RPC_MSG_HEAD_S *pstHead = RpcHead(pPayload);
    pstHead->usMsgType = zol::ipc::HostToNet16(IPC_RPC_MSG_NEW);
    pstHead->ucHeadFlag = kHeadFlagSet;
    return RpcData(pPayload);
}

extern "C" ZOL_EXPORT void IPC_RPC_FreeMsg(void *pMsg) {
    if (pMsg == nullptr) {
        return;
    }
    void *pPayload = RpcPayload(pMsg);
    const u16 usType = zol::ipc::NetToHost16(RpcHead(pPayload)->usMsgType);
    if (usType > IPC_RPC_MSG_NOT_REG) {
        IPC_RPC_AddErrStat(RPC_MEMORY_ERR);
        ZOL_LOG_MSG(zol::log::kRpcMsgErr, "IPC_RPC_FM", "Invalid message", "type:%d", usType);
        return;
    }
    IPC_FreeMsg(pPayload);
}

extern "C" ZOL_EXPORT void IPC_RPC_SendAckMsg(void *pRsp, u32 ulRspLen, void *pReq, u32 ulDstNode) {
    if (pReq == nullptr) {
        IPC_RPC_FreeMsg(pRsp);
        return;
    }
    const RpcHeadHost stReq = RpcLoadHead(RpcHead(RpcPayload(pReq)));
    IPC_RPC_SendReply(pRsp, ulRspLen, ulDstNode, stReq.ulSrcMod, stReq.ulDstMod, stReq.ulSeq, IPC_RPC_MSG_REPLY,
                      stReq.ucUserFlag);
    IPC_RPC_FreeMsg(pReq);
}
