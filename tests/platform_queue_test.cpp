// Tests of the stand-in's queues and counting semaphores through their C API.
#include <algorithm>
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
#include "ruk_sem.h"
#include "standin_ctl.h"

namespace {

using Clock = std::chrono::steady_clock;

long ElapsedMs(Clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count();
}

// Waits until the kernel reports the thread asleep, i.e. blocked inside the call it was about to make.
void AwaitAsleep(const std::atomic<pid_t> &tid) {
    while (tid.load() == 0) {
        std::this_thread::yield();
    }
    std::string path = "/proc/self/task/" + std::to_string(tid.load()) + "/stat";
    for (;;) {
        std::ifstream stat(path);
        std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
        size_t close = text.rfind(')');
        if (close != std::string::npos && close + 2 < text.size() && text[close + 2] == 'S') {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

pid_t SelfTid() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

TEST(PlatformQueue, FifoNowaitAndTimeouts) {
    u32 queue = 0;
    EXPECT_EQ(RUK_Que_Create("q", 0, 0, &queue), RUK_ERR_PARAM);
    EXPECT_EQ(RUK_Que_Create("q", 3, 0, nullptr), RUK_ERR_PARAM);
    ASSERT_EQ(RUK_Que_Create("q", 3, 6, &queue), RUK_OK);
    EXPECT_NE(queue, 0u);

    u64 rec[4] = {};
    EXPECT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_ERR_EMPTY);
    for (u64 i = 1; i <= 3; ++i) {
        const u64 in[4] = {i, i * 10, i * 100, ~i};
        ASSERT_EQ(RUK_Que_Write(queue, in, RUK_NOWAIT, 0), RUK_OK);
    }
    const u64 extra[4] = {9, 9, 9, 9};
    EXPECT_EQ(RUK_Que_Write(queue, extra, RUK_NOWAIT, 0), RUK_ERR_FULL);
    auto start = Clock::now();
    EXPECT_EQ(RUK_Que_Write(queue, extra, RUK_WAIT, 40), RUK_ERR_TIMEOUT);
    EXPECT_GE(ElapsedMs(start), 40);

    for (u64 i = 1; i <= 3; ++i) {
        ASSERT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_OK);
        EXPECT_EQ(rec[0], i);
        EXPECT_EQ(rec[2], i * 100);
        EXPECT_EQ(rec[3], ~i);
    }
    start = Clock::now();
    EXPECT_EQ(RUK_Que_Read(queue, rec, 0, 40), RUK_ERR_TIMEOUT) << "a mode without NOWAIT waits";
    EXPECT_GE(ElapsedMs(start), 40);

    EXPECT_EQ(RUK_Que_Read(0, rec, RUK_NOWAIT, 0), RUK_ERR_NOT_FOUND);
    EXPECT_EQ(RUK_Que_Write(0xFFFFFFF0u, extra, RUK_NOWAIT, 0), RUK_ERR_NOT_FOUND);
    EXPECT_EQ(RUK_Que_Read(queue, nullptr, RUK_NOWAIT, 0), RUK_ERR_PARAM);
}

TEST(PlatformQueue, BlockedWriterAndReaderAreWoken) {
    u32 queue = 0;
    ASSERT_EQ(RUK_Que_Create("q", 1, 0, &queue), RUK_OK);
    const u64 first[4] = {1, 0, 0, 0}, second[4] = {2, 0, 0, 0};
    ASSERT_EQ(RUK_Que_Write(queue, first, RUK_NOWAIT, 0), RUK_OK);
    std::atomic<pid_t> tid{0};
    std::atomic<u32> writeRc{0xFFFFFFFFu};
    std::thread writer([&] {
        tid = SelfTid();
        writeRc = RUK_Que_Write(queue, second, RUK_WAIT, 0);
    });
    AwaitAsleep(tid);
    u64 rec[4] = {};
    ASSERT_EQ(RUK_Que_Read(queue, rec, RUK_NOWAIT, 0), RUK_OK);
    EXPECT_EQ(rec[0], 1u);
    ASSERT_EQ(RUK_Que_Read(queue, rec, RUK_WAIT, 0), RUK_OK);
    EXPECT_EQ(rec[0], 2u);
    writer.join();
    EXPECT_EQ(writeRc.load(), RUK_OK);

    tid = 0;
    std::thread reader([&] {
        tid = SelfTid();
        u64 got[4] = {};
        writeRc = RUK_Que_Read(queue, got, RUK_WAIT, 0) == RUK_OK && got[0] == 7 ? RUK_OK : RUK_ERR_SYSTEM;
    });
    AwaitAsleep(tid);
    const u64 seventh[4] = {7, 0, 0, 0};
    ASSERT_EQ(RUK_Que_Write(queue, seventh, RUK_NOWAIT, 0), RUK_OK);
    reader.join();
    EXPECT_EQ(writeRc.load(), RUK_OK);
}

TEST(PlatformQueue, ManyProducersAndConsumersLoseAndDuplicateNothing) {
    constexpr u64 kProducers = 4, kConsumers = 3, kPerProducer = 20000;
    u32 queue = 0;
    ASSERT_EQ(RUK_Que_Create("mpmc", 16, 0, &queue), RUK_OK);
    std::vector<std::vector<u64>> seen(kConsumers);
    std::vector<std::thread> threads;
    for (u64 c = 0; c < kConsumers; ++c) {
        threads.emplace_back([&, c] {
            std::vector<u64> last(kProducers, 0);
            for (;;) {
                u64 rec[4] = {};
                if (RUK_Que_Read(queue, rec, RUK_WAIT, 0) != RUK_OK || rec[0] == ~0ull) {
                    return;
                }
                // A consumer sees each producer's records in the order they were written.
                if (rec[1] <= last[rec[0]] || rec[2] != rec[0] * rec[1] || rec[3] != ~rec[1]) {
                    seen[c].push_back(~0ull);
                }
                last[rec[0]] = rec[1];
                seen[c].push_back(rec[0] * kPerProducer + rec[1] - 1);
            }
        });
    }
    for (u64 p = 0; p < kProducers; ++p) {
        threads.emplace_back([&, p] {
            for (u64 seq = 1; seq <= kPerProducer; ++seq) {
                const u64 rec[4] = {p, seq, p * seq, ~seq};
                ASSERT_EQ(RUK_Que_Write(queue, rec, RUK_WAIT, 0), RUK_OK);
            }
        });
    }
    for (u64 p = 0; p < kProducers; ++p) {
        threads[kConsumers + p].join();
    }
    for (u64 c = 0; c < kConsumers; ++c) {
        const u64 stop[4] = {~0ull, 0, 0, 0};
        ASSERT_EQ(RUK_Que_Write(queue, stop, RUK_WAIT, 0), RUK_OK);
    }
    for (u64 c = 0; c < kConsumers; ++c) {
        threads[c].join();
    }
    std::vector<u64> all;
    for (auto &part : seen) {
        all.insert(all.end(), part.begin(), part.end());
    }
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), kProducers * kPerProducer);
    for (u64 i = 0; i < all.size(); ++i) {
        ASSERT_EQ(all[i], i) << "record lost, duplicated, reordered or damaged";
    }
}

