// IPC messages: allocation and release with the ownership mark, the header accessors and the send status
// of an attached context.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"
#include "ipc/ipc_internal.h"

#include <cstddef>
#include <cstring>

#include "ruk_mem.h"

namespace zol::ipc {

// The header layout is a contract with users that address fields below the payload pointer.
// Size 40 (LP64): the context pointer is unaligned at 30, hence the packed record.
static_assert(sizeof(IPC_MSG_HEAD_S) == IPC_MSG_HEAD_LEN, "IPC header must be 40 bytes");
static_assert(offsetof(IPC_MSG_HEAD_S, ulSrcNodeId) == 0);
static_assert(offsetof(IPC_MSG_HEAD_S, ulDstNodeId) == 4);
static_assert(offsetof(IPC_MSG_HEAD_S, usSrcChanId) == 8);
static_assert(offsetof(IPC_MSG_HEAD_S, usDstChanId) == 10);
static_assert(offsetof(IPC_MSG_HEAD_S, ulMsgLen) == 12);
static_assert(offsetof(IPC_MSG_HEAD_S, ucMemFlag) == 16);
static_assert(offsetof(IPC_MSG_HEAD_S, aucReserved1) == 17);
static_assert(offsetof(IPC_MSG_HEAD_S, ucSendFlag) == 28);
static_assert(offsetof(IPC_MSG_HEAD_S, ucCtxFlag) == 29);
static_assert(offsetof(IPC_MSG_HEAD_S, pstMsgCtx) == 30);
static_assert(offsetof(IPC_MSG_HEAD_S, aucReserved2) == 38);
static_assert(IPC_MAX_MSG_LEN + IPC_MSG_HEAD_LEN == 65536u, "the largest message block is 64 KiB");

namespace {

constexpr u32 kStackSkip = 2;
constexpr u32 kStackDepth = 31;
constexpr u32 kStackBufLen = 512;

// A second release is a fault of the caller: show where it came from, but never act on the block.
void ReportRepeatedRelease() {
    char acStack[kStackBufLen];
    acStack[0] = '\0';
    ZOL_GetCurrStack(kStackSkip, kStackDepth, acStack, sizeof(acStack));
    ZOL_LOG_MSG(log::kIpcMsgErr, "IPC_FM", "Message check fail", "Memory is free, stack:%s", acStack);
    IPC_AddErrStat(IPC_REPEATED_RELEASE_ERR);
}

// The owner's release: mark first, so that a later release of the same pointer is recognised.
void ReleaseOwnedMsg(IPC_MSG_HEAD_S *pstHead) {
    pstHead->ucMemFlag = IPC_MEM_FREED;
    if (ZOL_MemFree(pstHead, kFileIpc, __LINE__) != 0) {
        // The block is still allocated and still the caller's: keep the mark truthful.
        pstHead->ucMemFlag = IPC_MEM_USED;
    }
}

} // namespace

void *IpcAllocMsg(u32 ulLen, u32 ulModId, const char *pcFuncName, u32 ulLine) {
    if (ulLen == 0 || ulLen > IPC_MAX_MSG_LEN) {
        return nullptr;
    }
    const u32 ulBlockLen = ulLen + IPC_MSG_HEAD_LEN;
    void *pBlock = ZOL_MemAlloc(ulModId, ulBlockLen, pcFuncName != nullptr ? pcFuncName : kFileIpc, ulLine);
    if (pBlock == nullptr) {
        return nullptr;
    }
    // The block always exceeds the header, so a plain clear of the header is in bounds.
    auto *pstHead = static_cast<IPC_MSG_HEAD_S *>(pBlock);
    memset(pstHead, 0, IPC_MSG_HEAD_LEN);
    pstHead->ucCtxFlag = IPC_CTX_FLAG_NONE;
    pstHead->ucMemFlag = IPC_MEM_USED;
    return MsgPayload(pstHead);
}

void IPC_ReleaseMsgCtx(IPC_MSG_HEAD_S *pstHead) {
    if ((pstHead->ucSendFlag & IPC_SEND_FLAG_CTX_ATTACHED) == 0 || pstHead->ucCtxFlag != IPC_CTX_FLAG_ATTACHED) {
        return;
    }
    IPC_MSG_CTX_S *pstCtx = pstHead->pstMsgCtx;
    pstHead->pstMsgCtx = nullptr;
    pstHead->ucSendFlag = static_cast<u8>(pstHead->ucSendFlag & IPC_SEND_KIND_MASK);
    pstHead->ucCtxFlag = IPC_CTX_FLAG_NONE;
    if (pstCtx == nullptr) {
        ZOL_LOG_MSG(log::kIpcRpcProcessErr, "IPC_FMCL", "Message check fail", "pstMsgCtx is zero");
        return;
    }
    // A plain release: the semaphore of an attached context belongs to whoever waits on it.
    (void)ZOL_MemFree(pstCtx, kFileIpcUtil, __LINE__);
}

} // namespace zol::ipc

