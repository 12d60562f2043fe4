// The wait list through the exported API: argument checks, handles (reuse, stale and forged ones refused),
// the walk calling procedures, failures that leave nothing behind, and concurrent use.
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "zol_waitlist.h"

#include "standin_ctl.h"

#include "imagent_reader.h"
#include "leak_check.h"

namespace {

u64 Proc(u64 ctx, u64 *newCtx) {
    *newCtx = ctx;
    return 0;
}

// The index table is allocated with the first registration and never shrinks; growing it once here,
// before any leak baseline is taken, keeps it out of every test's accounting.
class WaitListTest : public zol::test::LeakCheckedTest {
  protected:
    static void SetUpTestSuite() {
        std::vector<u32> handles(100);
        for (u32 &h : handles)
            ASSERT_EQ(RUK_WaitListRegister(0xABCDu, &h, Proc), 0u);
        for (u32 h : handles)
            ASSERT_EQ(RUK_WaitListUnregister(h), 0u);
    }
};

u64 ValueOf(u32 h) {
    u64 value = 0xDEAD;
    EXPECT_EQ(RUK_WaitListGet(h, &value), 0u);
    return value;
}

TEST_F(WaitListTest, HandlesResolveAndStaleOrForgedHandlesAreRefused) {
    u32 h = 0x1234;
    EXPECT_EQ(RUK_WaitListRegister(1, nullptr, Proc), WAITLIST_ERR_PARAM);
    EXPECT_EQ(RUK_WaitListRegister(1, &h, nullptr), WAITLIST_ERR_PARAM);
    ASSERT_EQ(RUK_WaitListRegister(3, &h, Proc), 0u);
    EXPECT_NE(h, 0u);
    EXPECT_EQ(ValueOf(h), 0u) << "a registration starts at value 0";
    EXPECT_EQ(RUK_WaitListSet(h, 5, 9), 0u);
    // Right entry with a wrong tag, an entry beyond the table, an entry nobody holds.
    for (u32 forged : {h ^ 0x00010000u, (h & 0xFFFF0000u) | 0xFFFFu, (h & 0xFFFF0000u) | 0x0050u}) {
        u64 value = 0;
        EXPECT_EQ(RUK_WaitListGet(forged, &value), WAITLIST_ERR_HANDLE) << std::hex << forged;
        EXPECT_EQ(RUK_WaitListSet(forged, 1, 1), WAITLIST_ERR_HANDLE) << std::hex << forged;
        EXPECT_EQ(RUK_WaitListUnregister(forged), WAITLIST_ERR_HANDLE) << std::hex << forged;
    }
    EXPECT_EQ(ValueOf(h), 5u) << "a refused Set must not change the registration";
    EXPECT_EQ(RUK_WaitListUnregister(0), WAITLIST_ERR_PARAM);
    EXPECT_EQ(RUK_WaitListUnregister(h), 0u);
    u64 value = 0;
    EXPECT_EQ(RUK_WaitListGet(h, &value), WAITLIST_ERR_HANDLE) << "the handle is stale now";
    EXPECT_EQ(RUK_WaitListUnregister(h), WAITLIST_ERR_HANDLE);
}

// A refused removal is logged with its exact texts, after waiting out the per-tag repetition filter.
TEST_F(WaitListTest, RefusedUnregistrationIsLogged) {
    zol::test::ImAgentCapture capture;
    std::this_thread::sleep_for(std::chrono::milliseconds(ZOL_LOG_FILTER_INTERVAL_MS + 100));
    EXPECT_EQ(RUK_WaitListUnregister(0x00120013u), WAITLIST_ERR_HANDLE);
    const auto records = capture.WithTag("RUK_WLUR");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].Text(zol::test::kImFirstText + 1), "Find son node fail");
    // The writer may put the repetition filter's call count in front of the text.
    const std::string text = records[0].Formatted(), tail = "sub node is null, handle:1179667";
    EXPECT_TRUE(text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail) << text;
}

std::vector<std::pair<u64, int>> g_calls; // context, procedure

u64 FirstProc(u64 ctx, u64 *newCtx) {
    g_calls.emplace_back(ctx, 1);
    *newCtx = 9;
    return 6;
}
u64 SecondProc(u64 ctx, u64 *) { // leaves the new-context slot alone
    g_calls.emplace_back(ctx, 2);
    return 6;
}

