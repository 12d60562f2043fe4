// The log writer through the exported API: the log-type table, the parameters of a record, the
// repetition filter, the parameter-count rule, truncation and silent failures.
#include "foundation_log_test.h"

#include <algorithm>
#include <fstream>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "zol_foundation.h"

#include "standin_ctl.h"

#include "imagent_reader.h"
#include "leak_check.h"

namespace zol::test {
namespace {

// The device identity the stand-in reports, set before anything of the program can log.
const bool kIdentitySet =
    setenv("ZOL_CHASSIS_ID", "7", 1) == 0 && setenv("ZOL_SLOT_ID", "9", 1) == 0 && setenv("ZOL_CPU_ID", "3", 1) == 0;

class LogWriterTest : public LeakCheckedTest {
  protected:
    ImAgentCapture agent_;
};

std::string ReadFirstLine(const std::string &path) {
    std::string line;
    std::getline(std::ifstream(path), line);
    return line;
}

TEST_F(LogWriterTest, EveryTypeReportsItsIdOnlyWithItsParameterCount) {
    const char *const texts[13] = {"PIN_T", "t1", "t2", "t3", "t4", "e", "f", "g", "h", "i", "j", "k", "l"};
    for (uint8_t type = 0; type < 50; ++type) {
        for (uint32_t textNum = 0; textNum <= 4; ++textNum) {
            ZOL_LogPoint point = Point(type, false);
            ZOL_WriteLog(&point, "PIN_T", texts, textNum, "type%u/n%u", type, textNum);
        }
    }
    // More texts than a record can carry: the formatted text is dropped and no type matches.
    ZOL_LogPoint point = Point(0, false);
    ZOL_WriteLog(&point, "PIN_T", texts, 13, "x");

    std::vector<ImRecord> records = agent_.Records();
    ASSERT_EQ(records.size(), 48u) << "one record per type, only with its own parameter count";
    for (uint8_t type = 0; type < 48; ++type) {
        const ImRecord &record = records[type];
        const ExpectedLogType &expected = kExpectedLogTypes[type];
        SCOPED_TRACE(expected.name);
        EXPECT_EQ(record.logId, expected.logId);
        ASSERT_EQ(record.params.size(), kImFirstText + expected.paraNum);
        EXPECT_EQ(record.Formatted(), "type" + std::to_string(type) + "/n" + std::to_string(expected.paraNum - 1));
        for (uint32_t i = 0; i + 1 < expected.paraNum; ++i)
            EXPECT_EQ(record.Text(kImFirstText + i), texts[i]);
    }
}

TEST_F(LogWriterTest, RecordCarriesIdentityThenTextsThenFormattedText) {
    ASSERT_TRUE(kIdentitySet);
    const char *const texts[] = {"IPC_SD_X", "Message check fail"};
    ZOL_LogPoint point = Point(kTypeIpcMsgErr, false);
    ZOL_WriteLog(&point, "IPC_SD_X", texts, 2, "sNode=0x%x, sChan=%d, dChan=%d, len=%d", 0x1A2u, 3, -1, 40);
    std::vector<ImRecord> records = agent_.Records();
    ASSERT_EQ(records.size(), 1u);
    const ImRecord &record = records[0];
    EXPECT_EQ(record.logId, 0x0EA7100Fu);
    ASSERT_EQ(record.params.size(), 7u);
    EXPECT_EQ(record.Text(0), "7/9");
    EXPECT_EQ(record.Value(1), 3u);
    const std::string tid = std::to_string(syscall(SYS_gettid));
    EXPECT_EQ(record.Text(2), std::to_string(getpid()) + "," + ReadFirstLine("/proc/self/comm").substr(0, 20));
    EXPECT_EQ(record.Text(3), tid + "," + ReadFirstLine("/proc/self/task/" + tid + "/comm"));
    EXPECT_EQ(record.Text(4), "IPC_SD_X");
    EXPECT_EQ(record.Text(5), "Message check fail");
    EXPECT_EQ(record.Text(6), "sNode=0x1a2, sChan=3, dChan=-1, len=40");
}

// One record per tag and interval, the next one after it carrying the count of records let through;
// call sites sharing a tag share the record; unfiltered calls always pass and are not counted.
TEST_F(LogWriterTest, FilterLetsOneRecordPerTagAndIntervalThroughAndCountsThem) {
    int64_t start = NowMs();
    for (int i = 0; i < 3; ++i)
        LogMsg("FLT_ONE", true, ("call" + std::to_string(i)).c_str());
    LogMsg("FLT_SHARED", true, "site A", kTypeIpcMsgErr);
    LogMsg("FLT_SHARED", true, "site B", kTypeRpcMsgErr);
    LogMsg("FLT_MIXED", true, "filtered");
    for (int i = 0; i < 4; ++i)
        LogMsg("FLT_MIXED", false, "unfiltered");
    LogMsg("FLT_MIXED", true, "filtered again");
    bool quick = NowMs() - start < kWithinIntervalMs;
    const std::vector<ImRecord> one = agent_.WithTag("FLT_ONE"), shared = agent_.WithTag("FLT_SHARED"),
                                mixed = agent_.WithTag("FLT_MIXED");
    ASSERT_FALSE(one.empty() || shared.empty());
    EXPECT_EQ(one[0].Formatted(), "call0") << "the first record of a tag carries no prefix";
    EXPECT_EQ(shared[0].logId, kExpectedLogTypes[kTypeIpcMsgErr].logId);
    EXPECT_EQ(std::count_if(mixed.begin(), mixed.end(), [](auto &r) { return r.Formatted() == "unfiltered"; }), 4);
    if (quick) { // calls within the interval are suppressed, site B's in the interval site A opened
        EXPECT_EQ(one.size() + shared.size() + mixed.size(), 7u);
    }

    std::this_thread::sleep_for(std::chrono::milliseconds(kPastIntervalMs));
    agent_.Clear();
    start = NowMs();
    LogMsg("FLT_ONE", true, std::string(400, 'x').c_str());
    LogMsg("FLT_ONE", true, "suppressed");
    LogMsg("FLT_SHARED", true, "site B again", kTypeRpcMsgErr);
    LogMsg("FLT_MIXED", true, "counted");
    quick = NowMs() - start < kWithinIntervalMs;
    std::vector<ImRecord> records = agent_.Records();
    ASSERT_GE(records.size(), 3u);
    if (quick) {
        EXPECT_EQ(records.size(), 3u) << "the second call is suppressed";
    }
    // The prefix counts toward the 256 bytes: 10 characters of prefix leave 245 of the text.
    EXPECT_EQ(records[0].Formatted(), "callCnt:2," + std::string(245, 'x'));
    EXPECT_EQ(records.end()[-2].logId, kExpectedLogTypes[kTypeRpcMsgErr].logId);
    EXPECT_EQ(records.end()[-2].Formatted(), "callCnt:2,site B again");
    EXPECT_EQ(records.back().Formatted(), "callCnt:2,counted");
}

// A tag with no room for its terminator in a filter key bypasses the filter; texts are cut to fit.
TEST_F(LogWriterTest, LongTagsBypassTheFilterAndLongTextsAreCut) {
    const std::string tooLong(63, 'L');
    for (int i = 0; i < 3; ++i)
        LogMsg(tooLong.c_str(), true, "text");
    EXPECT_EQ(agent_.WithTag(tooLong).size(), 3u) << "reported on every call";
    LogMsg("TRUNC", false, std::string(300, 'y').c_str());
    LogMsg("TRUNC", false, std::string(255, 'y').c_str());
    for (const ImRecord &record : agent_.WithTag("TRUNC"))
        EXPECT_EQ(record.Formatted(), std::string(255, 'y'));
    EXPECT_EQ(agent_.WithTag("TRUNC").size(), 2u);
}

TEST_F(LogWriterTest, FailuresEndTheCallSilently) {
    LogMsg("FAIL_ONE", true, "opens the interval");
    // The last text cannot be added, the record cannot be created, the text cannot be formatted.
    for (auto [name, skip] :
         {std::pair{"IM_Agent_AddPara", 5}, {"IM_Agent_ObjCreate", 0}, {"vsnprintf_truncated_s", 0}}) {
        ASSERT_EQ(PLAT_FaultInject(name, skip, 1), 0u);
        LogMsg("FAIL_TWO", false, name);
    }
    ZOL_WriteLog(nullptr, "FAIL_TWO", nullptr, 0, "no point");
    EXPECT_TRUE(agent_.WithTag("FAIL_TWO").empty());

    // No filter record when its element cannot be had or added: the next call is again a first one.
    ASSERT_EQ(PLAT_FaultInject("HASH_NewData", 0, 1), 0u);
    LogMsg("FAIL_NEW", true, "no element");
    ASSERT_EQ(PLAT_FaultInject("HASH_AddNode", 0, 1), 0u);
    LogMsg("FAIL_NEW", true, "not added");
    LogMsg("FAIL_NEW", true, "first kept");
    std::vector<ImRecord> records = agent_.WithTag("FAIL_NEW");
    ASSERT_EQ(records.size(), 3u);
    for (const ImRecord &record : records)
        EXPECT_EQ(record.Formatted().find("callCnt"), std::string::npos) << record.Formatted();
    // Without the lock the table is left alone and the call let through uncounted.
    ASSERT_EQ(PLAT_FaultInject("RUK_MutexLock", 0, 1), 0u);
    LogMsg("FAIL_ONE", true, "lock refused");
    records = agent_.WithTag("FAIL_ONE");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records.back().Formatted(), "lock refused");
}

} // namespace
} // namespace zol::test
