// The IPC error-counter table: 51 named counters, present and zero from load, never reset.
#include "ipc/ipc_internal.h"

namespace zol::ipc {

// Constant-initialised, so the table exists before any code of the process runs.
IPC_ERR_STAT_S g_astIpcErrStat[IPC_ERR_STAT_NUM] = {
    {0, "IPC_ACK_MALLOC_FAIL"},
    {0, "IPC_EVENT_PARA_INVALID"},
    {0, "IPC_MOD_EPOLL_FAIL"},
    {0, "IPC_RECV_MALLOC_FAIL"},
    {0, "IPC_RECV_SOCKET_ERR"},
    {0, "IPC_RECV_SOCKET_LEN_FAIL"},
    {0, "IPC_RECV_MSG_INVALID"},
    {0, "IPC_RECV_CHAN_INVALID"},
    {0, "IPC_RECV_CHAN_NOT_REG"},
    {0, "IPC_RECV_SRC_NODE_INVAILD"},
    {0, "IPC_RECV_NODE_CTRL_INVAILD"},
    {0, "IPC_RW_POLL_OUT"},
    {0, "IPC_RW_POLL_HUP"},
    {0, "IPC_RW_POLL_ERR"},
    {0, "IPC_UNEXPECT_EVENT"},
    {0, "IPC_PARAM_ERR"},
    {0, "IPC_CHAN_ERR"},
    {0, "IPC_MSG_ERR"},
    {0, "IPC_DRV_ERR"},
    {0, "IPC_REPEATED_RELEASE_ERR"},
    {0, "IPC_SEND_MEMORY_ERR"},
    {0, "IPC_MAX_REGISTER_ERR"},
    {0, "IPC_RECV_MEM_COPY_FAIL"},
    {0, "IPC_RECV_RELEASE_FALG_ERR"},
    {0, "IPC_RECV_LINK_STATE_DOWN"},
    {0, "IPC_RECV_MSG_COPY_FAIL"},
    {0, "IPC_ACK_WRITE_QUE_FAIL"},
    {0, "IPC_MSG_CTX_CHECK_FAIL"},
    {0, "IPC_SEND_FINISH_CTX_NULL"},
    {0, "IPC_LINK_DOWN_CTX_NULL"},
    {0, "IPC_LINK_SYN_REQ"},
    {0, "IPC_LINK_RECONNECT"},
    {0, "IPC_RESEND_CTX_NULL"},
    {0, "IPC_RESEND_CTX_CHECK_FAIL"},
    {0, "IPC_RESEND_COUNT_MAX"},
    {0, "IPC_REMOVE_NODE_FAIL"},
    {0, "IPC_CTX_SM_CREATE_FAIL"},
    {0, "IPC_CTX_INSERT_MSG_FAIL"},
    {0, "IPC_RECV_INSERT_MSG_HDR_NULL"},
    {0, "IPC_SEND_ACK_MEMCPY_FAIL"},
    {0, "IPC_CREATE_QUE_FAIL"},
    {0, "IPC_MUTEX_INIT_FAIL"},
    {0, "IPC_LOCK_INIT_FAIL"},
    {0, "IPC_MEMORY_RELEASED"},
    {0, "IPC_MEMORY_SEND"},
    {0, "IPC_NOTIFY_CB_NULL"},
    {0, "IPC_MEMORY_OTHERS"},
    {0, "IPC_SEND_RELEASE_ERR"},
    {0, "IPC_OTHERS_RELEASE_ERR"},
    {0, "IPC_NOTIFY_QUE_FAIL"},
    {0, "IPC_SEND_MC_NOT_SUPPORT"},
};

// The layer takes no lock for its counters; a relaxed atomic add is still one instruction on the device
// and keeps concurrent failures from losing counts.
void IPC_AddErrStat(u32 ulIndex) {
    if (ulIndex < IPC_ERR_STAT_NUM) {
        __atomic_fetch_add(&g_astIpcErrStat[ulIndex].ulCount, 1u, __ATOMIC_RELAXED);
    }
}

u32 IpcErrStatCount(u32 ulIndex) {
    if (ulIndex >= IPC_ERR_STAT_NUM) {
        return 0;
    }
    return __atomic_load_n(&g_astIpcErrStat[ulIndex].ulCount, __ATOMIC_RELAXED);
}

} // namespace zol::ipc
