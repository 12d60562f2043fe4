// The log points of the library's own call sites, in one place: log types by name, the log point of
// each (module, type) pair the subsystems use, and the macros that pass {tag} or {tag, message}.
#ifndef ZOL_LOG_POINTS_H
#define ZOL_LOG_POINTS_H

#include "zol_foundation.h"

namespace zol::log {

// Indices into the log-type table.
enum LogType : u8 {
    kLogBssInitInfo = 0, // ZOL_LOG_BSS_INIT_INFO
    kLogBssProcessInfo = 1, // ZOL_LOG_BSS_PROCESS_INFO
    kLogCesInfo = 2, // ZOL_LOG_CES_INFO
    kLogCmdProcessInfo = 3, // ZOL_LOG_CMD_PROCESS_INFO
    kLogHaIpcInfo = 4, // ZOL_LOG_HA_IPC_INFO
    kLogHaProcessInfo = 5, // ZOL_LOG_HA_PROCESS_INFO
    kLogIfcmdProcessInfo = 6, // ZOL_LOG_IFCMD_PROCESS_INFO
    kLogIpcEpollInfo = 7, // ZOL_LOG_IPC_EPOLL_INFO
    kLogBesDbPubInfo = 8, // ZOL_LOG_BES_DB_PUB_INFO
    kLogBesDbSubInfo = 9, // ZOL_LOG_BES_DB_SUB_INFO
    kLogBssInitErr = 10, // ZOL_LOG_BSS_INIT_ERR
    kLogBssProcessErr = 11, // ZOL_LOG_BSS_PROCESS_ERR
    kLogCesErr = 12, // ZOL_LOG_CES_ERR
    kLogCmdEventInfo = 13, // ZOL_LOG_CMD_EVENT_INFO
    kLogCmdProcessErr = 14, // ZOL_LOG_CMD_PROCESS_ERR
    kLogDbErr = 15, // ZOL_LOG_DB_ERR
    kLogPiramErr = 16, // ZOL_LOG_PIRAM_ERR
    kLogTanixErr = 17, // ZOL_LOG_TANIX_ERR
    kLogMelvaErr = 18, // ZOL_LOG_MELVA_ERR
    kLogHaIpcErr = 19, // ZOL_LOG_HA_IPC_ERR
    kLogHaMsgErr = 20, // ZOL_LOG_HA_MSG_ERR
    kLogHaNoticeInfo = 21, // ZOL_LOG_HA_NOTICE_INFO
    kLogHaProcessErr = 22, // ZOL_LOG_HA_PROCESS_ERR
    kLogHaReceiveInfo = 23, // ZOL_LOG_HA_RECEIVE_INFO
    kLogIfcmdProcessErr = 24, // ZOL_LOG_IFCMD_PROCESS_ERR
    kLogImagentErr = 25, // ZOL_LOG_IMAGENT_ERR
    kLogIpcEpollErr = 26, // ZOL_LOG_IPC_EPOLL_ERR
    kLogIpcEventInfo = 27, // ZOL_LOG_IPC_EVENT_INFO
    kLogIpcLinkErr = 28, // ZOL_LOG_IPC_LINK_ERR
    kLogIpcMsgErr = 29, // ZOL_LOG_IPC_MSG_ERR
    kLogIpcRpcProcessErr = 30, // ZOL_LOG_IPC_RPC_PROCESS_ERR
    kLogMbufProcessErr = 31, // ZOL_LOG_MBUF_PROCESS_ERR
    kLogParamCheckErr = 32, // ZOL_LOG_PARAM_CHECK_ERR
    kLogRootAppErr = 33, // ZOL_LOG_ROOT_APP_ERR
    kLogRootEventInfo = 34, // ZOL_LOG_ROOT_EVENT_INFO
    kLogRpcMsgErr = 35, // ZOL_LOG_RPC_MSG_ERR
    kLogSafetyFuncErr = 36, // ZOL_LOG_SAFETY_FUNC_ERR
    kLogSdmCreateErr = 37, // ZOL_LOG_SDM_CREATE_ERR
    kLogSdmHugepageErr = 38, // ZOL_LOG_SDM_HUGEPAGE_ERR
    kLogSdmLockErr = 39, // ZOL_LOG_SDM_LOCK_ERR
    kLogSdmProcessErr = 40, // ZOL_LOG_SDM_PROCESS_ERR
    kLogSdmUpbErr = 41, // ZOL_LOG_SDM_UPB_ERR
    kLogWaitlistCheckErr = 42, // ZOL_LOG_WAITLIST_CHECK_ERR
    kLogWaitlistLockErr = 43, // ZOL_LOG_WAITLIST_LOCK_ERR
    kLogDbInfo = 44, // ZOL_LOG_DB_INFO
    kLogPiramInfo = 45, // ZOL_LOG_PIRAM_INFO
    kLogTanixInfo = 46, // ZOL_LOG_TANIX_INFO
    kLogMelvaInfo = 47, // ZOL_LOG_MELVA_INFO
};

// Reporting modules (carried in the log point for the reader; the writer ignores them).
enum Module : u8 {
    kModSelfTestInfo = 0x00,
    kModSelfTestErr = 0x0D,
    kModUtil = 0x1B,
    kModIpc = 0x1C,
    kModRpc = 0x1D, // also the diagnostic command module
    kModApp = 0x1E,
    kModWaitList = 0x1F,
    kModMbuf = 0x20,
};

enum Class : u8 { kInfo = 1, kError = 2 };

constexpr ZOL_LogPoint Point(Module m, Class c, LogType t, bool filtered = true) {
    return ZOL_LogPoint{m, c, t, static_cast<u8>(filtered ? 1 : 0)};
}

// Foundation utilities and symbol lookup.
inline constexpr ZOL_LogPoint kUtilSafetyErr = Point(kModUtil, kError, kLogSafetyFuncErr);
inline constexpr ZOL_LogPoint kSymProcessInfo = Point(kModSelfTestInfo, kInfo, kLogBssProcessInfo);
inline constexpr ZOL_LogPoint kSymSafetyErr = Point(kModSelfTestInfo, kError, kLogSafetyFuncErr);
// IPC.
inline constexpr ZOL_LogPoint kIpcMsgErr = Point(kModIpc, kError, kLogIpcMsgErr);
inline constexpr ZOL_LogPoint kIpcRpcProcessErr = Point(kModIpc, kError, kLogIpcRpcProcessErr);
inline constexpr ZOL_LogPoint kIpcEpollInfo = Point(kModIpc, kInfo, kLogIpcEpollInfo);
inline constexpr ZOL_LogPoint kIpcPlatformInfo = Point(kModIpc, kInfo, kLogMelvaInfo);
// RPC and the diagnostic command module.
inline constexpr ZOL_LogPoint kRpcEventInfo = Point(kModRpc, kInfo, kLogIpcEventInfo);
inline constexpr ZOL_LogPoint kRpcMsgErr = Point(kModRpc, kError, kLogRpcMsgErr);
inline constexpr ZOL_LogPoint kRpcPlatformInfo = Point(kModRpc, kInfo, kLogMelvaInfo);
// Application task framework.
inline constexpr ZOL_LogPoint kAppErr = Point(kModApp, kError, kLogRootAppErr);
inline constexpr ZOL_LogPoint kAppEventInfo = Point(kModApp, kInfo, kLogRootEventInfo);
inline constexpr ZOL_LogPoint kAppNoticeUnfiltered = Point(kModApp, kInfo, kLogHaNoticeInfo, false);
// Wait list.
inline constexpr ZOL_LogPoint kWaitListCheckErr = Point(kModWaitList, kError, kLogWaitlistCheckErr);
inline constexpr ZOL_LogPoint kWaitListLockErr = Point(kModWaitList, kError, kLogWaitlistLockErr);
// Message buffers.
inline constexpr ZOL_LogPoint kMbufErr = Point(kModMbuf, kError, kLogMbufProcessErr);

} // namespace zol::log

// Log with the texts {tag}: the type's parameter count must be 2.
#define ZOL_LOG_TAG(point, tag, ...)                                                                               \
    do {                                                                                                           \
        const char *const zolTexts_[] = {(tag)};                                                                   \
        ZOL_WriteLog(&(point), (tag), zolTexts_, 1, __VA_ARGS__);                                                  \
    } while (0)

// Log with the texts {tag, message}: the type's parameter count must be 3.
#define ZOL_LOG_MSG(point, tag, msg, ...)                                                                          \
    do {                                                                                                           \
        const char *const zolTexts_[] = {(tag), (msg)};                                                            \
        ZOL_WriteLog(&(point), (tag), zolTexts_, 2, __VA_ARGS__);                                                  \
    } while (0)

#endif // ZOL_LOG_POINTS_H
