// Internal to the stand-in platform: the one blocking wait behind events, queues and semaphores, with
// the platform's mode words (RUK_NOWAIT / RUK_WAIT) and millisecond time-outs (0 = for ever).
#ifndef RUK_WAIT_H
#define RUK_WAIT_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <sched.h>

#include "ruk_types.h"

namespace plat {

// Records that the calling thread has just blocked, for RUK_TaskRunDelay's fairness accounting.
void NoteBlocked();

// A mode word asking for both waiting and not waiting is a caller's mistake.
inline bool BadMode(u32 ulMode) {
    return (ulMode & RUK_NOWAIT) != 0 && (ulMode & RUK_WAIT) != 0;
}

// Before a task blocks it gives the processor up once, holding no lock, and then tries again. On a busy
// core the task it waits for is often ready to run and completes the condition in that turn, which saves
// the sleep, the wake-up and the switch back; a woken reader also finds a batch of records rather than
// one. Every blocking wait of the platform does this.
inline void YieldBeforeBlocking() {
    sched_yield();
}

// Waits under `lock` until `ready()` holds. Returns RUK_OK when it does, ulNotNow when the caller asked
// not to wait, RUK_ERR_TIMEOUT when the time ran out. `waiters` counts the threads inside the wait so
// that signallers notify only when somebody listens. std::condition_variable with steady_clock waits on
// CLOCK_MONOTONIC, so wall-clock changes do not stretch or cut time-outs.
template <class Ready>
u32 WaitUntil(std::unique_lock<std::mutex> &lock, std::condition_variable &cond, u32 &waiters, u32 ulMode,
              u32 ulTimeoutMs, u32 ulNotNow, Ready ready) {
    if (ready()) {
        return RUK_OK;
    }
    if ((ulMode & RUK_NOWAIT) != 0) {
        return ulNotNow;
    }
    lock.unlock();
    YieldBeforeBlocking();
    lock.lock();
    if (ready()) {
        return RUK_OK;
    }
    bool satisfied = true;
    ++waiters;
    if (ulTimeoutMs == 0) {
        cond.wait(lock, ready);
    } else {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ulTimeoutMs);
        satisfied = cond.wait_until(lock, deadline, ready);
    }
    --waiters;
    NoteBlocked();
    return satisfied ? RUK_OK : RUK_ERR_TIMEOUT;
}

} // namespace plat

#endif // RUK_WAIT_H
