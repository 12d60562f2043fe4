// Stand-in queues and counting semaphores: NOWAIT, time-outs, wake-ups, many threads.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "ruk_queue.h"
#include "ruk_sem.h"
#include "standin_ctl.h"

namespace {

template <typename Call>
void ExpectTimeout(Call call, long ms) {
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(call(), RUK_ERR_TIMEOUT);
    EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count(),
              ms);
}

// Starts body on a thread and returns once the kernel reports that thread asleep (blocked in the call).
std::thread StartBlocked(std::function<void()> body) {
    std::atomic<pid_t> tid{0};
    std::thread thread([&tid, body] {
        tid = static_cast<pid_t>(syscall(SYS_gettid));
        body();
    });
    for (std::string stat; stat.size() < 3 || stat[stat.rfind(')') + 2] != 'S';) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::ifstream in(tid ? "/proc/self/task/" + std::to_string(tid.load()) + "/stat" : "/dev/null");
        std::getline(in, stat);
    }
    return thread;
}

TEST(PlatformQueue, FifoNowaitTimeoutsAndRefusals) {
    u32 queue = 0;
    EXPECT_EQ(RUK_Que_Create("q", 0, 0, &queue), RUK_ERR_PARAM);
    ASSERT_EQ(RUK_Que_Create("q", 3, 6, &queue), RUK_OK);
    u64 rec[4] = {}, got[4] = {};
    EXPECT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_ERR_EMPTY);
    for (u64 i = 1; i <= 3; ++i) {
        const u64 in[4] = {i, i * 10, i * 100, ~i};
        ASSERT_EQ(RUK_Que_Write(queue, in, RUK_NOWAIT, 0), RUK_OK);
    }
    EXPECT_EQ(RUK_Que_Write(queue, rec, RUK_NOWAIT, 0), RUK_ERR_FULL);
    ExpectTimeout([&] { return RUK_Que_Write(queue, rec, RUK_WAIT, 40); }, 40);
    for (u64 i = 1; i <= 3; ++i) {
        ASSERT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_OK);
        EXPECT_TRUE(rec[0] == i && rec[3] == ~i) << i;
    }
    ExpectTimeout([&] { return RUK_Que_Read(queue, rec, 0, 40); }, 40); // a mode without NOWAIT waits
    u32 rc = ~0u;
    std::thread reader = StartBlocked([&] { rc = RUK_Que_Read(queue, got, RUK_WAIT, 0); });
    rec[0] = 7;
    ASSERT_EQ(RUK_Que_Write(queue, rec, RUK_NOWAIT, 0), RUK_OK);
    reader.join();
    EXPECT_TRUE(rc == RUK_OK && got[0] == 7u);
    EXPECT_EQ(RUK_Que_Read(0, rec, RUK_NOWAIT, 0), RUK_ERR_NOT_FOUND);
    EXPECT_EQ(RUK_Que_Read(queue, nullptr, RUK_NOWAIT, 0), RUK_ERR_PARAM);
    ASSERT_EQ(PLAT_FaultInject("RUK_Que_Write", 0, 1), RUK_OK);
    EXPECT_EQ(RUK_Que_Write(queue, rec, RUK_NOWAIT, 0), RUK_ERR_INJECTED);
    EXPECT_EQ(RUK_Que_Write(queue, rec, RUK_NOWAIT, 0), RUK_OK);
    EXPECT_EQ(PLAT_FaultInject("RUK_No_Such_Call", 0, 1), RUK_ERR_NOT_FOUND);
}

// Sleepers are woken once per wait, so a burst of writes must still reach every sleeping reader (each
// woken reader passes the turn on), and a burst of reads every sleeping writer.
TEST(PlatformQueue, BurstsWakeEverySleeperOfTheOtherSide) {
    constexpr int kSleepers = 3;
    u32 queue = 0;
    ASSERT_EQ(RUK_Que_Create("burst", kSleepers, 0, &queue), RUK_OK);
    std::vector<std::thread> sleepers;
    std::atomic<u64> sum{0};
    for (int i = 0; i < kSleepers; ++i) {
        sleepers.push_back(StartBlocked([&] {
            u64 rec[4] = {};
            EXPECT_EQ(RUK_Que_Read(queue, rec, RUK_WAIT, 0), RUK_OK);
            sum += rec[0];
        }));
    }
    for (u64 i = 1; i <= kSleepers; ++i) {
        const u64 rec[4] = {i, 0, 0, 0};
        ASSERT_EQ(RUK_Que_Write(queue, rec, RUK_NOWAIT, 0), RUK_OK);
    }
    for (auto &t : sleepers)
        t.join();
    EXPECT_EQ(sum.load(), 6u);

    sleepers.clear();
    const u64 fill[4] = {9, 0, 0, 0};
    for (int i = 0; i < 2 * kSleepers; ++i) {
        if (i >= kSleepers) {
            sleepers.push_back(StartBlocked([&] { EXPECT_EQ(RUK_Que_Write(queue, fill, RUK_WAIT, 0), RUK_OK); }));
        } else {
            ASSERT_EQ(RUK_Que_Write(queue, fill, RUK_NOWAIT, 0), RUK_OK);
        }
    }
    u64 rec[4] = {};
    for (int i = 0; i < kSleepers; ++i)
        ASSERT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_OK);
    for (auto &t : sleepers)
        t.join();
    for (int i = 0; i < kSleepers; ++i)
        ASSERT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_OK);
    EXPECT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_ERR_EMPTY);
}

