/* Example process built on libzol_comm: exercises each family of the library in turn and says what it
 * did. With "--serve N" it then stays up N seconds so the diagnostic command can query it. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "zol_app.h"
#include "zol_foundation.h"
#include "zol_ipc.h"
#include "zol_mbuf.h"
#include "zol_rpc.h"
#include "zol_util.h"
#include "zol_waitlist.h"

#include "ruk_event.h"
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

/* Application tasks: each finishes its start-up when the chain reaches it, passes the event on, then
 * waits for the common wake-up. */
static volatile u32 g_appsStarted, g_appsWoken;

static void app_task(uintptr_t a1, uintptr_t a2, uintptr_t a3, uintptr_t a4) {
    (void)a1, (void)a2, (void)a3, (void)a4;
    u32 got = 0, self = RUK_TaskCurrentIdGet();
    RUK_Ev_Read(SYS_APP_EVENT, &got, RUK_WAIT, 0);
    __atomic_add_fetch(&g_appsStarted, 1, __ATOMIC_SEQ_CST);
    RUK_Ev_Write(JUX_GetTaskFollowMe(self), SYS_APP_EVENT);
    RUK_Ev_Read(SYS_APP_EVENT, &got, RUK_WAIT, 0);
    __atomic_add_fetch(&g_appsWoken, 1, __ATOMIC_SEQ_CST);
}

static u32 app_init(void) {
    return 0;
}

static void demo_apps(void) {
    static SYS_AppInfo apps[2] = {
        {app_task, "DAPB", 80, 0, 0, {0, 0, 0, 0}, app_init, 0, 0},
        {app_task, "DAPA", 80, 0, 0, {0, 0, 0, 0}, app_init, 0, 0},
    };
    int ok = SYS_RegAppInfoPriority(&apps[0], 2) == 0 && SYS_RegAppInfoPriority(&apps[1], 1) == 0;
    ok = ok && SYS_StartApp() == 0;
    for (int i = 0; i < 200 && g_appsWoken < 2; i++) {
        RUK_TaskDelay(10);
    }
    char what[160];
    snprintf(what, sizeof what, "2 applications started along the chain %s -> %s -> INIT and woken together (%u)",
             RUK_GetTaskName(g_ulTaskLinkId[0]), RUK_GetTaskName(g_ulTaskLinkId[1]), (unsigned)g_appsWoken);
    report("apps", ok && g_ulTaskLinkNum == 2 && g_appsStarted == 2 && g_appsWoken == 2, what);
}

static void demo_cksum_and_mbuf(void) {
    static const u8 header[20] = {0x45, 0x00, 0x00, 0x73, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
                                  0x00, 0x00, 0xc0, 0xa8, 0x00, 0x01, 0xc0, 0xa8, 0x00, 0xc7};
    u16 sum = INET_Cksum(header, sizeof header);
    MBUF *mbuf = MBUF_CreateByCopyBuffer(64, sizeof header, header, 0, 0x20);
    MBUF *copy = mbuf ? MBUF_ReferenceCopy(mbuf, 0, sizeof header, 0x20) : NULL;
    u8 flat[20] = {0};
    int ok = copy && MBUF_CopyDataFromMBufToBuffer(copy, 0, sizeof flat, flat) == 0 &&
             memcmp(flat, header, sizeof flat) == 0;
    ok = ok && MBUF_Destroy(copy) == 0 && MBUF_Destroy(mbuf) == 0;
    char what[160];
    const u8 *sumBytes = (const u8 *)&sum; /* the checksum as stored in the packet */
    snprintf(what, sizeof what, "IPv4 header checksum %02x %02x; packet buffer copied by reference and read back",
             sumBytes[0], sumBytes[1]);
    report("mbuf", ok, what);
}

static u64 waitlist_proc(u64 context, u64 *newContext) {
    *newContext = context + 1;
    return 0;
}

static void demo_waitlist(void) {
    u32 handle = 0;
    u64 value = 1;
    int ok = RUK_WaitListRegister(7, &handle, waitlist_proc) == 0 && RUK_WaitListSet(handle, 5, 41) == 0 &&
             RUK_WaitListDelFromList(7, 5) == 0 && RUK_WaitListGet(handle, &value) == 0 && value == 0;
    ok = ok && RUK_WaitListUnregister(handle) == 0 && RUK_WaitListGet(handle, &value) == 2;
    char what[160];
    snprintf(what, sizeof what, "registration 0x%08x woken by value 5, then unregistered (stale handle refused)",
             (unsigned)handle);
    report("waitlist", ok, what);
}

/* IPC: channel 5 hands its finished messages to a callback, channel 6 receives into a platform queue. */
static volatile u32 g_sendFinished;

