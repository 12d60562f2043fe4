/* Example process built on libzol_comm: exercises each family of the library in turn and says what it
 * did. With --serve N it then stays up N seconds so the diagnostic command can query it. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "zol_foundation.h"

#include "ruk_queue.h"
#include "ruk_sem.h"
#include "ruk_task.h"

static int g_failures;

static void report(const char *step, int ok, const char *what) {
    printf("[%s] %-10s %s\n", ok ? " ok " : "FAIL", step, what);
    g_failures += !ok;
}

/* A worker task: doubles each value it reads from its queue and posts the semaphore named in the record. */
static void worker_task(uintptr_t queue, uintptr_t a2, uintptr_t a3, uintptr_t a4) {
    (void)a2, (void)a3, (void)a4;
    for (;;) {
        u64 rec[4];
        if (RUK_Que_Read((u32)queue, rec, RUK_WAIT, 0) != RUK_OK) {
            continue;
        }
        *(u64 *)(uintptr_t)rec[1] = rec[0] * 2;
        RUK_Sm_V((u32)rec[2]);
    }
}

static void demo_platform_tasks(void) {
    u32 queue = 0, sem = 0, task = 0;
    uintptr_t args[4] = {0, 0, 0, 0};
    int ok = RUK_Que_Create("DEMQ", 16, 0, &queue) == RUK_OK && RUK_Sm_Create("DEMS", 0, 2, &sem) == RUK_OK;
    args[0] = queue;
    ok = ok && RUK_TaskCreate("DEMW", &task, worker_task, m_aulTaskPrio[7], 0, 0, args) == RUK_OK;
    u64 result = 0;
    u64 rec[4] = {21, (u64)(uintptr_t)&result, sem, 0};
    ok = ok && RUK_Que_Write(queue, rec, RUK_NOWAIT, 0) == RUK_OK && RUK_Sm_P(sem, RUK_WAIT, 2000) == RUK_OK;
    char what[128];
    snprintf(what, sizeof what, "task \"%s\" doubled 21 into %llu through a platform queue and semaphore",
             RUK_GetTaskName(task) ? RUK_GetTaskName(task) : "?", (unsigned long long)result);
    report("platform", ok && result == 42, what);
}

static void demo_log(void) {
    static const ZOL_LogPoint point = {0x1C, 1, 27, 0}; /* IPC event information, not filtered */
    const char *texts[] = {"DEMO", "demo started"};
    ZOL_WriteLog(&point, "DEMO", texts, 2, "pid=%d", (int)getpid());
    ZOL_VerifyDiaglog();
    char name[32];
    ZOL_GetProcNameById((u32)getpid(), name, sizeof name);
    char what[160];
    snprintf(what, sizeof what, "process \"%s\": one record plus the 48-type self-test sent to the agent (%s)", name,
             getenv("ZOL_IMAGENT_FILE") ? getenv("ZOL_IMAGENT_FILE") : "default file");
    report("log", 1, what);
}

int main(int argc, char **argv) {
    (void)argc, (void)argv;
    demo_log();
    demo_platform_tasks();
    printf("zol_demo: %s\n", g_failures == 0 ? "every step succeeded" : "some steps failed");
    return g_failures == 0 ? 0 : 1;
}
