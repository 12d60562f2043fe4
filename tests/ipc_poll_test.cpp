// The poll task "IPCP": handlers called on the task with their registration record,
// no calls after the watch ends, and registrations without a handler removed and counted.
#include "ipc/ipc_internal.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <thread>
#include <tuple>
#include <unistd.h>

#include "zol_ipc.h"

#include "mesh_epoll.h"
#include "ruk_task.h"

#include "imagent_reader.h"
#include "leak_check.h"

namespace {

using namespace zol::ipc;

constexpr auto kPatience = std::chrono::seconds(20); // a generous bound; only a broken task waits that long

// What a handler saw, shared between the poll task and the test (the record is written before the count).
// A held handler keeps the poll task inside it until the test opens it, so that the test can make several
// descriptors ready for one wait.
struct Seen {
    std::atomic<u32> calls{0}, events{0};
    std::atomic<bool> onPollTask{true}, hold{false};
    IPC_EPOLL_HANDLER_S record{};
    IPC_EPOLL_HANDLER_S *recordPtr = nullptr;

    bool WaitCalls(u32 n) {
        for (const auto end = std::chrono::steady_clock::now() + kPatience; calls < n; std::this_thread::yield()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
        }
        return true;
    }
};

Seen *g_seen[4]; // indexed by the registration's user data

// Records the call and drains the descriptor (pipe or eventfd) so that it does not fire again.
u32 RecordingHandler(IPC_EPOLL_HANDLER_S *rec, u32 events) {
    const char *task = RUK_GetTaskName(RUK_TaskCurrentIdGet());
    u64 sink = 0;
    (void)!read(static_cast<int>(rec->ulFd), &sink, sizeof sink);
    Seen *seen = g_seen[rec->ulUserData];
    seen->events = events;
    seen->onPollTask = seen->onPollTask && task != nullptr && std::strcmp(task, "IPCP") == 0;
    seen->record = *rec;
    seen->recordPtr = rec;
    seen->calls++;
    while (seen->hold) {
        std::this_thread::yield();
    }
    return 0;
}

void Signal(int fd) {
    const u64 one = 1;
    ASSERT_EQ(write(fd, &one, sizeof one), static_cast<ssize_t>(sizeof one));
}

// The task is created once per process, as the layer's initialisation does.
void EnsurePollTask() {
    static const u32 created = IPC_PollTaskCreate();
    ASSERT_EQ(created, IPC_OK);
}

class IpcPollTest : public zol::test::LeakCheckedTest {};

TEST_F(IpcPollTest, HandlerRunsOnPollTaskWithItsRecordUntilTheWatchEnds) {
    EnsurePollTask();
    EXPECT_STREQ(RUK_GetTaskName(g_ulIpcPollTaskId.load()), "IPCP");
    EXPECT_FALSE(IpcOnPollTask());

    Seen pipeSeen, eventSeen;
    g_seen[1] = &pipeSeen;
    g_seen[2] = &eventSeen;
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const int efd = eventfd(0, EFD_NONBLOCK);
    ASSERT_EQ(IPC_EpollAddFd(static_cast<u32>(fds[0]), 1, RecordingHandler, MESH_EPOLLIN), IPC_OK);
    ASSERT_EQ(IPC_EpollAddFd(static_cast<u32>(efd), 2, RecordingHandler, MESH_EPOLLIN), IPC_OK);
    ASSERT_EQ(write(fds[1], "x", 1), 1);
    ASSERT_TRUE(pipeSeen.WaitCalls(1));
    const IPC_EPOLL_HANDLER_S &rec = pipeSeen.record;
    EXPECT_TRUE(pipeSeen.onPollTask && (pipeSeen.events & MESH_EPOLLIN));
    EXPECT_EQ(std::make_tuple(rec.ulMagic, rec.ulUserData, rec.ulFd, rec.ulEvents, rec.pfHandler),
              std::make_tuple(u32{IPC_EPOLL_MAGIC}, 1u, static_cast<u32>(fds[0]), u32{MESH_EPOLLIN},
                              IPC_EPOLL_HANDLER_PF{RecordingHandler}));
    // After the watch ends the pipe may be readable for ever without a call: a later event on another
    // descriptor is reported in the same or a later wait, so once it arrived the pipe would have too.
    IPC_EpollDelFd(static_cast<u32>(fds[0]));
    ASSERT_EQ(write(fds[1], "y", 1), 1);
    Signal(efd);
    ASSERT_TRUE(eventSeen.WaitCalls(1));
    EXPECT_TRUE(eventSeen.onPollTask && pipeSeen.calls == 1u);

    IPC_EpollDelFd(static_cast<u32>(efd));
    IpcReleaseEpollRecord(pipeSeen.recordPtr);
    IpcReleaseEpollRecord(eventSeen.recordPtr);
    close(fds[0]);
    close(fds[1]);
    close(efd);
}

TEST_F(IpcPollTest, RegistrationWithoutHandlerIsRemovedClosedAndCounted) {
    EnsurePollTask();
    zol::test::ImAgentCapture agent;
    Seen gateSeen, afterSeen;
    gateSeen.hold = true;
    g_seen[0] = &gateSeen;
    g_seen[3] = &afterSeen;
    const int gate = eventfd(0, EFD_NONBLOCK), after = eventfd(0, EFD_NONBLOCK);
    int fds[2];
    ASSERT_TRUE(pipe(fds) == 0 && gate >= 0 && after >= 0);
    ASSERT_EQ(IPC_EpollAddFd(static_cast<u32>(gate), 0, RecordingHandler, MESH_EPOLLIN), IPC_OK);
    ASSERT_EQ(IPC_EpollAddFd(static_cast<u32>(fds[0]), 0, nullptr, MESH_EPOLLIN), IPC_OK);
    ASSERT_EQ(IPC_EpollAddFd(static_cast<u32>(after), 3, RecordingHandler, MESH_EPOLLIN), IPC_OK);
    const u32 invalid = IpcErrStatCount(IPC_EVENT_PARA_INVALID);

    Signal(gate);
    ASSERT_TRUE(gateSeen.WaitCalls(1));
    // Both become ready while the task is held, so one wait returns the invalid one first, then the other.
    ASSERT_EQ(write(fds[1], "z", 1), 1);
    Signal(after);
    gateSeen.hold = false;
    ASSERT_TRUE(afterSeen.WaitCalls(1)) << "the events after an invalid one are still dispatched";

    EXPECT_EQ(IpcErrStatCount(IPC_EVENT_PARA_INVALID), invalid + 1);
    EXPECT_TRUE(fcntl(fds[0], F_GETFD) == -1 && errno == EBADF) << "the invalid registration's descriptor is closed";
    const auto records = agent.WithTag("IPC_HEE");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(std::make_tuple(records[0].logId, records[0].params.size(), records[0].Formatted()),
              std::make_tuple(0x0EA71037u, zol::test::kImFirstText + 2, "epoll event ptr is not valid."))
        << "the tag is the only text";

    IPC_EpollDelFd(static_cast<u32>(after));
    IPC_EpollDelFd(static_cast<u32>(gate));
    IpcReleaseEpollRecord(afterSeen.recordPtr);
    IpcReleaseEpollRecord(gateSeen.recordPtr);
    close(fds[1]);
    close(gate);
    close(after);
}

} // namespace
