// Internal to the stand-in platform: the task record shared by the task and event services.
#ifndef RUK_TASK_INTERNAL_H
#define RUK_TASK_INTERNAL_H

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "ruk_task.h"

namespace plat {

// One per task, created by RUK_TaskCreate or on a foreign thread's first RUK_TaskCurrentIdGet. Never
// freed, so ids stay resolvable after the thread ends. Fields above `evLock` are written once before
// `live` is set and read-only afterwards.
struct TaskRecord {
    std::atomic<bool> live{false};
    u32 id = 0;
    u32 prio = 0;
    const char *name = nullptr; // whole task name, owned by the record
    RUK_TASK_ENTRY_PF entry = nullptr;
    uintptr_t args[4] = {};

    std::mutex evLock;
    std::condition_variable evCond;
    u32 events = 0;    // pending event bits, guarded by evLock
    u32 evWaiters = 0; // 0 or 1: only the task reads its own events; guarded by evLock
};

// The calling thread's record, adopting the thread on its first call. Null only when the task table
// is exhausted.
TaskRecord *CurrentTask();

// The record of a live id, or null.
TaskRecord *FindTask(u32 ulTaskId);

} // namespace plat

#endif // RUK_TASK_INTERNAL_H
