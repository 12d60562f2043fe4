/* Tasks: a task is a thread whose kernel name is its task name. Ids are non-zero u32 values. */
#ifndef RUK_TASK_H
#define RUK_TASK_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*RUK_TASK_ENTRY_PF)(uintptr_t, uintptr_t, uintptr_t, uintptr_t);

/* Priorities by role; entry 7 is the priority of the library's service tasks. At least 8 entries.
 * The stand-in records the priority but leaves scheduling to Linux. */
extern u32 m_aulTaskPrio[];
#define RUK_TASK_PRIO_NUM 16u

/* Creates a task running pfEntry(auArgs[0..3]) (auArgs may be null: all zero). The id is stored in
 * *pulTaskId before the task starts, so the new task and its creator agree on it at once. Names longer
 * than 15 characters are cut for the kernel but kept whole by RUK_GetTaskName. ulPara1 and ulPara2
 * (stack size and options on the device) are accepted and ignored. Does not block.
 * RUK_ERR_PARAM for a null name, id pointer or entry; RUK_ERR_SYSTEM if the thread cannot start. */
u32 RUK_TaskCreate(const char *pcName, u32 *pulTaskId, RUK_TASK_ENTRY_PF pfEntry, u32 ulPrio, u32 ulPara1, u32 ulPara2,
                   uintptr_t auArgs[4]);

/* Id of the calling task. A thread the platform did not create is given an id (and an event set) on its
 * first call, named by its kernel thread name. Never 0. */
u32 RUK_TaskCurrentIdGet(void);

/* Sleeps ulMs milliseconds (0 yields). Returns RUK_OK. */
u32 RUK_TaskDelay(u32 ulMs);

/* Fairness yield for service loops: when the calling task has run for ulRunMs milliseconds or more since
 * it last slept or blocked in a platform wait, it sleeps ulDelayMs milliseconds. Returns RUK_OK. */
u32 RUK_TaskRunDelay(u32 ulRunMs, u32 ulDelayMs);

/* Name of a task, or null for an unknown id. The text lives as long as the process. */
const char *RUK_GetTaskName(u32 ulTaskId);

#ifdef __cplusplus
}
#endif

#endif /* RUK_TASK_H */
