// Internals of the IPC layer shared by its source files: the error-counter table, message-header access,
// pending-list helpers and the poll task's state.
#ifndef ZOL_IPC_INTERNAL_H
#define ZOL_IPC_INTERNAL_H

#include <atomic>

#include "zol_ipc.h"

#include "ruk_mem.h"
#include "ruk_sll.h"

namespace zol::ipc {

// Source-file tags under which IPC's blocks are allocated and released (allocation tracking).
inline constexpr const char *kFileIpc = "src/ipc/ipc";
inline constexpr const char *kFileIpcUtil = "src/ipc/ipc_util";

// ---------------------------------------------------------------------------------------------------
// Error counters: 51 named entries, zero at load, incremented where each refusal happens, never reset.
// ---------------------------------------------------------------------------------------------------

struct IPC_ERR_STAT_S {
    u32 ulCount; // wraps at 2^32; bumped with a relaxed atomic add so concurrent failures are all counted
    const char *pcName;
};

// Indices of g_astIpcErrStat; the display number of an entry is its index + 1. Counters of the inter-node
// link path exist and keep their places, but this library never increments them.
enum IpcErrStatIndex : u32 {
    IPC_ACK_MALLOC_FAIL = 0,
    IPC_EVENT_PARA_INVALID,
    IPC_MOD_EPOLL_FAIL,
    IPC_RECV_MALLOC_FAIL,
    IPC_RECV_SOCKET_ERR,
    IPC_RECV_SOCKET_LEN_FAIL,
    IPC_RECV_MSG_INVALID,
    IPC_RECV_CHAN_INVALID,
    IPC_RECV_CHAN_NOT_REG,
    IPC_RECV_SRC_NODE_INVAILD,
    IPC_RECV_NODE_CTRL_INVAILD,
    IPC_RW_POLL_OUT,
    IPC_RW_POLL_HUP,
    IPC_RW_POLL_ERR,
    IPC_UNEXPECT_EVENT,
    IPC_PARAM_ERR,
    IPC_CHAN_ERR,
    IPC_MSG_ERR,
    IPC_DRV_ERR,
    IPC_REPEATED_RELEASE_ERR,
    IPC_SEND_MEMORY_ERR,
    IPC_MAX_REGISTER_ERR,
    IPC_RECV_MEM_COPY_FAIL,
    IPC_RECV_RELEASE_FALG_ERR,
    IPC_RECV_LINK_STATE_DOWN,
    IPC_RECV_MSG_COPY_FAIL,
    IPC_ACK_WRITE_QUE_FAIL,
    IPC_MSG_CTX_CHECK_FAIL,
    IPC_SEND_FINISH_CTX_NULL,
    IPC_LINK_DOWN_CTX_NULL,
    IPC_LINK_SYN_REQ,
    IPC_LINK_RECONNECT,
    IPC_RESEND_CTX_NULL,
    IPC_RESEND_CTX_CHECK_FAIL,
    IPC_RESEND_COUNT_MAX,
    IPC_REMOVE_NODE_FAIL,
    IPC_CTX_SM_CREATE_FAIL,
    IPC_CTX_INSERT_MSG_FAIL,
    IPC_RECV_INSERT_MSG_HDR_NULL,
    IPC_SEND_ACK_MEMCPY_FAIL,
    IPC_CREATE_QUE_FAIL,
    IPC_MUTEX_INIT_FAIL,
    IPC_LOCK_INIT_FAIL,
    IPC_MEMORY_RELEASED,
    IPC_MEMORY_SEND,
    IPC_NOTIFY_CB_NULL,
    IPC_MEMORY_OTHERS,
    IPC_SEND_RELEASE_ERR,
    IPC_OTHERS_RELEASE_ERR,
    IPC_NOTIFY_QUE_FAIL,
    IPC_SEND_MC_NOT_SUPPORT,
    IPC_ERR_STAT_NUM // 51
};

// The table, in index order. Readers (the displays) walk it and read counts with IpcErrStatCount.
extern IPC_ERR_STAT_S g_astIpcErrStat[IPC_ERR_STAT_NUM];

// Adds 1 to the counter; an index above 50 is ignored.
void IPC_AddErrStat(u32 ulIndex);
// Current count of an entry (0 for an index above 50), safe to call while other tasks count.
u32 IpcErrStatCount(u32 ulIndex);

// ---------------------------------------------------------------------------------------------------
// Messages.
// ---------------------------------------------------------------------------------------------------

inline IPC_MSG_HEAD_S *MsgHead(void *pMsg) {
    return reinterpret_cast<IPC_MSG_HEAD_S *>(static_cast<u8 *>(pMsg) - IPC_MSG_HEAD_LEN);
}
inline void *MsgPayload(IPC_MSG_HEAD_S *pstHead) {
    return reinterpret_cast<u8 *>(pstHead) + IPC_MSG_HEAD_LEN;
}

// IPC_AllocMsg_X for the library's own callers (a direct call, not through the exported entry).
void *IpcAllocMsg(u32 ulLen, u32 ulModId, const char *pcFuncName, u32 ulLine);

// Whether the mark of a message block may be read. The partition keeps released blocks mapped and
// leaves their payload bytes alone, so a released message still carries IPC_MEM_FREED and the mark
// alone tells a second release, at no cost on the hot path. Under AddressSanitizer a released payload is
// poisoned: there the partition is asked first whether the block is still live.
inline bool MarkReadable(const IPC_MSG_HEAD_S *pstHead) {
#if defined(__SANITIZE_ADDRESS__)
    u32 ulRefs = 0;
    return RUK_MemRefGet(const_cast<IPC_MSG_HEAD_S *>(pstHead), &ulRefs) == RUK_OK;
#else
    (void)pstHead;
    return true;
#endif
}

// The ownership mark of a message, read safely (a block known to be released reads as IPC_MEM_FREED).
// Used by the release and by the send's ownership check; inline, as it is on every send.
inline u8 IpcReadMemFlag(const IPC_MSG_HEAD_S *pstHead) {
    return MarkReadable(pstHead) ? pstHead->ucMemFlag : static_cast<u8>(IPC_MEM_FREED);
}

// Detaches an attached context from the header and releases the context block (not its semaphore). Does
// nothing unless bit 7 of ucSendFlag is set and ucCtxFlag is '<'.
void IPC_ReleaseMsgCtx(IPC_MSG_HEAD_S *pstHead);

// ---------------------------------------------------------------------------------------------------
// Pending lists. IPC_MSG_LIST_S shares the layout of the platform's RUK_SLL_S.
// ---------------------------------------------------------------------------------------------------

// Makes *pstList an empty list (owners embedding a list call this once, before any other list operation).
void IpcInitMsgList(IPC_MSG_LIST_S *pstList);

inline RUK_SLL_S *AsPlatformList(IPC_MSG_LIST_S *pstList) {
    return reinterpret_cast<RUK_SLL_S *>(pstList);
}
inline RUK_SLL_NODE_S *AsPlatformNode(IPC_MSG_LIST_NODE_S *pstNode) {
    return reinterpret_cast<RUK_SLL_NODE_S *>(pstNode);
}

// Destination entries of a context follow its 40-byte head in the same block.
inline IPC_MSG_CTX_DST_S *CtxDstEntries(IPC_MSG_CTX_S *pstCtx) {
    return reinterpret_cast<IPC_MSG_CTX_DST_S *>(pstCtx + 1);
}

// ---------------------------------------------------------------------------------------------------
// Poll task. Written by IPC_PollTaskCreate at initialisation, read by every task afterwards.
// ---------------------------------------------------------------------------------------------------

inline constexpr const char *kPollTaskName = "IPCP";
inline constexpr u32 kPollTaskPrioIndex = 7; // entry of m_aulTaskPrio
inline constexpr s32 kEpollWaitMax = 8;

extern std::atomic<s32> g_iIpcEpollFd;     // the poll set, -1 when there is none
extern std::atomic<u32> g_ulIpcPollTaskId; // platform id of "IPCP", 0 before it exists

// True when the calling task is the poll task (synchronous sends are refused there).
bool IpcOnPollTask();

// Releases a registration record; for handlers that end their own watch after IPC_EpollDelFd.
void IpcReleaseEpollRecord(IPC_EPOLL_HANDLER_S *pstRec);

} // namespace zol::ipc

#endif // ZOL_IPC_INTERNAL_H
