// The 48 log types of the library: the agent's log id and the parameter count of each, and their names.
#include "foundation/log_internal.h"

namespace zol::log {

// The log ids are not in index order: they are the ids the information model assigned to each type.
const LogTypeEntry g_astLogType[ZOL_LOG_TYPE_NUM] = {
    {0x0EA7102C, 1}, {0x0EA7102D, 3}, {0x0EA7102E, 3}, {0x0EA7102F, 3}, {0x0EA71034, 3}, {0x0EA71035, 3},
    {0x0EA71036, 2}, {0x0EA71037, 2}, {0x0EA71006, 4}, {0x0EA71005, 4}, {0x0EA71000, 1}, {0x0EA71002, 3},
    {0x0EA71024, 3}, {0x0EA71025, 2}, {0x0EA71026, 3}, {0x0EA71001, 3}, {0x0EA71022, 3}, {0x0EA71021, 3},
    {0x0EA71020, 3}, {0x0EA71009, 3}, {0x0EA7100A, 3}, {0x0EA7102A, 2}, {0x0EA7100B, 3}, {0x0EA71029, 2},
    {0x0EA71007, 2}, {0x0EA71023, 3}, {0x0EA7100E, 2}, {0x0EA71012, 3}, {0x0EA71011, 2}, {0x0EA7100F, 3},
    {0x0EA7100D, 3}, {0x0EA71013, 2}, {0x0EA71027, 3}, {0x0EA71014, 2}, {0x0EA71015, 3}, {0x0EA71010, 3},
    {0x0EA71028, 3}, {0x0EA7102B, 3}, {0x0EA7101C, 2}, {0x0EA7101A, 2}, {0x0EA7101D, 3}, {0x0EA71017, 3},
    {0x0EA7101F, 3}, {0x0EA7101E, 2}, {0x0EA71030, 3}, {0x0EA71031, 3}, {0x0EA71032, 3}, {0x0EA71033, 3},
};

const char *const g_apcLogTypeName[ZOL_LOG_TYPE_NUM] = {
    "ZOL_LOG_BSS_INIT_INFO",
    "ZOL_LOG_BSS_PROCESS_INFO",
    "ZOL_LOG_CES_INFO",
    "ZOL_LOG_CMD_PROCESS_INFO",
    "ZOL_LOG_HA_IPC_INFO",
    "ZOL_LOG_HA_PROCESS_INFO",
    "ZOL_LOG_IFCMD_PROCESS_INFO",
    "ZOL_LOG_IPC_EPOLL_INFO",
    "ZOL_LOG_BES_DB_PUB_INFO",
    "ZOL_LOG_BES_DB_SUB_INFO",
    "ZOL_LOG_BSS_INIT_ERR",
    "ZOL_LOG_BSS_PROCESS_ERR",
    "ZOL_LOG_CES_ERR",
    "ZOL_LOG_CMD_EVENT_INFO",
    "ZOL_LOG_CMD_PROCESS_ERR",
    "ZOL_LOG_DB_ERR",
    "ZOL_LOG_PIRAM_ERR",
    "ZOL_LOG_TANIX_ERR",
    "ZOL_LOG_MELVA_ERR",
    "ZOL_LOG_HA_IPC_ERR",
    "ZOL_LOG_HA_MSG_ERR",
    "ZOL_LOG_HA_NOTICE_INFO",
    "ZOL_LOG_HA_PROCESS_ERR",
    "ZOL_LOG_HA_RECEIVE_INFO",
    "ZOL_LOG_IFCMD_PROCESS_ERR",
    "ZOL_LOG_IMAGENT_ERR",
    "ZOL_LOG_IPC_EPOLL_ERR",
    "ZOL_LOG_IPC_EVENT_INFO",
    "ZOL_LOG_IPC_LINK_ERR",
    "ZOL_LOG_IPC_MSG_ERR",
    "ZOL_LOG_IPC_RPC_PROCESS_ERR",
    "ZOL_LOG_MBUF_PROCESS_ERR",
    "ZOL_LOG_PARAM_CHECK_ERR",
    "ZOL_LOG_ROOT_APP_ERR",
    "ZOL_LOG_ROOT_EVENT_INFO",
    "ZOL_LOG_RPC_MSG_ERR",
    "ZOL_LOG_SAFETY_FUNC_ERR",
    "ZOL_LOG_SDM_CREATE_ERR",
    "ZOL_LOG_SDM_HUGEPAGE_ERR",
    "ZOL_LOG_SDM_LOCK_ERR",
    "ZOL_LOG_SDM_PROCESS_ERR",
    "ZOL_LOG_SDM_UPB_ERR",
    "ZOL_LOG_WAITLIST_CHECK_ERR",
    "ZOL_LOG_WAITLIST_LOCK_ERR",
    "ZOL_LOG_DB_INFO",
    "ZOL_LOG_PIRAM_INFO",
    "ZOL_LOG_TANIX_INFO",
    "ZOL_LOG_MELVA_INFO",
};

static_assert(sizeof(g_astLogType[0]) == 8, "a log-type entry is two 32-bit words");

} // namespace zol::log
