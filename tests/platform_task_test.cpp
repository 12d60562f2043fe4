// Stand-in tasks and events through their C API.
#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "ruk_event.h"
#include "ruk_task.h"
#include "standin_ctl.h"

namespace {

// What a created task saw when it started; it stays alive until the test has read its kernel name.
struct Probe {
    const u32 *creatorVar = nullptr;
    u32 idInCreatorVar = 0, currentId = 0;
    uintptr_t lastArg = 0;
    std::string kernelName;
    std::promise<void> started, release;
};

void ProbeEntry(uintptr_t a0, uintptr_t, uintptr_t, uintptr_t a3) {
    Probe *probe = reinterpret_cast<Probe *>(a0);
    probe->idInCreatorVar = *probe->creatorVar;
    probe->currentId = RUK_TaskCurrentIdGet();
    probe->lastArg = a3;
    std::ifstream comm("/proc/self/task/" + std::to_string(syscall(SYS_gettid)) + "/comm");
    std::getline(comm, probe->kernelName);
    std::future<void> release = probe->release.get_future();
    probe->started.set_value();
    release.wait();
}

TEST(PlatformTask, CreatePublishesIdBeforeRunNamesTheThreadAndFailsAsInjected) {
    Probe probe;
    u32 taskId = 0;
    probe.creatorVar = &taskId;
    uintptr_t args[4] = {reinterpret_cast<uintptr_t>(&probe), 11, 22, 33};
    const char *longName = "platform_probe_task_with_a_long_name";
    ASSERT_EQ(RUK_TaskCreate(longName, &taskId, ProbeEntry, m_aulTaskPrio[7], 0, 0, args), RUK_OK);
    probe.started.get_future().wait();
    EXPECT_NE(taskId, 0u);
    EXPECT_EQ(probe.idInCreatorVar, taskId) << "the task ran before its id was stored";
    EXPECT_EQ(probe.currentId, taskId);
    EXPECT_EQ(probe.lastArg, 33u);
    EXPECT_STREQ(RUK_GetTaskName(taskId), longName);
    EXPECT_EQ(probe.kernelName, std::string(longName, 15));
    probe.release.set_value();
    EXPECT_EQ(RUK_GetTaskName(0xFFFFFFF0u), nullptr);
    EXPECT_EQ(RUK_TaskCreate("x", &taskId, nullptr, 0, 0, 0, nullptr), RUK_ERR_PARAM);
    ASSERT_EQ(PLAT_FaultInject("RUK_TaskCreate", 0, 1), RUK_OK);
    EXPECT_EQ(RUK_TaskCreate(
                  "inj", &taskId, [](uintptr_t, uintptr_t, uintptr_t, uintptr_t) {}, 0, 0, 0, args),
              RUK_ERR_INJECTED);
}

// Threads the platform did not create, adopted at once, get ids of their own named as the kernel names them.
TEST(PlatformTask, ForeignThreadsAreAdoptedWithTheirKernelName) {
    u32 ids[3] = {RUK_TaskCurrentIdGet(), 0, 0};
    std::thread threads[2];
    for (int i = 1; i < 3; ++i) {
        threads[i - 1] = std::thread([&ids, i] {
            pthread_setname_np(pthread_self(), ("adopted" + std::to_string(i)).c_str());
            ids[i] = RUK_TaskCurrentIdGet() == RUK_TaskCurrentIdGet() ? RUK_TaskCurrentIdGet() : 0;
        });
    }
    for (int i = 1; i < 3; ++i) {
        threads[i - 1].join();
        EXPECT_STREQ(RUK_GetTaskName(ids[i]), ("adopted" + std::to_string(i)).c_str()); // outlives the thread
    }
    EXPECT_TRUE(ids[0] && ids[1] && ids[2] && ids[0] != ids[1] && ids[1] != ids[2] && ids[0] != ids[2]);
}

TEST(PlatformEvent, AllAnyNowaitTimeoutAndWakeUp) {
    u32 self = RUK_TaskCurrentIdGet();
    u32 got = 0;
    ASSERT_EQ(RUK_Ev_Write(self, 0x5), RUK_OK);
    EXPECT_EQ(RUK_Ev_Read(0x7, &got, RUK_NOWAIT, 0), RUK_ERR_EMPTY) << "all three bits required";
    EXPECT_EQ(RUK_Ev_Read(0x3, &got, RUK_NOWAIT | RUK_EV_ANY, 0), RUK_OK);
    EXPECT_EQ(got, 0x1u) << "only the requested bits that were set are taken";
    EXPECT_EQ(RUK_Ev_Read(0x1, &got, RUK_NOWAIT | RUK_EV_ANY, 0), RUK_ERR_EMPTY) << "taken bits are cleared";
    EXPECT_EQ(RUK_Ev_Read(0x4, &got, RUK_NOWAIT, 0), RUK_OK);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(RUK_Ev_Read(0x8, &got, RUK_WAIT, 40), RUK_ERR_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
    EXPECT_EQ(RUK_Ev_Read(0, &got, RUK_NOWAIT, 0), RUK_ERR_PARAM);
    EXPECT_EQ(RUK_Ev_Write(0xFFFFFFF0u, 1), RUK_ERR_NOT_FOUND);

    // A task waiting for ever for events 1 and 2 together, as a service task does, wakes on the second.
    std::atomic<u32> id{0}, result{~0u}, received{0};
    std::promise<void> done;
    std::future<void> finished = done.get_future();
    std::thread waiter([&] {
        id = RUK_TaskCurrentIdGet();
        u32 bits = 0;
        result = RUK_Ev_Read(0x3, &bits, RUK_WAIT, 0);
        received = bits;
        done.set_value();
    });
    while (id.load() == 0)
        std::this_thread::yield();
    ASSERT_EQ(RUK_Ev_Write(id, 0x1), RUK_OK);
    EXPECT_EQ(finished.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout) << "one of two bits";
    ASSERT_EQ(RUK_Ev_Write(id, 0x6), RUK_OK);
    waiter.join();
    EXPECT_TRUE(result.load() == RUK_OK && received.load() == 0x3u) << result.load() << " " << received.load();
}

} // namespace
