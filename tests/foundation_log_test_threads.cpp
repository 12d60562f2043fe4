// Many threads logging at once: one filter table, one identity, at most one record per tag and
// interval, and nothing lost or duplicated.
#include <atomic>
#include <set>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <vector>

#include "foundation_log_test.h"
#include "imagent_reader.h"

namespace zol::test {
namespace {

constexpr int kThreads = 8;
constexpr int kDistinctPerThread = 40;
constexpr int kUnfilteredPerThread = 10;
constexpr int64_t kRunMs = 1100; // long enough for a few intervals of the shared tags

std::string Name(const char *prefix, int i, int j = -1) {
    return prefix + std::to_string(i) + (j >= 0 ? "_" + std::to_string(j) : std::string());
}

void LogFromThread(int index, int64_t deadline, const std::atomic<bool> &go) {
    prctl(PR_SET_NAME, Name("mtlog", index).c_str(), 0, 0, 0);
    while (!go.load())
        std::this_thread::yield();
    for (int j = 0; j < kDistinctPerThread || NowMs() < deadline; ++j) {
        LogMsg("MT_SHARED", true, "shared");
        LogMsg(Name("MT_OWN", index).c_str(), true, "own");
        if (j < kDistinctPerThread) {
            LogMsg(Name("MT_D", index, j).c_str(), true, "distinct");
        }
        if (j < kUnfilteredPerThread) {
            LogMsg("MT_UNF", false, "unfiltered");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// The records of one tag carry the counts 1 (no prefix), 2, 3, ... each exactly once: a duplicate
// shows that two threads passed in one interval, a gap that an update was lost.
void ExpectCountChain(const std::vector<ImRecord> &records, int64_t elapsedMs, const std::string &tag) {
    SCOPED_TRACE(tag);
    ASSERT_FALSE(records.empty());
    std::multiset<uint32_t> counts;
    for (const ImRecord &record : records) {
        uint32_t count = 1;
        sscanf(record.Formatted().c_str(), "callCnt:%u,", &count);
        counts.insert(count);
    }
    uint32_t expected = 1;
    for (uint32_t count : counts)
        EXPECT_EQ(count, expected++);
    EXPECT_LE(static_cast<int64_t>(records.size()), elapsedMs / 500 + 1) << "at most one record per 500 ms";
}

TEST(LogThreadsTest, ManyThreadsLoggingAtOnceLoseAndDuplicateNothing) {
    ImAgentCapture agent;
    std::atomic<bool> go{false};
    const int64_t start = NowMs();
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(LogFromThread, i, start + kRunMs, std::cref(go));
    go.store(true);
    for (std::thread &thread : threads)
        thread.join();
    const int64_t elapsedMs = NowMs() - start;

    const std::vector<ImRecord> records = agent.Records();
    ASSERT_FALSE(records.empty());
    for (const ImRecord &record : records) // one identity for the process
        EXPECT_TRUE(record.Text(0) == records[0].Text(0) && record.Text(2) == records[0].Text(2));
    EXPECT_EQ(RecordsWithTag(records, "MT_UNF").size(), static_cast<size_t>(kThreads * kUnfilteredPerThread));
    ExpectCountChain(RecordsWithTag(records, "MT_SHARED"), elapsedMs, "MT_SHARED");
    for (int i = 0; i < kThreads; ++i) {
        ExpectCountChain(RecordsWithTag(records, Name("MT_OWN", i)), elapsedMs, Name("MT_OWN", i));
        for (int j = 0; j < kDistinctPerThread; ++j) { // the thread identity "<tid>,<name>" is the logger's
            std::vector<ImRecord> distinct = RecordsWithTag(records, Name("MT_D", i, j));
            ASSERT_EQ(distinct.size(), 1u) << Name("MT_D", i, j);
            const std::string thread = distinct[0].Text(3);
            EXPECT_EQ(thread.substr(thread.find(',') + 1), Name("mtlog", i)) << thread;
        }
    }
}

} // namespace
} // namespace zol::test
