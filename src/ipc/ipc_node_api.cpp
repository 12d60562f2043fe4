// Exported queries and settings on nodes: own id and address, reachability, link status, send window.
#include "foundation/log_points.h"
#include "ipc/ipc_byteorder.h"
#include "ipc/ipc_chan_internal.h"

#include <arpa/inet.h>

namespace zol::ipc {
namespace {

constexpr u32 kIpcWindowMsgNum = 128;
constexpr u32 kIpcSeqHalfRange = 0x80000000u;

// Bytes left in the window of 128 maximum-size messages, from the node's send and acknowledged sequence
// numbers (u32 arithmetic; a sequence that wrapped is measured the other way round).
u32 IPC_WindowLeft(u32 ulSendSeq, u32 ulAckSeq) {
    u32 ulOutstanding;
    if (ulSendSeq > ulAckSeq) {
        ulOutstanding = ulSendSeq - ulAckSeq;
        return ulOutstanding < kIpcWindowMsgNum ? (kIpcWindowMsgNum - ulOutstanding) * IPC_MAX_MSG_LEN : 0;
    }
    if (ulSendSeq == ulAckSeq || ulAckSeq - ulSendSeq <= kIpcSeqHalfRange) {
        return IPC_SEND_WINDOW;
    }
    ulOutstanding = ulSendSeq - 1u - ulAckSeq;
    return ulOutstanding < kIpcWindowMsgNum ? (kIpcWindowMsgNum - ulOutstanding) * IPC_MAX_MSG_LEN : IPC_SEND_WINDOW;
}

} // namespace
} // namespace zol::ipc

using namespace zol::ipc;

extern "C" {

ZOL_EXPORT u32 IPC_GetSelfNodeId(void) {
    return g_ulIpcSelfNodeId;
}

ZOL_EXPORT u32 IPC_SetServerPara(const char *pcIpAddr, u16 usPort) {
    IPC_NODE_S *pstSelf = IPC_IsInit() ? IPC_GetNode(g_ulIpcSelfNodeId) : nullptr;
    if (pstSelf == nullptr) {
        return IPC_ERR_NOT_INIT;
    }
    if (pcIpAddr == nullptr) {
        return IPC_ERR_PARAM;
    }
    pstSelf->ulIpAddr = inet_addr(pcIpAddr);
    pstSelf->usPort = HostToNet16(usPort);
    return IPC_OK;
}

ZOL_EXPORT u32 IPC_ConnectDstNode(u32 ulDstNode) {
    if (ulDstNode == g_ulIpcSelfNodeId) {
        return IPC_OK;
    }
    ZOL_LOG_MSG(zol::log::kIpcRpcProcessErr, "IPC_FMCL", "Not support connect to other processes.",
                "dstNode:%u,selfNodeId:%u", ulDstNode, g_ulIpcSelfNodeId);
    return IPC_ERR_UNREACHABLE;
}

ZOL_EXPORT u32 IPC_GetConnectStatus(u32 ulNodeId) {
    const IPC_NODE_S *pstNode = IPC_IsInit() ? IPC_GetNode(ulNodeId) : nullptr;
    return (pstNode != nullptr && pstNode->ucLinkStatus != 0) ? 1u : 0u;
}

ZOL_EXPORT u32 IPC_AllowSndDataMaxLen(u32 ulNodeId) {
    if (!IPC_IsInit()) {
        return IPC_ERR_NOT_INIT;
    }
    if (IPC_NodeProcIdx(ulNodeId) >= IPC_MAX_PROC_NUM) {
        return IPC_ERR_PARAM;
    }
    const IPC_NODE_S *pstNode = IPC_GetNode(ulNodeId);
    if (pstNode == nullptr) {
        return IPC_ERR_NOT_INIT;
    }
    return IPC_WindowLeft(pstNode->ulSendSeq, pstNode->ulAckSeq);
}

ZOL_EXPORT u32 IPC_GetUpNodeByProcess(u32 ulProcIdx, void *pOut1, u8 *pOut2) {
    if (pOut1 == nullptr || pOut2 == nullptr || g_ppstIpcNodeTbl == nullptr || ulProcIdx >= IPC_MAX_PROC_NUM) {
        return 1;
    }
    return IPC_OK;
}

ZOL_EXPORT u32 IPC_JoinGroup(u32 ulGroupId, u32 ulChanId) {
    (void)ulGroupId;
    (void)ulChanId;
    return IPC_OK;
}

ZOL_EXPORT u32 IPC_LeaveGroup(u32 ulGroupId, u32 ulChanId) {
    (void)ulGroupId;
    (void)ulChanId;
    return IPC_OK;
}

} // extern "C"
