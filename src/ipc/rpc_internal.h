// Internals of the RPC layer shared by its source files: the module registry and its lock, the header
// access in one byte order, the error counters and call statistics, and the receive path.
#ifndef ZOL_RPC_INTERNAL_H
#define ZOL_RPC_INTERNAL_H

#include "ipc/ipc_internal.h"

#include <atomic>
#include <cstddef>

#include "zol_ipc.h"
#include "zol_rpc.h"

namespace zol::rpc {

// Source-file tag of RPC's own blocks (allocation tracking).
inline constexpr const char *kFileRpc = "src/ipc/rpc";

// The header as the layout contract says: 24 bytes, fields at fixed offsets.
static_assert(sizeof(IPC_RPC_MSG_HEAD_S) == IPC_RPC_HEAD_LEN, "RPC header is 24 bytes");
static_assert(offsetof(IPC_RPC_MSG_HEAD_S, usMsgType) == 0, "type at 0");
static_assert(offsetof(IPC_RPC_MSG_HEAD_S, ucUserFlag) == 2, "user flag at 2");
static_assert(offsetof(IPC_RPC_MSG_HEAD_S, ucHeadFlag) == 3, "head flag at 3");
static_assert(offsetof(IPC_RPC_MSG_HEAD_S, ulSeq) == 4, "sequence at 4");
static_assert(offsetof(IPC_RPC_MSG_HEAD_S, ulSrcMod) == 8, "source module at 8");
static_assert(offsetof(IPC_RPC_MSG_HEAD_S, ulDstMod) == 12, "destination module at 12");
static_assert(offsetof(IPC_RPC_MSG_HEAD_S, aucReserved) == 16, "reserved at 16");
static_assert(IPC_RPC_MAX_DATA_LEN == IPC_MAX_MSG_LEN - IPC_RPC_HEAD_LEN, "data limit follows IPC's");
static_assert(sizeof(IPC_RPC_DELIVER_MSG_S) == 4 * sizeof(u64), "module record is a platform queue record");

// ---------------------------------------------------------------------------------------------------
// Messages. "Payload" is the IPC payload (where the RPC header starts); "data" is the user's part.
// ---------------------------------------------------------------------------------------------------

inline IPC_RPC_MSG_HEAD_S *RpcHead(void *pPayload) {
    return static_cast<IPC_RPC_MSG_HEAD_S *>(pPayload);
}
inline void *RpcData(void *pPayload) {
    return static_cast<u8 *>(pPayload) + IPC_RPC_HEAD_LEN;
}
inline void *RpcPayload(void *pData) {
    return static_cast<u8 *>(pData) - IPC_RPC_HEAD_LEN;
}

// The header's fields in host order; RpcLoadHead / RpcStoreHead are the one place that converts them.
struct RpcHeadHost {
    u16 usMsgType;
    u8 ucUserFlag;
    u32 ulSeq;
    u32 ulSrcMod;
    u32 ulDstMod;
};
RpcHeadHost RpcLoadHead(const IPC_RPC_MSG_HEAD_S *pstHead);
// Writes type, user flag, sequence and both modules; the head flag and the reserved bytes are left alone.
void RpcStoreHead(IPC_RPC_MSG_HEAD_S *pstHead, const RpcHeadHost &stHost);

// IPC payload length for ulDataLen data bytes (one IPC refuses when the data is too long).
u32 RpcIpcLen(u32 ulDataLen);

// Sends a reply to ulDstNode: pRsp (data pointer, ulRspLen bytes) as type usType, or, for a null pRsp,
// a 4-byte body of type 3 (type 4 stays 4). Consumes pRsp; failures are counted and logged.
void IPC_RPC_SendReply(void *pRsp, u32 ulRspLen, u32 ulDstNode, u32 ulCallerMod, u32 ulCalleeMod, u32 ulSeq, u16 usType,
                       u8 ucUserFlag);

// ---------------------------------------------------------------------------------------------------
// Module registry.
// ---------------------------------------------------------------------------------------------------

struct IPC_RPC_MOD_S {
    u32 ulModId;
    u32 ulQueId;
    u32 ulTaskId;
    u32 ulEvent;
    u32 ulMode;
    IPC_RPC_CALLBACK_PF pfCallback;
    IPC_MSG_LIST_S stMsgCtxList; // calls made with this module as caller, waiting; under the RPC lock
    // Callback timing: written by "RPCR" only, read by the display; hence relaxed atomic accesses.
    u32 ulLastCost;     // microseconds
    u64 ullLastTime;    // end of the last call, seconds since 1970
    u32 ulLongestCost;  // microseconds
    u64 ullLongestTime; // end of that call
};

// The registry: a pending list of IPC_RPC_MOD_S records in registration order. Records are never
// released (a second IPC_RPC_Init forgets them), so a record found once stays valid.
extern IPC_MSG_LIST_S g_stRpcModList;
extern std::atomic<u32> g_ulRpcSeq;
extern std::atomic<u32> g_ulRpcTaskId;
extern std::atomic<u32> g_ulRpcQueId;

// One lock serialises the registry and every module's pending list: registration, the callers that add
// and remove their contexts, and the receive task that matches replies. Sections are short and never
// call out of RPC (no callback, no send). Lock() is false only when the platform mutex cannot be made or
// taken; the caller then fails as if out of memory.
class RpcLock {
  public:
    RpcLock();
    ~RpcLock();
    RpcLock(const RpcLock &) = delete;
    RpcLock &operator=(const RpcLock &) = delete;
    bool Held() const { return bHeld_; }

