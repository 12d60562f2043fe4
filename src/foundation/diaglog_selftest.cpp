// Self-test of the diagnostic log: one record of each of the 48 log types, and a summary line in the
// system log.
#include "foundation/log_internal.h"
#include "foundation/log_points.h"

#include <syslog.h>

namespace {

using namespace zol::log;

constexpr u32 kSelfTestMagic = 0xABC;
constexpr const char *kInfoFormat = "[ZOL_TEST_INFO] magic:%x, id:%u";
constexpr const char *kErrFormat = "[ZOL_TEST] magic:%x, id:%u";

// One self-test record: its type, how many texts it carries (the type's name first, then the extras),
// whether it is filtered, and a format of its own where it has one.
struct SelfTestRec {
    LogType eType;
    u8 ucTextNum;
    const char *pcExtra1;
    const char *pcExtra2;
    bool bFiltered;
    const char *pcFormat;
};

constexpr SelfTestRec Rec(LogType eType, u8 ucTextNum, const char *pcExtra1 = nullptr, const char *pcExtra2 = nullptr,
                          bool bFiltered = true, const char *pcFormat = nullptr) {
    return SelfTestRec{eType, ucTextNum, pcExtra1, pcExtra2, bFiltered, pcFormat};
}

const SelfTestRec kInfoRecs[] = {
    Rec(kLogIpcEventInfo, 2, "T1"),
    Rec(kLogRootEventInfo, 2, "T1"),
    Rec(kLogBesDbPubInfo, 3, "E1", "T1"),
    Rec(kLogBesDbSubInfo, 3, "E1", "T1"),
    Rec(kLogCmdEventInfo, 1),
    Rec(kLogDbInfo, 2, "[ZOL_TEST_INFO]", nullptr, true, "magic:%x, id:%u"),
    Rec(kLogHaNoticeInfo, 1, nullptr, nullptr, false),
    Rec(kLogHaReceiveInfo, 1, nullptr, nullptr, false),
    Rec(kLogBssInitInfo, 0),
    Rec(kLogBssProcessInfo, 2, "T1"),
    Rec(kLogCesInfo, 2, "T1"),
    Rec(kLogCmdProcessInfo, 2, "T1"),
    Rec(kLogHaIpcInfo, 2, "T1"),
    Rec(kLogHaProcessInfo, 2, "T1"),
    Rec(kLogIfcmdProcessInfo, 1),
    Rec(kLogIpcEpollInfo, 1),
    Rec(kLogPiramInfo, 2, "T1"),
    Rec(kLogTanixInfo, 2, "T1"),
    Rec(kLogMelvaInfo, 2, "T1"),
};

const SelfTestRec kErrRecs[] = {
    Rec(kLogIpcEpollErr, 1),         Rec(kLogIpcLinkErr, 1),
    Rec(kLogIpcMsgErr, 2, "T1"),     Rec(kLogIpcRpcProcessErr, 2, "T1"),
    Rec(kLogMbufProcessErr, 1),      Rec(kLogParamCheckErr, 2, "T1"),
    Rec(kLogRootAppErr, 1),          Rec(kLogRpcMsgErr, 2, "T1"),
    Rec(kLogSafetyFuncErr, 2, "T1"), Rec(kLogWaitlistCheckErr, 2, "T1"),
    Rec(kLogWaitlistLockErr, 1),     Rec(kLogBssInitErr, 0),
    Rec(kLogBssProcessErr, 2, "E1"), Rec(kLogCesErr, 2, "E1"),
    Rec(kLogCmdProcessErr, 2, "T1"), Rec(kLogDbErr, 2, "T1"),
    Rec(kLogPiramErr, 2, "T1"),      Rec(kLogTanixErr, 2, "T1"),
    Rec(kLogMelvaErr, 2, "T1"),      Rec(kLogHaIpcErr, 2, "T1"),
    Rec(kLogHaMsgErr, 2, "T1"),      Rec(kLogHaProcessErr, 2, "T1"),
    Rec(kLogIfcmdProcessErr, 1),     Rec(kLogImagentErr, 2, "T1"),
    Rec(kLogSdmCreateErr, 2, "T1"),  Rec(kLogSdmHugepageErr, 1),
    Rec(kLogSdmLockErr, 1),          Rec(kLogSdmProcessErr, 2, "T1"),
    Rec(kLogSdmUpbErr, 2, "T1"),
};

static_assert(sizeof(kInfoRecs) / sizeof(kInfoRecs[0]) + sizeof(kErrRecs) / sizeof(kErrRecs[0]) == ZOL_LOG_TYPE_NUM,
              "the self-test covers every log type once");

// Writes the records in order, with their index as the running id; the tag is the type's name.
template <size_t N>
u32 WriteRecords(const SelfTestRec (&astRecs)[N], Module eModule, Class eClass, const char *pcDefaultFormat) {
    for (u32 i = 0; i < N; ++i) {
        const SelfTestRec &stRec = astRecs[i];
        const char *pcName = g_apcLogTypeName[stRec.eType];
        const char *const apcTexts[] = {pcName, stRec.pcExtra1, stRec.pcExtra2};
        const ZOL_LogPoint stPoint = Point(eModule, eClass, stRec.eType, stRec.bFiltered);
        const char *pcFormat = (stRec.pcFormat != nullptr) ? stRec.pcFormat : pcDefaultFormat;
        ZOL_WriteLog(&stPoint, pcName, apcTexts, stRec.ucTextNum, pcFormat, kSelfTestMagic, i);
    }
    return static_cast<u32>(N);
}

} // namespace

extern "C" u32 ZOL_VerifyDiaglogInfo(void) {
    return WriteRecords(kInfoRecs, kModSelfTestInfo, kInfo, kInfoFormat);
}

extern "C" u32 ZOL_VerifyDiaglogError(void) {
    return WriteRecords(kErrRecs, kModSelfTestErr, kError, kErrFormat);
}

extern "C" void ZOL_VerifyDiaglog(void) {
    u64 ullStart = ZOL_LogNowUs();
    u32 ulTotal = ZOL_VerifyDiaglogInfo() + ZOL_VerifyDiaglogError();
    double dCostMs = static_cast<double>(ZOL_LogNowUs() - ullStart) / 1000.0;
    syslog(LOG_ERR, "[ZOL_TEST]:Total run times:%u costTime:%f", ulTotal, dCostMs);
}
