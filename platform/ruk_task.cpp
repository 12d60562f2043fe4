// Tasks of the stand-in platform: detached POSIX threads named with their task names, a table of task
// records that ids resolve through, and the fairness yield of service loops.
#include <cerrno>
#include <cstring>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <time.h>
#include <type_traits>

#include "plat_fault.h"
#include "ruk_table.h"
#include "ruk_task_internal.h"
#include "ruk_wait.h"

// Smaller values are more urgent, as on the device's kernel; entry 7 is the library's service tasks.
u32 m_aulTaskPrio[RUK_TASK_PRIO_NUM] = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120, 130, 140, 150, 160};

namespace plat {
namespace {

// Up to 256 Ki tasks over the life of a process (adopted threads included).
using TaskTable = StableTable<TaskRecord, 256, 1024>;

// Constant-initialised and trivially destructible: no initialisation guard on the hot paths, and
// usable by threads that still run while the process exits.
TaskTable g_tasks;
static_assert(std::is_trivially_destructible_v<TaskTable>, "must stay usable during exit");

// Answer of RUK_TaskCurrentIdGet once the table is exhausted: non-zero, never resolvable.
constexpr u32 kOverflowTaskId = 0xFFFFFFFFu;
// The kernel keeps 15 characters of a thread name.
constexpr size_t kKernelNameLen = 15;

thread_local TaskRecord *t_self = nullptr;
thread_local u64 t_lastRestNs = 0; // when the thread last slept or blocked; 0 = not yet known

u64 MonotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<u64>(now.tv_sec) * 1000000000u + static_cast<u64>(now.tv_nsec);
}

const char *CopyName(const char *pcName) {
    size_t len = std::strlen(pcName);
    char *copy = new (std::nothrow) char[len + 1];
    if (copy != nullptr) {
        std::memcpy(copy, pcName, len + 1);
    }
    return copy;
}

// A filled-in record published under a fresh id, or null.
TaskRecord *NewTask(const char *pcName, u32 ulPrio, RUK_TASK_ENTRY_PF pfEntry, const uintptr_t *auArgs) {
    const char *name = CopyName(pcName);
    if (name == nullptr) {
        return nullptr;
    }
    u32 id = 0;
    TaskRecord *task = g_tasks.Add(&id);
    if (task == nullptr) {
        delete[] name;
        return nullptr;
    }
    task->id = id;
    task->prio = ulPrio;
    task->name = name;
    task->entry = pfEntry;
    for (int i = 0; i < 4; ++i) {
        task->args[i] = auArgs != nullptr ? auArgs[i] : 0;
    }
    task->live.store(true, std::memory_order_release);
    return task;
}

void *TaskMain(void *pArg) {
    TaskRecord *task = static_cast<TaskRecord *>(pArg);
    char kernelName[kKernelNameLen + 1] = {};
    std::strncpy(kernelName, task->name, kKernelNameLen);
    pthread_setname_np(pthread_self(), kernelName);
    t_self = task;
    t_lastRestNs = MonotonicNs();
    task->entry(task->args[0], task->args[1], task->args[2], task->args[3]);
    return nullptr;
}

void SleepMs(u32 ulMs) {
    timespec span{static_cast<time_t>(ulMs / 1000), static_cast<long>(ulMs % 1000) * 1000000L};
    while (nanosleep(&span, &span) != 0 && errno == EINTR) {
    }
}

} // namespace

TaskRecord *CurrentTask() {
    if (t_self == nullptr) {
        char kernelName[kKernelNameLen + 1] = {};
        if (pthread_getname_np(pthread_self(), kernelName, sizeof kernelName) != 0) {
            std::strcpy(kernelName, "thread");
        }
        t_self = NewTask(kernelName, 0, nullptr, nullptr);
    }
    return t_self;
}

TaskRecord *FindTask(u32 ulTaskId) {
    return g_tasks.Find(ulTaskId);
}

void NoteBlocked() {
    t_lastRestNs = MonotonicNs();
}

} // namespace plat

extern "C" u32 RUK_TaskCreate(const char *pcName, u32 *pulTaskId, RUK_TASK_ENTRY_PF pfEntry, u32 ulPrio, u32 ulPara1,
                              u32 ulPara2, uintptr_t auArgs[4]) {
    (void)ulPara1;
    (void)ulPara2;
    if (plat::FaultHit("RUK_TaskCreate")) {
        return RUK_ERR_INJECTED;
    }
    if (pcName == nullptr || pulTaskId == nullptr || pfEntry == nullptr) {
        return RUK_ERR_PARAM;
    }
    plat::TaskRecord *task = plat::NewTask(pcName, ulPrio, pfEntry, auArgs);
    if (task == nullptr) {
        return RUK_ERR_NOMEM;
    }
    // The creator's variable holds the id before the task runs: the task may read it at once.
    *pulTaskId = task->id;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    int rc = pthread_create(&thread, &attr, plat::TaskMain, task);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        *pulTaskId = 0; // the record stays (records are never freed) but names no running task
        return RUK_ERR_SYSTEM;
    }
    return RUK_OK;
}

extern "C" u32 RUK_TaskCurrentIdGet(void) {
    plat::TaskRecord *self = plat::CurrentTask();
    return self != nullptr ? self->id : plat::kOverflowTaskId;
}

extern "C" u32 RUK_TaskDelay(u32 ulMs) {
    if (ulMs == 0) {
        sched_yield();
    } else {
        plat::SleepMs(ulMs);
    }
    plat::NoteBlocked();
    return RUK_OK;
}

extern "C" u32 RUK_TaskRunDelay(u32 ulRunMs, u32 ulDelayMs) {
    u64 now = plat::MonotonicNs();
    if (plat::t_lastRestNs == 0) {
        plat::t_lastRestNs = now; // first call of a thread: start counting its run time here
    }
    if (now - plat::t_lastRestNs >= static_cast<u64>(ulRunMs) * 1000000u) {
        RUK_TaskDelay(ulDelayMs);
    }
    return RUK_OK;
}

extern "C" const char *RUK_GetTaskName(u32 ulTaskId) {
    plat::TaskRecord *task = plat::FindTask(ulTaskId);
    return task != nullptr ? task->name : nullptr;
}
