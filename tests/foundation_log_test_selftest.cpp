// The diagnostic-log self-test: one record of every log type, then only the unfiltered ones within the
// filter's interval, and the summary line in the system log.
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <syslog.h>
#include <vector>

#include "zol_foundation.h"

#include "foundation_log_test.h"
#include "imagent_reader.h"

namespace {
std::mutex g_syslogLock;
std::vector<std::pair<int, std::string>> g_syslogLines; // priority, text
} // namespace

// The program's own syslog takes precedence over the C library's for the library's calls, so the
// summary line is captured here instead of reaching the machine's log.
extern "C" void syslog(int priority, const char *format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    std::lock_guard<std::mutex> guard(g_syslogLock);
    g_syslogLines.emplace_back(priority, text);
}

namespace zol::test {
namespace {

// Types in the order the self-test reports them: the information part, then the error part.
constexpr int kOrder[48] = {27, 34, 8,  9,  13, 44, 21, 23, 0,  1,  2,  3,  4,  5,  6,  7,
                            45, 46, 47, 26, 28, 29, 30, 31, 32, 33, 35, 36, 42, 43, 10, 11,
                            12, 14, 15, 16, 17, 18, 19, 20, 22, 24, 25, 37, 38, 39, 40, 41};
constexpr int kInfoTypes = 19;

// Record `index` of a self-test run (ids count from 0 in each part), then the summary line: error
// priority, the total and a non-negative cost in milliseconds.
void ExpectSelfTestRecord(const ImRecord &record, int index) {
    const ExpectedLogType &expected = kExpectedLogTypes[kOrder[index]];
    SCOPED_TRACE(expected.name);
    EXPECT_EQ(record.logId, expected.logId);
    if (expected.paraNum > 1) {
        EXPECT_EQ(record.Tag(), expected.name) << "the type's name is the tag and first text";
    }
    const bool info = index < kInfoTypes;
    std::string format = info ? "[ZOL_TEST_INFO] magic:abc, id:" : "[ZOL_TEST] magic:abc, id:";
    if (kOrder[index] == 44) { // ZOL_LOG_DB_INFO moves the marker into its second text
        format = "magic:abc, id:";
        EXPECT_EQ(record.Text(kImFirstText + 1), "[ZOL_TEST_INFO]");
    }
    EXPECT_EQ(record.Formatted(), format + std::to_string(info ? index : index - kInfoTypes));
}
void ExpectSummary() {
    std::lock_guard<std::mutex> guard(g_syslogLock);
    ASSERT_EQ(g_syslogLines.size(), 1u);
    EXPECT_EQ(g_syslogLines[0].first, LOG_ERR);
    unsigned total = 0;
    double cost = -1;
    const char *text = g_syslogLines[0].second.c_str();
    ASSERT_EQ(sscanf(text, "[ZOL_TEST]:Total run times:%u costTime:%lf", &total, &cost), 2) << text;
    EXPECT_EQ(total, 48u);
    EXPECT_GE(cost, 0.0);
    g_syslogLines.clear();
}

TEST(DiaglogSelfTest, ReportsEveryTypeOnceThenOnlyTheUnfilteredWithinTheInterval) {
    ImAgentCapture agent;
    g_syslogLines.clear();
    const int64_t start = NowMs();
    ZOL_VerifyDiaglog();
    std::vector<ImRecord> records = agent.Records();
    ASSERT_EQ(records.size(), 48u);
    for (int i = 0; i < 48; ++i)
        ExpectSelfTestRecord(records[i], i);
    ExpectSummary();

    agent.Clear();
    ZOL_VerifyDiaglog();
    records = agent.Records();
    if (NowMs() - start < kWithinIntervalMs) {
        ASSERT_EQ(records.size(), 2u) << "only the two unfiltered records";
        ExpectSelfTestRecord(records[0], 6);
        ExpectSelfTestRecord(records[1], 7);
    }
    ExpectSummary();
    EXPECT_EQ(ZOL_VerifyDiaglogInfo(), 19u);
    EXPECT_EQ(ZOL_VerifyDiaglogError(), 29u);
}

} // namespace
} // namespace zol::test
