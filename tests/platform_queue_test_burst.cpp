// Queue wake-ups under bursts: several sleepers on one side, then a burst from the other side that
// signals only once; every sleeper must still be woken in turn.
#include <atomic>
#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "ruk_queue.h"

namespace {

constexpr int kSleepers = 4;
constexpr u32 kGenerousMs = 20000; // a lost wake-up shows as a time-out, not as a hung test

// Whether the kernel reports every thread asleep.
bool AllAsleep(const std::vector<std::atomic<pid_t>> &tids) {
    for (const auto &tid : tids) {
        std::ifstream in("/proc/self/task/" + std::to_string(tid.load()) + "/stat");
        std::string stat;
        std::getline(in, stat);
        if (tid.load() == 0 || stat.size() < 3 || stat[stat.rfind(')') + 2] != 'S') {
            return false;
        }
    }
    return true;
}

// Starts kSleepers threads running call(i), waits until all sleep in it, runs burst(), and expects every
// call to return RUK_OK.
template <typename Call, typename Burst>
void ExpectBurstWakesAll(Call call, Burst burst) {
    std::vector<std::atomic<pid_t>> tids(kSleepers);
    std::vector<u32> rcs(kSleepers, ~0u);
    std::vector<std::thread> threads;
    for (int i = 0; i < kSleepers; ++i) {
        threads.emplace_back([&, i] {
            tids[i] = static_cast<pid_t>(syscall(SYS_gettid));
            rcs[i] = call(i);
        });
    }
    while (!AllAsleep(tids)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    burst();
    for (auto &thread : threads) {
        thread.join();
    }
    for (int i = 0; i < kSleepers; ++i) {
        EXPECT_EQ(rcs[i], RUK_OK) << "sleeper " << i;
    }
}

TEST(PlatformQueueBurst, OneBurstWakesEverySleepingReaderAndWriter) {
    u32 queue = 0;
    ASSERT_EQ(RUK_Que_Create("QB", kSleepers, 0, &queue), RUK_OK);
    std::vector<u64> got(kSleepers, 0);
    ExpectBurstWakesAll(
        [&](int i) {
            u64 rec[4] = {};
            u32 rc = RUK_Que_Read(queue, rec, RUK_WAIT, kGenerousMs);
            got[i] = rec[0];
            return rc;
        },
        [&] {
            for (u64 n = 1; n <= kSleepers; ++n) {
                const u64 rec[4] = {n, 0, 0, 0};
                ASSERT_EQ(RUK_Que_Write(queue, rec, RUK_NOWAIT, 0), RUK_OK);
            }
        });
    u64 sum = 0;
    for (u64 value : got) {
        sum += value;
    }
    EXPECT_EQ(sum, static_cast<u64>(kSleepers * (kSleepers + 1) / 2)); // each record read exactly once

    // The other side: the queue full, writers asleep, then a burst of reads makes room for all of them.
    const u64 fill[4] = {7, 0, 0, 0};
    for (int i = 0; i < kSleepers; ++i) {
        ASSERT_EQ(RUK_Que_Write(queue, fill, RUK_NOWAIT, 0), RUK_OK);
    }
    ExpectBurstWakesAll([&](int) { return RUK_Que_Write(queue, fill, RUK_WAIT, kGenerousMs); },
                        [&] {
                            u64 rec[4];
                            for (int i = 0; i < kSleepers; ++i) {
                                ASSERT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_OK);
                            }
                        });
    u64 rec[4];
    for (int i = 0; i < kSleepers; ++i) {
        EXPECT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_OK);
    }
    EXPECT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_ERR_EMPTY);
}

} // namespace