// Producers write {producer, seq, producer*seq, ~seq} through a short queue; consumers stop on ~0.
TEST(PlatformQueue, ManyProducersAndConsumersLoseAndDuplicateNothing) {
    constexpr u64 kProducers = 4, kConsumers = 3, kPerProducer = 20000;
    u32 queue = 0;
    ASSERT_EQ(RUK_Que_Create("mpmc", 13, 0, &queue), RUK_OK); // rounds wrap at an odd depth
    std::vector<std::vector<u64>> seen(kConsumers);
    std::vector<std::thread> consumers, producers;
    for (u64 c = 0; c < kConsumers; ++c) {
        consumers.emplace_back([&, c] {
            std::vector<u64> last(kProducers, 0);
            u64 rec[4];
            while (RUK_Que_Read(queue, rec, RUK_WAIT, 0) == RUK_OK && rec[0] != ~0ull) {
                // Each producer's records arrive in order and undamaged, or the entry is marked bad.
                bool good = rec[1] > last[rec[0]] && rec[2] == rec[0] * rec[1] && rec[3] == ~rec[1];
                last[rec[0]] = rec[1];
                seen[c].push_back(good ? rec[0] * kPerProducer + rec[1] - 1 : ~0ull);
            }
        });
    }
    for (u64 p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (u64 seq = 1; seq <= kPerProducer; ++seq) {
                const u64 rec[4] = {p, seq, p * seq, ~seq};
                ASSERT_EQ(RUK_Que_Write(queue, rec, RUK_WAIT, 0), RUK_OK);
            }
        });
    }
    for (auto &t : producers)
        t.join();
    const u64 stop[4] = {~0ull, 0, 0, 0};
    for (u64 c = 0; c < kConsumers; ++c)
        ASSERT_EQ(RUK_Que_Write(queue, stop, RUK_WAIT, 0), RUK_OK);
    std::vector<u64> all;
    for (u64 c = 0; c < kConsumers; ++c) {
        consumers[c].join();
        all.insert(all.end(), seen[c].begin(), seen[c].end());
    }
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), kProducers * kPerProducer);
    for (u64 i = 0; i < all.size(); ++i)
        ASSERT_EQ(all[i], i) << "record lost, duplicated, reordered or damaged";
}

TEST(PlatformSem, CountsNowaitTimeoutAndDelete) {
    u32 sem = 0;
    EXPECT_EQ(RUK_Sm_Create("s", 0, 0, nullptr), RUK_ERR_PARAM);
    ASSERT_EQ(RUK_Sm_Create("s", 2, 2, &sem), RUK_OK);
    EXPECT_TRUE(RUK_Sm_P(sem, RUK_NOWAIT, 0) == RUK_OK && RUK_Sm_P(sem, RUK_NOWAIT, 0) == RUK_OK);
    EXPECT_EQ(RUK_Sm_P(sem, RUK_NOWAIT, 0), RUK_ERR_EMPTY);
    ExpectTimeout([&] { return RUK_Sm_P(sem, RUK_WAIT, 40); }, 40);

    // A waiter blocked for ever is released by a post, the next one by the delete.
    u32 rc[2] = {~0u, ~0u};
    std::thread waiter = StartBlocked([&] { rc[0] = RUK_Sm_P(sem, RUK_WAIT, 0); });
    ASSERT_EQ(RUK_Sm_V(sem), RUK_OK);
    waiter.join();
    waiter = StartBlocked([&] { rc[1] = RUK_Sm_P(sem, RUK_WAIT, 0); });
    ASSERT_EQ(RUK_Sm_Delete(sem), RUK_OK);
    waiter.join();
    EXPECT_TRUE(rc[0] == RUK_OK && rc[1] == RUK_ERR_DELETED);

    // Slots come back under new ids; old ids stay dead through many reuses.
    std::vector<u32> ids{sem};
    for (u32 next = 0; ids.size() <= 300; ids.push_back(next)) {
        ASSERT_TRUE(RUK_Sm_Create("s", 1, 2, &next) == RUK_OK && RUK_Sm_Delete(next) == RUK_OK);
        EXPECT_EQ(std::count(ids.begin(), ids.end(), next), 0) << "id reused";
    }
    for (u32 stale : ids)
        EXPECT_TRUE(RUK_Sm_V(stale) == RUK_ERR_NOT_FOUND && RUK_Sm_Delete(stale) == RUK_ERR_NOT_FOUND);
}

} // namespace
