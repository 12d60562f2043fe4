// RPC's statistics: the table of 20 named error counters and the record of call outcomes, both static
// and zero from load.
#include "ipc/rpc_internal.h"

namespace zol::rpc {

ipc::IPC_ERR_STAT_S g_astRpcErrStat[IPC_RPC_ERR_STAT_NUM] = {
    {0, "RPC_INIT_ERR"},
    {0, "RPC_MEMORY_ERR"},
    {0, "RPC_TIMEOUT_ERR"},
    {0, "RPC_REG_ERR"},
    {0, "RPC_BLOCK_ERR"},
    {0, "RPC_SEND_FAIL"},
    {0, "RPC_FIND_MOD_FAIL"},
    {0, "RPC_FIND_MSG_CTX_NULL"},
    {0, "RPC_REG_MOD_MALLOC_FAIL"},
    {0, "RPC_RECV_MSG_CHECK_FAIL"},
    {0, "RPC_RECV_MSG_FLAG_FINISH"},
    {0, "RPC_RECV_QUE_WRITE_FAIL"},
    {0, "RPC_RECV_EV_WRITE_FAIL"},
    {0, "RPC_REPLY_FIND_CTX_FAIL"},
    {0, "RPC_REPLY_SM_V_FAIL"},
    {0, "RPC_RECV_FIND_MOD_FAIL"},
    {0, "RPC_DELIVER_QUE_WRITE_FAIL"},
    {0, "RPC_DELIVER_EV_WRITE_FAIL"},
    {0, "RPC_SEND_REPLY_MALLOC_FAIL"},
    {0, "RPC_SEND_REPLY_SEND_FAIL"},
};

IPC_RPC_STAT_S g_stRpcStat = {};
IPC_RPC_STAT_S *g_pstRpcStat = &g_stRpcStat;

// Several tasks may fail at once (callers, "RPCR", module tasks); an atomic add keeps every count.
void IPC_RPC_AddErrStat(u32 ulIndex) {
    if (ulIndex < IPC_RPC_ERR_STAT_NUM) {
        __atomic_fetch_add(&g_astRpcErrStat[ulIndex].ulCount, 1u, __ATOMIC_RELAXED);
    }
}

u32 RpcErrStatCount(u32 ulIndex) {
    return ulIndex < IPC_RPC_ERR_STAT_NUM ? __atomic_load_n(&g_astRpcErrStat[ulIndex].ulCount, __ATOMIC_RELAXED) : 0;
}

} // namespace zol::rpc
