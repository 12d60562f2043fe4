// Stand-in descriptor service: thin wrappers over Linux epoll that keep the error number per thread.
#include "mesh_epoll.h"

#include <algorithm>
#include <cerrno>
#include <sys/epoll.h>
#include <unistd.h>

#include "plat_fault.h"

namespace {

// Error number of this thread's last failed MESH_ call; errno itself is overwritten by later calls.
thread_local s32 t_lastError = 0;

// Records the failure and returns the service's failure result.
s32 Fail(int err) {
    t_lastError = err;
    errno = err;
    return -1;
}

// The MESH_ bits have the values of Linux, so they pass through unchanged.
static_assert(MESH_EPOLLIN == EPOLLIN && MESH_EPOLLPRI == EPOLLPRI && MESH_EPOLLOUT == EPOLLOUT &&
                  MESH_EPOLLERR == EPOLLERR && MESH_EPOLLHUP == EPOLLHUP,
              "MESH_ event bits must match Linux");

// A wait fills at most this many records per call; callers loop, so a larger iMax only means a shorter wait.
constexpr int kMaxEventsPerWait = 64;

bool LinuxOp(s32 iOp, int *pOp) {
    switch (iOp) {
    case MESH_EPOLL_CTL_ADD:
        *pOp = EPOLL_CTL_ADD;
        return true;
    case MESH_EPOLL_CTL_MOD:
        *pOp = EPOLL_CTL_MOD;
        return true;
    case MESH_EPOLL_CTL_DEL:
        *pOp = EPOLL_CTL_DEL;
        return true;
    default:
        return false;
    }
}

} // namespace

extern "C" s32 MESH_EpollCreate(void) {
    if (plat::FaultHit("MESH_EpollCreate")) {
        return Fail(EIO);
    }
    const int fd = epoll_create1(EPOLL_CLOEXEC);
    return fd < 0 ? Fail(errno) : fd;
}

extern "C" s32 MESH_EpollCtl(s32 iEpFd, s32 iOp, s32 iFd, MESH_EPOLL_EVENT_S *pstEvent) {
    if (plat::FaultHit("MESH_EpollCtl")) {
        return Fail(EIO);
    }
    int op = 0;
    if (!LinuxOp(iOp, &op) || (pstEvent == nullptr && op != EPOLL_CTL_DEL)) {
        return Fail(EINVAL);
    }
    struct epoll_event ev {};
    if (pstEvent != nullptr) {
        ev.events = pstEvent->ulEvents;
        ev.data.ptr = pstEvent->pData;
    }
    return epoll_ctl(iEpFd, op, iFd, &ev) != 0 ? Fail(errno) : 0;
}

extern "C" s32 MESH_EpollWait(s32 iEpFd, MESH_EPOLL_EVENT_S *pstEvents, s32 iMax, s32 iTimeoutMs) {
    if (plat::FaultHit("MESH_EpollWait")) {
        return Fail(EIO);
    }
    if (pstEvents == nullptr || iMax <= 0) {
        return Fail(EINVAL);
    }
    struct epoll_event events[kMaxEventsPerWait];
    const int n = epoll_wait(iEpFd, events, std::min(iMax, kMaxEventsPerWait), iTimeoutMs < 0 ? -1 : iTimeoutMs);
    if (n < 0) {
        // A signal is not a failure of the poll set: the caller simply waits again.
        return errno == EINTR ? 0 : Fail(errno);
    }
    for (int i = 0; i < n; ++i) {
        pstEvents[i].ulEvents = events[i].events;
        pstEvents[i].pData = events[i].data.ptr;
    }
    return n;
}

extern "C" s32 MESH_Close(s32 iFd) {
    if (plat::FaultHit("MESH_Close")) {
        return Fail(EIO);
    }
    // Linux releases the descriptor even when close is interrupted, so EINTR counts as closed.
    if (close(iFd) != 0 && errno != EINTR) {
        return Fail(errno);
    }
    return 0;
}

extern "C" s32 MESH_GetErrorNo(void) {
    return t_lastError;
}
