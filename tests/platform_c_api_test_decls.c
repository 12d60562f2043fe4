/* Compiled as C: every platform header, and the stand-in's fixed API checked declaration by declaration
 * and called from C. */
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

_Static_assert(RUK_WAIT == 0x40000000u && RUK_NOWAIT == 0x80000000u && RUK_EV_ANY == 0x04000000u, "fixed values");

/* Each fixed declaration bound to a pointer of the exact type applications outside this repository use. */
u32 (*const plat_c_task_create)(const char *, u32 *, RUK_TASK_ENTRY_PF, u32, u32, u32, uintptr_t[4]) = RUK_TaskCreate;
u32 (*const plat_c_task_id)(void) = RUK_TaskCurrentIdGet;
u32 (*const plat_c_task_delay)(u32) = RUK_TaskDelay;
const char *(*const plat_c_task_name)(u32) = RUK_GetTaskName;
u32 (*const plat_c_ev_write)(u32, u32) = RUK_Ev_Write;
u32 (*const plat_c_ev_read)(u32, u32 *, u32, u32) = RUK_Ev_Read;
u32 (*const plat_c_que_create)(const char *, u32, u32, u32 *) = RUK_Que_Create;
u32 (*const plat_c_que_write)(u32, const u64[4], u32, u32) = RUK_Que_Write;
u32 (*const plat_c_que_read)(u32, u64[4], u32, u32) = RUK_Que_Read;
u32 (*const plat_c_sm_create)(const char *, u32, u32, u32 *) = RUK_Sm_Create;
u32 (*const plat_c_sm_delete)(u32) = RUK_Sm_Delete;
u32 (*const plat_c_sm_p)(u32, u32, u32) = RUK_Sm_P;
u32 (*const plat_c_sm_v)(u32) = RUK_Sm_V;
u32 (*const plat_c_ref_inc)(void *) = RUK_MemRefInc;
u32 (*const plat_c_ref_get)(void *, u32 *) = RUK_MemRefGet;
u32 (*const plat_c_fault_inject)(const char *, u32, u32) = PLAT_FaultInject;
void (*const plat_c_fault_clear)(void) = PLAT_FaultClear;
void (*const plat_c_mem_stats)(u32, u64 *, u64 *) = PLAT_MemStats;

/* A call through them from C: 0 when it behaved (the calls themselves are checked by the C++ suites). */
int plat_c_api_check(void);
int plat_c_api_check(void) {
    u32 sem = 0;
    return plat_c_sm_create("csem", 1, 0, &sem) == 0 && plat_c_sm_p(sem, RUK_NOWAIT, 0) == 0 &&
                   plat_c_sm_delete(sem) == 0 && plat_c_task_name(plat_c_task_id()) != NULL
               ? 0
               : -1;
}

/* The exported data resolve from C too. */
u32 plat_c_task_prio(u32 index);
u32 plat_c_task_prio(u32 index) {
    return m_aulTaskPrio[index] + 0u * g_ucSysMemPtNo;
}
