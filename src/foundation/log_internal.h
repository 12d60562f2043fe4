// Internals of the log writer shared by its parts: the log-type table, the repetition filter, the
// reporter identities and the report to the information-model agent.
#ifndef ZOL_LOG_INTERNAL_H
#define ZOL_LOG_INTERNAL_H

#include <atomic>

#include "zol_foundation.h"

namespace zol::log {

// One entry of the log-type table: the agent's log id and the number of text parameters of a record.
struct LogTypeEntry {
    u32 ulLogId;
    u32 ulParaNum;
};

// Read-only, indexed by ZOL_LogPoint::ucLogType.
extern const LogTypeEntry g_astLogType[ZOL_LOG_TYPE_NUM];
// The system's name of each log type, same index; the self-test reports every type under its name.
extern const char *const g_apcLogTypeName[ZOL_LOG_TYPE_NUM];

// Capacity of the parameter array of one record (texts plus the formatted text).
constexpr u32 kMaxLogParams = 12;

// Runs the repetition filter for a tag. False: suppress the call. True: let it through with *pulCallCnt
// set to the number of records of the tag let through so far (0 for the first record of a tag, and when
// the filter could not be consulted).
bool ZOL_LogFilterCheck(const char *pcTag, u32 *pulCallCnt);

// Reports one record of log type ulLogType with the collected text parameters. Silent on every failure.
void ZOL_LogReport(u32 ulLogType, const char *const *ppcParams, u32 ulParamNum);

// Who reports: filled once per process by the first report, never refreshed.
struct LogIdentity {
    std::atomic<u32> ulInited; // 0 until the fields below are filled, then 1 (published with release)
    u32 ulCpuId;               // 65535 when the CPU query failed
    char szSlot[32];           // "chassis/slot", slot 65535 when its query failed
    char szProcess[32];        // "pid," followed by the process name
};

// Makes sure the process and the calling thread's identities are filled; returns the process identity.
const LogIdentity &ZOL_LogIdentityInit();
// The calling thread's identity text "tid,name" (filled by ZOL_LogIdentityInit).
const char *ZOL_LogThreadIdent();

// Time of day in microseconds.
u64 ZOL_LogNowUs();

} // namespace zol::log

#endif // ZOL_LOG_INTERNAL_H
