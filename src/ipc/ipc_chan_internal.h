// Internals of IPC's initialisation, node registry, channel table and delivery, shared by those files and
// read by the diagnostic displays and the RPC layer.
#ifndef ZOL_IPC_CHAN_INTERNAL_H
#define ZOL_IPC_CHAN_INTERNAL_H

#include "foundation/task_counters.h"
#include "ipc/ipc_internal.h"

#include "zol_ipc.h"

namespace zol::ipc {

// Free/used map: a set bit is free. Bit i is word i/32, bit i%32; the unused high bits of the last
// word are clear. One block of 2 + ulWordNum words.
struct IPC_BITMAP_S {
    u32 ulBitNum;
    u32 ulWordNum;
    u32 aulBits[1]; // really ulWordNum words
};

// A node's record. Only the own node's is ever created; the link fields keep their initial values and
// are shown by the displays.
struct IPC_NODE_S {
    u32 ulNodeId;
    u32 ulIpAddr; // network order
    u16 usPort;   // network order
    u16 usLostSyncNum;
    u8 ucLinkStatus; // 0 down
    u32 ulLinkDownNum;
    IPC_MSG_LIST_S stSendMsgList;
    IPC_MSG_LIST_S stRecvMsgList;
    u32 ulSendSeq;
    u32 ulAckSeq;
    u32 ulRecvSeq;
    s32 iSockFd;
    u32 ulReconnectFlag;
    u32 ulSyncReqFlag;
    u32 ulAllocSemFailNum;
    u32 ulReleaseSemFailNum;
    u32 ulGetPeerAddrFailNum;
    u32 ulSendPktNum;
    u64 ullSendPktBytes;
    u32 ulSendPktErrNum;
    u32 ulSendAckNum;
    u32 ulSendAckErrNum;
    u32 ulRecvPktNum;
    u64 ullRecvPktBytes;
    u32 ulRecvOldPktNum;
    u32 ulRecvOorPktNum;
    u32 ulRecvAckNum;
    u32 ulRecvOldAckNum;
    u32 ulRecvUnexpectAckNum;
    u32 ulRecvOorPktSuccNum;
    u32 ulRecvOorPktFailNum;
};

// One location index: the free process slots and the records by process index.
struct IPC_NODE_GROUP_S {
    IPC_BITMAP_S *pstSlotBitmap;
    IPC_NODE_S *apstNode[IPC_MAX_PROC_NUM];
};

// A channel of the own node. Registration fields are written once by IPC_Create and published by the
// release store of ulRegFlag; readers load ulRegFlag with acquire before reading them. The failure counts
// are bumped with relaxed atomic additions because several sending tasks may hit one channel at once.
struct IPC_CHAN_S {
    u32 ulRegFlag; // 1 once registered; never cleared
    u16 usMode;    // IPC_CHAN_MODE_*
    u32 ulQueId;
    IPC_CHAN_CALLBACK_PF pfCallback;
    // The receive and send counts of the channel live in IpcTraffic below.
    u32 ulSendFailNum;
    u32 ulRemoteSendFailNum; // never incremented here (no link path)
    u32 ulQueErrNum;         // never incremented here
};

// The receive and send counts of every channel, bumped on each delivery by whichever task delivers: kept
// per task so that the hot path takes no locked instruction, summed on reading. Cell of a count:
// channel * kTrafficCells + (remote ? 4 : 0) + (send finished ? 2 : 0) + (bytes ? 1 : 0).
constexpr u32 kTrafficCells = 8;
struct IpcTrafficTag;
using IpcTraffic = TaskCounters<IpcTrafficTag, IPC_MAX_CHAN_NUM * kTrafficCells>;

// A channel's counts as summed at one reading, in the widths the displays show (32-bit numbers wrap).
struct IPC_CHAN_TRAFFIC_S {
    u32 ulLocalRecvNum;
    u32 ulLocalSendNum;
    u64 ullLocalRecvBytes;
    u64 ullLocalSendBytes;
    u32 ulRemoteRecvNum;
    u32 ulRemoteSendNum;
    u64 ullRemoteRecvBytes;
    u64 ullRemoteSendBytes;
};
IPC_CHAN_TRAFFIC_S IPC_ReadChanTraffic(u32 ulChanId);

struct IPC_CONN_NOTIFY_S {
    u32 ulUsed; // 1 = taken
    IPC_CONN_NOTIFY_PF pfNotify;
};

// Layer state. Written by IPC_Init (and IPC_Create for the channels) at start-up, read afterwards.
// The init flag is stored with release once everything else is built, and loaded with acquire.
extern u32 g_ulIpcInitFlag;
extern u32 g_ulIpcSelfNodeId;
extern u32 g_ulIpcAckMsgQueLen;
extern IPC_CONN_NOTIFY_S g_astIpcConnNotify[IPC_CONN_NOTIFY_NUM];
extern IPC_CHAN_S *g_pstIpcChanTbl;
extern IPC_NODE_GROUP_S **g_ppstIpcNodeTbl;
extern IPC_BITMAP_S *g_pstIpcGroupBitmap;
extern IPC_MSG_HEAD_S *g_pstIpcReserveMsg;

inline bool IPC_IsInit() {
    return __atomic_load_n(&g_ulIpcInitFlag, __ATOMIC_ACQUIRE) == 1;
}
inline u32 IPC_NodeProcIdx(u32 ulNodeId) {
    return (ulNodeId >> IPC_NODE_PROC_SHIFT) & IPC_NODE_PROC_MASK;
}
inline u32 IPC_NodeLocIdx(u32 ulNodeId) {
    return ulNodeId & IPC_NODE_LOC_MASK;
}

// Relaxed atomic counter helpers for plain fields shared between tasks.
template <typename T>
inline void IPC_StatAdd(T *pField, T value) {
    __atomic_fetch_add(pField, value, __ATOMIC_RELAXED);
}
template <typename T>
inline T IPC_StatRead(const T *pField) {
    return __atomic_load_n(pField, __ATOMIC_RELAXED);
}

// Bitmap (ipc_node.cpp). Marking ignores a null bitmap and bits out of range.
IPC_BITMAP_S *IPC_BitmapCreate(u32 ulBitNum);
void IPC_BitmapDestroy(IPC_BITMAP_S *pstBitmap);
void IPC_BitmapSetUsed(IPC_BITMAP_S *pstBitmap, u32 ulBit);
void IPC_BitmapSetFree(IPC_BITMAP_S *pstBitmap, u32 ulBit);
bool IPC_BitmapIsFree(const IPC_BITMAP_S *pstBitmap, u32 ulBit);

// Node registry (ipc_node.cpp).
u32 IPC_NodeTblInit(u32 ulSelfNodeId); // IPC_OK or IPC_ERR_NO_MEMORY with nothing kept
void IPC_NodeTblDestroy();
IPC_NODE_S *IPC_CreateNode(u32 ulNodeId);
void IPC_FreeNodeGroup(u32 ulNodeId);
IPC_NODE_S *IPC_GetNode(u32 ulNodeId); // null when the table, the group or the slot is empty

// Channel table (ipc_channel.cpp).
u32 IPC_ChanTblInit(); // IPC_OK or IPC_ERR_NO_MEMORY
void IPC_ChanTblDestroy();
void IPC_LogBadChanId(u32 ulChanId);

// The ulRegFlag word of a channel; 0 without a table or for an id of 48 or more.
inline u32 IPC_GetChanRegFlag(u32 ulChanId) {
    if (g_pstIpcChanTbl == nullptr || ulChanId >= IPC_MAX_CHAN_NUM) {
        return 0;
    }
    return __atomic_load_n(&g_pstIpcChanTbl[ulChanId].ulRegFlag, __ATOMIC_ACQUIRE);
}

// The registered record of a channel, or null; an id of 48 or more marks a misuse and is logged. Inline:
// the send path looks channels up several times per message.
inline IPC_CHAN_S *IPC_GetChanRegCtrl(u32 ulChanId) {
    if (g_pstIpcChanTbl == nullptr) {
        return nullptr;
    }
    if (ulChanId >= IPC_MAX_CHAN_NUM) {
        IPC_LogBadChanId(ulChanId);
        return nullptr;
    }
    IPC_CHAN_S *pstChan = &g_pstIpcChanTbl[ulChanId];
    return __atomic_load_n(&pstChan->ulRegFlag, __ATOMIC_ACQUIRE) == 1 ? pstChan : nullptr;
}

// Delivery (ipc_send.cpp).
u32 IPC_Send2SelfNode(IPC_MSG_HEAD_S *pstHead, u32 ulFlag);
void IPC_NotifyChan(IPC_CHAN_S *pstChan, IPC_MSG_HEAD_S *pstHead, u32 ulNotifyType);

// Diagnostic displays (ipc_display.cpp): write their table into pcBuf (ulBufLen bytes, zero-filled).
void IPC_ShowConnectInfo(char *pcBuf, u32 ulBufLen);
void IPC_ShowError(char *pcBuf, u32 ulBufLen);
void IPC_ShowNodeDetail(char *pcBuf, u32 ulBufLen);
void IPC_ShowNodeDetailById(char *pcBuf, u32 ulBufLen, u32 ulNodeId);
void IPC_ShowPacket(char *pcBuf, u32 ulBufLen);

} // namespace zol::ipc

#endif // ZOL_IPC_CHAN_INTERNAL_H