using namespace zol::ipc;

extern "C" {

ZOL_EXPORT void *IPC_AllocMsg_X(u32 ulLen, u32 ulModId, const char *pcFuncName, u32 ulLine) {
    return IpcAllocMsg(ulLen, ulModId, pcFuncName, ulLine);
}

ZOL_EXPORT void IPC_FreeMsg(void *pMsg) {
    if (pMsg == nullptr) {
        return;
    }
    IPC_MSG_HEAD_S *pstHead = MsgHead(pMsg);
    if (!MarkReadable(pstHead)) {
        ReportRepeatedRelease();
        return;
    }
    IPC_ReleaseMsgCtx(pstHead);
    switch (pstHead->ucMemFlag) {
    case IPC_MEM_USED:
        ReleaseOwnedMsg(pstHead);
        break;
    case IPC_MEM_FREED: // still allocated (another reference holds it) but released by its IPC owner
        ReportRepeatedRelease();
        break;
    case IPC_MEM_SENDING:
        IPC_AddErrStat(IPC_SEND_RELEASE_ERR);
        break;
    default:
        ZOL_LOG_MSG(zol::log::kIpcMsgErr, "IPC_FM", "Message check fail", "Memory is unexpected");
        IPC_AddErrStat(IPC_OTHERS_RELEASE_ERR);
        break;
    }
}

ZOL_EXPORT u32 IPC_GetSrcNodeId(void *pMsg) {
    return pMsg != nullptr ? MsgHead(pMsg)->ulSrcNodeId : IPC_INVALID_NODE_ID;
}

ZOL_EXPORT u32 IPC_GetDstNodeId(void *pMsg) {
    return pMsg != nullptr ? MsgHead(pMsg)->ulDstNodeId : IPC_INVALID_NODE_ID;
}

ZOL_EXPORT u32 IPC_GetSrcChanId(void *pMsg) {
    return pMsg != nullptr ? MsgHead(pMsg)->usSrcChanId : IPC_MAX_CHAN_NUM;
}

ZOL_EXPORT u32 IPC_GetDstChanId(void *pMsg) {
    return pMsg != nullptr ? MsgHead(pMsg)->usDstChanId : IPC_MAX_CHAN_NUM;
}

ZOL_EXPORT void IPC_SetSrcAndDstNodeId(void *pMsg, u32 ulSrcNode, u32 ulDstNode) {
    if (pMsg == nullptr) {
        return;
    }
    IPC_MSG_HEAD_S *pstHead = MsgHead(pMsg);
    pstHead->ulSrcNodeId = ulSrcNode;
    pstHead->ulDstNodeId = ulDstNode;
}

ZOL_EXPORT void IPC_SetSrcAndDstChannelId(void *pMsg, u16 usSrcChan, u16 usDstChan) {
    if (pMsg == nullptr) {
        return;
    }
    IPC_MSG_HEAD_S *pstHead = MsgHead(pMsg);
    pstHead->usSrcChanId = usSrcChan;
    pstHead->usDstChanId = usDstChan;
}

ZOL_EXPORT u32 IPC_GetSendStatus(u8 *pucStatus, void *pMsg) {
    if (pMsg == nullptr) {
        return IPC_ERR_PARAM;
    }
    IPC_MSG_HEAD_S *pstHead = MsgHead(pMsg);
    IPC_MSG_CTX_S *pstCtx = pstHead->pstMsgCtx;
    if ((pstHead->ucSendFlag & IPC_SEND_FLAG_CTX_ATTACHED) == 0 || pstCtx == nullptr) {
        return IPC_OK;
    }
    if (pucStatus == nullptr) {
        return IPC_ERR_PARAM;
    }
    const IPC_MSG_CTX_DST_S *pstDst = CtxDstEntries(pstCtx);
    for (u32 i = 0; i < pstCtx->usDstNum; ++i) {
        pucStatus[i] = pstDst[i].ucSendStatus;
    }
    return IPC_OK;
}

} // extern "C"
