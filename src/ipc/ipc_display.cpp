// The IPC diagnostic displays of "get-ipc-info": connections, error counters, node details and channel
// traffic, written as text tables into the command service's buffer. They only read IPC state.
#include "foundation/foundation_internal.h"
#include "ipc/ipc_byteorder.h"
#include "ipc/ipc_chan_internal.h"

#include "ruk_str.h"

namespace zol::ipc {
namespace {

#define IPC_DASH10 "----------"
constexpr const char *kSep44 = "\r\n" IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 "----";
constexpr const char *kSep64 = "\r\n" IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 "----";
constexpr const char *kSep74 =
    "\r\n" IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 "----";
constexpr const char *kSep87 =
    "\r\n" IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 IPC_DASH10 "-------";
#undef IPC_DASH10
constexpr const char *kNotUsed = "\r\nInfo: The IPC function is not used in this process.";

// A running text in the caller's buffer.
struct IpcText {
    char *pcBuf;
    u32 ulSize;
    u32 ulUsed;
};

#define IPC_PUT(text, ...) ZOL_FormatToBuff((text).pcBuf, (text).ulSize, &(text).ulUsed, __LINE__, __VA_ARGS__)

const char *IPC_LinkText(const IPC_NODE_S *pstNode) {
    return pstNode->ucLinkStatus != 0 ? "Up" : "Down";
}

// Dotted text of a network-order address, in a zeroed buffer of 20 bytes.
struct IpcAddrText {
    char szText[20] = {};
    explicit IpcAddrText(u32 ulNetAddr) { (void)RUK_IpAddrToStr(NetToHost32(ulNetAddr), szText); }
};

// Calls pfVisit for every node record but the own one, in registry order, until it returns false.
template <typename Visit>
void IPC_ForEachRemoteNode(Visit pfVisit) {
    for (u32 ulLoc = 0; ulLoc < IPC_NODE_GROUP_NUM; ulLoc++) {
        const IPC_NODE_GROUP_S *pstGroup = g_ppstIpcNodeTbl[ulLoc];
        if (pstGroup == nullptr) {
            continue;
        }
        for (const IPC_NODE_S *pstNode : pstGroup->apstNode) {
            if (pstNode != nullptr && pstNode->ulNodeId != g_ulIpcSelfNodeId && !pfVisit(pstNode)) {
                return;
            }
        }
    }
}

void IPC_ShowNodeInfo(IpcText &stText, const IPC_NODE_S *pstNode) {
    const IpcAddrText stAddr(pstNode->ulIpAddr);
    IPC_PUT(stText, "\r\nDestination node               : %u", pstNode->ulNodeId);
    IPC_PUT(stText, "\r\n  Self Node                    : %u", g_ulIpcSelfNodeId);
    IPC_PUT(stText, "\r\n  Destination IP               : %s", stAddr.szText);
    IPC_PUT(stText, "\r\n  Destination Port             : %u", pstNode->usPort);
    IPC_PUT(stText, "\r\n  Link status                  : %s", IPC_LinkText(pstNode));
    IPC_PUT(stText, "\r\n  Link down times              : %u", pstNode->ulLinkDownNum);
    IPC_PUT(stText, "\r\n  Sequence number              : %u", pstNode->ulSendSeq);
    IPC_PUT(stText, "\r\n  Ack number                   : %u", pstNode->ulAckSeq);
    IPC_PUT(stText, "\r\n  Socket fd                    : %u", static_cast<u32>(pstNode->iSockFd));
    IPC_PUT(stText, "\r\n  Reconnect flag               : %u", pstNode->ulReconnectFlag);
    IPC_PUT(stText, "\r\n  Synchronize request flag     : %u", pstNode->ulSyncReqFlag);
    IPC_PUT(stText, "\r\n  Lost Synchronize count       : %u", pstNode->usLostSyncNum);
    IPC_PUT(stText, "\r\n  Alloc semaphore fail times   : %u", pstNode->ulAllocSemFailNum);
    IPC_PUT(stText, "\r\n  Release semaphore fail times : %u", pstNode->ulReleaseSemFailNum);
    IPC_PUT(stText, "\r\n  Get peer addr fail times     : %u", pstNode->ulGetPeerAddrFailNum);
}

void IPC_ShowNodePacket(IpcText &stText, const IPC_NODE_S *pstNode) {
    IPC_PUT(stText, "\r\n  Send packet number           : %u", pstNode->ulSendPktNum);
    IPC_PUT(stText, "\r\n  Send packet byte             : %lu", pstNode->ullSendPktBytes);
    IPC_PUT(stText, "\r\n  Send packet error times      : %u", pstNode->ulSendPktErrNum);
    IPC_PUT(stText, "\r\n  Send ack times               : %u", pstNode->ulSendAckNum);
    IPC_PUT(stText, "\r\n  Send ack error times         : %u", pstNode->ulSendAckErrNum);
    IPC_PUT(stText, "\r\n  Send message sll count       : %u", pstNode->stSendMsgList.ulCount);
    IPC_PUT(stText, "\r\n  Receive message sll count    : %u", pstNode->stRecvMsgList.ulCount);
    IPC_PUT(stText, "\r\n  Receive Sequence number      : %u", pstNode->ulRecvSeq);
    IPC_PUT(stText, "\r\n  Receive packet number        : %u", pstNode->ulRecvPktNum);
    IPC_PUT(stText, "\r\n  Receive packet byte          : %lu", pstNode->ullRecvPktBytes);
    IPC_PUT(stText, "\r\n  Receive old packet times     : %u", pstNode->ulRecvOldPktNum);
    IPC_PUT(stText, "\r\n  Receive ack times            : %u", pstNode->ulRecvAckNum);
    IPC_PUT(stText, "\r\n  Receive old ack times        : %u", pstNode->ulRecvOldAckNum);
    IPC_PUT(stText, "\r\n  Receive unexpect ack times   : %u", pstNode->ulRecvUnexpectAckNum);
    IPC_PUT(stText, "\r\n  Receive OOR packet           : %u", pstNode->ulRecvOorPktNum);
    IPC_PUT(stText, "\r\n  Receive OOR packet success   : %u", pstNode->ulRecvOorPktSuccNum);
    IPC_PUT(stText, "\r\n  Receive OOR packet fail      : %u", pstNode->ulRecvOorPktFailNum);
}

void IPC_ShowChanLine(IpcText &stText, u32 ulChanId, const IPC_CHAN_S *pstChan) {
    // Sums in the counters' own widths: 32-bit sums wrap.
    const IPC_CHAN_TRAFFIC_S stTraffic = IPC_ReadChanTraffic(ulChanId);
    const u32 ulSendOk = stTraffic.ulLocalSendNum + stTraffic.ulRemoteSendNum;
    const u32 ulSendFail = IPC_StatRead(&pstChan->ulSendFailNum) + IPC_StatRead(&pstChan->ulRemoteSendFailNum);
    const u32 ulRecvOk = stTraffic.ulLocalRecvNum + stTraffic.ulRemoteRecvNum;
    const u64 ullSendBytes = stTraffic.ullLocalSendBytes + stTraffic.ullRemoteSendBytes;
    const u64 ullRecvBytes = stTraffic.ullLocalRecvBytes + stTraffic.ullRemoteRecvBytes;
    IPC_PUT(stText, "\r\n%-10x %-7d %-8u  %-10u %-8u %-11lu %-11lu %-10u", g_ulIpcSelfNodeId, ulChanId, ulSendOk,
            ulSendFail, ulRecvOk, ullSendBytes, ullRecvBytes, IPC_StatRead(&pstChan->ulQueErrNum));
}

} // namespace

void IPC_ShowError(char *pcBuf, u32 ulBufLen) {
    if (pcBuf == nullptr) {
        return;
    }
    IpcText stText{pcBuf, ulBufLen, 0};
    bool bAny = false;
    for (u32 ulIdx = 0; ulIdx < IPC_ERR_STAT_NUM; ulIdx++) {
        const u32 ulCount = IpcErrStatCount(ulIdx);
        if (ulCount == 0) {
            continue;
        }
        if (!bAny) {
            IPC_PUT(stText, "%s\r\n%-6s %-54s %s%s", kSep74, "MsgId", "Error Info", "Count", kSep74);
            bAny = true;
        }
        IPC_PUT(stText, "\r\n%5u  %-54s %5u", ulIdx + 1, g_astIpcErrStat[ulIdx].pcName, ulCount);
    }
    IPC_PUT(stText, "%s", bAny ? kSep74 : "\r\nInfo: The numbers of error messages of all types are zero.");
}

void IPC_ShowPacket(char *pcBuf, u32 ulBufLen) {
    IpcText stText{pcBuf, ulBufLen, 0};
    if (g_pstIpcChanTbl == nullptr) {
        IPC_PUT(stText, "%s", kNotUsed);
        return;
    }
    IPC_PUT(stText, "%s\r\nSNodeID    ChId    SendOK    SendFail   RcvOK    SendByte    RecvByte    QueErr%s", kSep87,
            kSep87);
    for (u32 ulChanId = 0; ulChanId < IPC_MAX_CHAN_NUM; ulChanId++) {
        if (IPC_GetChanRegFlag(ulChanId) == 1) {
            IPC_ShowChanLine(stText, ulChanId, &g_pstIpcChanTbl[ulChanId]);
        }
    }
}

void IPC_ShowConnectInfo(char *pcBuf, u32 ulBufLen) {
    IpcText stText{pcBuf, ulBufLen, 0};
    if (g_ppstIpcNodeTbl == nullptr) {
        IPC_PUT(stText, "%s", kNotUsed);
        return;
    }
    IPC_PUT(stText, "%s\r\n%-9s %-9s %-16s %-7s %-6s %-9s%s", kSep64, "SrcNodeID", "DstNodeID", "DstIP", "DstPort",
            "Status", "DownTimes", kSep64);
    bool bAny = false;
    IPC_ForEachRemoteNode([&stText, &bAny](const IPC_NODE_S *pstNode) {
        const IpcAddrText stAddr(pstNode->ulIpAddr);
        IPC_PUT(stText, "\r\n%9u %9u %-16s %7u %-6s %9u", g_ulIpcSelfNodeId, pstNode->ulNodeId, stAddr.szText,
                pstNode->usPort, IPC_LinkText(pstNode), pstNode->ulLinkDownNum);
        bAny = true;
        return true;
    });
    if (bAny) {
        IPC_PUT(stText, "%s", kSep64);
    }
}

void IPC_ShowNodeDetailById(char *pcBuf, u32 ulBufLen, u32 ulNodeId) {
    IpcText stText{pcBuf, ulBufLen, 0};
    if (g_ppstIpcNodeTbl == nullptr) {
        IPC_PUT(stText, "%s", kNotUsed);
        return;
    }
    bool bAny = false;
    IPC_ForEachRemoteNode([&stText, &bAny, ulNodeId](const IPC_NODE_S *pstNode) {
        if (ulNodeId != 0 && pstNode->ulNodeId != ulNodeId) {
            return true;
        }
        if (!bAny) {
            IPC_PUT(stText, "%s", kSep44);
            bAny = true;
        }
        IPC_ShowNodeInfo(stText, pstNode);
        IPC_ShowNodePacket(stText, pstNode);
        IPC_PUT(stText, "%s", kSep44);
        return ulNodeId == 0;
    });
}

void IPC_ShowNodeDetail(char *pcBuf, u32 ulBufLen) {
    return IPC_ShowNodeDetailById(pcBuf, ulBufLen, 0);
}

} // namespace zol::ipc
