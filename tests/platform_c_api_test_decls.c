/* Compiled as C: the stand-in platform's fixed API, checked declaration by declaration through function
 * pointers of the exact types applications outside this repository use. */
#include "bounds_checked.h"
#include "devm.h"
#include "im_agent.h"
#include "mesh_epoll.h"
#include "plat_hash.h"
#include "ruk_event.h"
#include "ruk_mem.h"
#include "ruk_mutex.h"
#include "ruk_queue.h"
#include "ruk_sem.h"
#include "ruk_sll.h"
#include "ruk_str.h"
#include "ruk_symbol.h"
#include "ruk_task.h"
#include "ruk_time.h"
#include "standin_ctl.h"

int plat_c_api_check(void);

int plat_c_api_check(void) {
    u32 (*task_create)(const char *, u32 *, RUK_TASK_ENTRY_PF, u32, u32, u32, uintptr_t[4]) = RUK_TaskCreate;
    u32 (*task_id)(void) = RUK_TaskCurrentIdGet;
    u32 (*task_delay)(u32) = RUK_TaskDelay;
    const char *(*task_name)(u32) = RUK_GetTaskName;
    u32 (*ev_write)(u32, u32) = RUK_Ev_Write;
    u32 (*ev_read)(u32, u32 *, u32, u32) = RUK_Ev_Read;
    u32 (*que_create)(const char *, u32, u32, u32 *) = RUK_Que_Create;
    u32 (*que_write)(u32, const u64[4], u32, u32) = RUK_Que_Write;
    u32 (*que_read)(u32, u64[4], u32, u32) = RUK_Que_Read;
    u32 (*sm_create)(const char *, u32, u32, u32 *) = RUK_Sm_Create;
    u32 (*sm_delete)(u32) = RUK_Sm_Delete;
    u32 (*sm_p)(u32, u32, u32) = RUK_Sm_P;
    u32 (*sm_v)(u32) = RUK_Sm_V;
    u32 (*ref_inc)(void *) = RUK_MemRefInc;
    u32 (*ref_get)(void *, u32 *) = RUK_MemRefGet;
    u32 (*fault_inject)(const char *, u32, u32) = PLAT_FaultInject;
    void (*fault_clear)(void) = PLAT_FaultClear;
    void (*mem_stats)(u32, u64 *, u64 *) = PLAT_MemStats;
    const void *all[] = {(const void *)task_create,  (const void *)task_id,     (const void *)task_delay,
                         (const void *)task_name,    (const void *)ev_write,    (const void *)ev_read,
                         (const void *)que_create,   (const void *)que_write,   (const void *)que_read,
                         (const void *)sm_create,    (const void *)sm_delete,   (const void *)sm_p,
                         (const void *)sm_v,         (const void *)ref_inc,     (const void *)ref_get,
                         (const void *)fault_inject, (const void *)fault_clear, (const void *)mem_stats};
    int present = 0;
    for (size_t i = 0; i < sizeof(all) / sizeof(all[0]); i++) {
        present += all[i] != NULL;
    }
    if (RUK_WAIT != 0x40000000u || RUK_NOWAIT != 0x80000000u || RUK_EV_ANY != 0x04000000u) {
        return -1;
    }
    return present;
}

/* The exported data resolve from C too. */
u32 plat_c_task_prio(u32 index);
u32 plat_c_task_prio(u32 index) {
    return m_aulTaskPrio[index] + 0u * g_ucSysMemPtNo;
}