TEST(PlatformQueue, WritesFailExactlyAsInjected) {
    u32 queue = 0;
    ASSERT_EQ(RUK_Que_Create("inj", 8, 0, &queue), RUK_OK);
    const u64 rec[4] = {};
    ASSERT_EQ(PLAT_FaultInject("RUK_Que_Write", 2, 2), RUK_OK);
    std::vector<u32> results;
    for (int i = 0; i < 5; ++i) {
        results.push_back(RUK_Que_Write(queue, rec, RUK_NOWAIT, 0));
    }
    EXPECT_EQ(results, (std::vector<u32>{RUK_OK, RUK_OK, RUK_ERR_INJECTED, RUK_ERR_INJECTED, RUK_OK}));
    EXPECT_EQ(PLAT_FaultInject("RUK_No_Such_Call", 0, 1), RUK_ERR_NOT_FOUND);
    ASSERT_EQ(PLAT_FaultInject("RUK_Que_Create", 0, 1), RUK_OK);
    EXPECT_EQ(RUK_Que_Create("inj", 8, 0, &queue), RUK_ERR_INJECTED);
    EXPECT_EQ(RUK_Que_Create("inj", 8, 0, &queue), RUK_OK);
    PLAT_FaultClear();
}

TEST(PlatformSem, CountsNowaitAndTimeout) {
    u32 sem = 0;
    EXPECT_EQ(RUK_Sm_Create("s", 0, 0, nullptr), RUK_ERR_PARAM);
    ASSERT_EQ(RUK_Sm_Create("s", 2, 2, &sem), RUK_OK);
    EXPECT_NE(sem, 0u);
    EXPECT_EQ(RUK_Sm_P(sem, RUK_NOWAIT, 0), RUK_OK);
    EXPECT_EQ(RUK_Sm_P(sem, RUK_NOWAIT, 0), RUK_OK);
    EXPECT_EQ(RUK_Sm_P(sem, RUK_NOWAIT, 0), RUK_ERR_EMPTY);
    auto start = Clock::now();
    EXPECT_EQ(RUK_Sm_P(sem, RUK_WAIT, 40), RUK_ERR_TIMEOUT);
    EXPECT_GE(ElapsedMs(start), 40);
    EXPECT_EQ(RUK_Sm_V(sem), RUK_OK);
    EXPECT_EQ(RUK_Sm_P(sem, RUK_WAIT, 40), RUK_OK);
    EXPECT_EQ(RUK_Sm_Delete(sem), RUK_OK);
}

