// Events of the stand-in platform: 32 bits per task, set by anyone, taken by the task itself.
#include "ruk_event.h"

#include "plat_fault.h"
#include "ruk_task_internal.h"
#include "ruk_wait.h"

extern "C" u32 RUK_Ev_Write(u32 ulTaskId, u32 ulEvents) {
    if (plat::FaultHit("RUK_Ev_Write")) {
        return RUK_ERR_INJECTED;
    }
    if (ulEvents == 0) {
        return RUK_ERR_PARAM;
    }
    plat::TaskRecord *task = plat::FindTask(ulTaskId);
    if (task == nullptr) {
        return RUK_ERR_NOT_FOUND;
    }
    bool wake = false;
    {
        std::lock_guard<std::mutex> guard(task->evLock);
        task->events |= ulEvents;
        wake = task->evWaiters != 0;
    }
    // The reader re-checks its condition, so waking it for bits it does not want is harmless.
    if (wake) {
        task->evCond.notify_one();
    }
    return RUK_OK;
}

extern "C" u32 RUK_Ev_Read(u32 ulEvents, u32 *pulReceived, u32 ulMode, u32 ulTimeout) {
    if (plat::FaultHit("RUK_Ev_Read")) {
        return RUK_ERR_INJECTED;
    }
    if (ulEvents == 0 || pulReceived == nullptr || plat::BadMode(ulMode)) {
        return RUK_ERR_PARAM;
    }
    plat::TaskRecord *self = plat::CurrentTask();
    if (self == nullptr) {
        return RUK_ERR_NOMEM;
    }
    bool any = (ulMode & RUK_EV_ANY) != 0;
    std::unique_lock<std::mutex> lock(self->evLock);
    auto ready = [&] {
        u32 have = self->events & ulEvents;
        return any ? have != 0 : have == ulEvents;
    };
    u32 rc = plat::WaitUntil(lock, self->evCond, self->evWaiters, ulMode, ulTimeout, RUK_ERR_EMPTY, ready);
    if (rc == RUK_OK) {
        *pulReceived = self->events & ulEvents;
        self->events &= ~ulEvents;
    }
    return rc;
}