static u32 chan5_callback(u32 kind, u32 ownChan, u32 peerNode, u32 peerChan, void *msg, u32 len) {
    (void)ownChan, (void)peerNode, (void)peerChan, (void)len;
    g_sendFinished += kind == IPC_NOTIFY_SEND_FINISH;
    IPC_FreeMsg(msg);
    return 0;
}

static void demo_ipc(void) {
    const u32 node = (3u << 12) | 1u; /* process index 3, location 1 */
    u32 queue = 0, received = 0;
    int ok = IPC_Init(node) == IPC_OK && RUK_Que_Create("DEMI", 64, 0, &queue) == RUK_OK &&
             IPC_Create(5, IPC_CHAN_MODE_CALLBACK, 0, chan5_callback) == IPC_OK &&
             IPC_Create(6, IPC_CHAN_MODE_QUEUE, queue, NULL) == IPC_OK;
    for (u32 i = 0; ok && i < 3; i++) {
        char *msg = IPC_AllocMsg_X(64, 0xC00D0000u, "demo_ipc", __LINE__);
        ok = msg != NULL;
        if (ok) {
            snprintf(msg, 64, "hello #%u", (unsigned)i);
            ok = IPC_Send(5, node, 6, 0, msg, 64) == IPC_OK;
        }
    }
    u64 rec[4];
    while (ok && RUK_Que_Read(queue, rec, RUK_NOWAIT, 0) == RUK_OK) {
        received += rec[0] == IPC_NOTIFY_RECV;
        IPC_FreeMsg((void *)(uintptr_t)rec[1]);
    }
    char what[160];
    snprintf(what, sizeof what, "node 0x%x: 3 messages channel 5 -> 6, %u read from the queue, %u handed back",
             (unsigned)IPC_GetSelfNodeId(), (unsigned)received, (unsigned)g_sendFinished);
    report("ipc", ok && received == 3 && g_sendFinished == 3, what);
}

/* RPC: module 0x21 answers on "RPCR" with its request turned to upper case; module 0x20 calls it. */
u32 upper_module(u32 srcNode, u32 srcMod, void *req, u32 len, void **rsp, u32 *rspLen);

/* Not static: the callback-time display names it by its exported symbol. */
u32 upper_module(u32 srcNode, u32 srcMod, void *req, u32 len, void **rsp, u32 *rspLen) {
    (void)srcNode, (void)srcMod;
    RUK_TaskDelay(2); /* some work, so the callback-time display has a cost to show */
    char *out = IPC_RPC_AllocMsg_X(len, 0x21, "upper_module", __LINE__);
    if (out != NULL) {
        for (u32 i = 0; i < len; i++) {
            char c = ((const char *)req)[i];
            out[i] = (c >= 'a' && c <= 'z') ? (char)(c - 'a' + 'A') : c;
        }
        *rsp = out;
        *rspLen = len;
    }
    return 0;
}

static void demo_rpc(void) {
    int ok = IPC_RPC_Init() == IPC_RPC_OK && IPC_RPC_Register(0x20, upper_module) == IPC_RPC_OK &&
             IPC_RPC_Register(0x21, upper_module) == IPC_RPC_OK;
    char answer[32] = "";
    for (int i = 0; ok && i < 3; i++) {
        char *req = IPC_RPC_AllocMsg_X(16, 0x20, "demo_rpc", __LINE__);
        void *rsp = NULL;
        u32 rspLen = 0;
        ok = req != NULL;
        if (ok) {
            snprintf(req, 16, "request %d", i);
            ok = IPC_RPC_SyncCall(0x20, IPC_GetSelfNodeId(), 0x21, 0, req, 16, &rsp, &rspLen, 2000) == IPC_RPC_OK &&
                 rsp != NULL;
        }
        if (ok) {
            snprintf(answer, sizeof answer, "%.*s", (int)rspLen, (const char *)rsp);
            IPC_RPC_FreeMsg(rsp);
        }
    }
    char what[160];
    snprintf(what, sizeof what, "3 synchronous calls to module 0x21 on \"RPCR\", last answer \"%s\"", answer);
    report("rpc", ok && strcmp(answer, "REQUEST 2") == 0, what);
}

int main(int argc, char **argv) {
    int serveSeconds = (argc == 3 && strcmp(argv[1], "--serve") == 0) ? atoi(argv[2]) : 0;
    demo_log();
    demo_platform_tasks();
    demo_apps();
    demo_cksum_and_mbuf();
    demo_waitlist();
    demo_ipc();
    demo_rpc();
    printf("zol_demo: %s\n", g_failures == 0 ? "every step succeeded" : "some steps failed");
    if (serveSeconds > 0) {
        /* The diagnostic service runs on the library's own tasks; the process only has to stay up. */
        printf("zol_demo: pid %d answers diagnostic commands for %d s\n", (int)getpid(), serveSeconds);
        fflush(stdout);
        sleep((unsigned)serveSeconds);
    }
    return g_failures == 0 ? 0 : 1;
}