  private:
    bool bHeld_;
};

// With the lock held: the module's record, or null (counted in RPC_FIND_MOD_FAIL).
IPC_RPC_MOD_S *IPC_RPC_FindMod(u32 ulModId);
// With the lock held: a new zeroed record appended to the registry, or null.
IPC_RPC_MOD_S *IPC_RPC_CreateMod(u32 ulModId);

// ---------------------------------------------------------------------------------------------------
// Calls and the receive task.
// ---------------------------------------------------------------------------------------------------

// With the lock held: the context of module ulModId waiting for sequence ulSeq with no reply attached yet.
IPC_MSG_CTX_S *IPC_RPC_FindMsgCtx(u32 ulModId, u32 ulSeq);
// A reply (IPC payload and length) for a waiting caller: attached and the caller woken, or released.
void IPC_RPC_ProcReply(void *pMsg, u32 ulLen);

// Channel 0's callback (runs on the sending task) and the receive task's entry and steps.
u32 IPC_RPC_RecvCallback(u32 ulNotifyType, u32 ulOwnChan, u32 ulPeerNode, u32 ulPeerChan, void *pMsg, u32 ulLen);
void IPC_RPC_Task(uintptr_t, uintptr_t, uintptr_t, uintptr_t);
void IPC_RPC_ProcRecvMsg(void *pMsg, u32 ulLen, u32 ulSrcNode);
void IPC_RPC_DeliverReq(IPC_RPC_MOD_S *pstMod, void *pMsg, u32 ulLen, u32 ulSrcNode);
void IPC_RPC_DirectCall(IPC_RPC_MOD_S *pstMod, void *pMsg, u32 ulLen, u32 ulSrcNode);

inline constexpr const char *kRpcTaskName = "RPCR";
inline constexpr u32 kRpcTaskPrioIndex = 7; // entry of m_aulTaskPrio, as the poll task
inline constexpr u32 kRpcQueDepth = 1000;
inline constexpr u32 kRpcQueFlags = 6;
inline constexpr u32 kRpcEvent = 1;           // "a message is queued"
inline constexpr u32 kRpcLongCallUs = 100999; // callbacks above this are logged

// ---------------------------------------------------------------------------------------------------
// Statistics: 20 named error counters and the call outcomes. Plain counters bumped with relaxed atomic
// additions by whichever task meets the event; nothing resets them.
// ---------------------------------------------------------------------------------------------------

enum RpcErrStatIndex : u32 {
    RPC_INIT_ERR = 0,
    RPC_MEMORY_ERR,
    RPC_TIMEOUT_ERR,
    RPC_REG_ERR,
    RPC_BLOCK_ERR, // kept in its place, never counted
    RPC_SEND_FAIL,
    RPC_FIND_MOD_FAIL,
    RPC_FIND_MSG_CTX_NULL,
    RPC_REG_MOD_MALLOC_FAIL,
    RPC_RECV_MSG_CHECK_FAIL,
    RPC_RECV_MSG_FLAG_FINISH,
    RPC_RECV_QUE_WRITE_FAIL,
    RPC_RECV_EV_WRITE_FAIL,
    RPC_REPLY_FIND_CTX_FAIL,
    RPC_REPLY_SM_V_FAIL,
    RPC_RECV_FIND_MOD_FAIL,
    RPC_DELIVER_QUE_WRITE_FAIL,
    RPC_DELIVER_EV_WRITE_FAIL,
    RPC_SEND_REPLY_MALLOC_FAIL,
    RPC_SEND_REPLY_SEND_FAIL,
    IPC_RPC_ERR_STAT_NUM // 20
};

extern ipc::IPC_ERR_STAT_S g_astRpcErrStat[IPC_RPC_ERR_STAT_NUM];

// Adds 1 to the counter; an index of 20 or more is ignored.
void IPC_RPC_AddErrStat(u32 ulIndex);
// Current count of an entry (0 for an index of 20 or more).
u32 RpcErrStatCount(u32 ulIndex);

struct IPC_RPC_STAT_S {
    u32 ulSendOkNum;   // a wait ended with a reply
    u32 ulSendFailNum; // IPC_Send refused a request
    u32 ulTimeoutNum;  // a wait ended without reply
    u32 ulNotRegNum;   // a "not registered" reply handed to a caller who asked for the reply
    u32 ulRcvOkNum;    // reply data handed to the caller
};
extern IPC_RPC_STAT_S g_stRpcStat;
extern IPC_RPC_STAT_S *g_pstRpcStat; // points at g_stRpcStat from load on; never changed

inline void RpcStatAdd(u32 *pulField) {
    __atomic_fetch_add(pulField, 1u, __ATOMIC_RELAXED);
}
inline u32 RpcStatRead(const u32 *pulField) {
    return __atomic_load_n(pulField, __ATOMIC_RELAXED);
}

// ---------------------------------------------------------------------------------------------------
// Displays of "get-rpc-info" (run on the poll task; results ignored).
// ---------------------------------------------------------------------------------------------------

void IPC_RPC_ShowCallbackTime(char *pcBuf, u32 ulBufLen);
void IPC_RPC_ShowError(char *pcBuf, u32 ulBufLen);
void IPC_RPC_ShowPacket(char *pcBuf, u32 ulBufLen);
// "%Y-%m-%d %H:%M:%S" of local time into pcOut (20 bytes).
void IPC_RPC_FormatTime(u64 ullSec, char *pcOut);

} // namespace zol::rpc

#endif // ZOL_RPC_INTERNAL_H