TEST(PlatformSem, DeleteWakesWaitersAndStaleIdsAreRefused) {
    u32 sem = 0;
    ASSERT_EQ(RUK_Sm_Create("s", 0, 2, &sem), RUK_OK);
    std::atomic<pid_t> tid{0};
    std::atomic<u32> rc{0xFFFFFFFFu};
    std::thread waiter([&] {
        tid = SelfTid();
        rc = RUK_Sm_P(sem, RUK_WAIT, 0);
    });
    AwaitAsleep(tid);
    ASSERT_EQ(RUK_Sm_Delete(sem), RUK_OK);
    waiter.join();
    EXPECT_EQ(rc.load(), RUK_ERR_DELETED);

    // The slot comes back under new ids; the old one stays dead through many reuses.
    std::vector<u32> ids{sem};
    for (int i = 0; i < 300; ++i) {
        u32 next = 0;
        ASSERT_EQ(RUK_Sm_Create("s", 1, 2, &next), RUK_OK);
        EXPECT_EQ(std::count(ids.begin(), ids.end(), next), 0) << "id reused";
        ASSERT_EQ(RUK_Sm_Delete(next), RUK_OK);
        ids.push_back(next);
    }
    for (u32 stale : ids) {
        EXPECT_EQ(RUK_Sm_P(stale, RUK_NOWAIT, 0), RUK_ERR_NOT_FOUND);
        EXPECT_EQ(RUK_Sm_V(stale), RUK_ERR_NOT_FOUND);
        EXPECT_EQ(RUK_Sm_Delete(stale), RUK_ERR_NOT_FOUND);
    }
    EXPECT_EQ(RUK_Sm_V(0), RUK_ERR_NOT_FOUND);
    EXPECT_EQ(RUK_Sm_P(0xFFFFFFFFu, RUK_NOWAIT, 0), RUK_ERR_NOT_FOUND);
}

// The synchronous-call pattern: each call creates a semaphore, a server posts it (sometimes too late,
// after the caller gave up and deleted it), the caller waits with a time-out and deletes it.
TEST(PlatformSem, CallPatternAcrossThreadsWithLatePosts) {
    constexpr int kCallers = 2, kCalls = 2000;
    u32 requests = 0;
    ASSERT_EQ(RUK_Que_Create("calls", 64, 0, &requests), RUK_OK);
    std::atomic<int> lateRefused{0};
    std::thread server([&] {
        for (;;) {
            u64 rec[4] = {};
            if (RUK_Que_Read(requests, rec, RUK_WAIT, 0) != RUK_OK || rec[0] == 0) {
                return;
            }
            u32 rc = RUK_Sm_V(static_cast<u32>(rec[0]));
            if (rc == RUK_ERR_NOT_FOUND) {
                ++lateRefused;
            } else if (rc != RUK_OK) {
                ADD_FAILURE() << "V returned " << rc;
            }
        }
    });
    std::vector<std::thread> callers;
    std::atomic<int> answered{0};
    for (int c = 0; c < kCallers; ++c) {
        callers.emplace_back([&, c] {
            for (int i = 0; i < kCalls; ++i) {
                u32 sem = 0;
                ASSERT_EQ(RUK_Sm_Create("IPCS", 0, 2, &sem), RUK_OK);
                const u64 rec[4] = {sem, 0, 0, 0};
                ASSERT_EQ(RUK_Que_Write(requests, rec, RUK_WAIT, 0), RUK_OK);
                // Every fourth call of the first caller gives up at once, leaving a late post behind.
                bool impatient = c == 0 && i % 4 == 0;
                u32 rc = RUK_Sm_P(sem, impatient ? RUK_NOWAIT : RUK_WAIT, 0);
                answered += rc == RUK_OK ? 1 : 0;
                ASSERT_EQ(RUK_Sm_Delete(sem), RUK_OK);
            }
        });
    }
    for (auto &caller : callers) {
        caller.join();
    }
    const u64 stop[4] = {0, 0, 0, 0};
    ASSERT_EQ(RUK_Que_Write(requests, stop, RUK_WAIT, 0), RUK_OK);
    server.join();
    // Each post either woke its caller, was refused as late, or reached a live semaphore whose caller had
    // already given up; nothing else.
    EXPECT_GE(answered.load() + lateRefused.load(), kCallers * kCalls - kCalls / 4);
    EXPECT_LE(answered.load() + lateRefused.load(), kCallers * kCalls);
    EXPECT_GE(answered.load(), (kCallers - 1) * kCalls);
}

} // namespace
