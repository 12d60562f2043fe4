// White-box test of the per-task counters: sums stay exact with more tasks than slabs (the shared slab
// takes the rest) and across tasks that end and hand their slab, counts included, to later tasks.
#include "foundation/task_counters.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

struct TestTag;
constexpr u32 kSlabs = 4;
using Counters = zol::TaskCounters<TestTag, 2, kSlabs>;

// Counter 0 gets 1 per call, counter 1 the thread's index; returns what counter 1 must have gained.
u64 AddFromThreads(u32 threads, u32 perThread) {
    std::vector<std::thread> pool;
    for (u32 t = 0; t < threads; ++t) {
        pool.emplace_back([perThread, t] {
            for (u32 i = 0; i < perThread; ++i) {
                Counters::AddPair(0, 1, t);
            }
        });
    }
    for (std::thread &th : pool)
        th.join();
    return u64{threads} * (threads - 1) / 2 * perThread;
}

TEST(TaskCountersTest, SumsStayExactBeyondTheSlabsAndAcrossTaskEnds) {
    u64 weighted = AddFromThreads(3 * kSlabs, 5000); // all at once: some tasks share the atomic slab
    EXPECT_EQ(Counters::Read(0), 3 * kSlabs * 5000u);
    EXPECT_EQ(Counters::Read(1), weighted);
    for (int round = 0; round < 3; ++round) // ended tasks gave their slabs back: these take them over
        weighted += AddFromThreads(kSlabs, 100);
    Counters::Add(0, 7); // the test's own task keeps its slab while it lives
    EXPECT_EQ(Counters::Read(0), 3 * kSlabs * 5100u + 7);
    EXPECT_EQ(Counters::Read(1), weighted);
}

} // namespace
