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

void AddFromThreads(u32 threads, u32 perThread) {
    std::vector<std::thread> pool;
    for (u32 t = 0; t < threads; ++t) {
        pool.emplace_back([perThread, t] {
            for (u32 i = 0; i < perThread; ++i) {
                Counters::Add(0, 1);
                Counters::Add(1, t);
            }
        });
    }
    for (std::thread &th : pool) {
        th.join();
    }
}

TEST(TaskCountersTest, SumsStayExactBeyondTheSlabsAndAcrossTaskEnds) {
    constexpr u32 kPerThread = 5000;
    AddFromThreads(3 * kSlabs, kPerThread); // all at once: some tasks share the atomic slab
    u64 weighted = 0;
    for (u32 t = 0; t < 3 * kSlabs; ++t) {
        weighted += u64{t} * kPerThread;
    }
    EXPECT_EQ(Counters::Read(0), u64{3 * kSlabs} * kPerThread);
    EXPECT_EQ(Counters::Read(1), weighted);

    for (int round = 0; round < 3; ++round) { // ended tasks gave their slabs back: these take them over
        AddFromThreads(kSlabs, 100);
    }
    EXPECT_EQ(Counters::Read(0), u64{3 * kSlabs} * kPerThread + 3 * kSlabs * 100);

    Counters::Add(0, 7); // the test's own task keeps its slab while it lives
    EXPECT_EQ(Counters::Read(0), u64{3 * kSlabs} * kPerThread + 3 * kSlabs * 100 + 7);
}

} // namespace