TEST_F(WaitListTest, DelFromListCallsMatchingProceduresInOrder) {
    // List 7: value 5 twice, then another value; list 8 holds value 5 too.
    const std::tuple<u32, WAITLIST_PROC_PF, u64, u64> rows[] = {
        {7, FirstProc, 5, 100}, {8, FirstProc, 5, 400}, {7, SecondProc, 5, 200}, {7, SecondProc, 4, 300}};
    u32 h[4] = {};
    for (int i = 0; i < 4; ++i) {
        const auto [list, proc, value, ctx] = rows[i];
        ASSERT_EQ(RUK_WaitListRegister(list, &h[i], proc), 0u);
        ASSERT_EQ(RUK_WaitListSet(h[i], value, ctx), 0u);
    }
    g_calls.clear();
    EXPECT_EQ(RUK_WaitListDelFromList(7, 1234), 0u); // no registration holds the value
    EXPECT_EQ(RUK_WaitListDelFromList(7, 5), 0u);
    EXPECT_EQ(g_calls, (std::vector<std::pair<u64, int>>{{100, 1}, {200, 2}}));
    EXPECT_EQ(ValueOf(h[0]), 6u);
    EXPECT_EQ(ValueOf(h[2]), 6u);
    EXPECT_EQ(ValueOf(h[3]), 4u);
    // The second procedure wrote no context, so it inherited the 9 the first one wrote.
    g_calls.clear();
    EXPECT_EQ(RUK_WaitListDelFromList(7, 6), 0u);
    EXPECT_EQ(g_calls, (std::vector<std::pair<u64, int>>{{9, 1}, {9, 2}}));

    // Removing the last registration of a list removes the list.
    for (u32 x : {h[0], h[2], h[3]})
        EXPECT_EQ(RUK_WaitListUnregister(x), 0u);
    EXPECT_EQ(RUK_WaitListDelFromList(7, 6), WAITLIST_ERR_NOT_FOUND);
    EXPECT_EQ(RUK_WaitListUnregister(h[1]), 0u);
    EXPECT_EQ(RUK_WaitListDelFromList(8, 0), WAITLIST_ERR_NOT_FOUND);
}

// The fixture's leak check covers the failed attempts; they also took no list and no index entry.
TEST_F(WaitListTest, FailedRegistrationLeavesNothingBehind) {
    u32 keep = 0, h = 0x5555;
    ASSERT_EQ(RUK_WaitListRegister(20, &keep, Proc), 0u);
    for (u32 step : {0u, 1u}) { // the registration itself, the new list's main node
        ASSERT_EQ(PLAT_FaultInject("RUK_MemAlloc_F", step, 1), 0u);
        EXPECT_EQ(RUK_WaitListRegister(21, &h, Proc), WAITLIST_ERR_FAILED);
        EXPECT_EQ(h, 0u);
    }
    PLAT_FaultClear();
    EXPECT_EQ(RUK_WaitListDelFromList(21, 0), WAITLIST_ERR_NOT_FOUND);
    ASSERT_EQ(RUK_WaitListRegister(20, &h, Proc), 0u);
    EXPECT_EQ(h & 0xFFFFu, 2u);
    EXPECT_EQ(RUK_WaitListUnregister(h), 0u);
    EXPECT_EQ(RUK_WaitListUnregister(keep), 0u);
}

std::atomic<u64> g_concurrentCalls{0};
u64 CountingProc(u64 ctx, u64 *newCtx) {
    g_concurrentCalls.fetch_add(1, std::memory_order_relaxed);
    *newCtx = ctx + 1;
    return 2;
}

// Several threads register, set, read, walk and unregister at once; every handle stays its owner's.
TEST_F(WaitListTest, ConcurrentUseKeepsEveryRegistrationItsOwners) {
    constexpr int kThreads = 4, kRounds = 300;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &failures] {
            const u32 list = 100 + t % 2;
            for (int r = 0; r < kRounds; ++r) {
                u32 h[3] = {};
                for (u32 &x : h)
                    failures += RUK_WaitListRegister(list, &x, CountingProc) != 0;
                const u64 mine = (static_cast<u64>(t) << 32) | static_cast<u64>(r);
                failures += RUK_WaitListSet(h[1], mine, 0) != 0;
                u64 v = 0;
                failures += RUK_WaitListGet(h[1], &v) != 0 || v != mine;
                failures += RUK_WaitListDelFromList(list, mine) != 0;
                failures += RUK_WaitListGet(h[1], &v) != 0 || v != 2; // only this thread's value is `mine`
                for (u32 x : h)
                    failures += RUK_WaitListUnregister(x) != 0;
            }
        });
    }
    for (std::thread &th : threads)
        th.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_GE(g_concurrentCalls.load(), static_cast<u64>(kThreads * kRounds));
    EXPECT_EQ(RUK_WaitListDelFromList(100, 0), WAITLIST_ERR_NOT_FOUND);
    EXPECT_EQ(RUK_WaitListDelFromList(101, 0), WAITLIST_ERR_NOT_FOUND);
}

} // namespace
