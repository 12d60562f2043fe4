/* The application task framework: applications registered with priorities are initialised in order,
 * get one task each, finish their start-up one after the other along a chain and are then woken
 * together. Plain C. */
#ifndef ZOL_APP_H
#define ZOL_APP_H

#include "zol_types.h"

ZOL_EXTERN_C_BEGIN

/* Task entry: the same shape as the platform's task entry, receiving the four argument words. */
typedef void (*SYS_TASK_ENTRY_PF)(uintptr_t, uintptr_t, uintptr_t, uintptr_t);
/* Application initialisation: 0 = success. */
typedef u32 (*SYS_APP_INIT_PF)(void);

#define SYS_APP_MAX_NUM 256u
#define SYS_APP_TASK_NAME_LEN 32u
#define SYS_APP_EVENT 0x1000u /* the start-up chain's event, and the final wake-up */

/* An application's descriptor, owned by the application and kept alive for the life of the process;
 * the framework stores only a pointer. Layout fixed (LP64: 104 bytes). */
typedef struct SYS_AppInfo {
    SYS_TASK_ENTRY_PF pfnTaskEntry;         /* null: no task, and not in the chain */
    char szTaskName[SYS_APP_TASK_NAME_LEN]; /* task name given to the platform */
    u32 ulTaskPrio;                         /* task priority given to the platform */
    u32 ulTaskPara2;                        /* sixth argument of the platform's task creation */
    u32 ulTaskPara1;                        /* fifth argument of the platform's task creation */
    uintptr_t aulTaskArgs[4];               /* argument words given to the task */
    SYS_APP_INIT_PF pfnInit;                /* null: no initialisation */
    u32 ulRegIndex;                         /* written by the framework: position in the registry */
    u32 ulTaskId;                           /* written by the framework: id of the created task */
} SYS_AppInfo;

/* Registry, sorted by ascending priority (registration order among equal priorities). Written at
 * start-up by the registering thread, read afterwards. */
ZOL_EXPORT extern SYS_AppInfo *g_apstRegiseterApp[SYS_APP_MAX_NUM];
ZOL_EXPORT extern u32 g_ulRegiseterAppPriority[SYS_APP_MAX_NUM];
ZOL_EXPORT extern u32 g_ulRegAppNum;
/* Task chain: ids of the created application tasks in creation (registry) order. */
ZOL_EXPORT extern u32 g_ulTaskLinkId[SYS_APP_MAX_NUM];
ZOL_EXPORT extern u32 g_ulTaskLinkNum;

#define SYS_APP_ERR_NULL 1u /* registration: null descriptor */
#define SYS_APP_ERR_FULL 2u /* registration: 256 descriptors registered already */
#define SYS_APP_ERR_INIT 1u /* start-up: an application's initialisation failed */

/* Registers a descriptor with a priority (smaller starts earlier). 0; SYS_APP_ERR_NULL for a null
 * descriptor; SYS_APP_ERR_FULL when 256 are registered already (nothing changes). */
ZOL_EXPORT u32 SYS_RegAppInfoPriority(SYS_AppInfo *pstApp, u32 ulPriority);
/* The same with priority 0. */
ZOL_EXPORT u32 SYS_RegAppInfo(SYS_AppInfo *pstApp);

/* Runs the start-up once registration is done: every initialisation in registry order on the calling
 * thread, then the task "INIT", which creates one task per application with a task entry, passes the
 * event along the chain and wakes all tasks. Returns when start-up has ended: 0 on success;
 * SYS_APP_ERR_INIT when an initialisation failed (later ones are not run and no task is created); the
 * platform's code when "INIT" cannot be created; and, when a step inside "INIT" fails (task creation,
 * event write or read, the wake-up), the platform's code of that step, which "INIT" records before it
 * ends. Tasks created before such a failure keep running. */
ZOL_EXPORT u32 SYS_StartApp(void);

/* Creates the application tasks in registry order and fills the chain. 0, or the platform's code of the
 * first creation that failed (the chain then holds the tasks created before it). Called by "INIT". */
ZOL_EXPORT u32 SYS_CreateAppTask(void);

/* Called by an application task with its own id when its start-up is done: logs the ready notice and
 * returns the task to pass the event to: the next task of the chain, or "INIT" for the last one.
 * An id that is not in the chain gets 0, which names no task. */
ZOL_EXPORT u32 JUX_GetTaskFollowMe(u32 ulTaskId);

ZOL_EXTERN_C_END

#endif /* ZOL_APP_H */
