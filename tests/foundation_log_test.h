// Shared by the log writer's test program: the log types as the system defines them, and helpers.
#ifndef ZOL_FOUNDATION_LOG_TEST_H
#define ZOL_FOUNDATION_LOG_TEST_H

#include <chrono>
#include <cstdint>
#include <string>

#include "zol_foundation.h"

namespace zol::test {

struct ExpectedLogType {
    const char *name;
    uint32_t logId;
    uint32_t paraNum;
};

// The information model's log types, index by index, written out independently of the library.
// clang-format off
inline constexpr ExpectedLogType kExpectedLogTypes[48] = {
    {"ZOL_LOG_BSS_INIT_INFO", 0x0EA7102C, 1},         {"ZOL_LOG_BSS_PROCESS_INFO", 0x0EA7102D, 3},
    {"ZOL_LOG_CES_INFO", 0x0EA7102E, 3},              {"ZOL_LOG_CMD_PROCESS_INFO", 0x0EA7102F, 3},
    {"ZOL_LOG_HA_IPC_INFO", 0x0EA71034, 3},           {"ZOL_LOG_HA_PROCESS_INFO", 0x0EA71035, 3},
    {"ZOL_LOG_IFCMD_PROCESS_INFO", 0x0EA71036, 2},    {"ZOL_LOG_IPC_EPOLL_INFO", 0x0EA71037, 2},
    {"ZOL_LOG_BES_DB_PUB_INFO", 0x0EA71006, 4},       {"ZOL_LOG_BES_DB_SUB_INFO", 0x0EA71005, 4},
    {"ZOL_LOG_BSS_INIT_ERR", 0x0EA71000, 1},          {"ZOL_LOG_BSS_PROCESS_ERR", 0x0EA71002, 3},
    {"ZOL_LOG_CES_ERR", 0x0EA71024, 3},               {"ZOL_LOG_CMD_EVENT_INFO", 0x0EA71025, 2},
    {"ZOL_LOG_CMD_PROCESS_ERR", 0x0EA71026, 3},       {"ZOL_LOG_DB_ERR", 0x0EA71001, 3},
    {"ZOL_LOG_PIRAM_ERR", 0x0EA71022, 3},             {"ZOL_LOG_TANIX_ERR", 0x0EA71021, 3},
    {"ZOL_LOG_MELVA_ERR", 0x0EA71020, 3},             {"ZOL_LOG_HA_IPC_ERR", 0x0EA71009, 3},
    {"ZOL_LOG_HA_MSG_ERR", 0x0EA7100A, 3},            {"ZOL_LOG_HA_NOTICE_INFO", 0x0EA7102A, 2},
    {"ZOL_LOG_HA_PROCESS_ERR", 0x0EA7100B, 3},        {"ZOL_LOG_HA_RECEIVE_INFO", 0x0EA71029, 2},
    {"ZOL_LOG_IFCMD_PROCESS_ERR", 0x0EA71007, 2},     {"ZOL_LOG_IMAGENT_ERR", 0x0EA71023, 3},
    {"ZOL_LOG_IPC_EPOLL_ERR", 0x0EA7100E, 2},         {"ZOL_LOG_IPC_EVENT_INFO", 0x0EA71012, 3},
    {"ZOL_LOG_IPC_LINK_ERR", 0x0EA71011, 2},          {"ZOL_LOG_IPC_MSG_ERR", 0x0EA7100F, 3},
    {"ZOL_LOG_IPC_RPC_PROCESS_ERR", 0x0EA7100D, 3},   {"ZOL_LOG_MBUF_PROCESS_ERR", 0x0EA71013, 2},
    {"ZOL_LOG_PARAM_CHECK_ERR", 0x0EA71027, 3},       {"ZOL_LOG_ROOT_APP_ERR", 0x0EA71014, 2},
    {"ZOL_LOG_ROOT_EVENT_INFO", 0x0EA71015, 3},       {"ZOL_LOG_RPC_MSG_ERR", 0x0EA71010, 3},
    {"ZOL_LOG_SAFETY_FUNC_ERR", 0x0EA71028, 3},       {"ZOL_LOG_SDM_CREATE_ERR", 0x0EA7102B, 3},
    {"ZOL_LOG_SDM_HUGEPAGE_ERR", 0x0EA7101C, 2},      {"ZOL_LOG_SDM_LOCK_ERR", 0x0EA7101A, 2},
    {"ZOL_LOG_SDM_PROCESS_ERR", 0x0EA7101D, 3},       {"ZOL_LOG_SDM_UPB_ERR", 0x0EA71017, 3},
    {"ZOL_LOG_WAITLIST_CHECK_ERR", 0x0EA7101F, 3},    {"ZOL_LOG_WAITLIST_LOCK_ERR", 0x0EA7101E, 2},
    {"ZOL_LOG_DB_INFO", 0x0EA71030, 3},               {"ZOL_LOG_PIRAM_INFO", 0x0EA71031, 3},
    {"ZOL_LOG_TANIX_INFO", 0x0EA71032, 3},            {"ZOL_LOG_MELVA_INFO", 0x0EA71033, 3},
};
// clang-format on

constexpr uint8_t kTypeIpcMsgErr = 29; // 3 parameters
constexpr uint8_t kTypeRpcMsgErr = 35; // 3 parameters

inline ZOL_LogPoint Point(uint8_t type, bool filtered) {
    return ZOL_LogPoint{0x1C, 2, type, static_cast<uint8_t>(filtered ? 1 : 0)};
}

// Logs {tag, message} with a type of 3 parameters, the way the library's call sites do.
inline void LogMsg(const char *tag, bool filtered, const char *text, uint8_t type = kTypeIpcMsgErr) {
    const char *const texts[] = {tag, "message"};
    ZOL_LogPoint point = Point(type, filtered);
    ZOL_WriteLog(&point, tag, texts, 2, "%s", text);
}

// Wall-clock milliseconds, the clock the filter measures its interval with.
inline int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Comfortably longer than the filter's interval; below kWithinIntervalMs, calls made one after the other
// certainly fall within one interval.
constexpr int64_t kPastIntervalMs = 520;
constexpr int64_t kWithinIntervalMs = 450;

} // namespace zol::test

#endif // ZOL_FOUNDATION_LOG_TEST_H
