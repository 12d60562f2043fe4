// The application task framework: the priority-ordered registry, the start-up run by SYS_StartApp and
// the task "INIT", the chain of application tasks along which the start-up event is passed.
#include "foundation/log_points.h"

#include <atomic>

#include "zol_app.h"

#include "ruk_event.h"
#include "ruk_task.h"

namespace {

using zol::log::kAppErr;
using zol::log::kAppEventInfo;
using zol::log::kAppNoticeUnfiltered;

constexpr u32 kInitTaskPrioEntry = 7; // entry of m_aulTaskPrio for the service tasks
constexpr u32 kPollMs = 10;

// Id of "INIT" while start-up runs, 0 otherwise. "INIT" writes its own id before it creates any
// application task (so every JUX_GetTaskFollowMe sees it) and clears it when it ends.
std::atomic<u32> g_ulInitTaskId{0};
// Set by "INIT" as the very last thing it does; SYS_StartApp polls this rather than the id, so it can
// neither miss an "INIT" that has not yet written its id nor wait for one that has failed.
std::atomic<bool> g_bStartDone{false};
// Code recorded by "INIT" (0 on success), published by g_bStartDone.
u32 g_ulStartResult = 0;

u32 ChainLength() {
    return (g_ulTaskLinkNum < SYS_APP_MAX_NUM) ? g_ulTaskLinkNum : SYS_APP_MAX_NUM;
}
u32 RegisteredCount() {
    return (g_ulRegAppNum < SYS_APP_MAX_NUM) ? g_ulRegAppNum : SYS_APP_MAX_NUM;
}

// Runs the initialisations in registry order; the first non-zero result stops them.
u32 SYS_InitApps() {
    for (u32 i = 0; i < RegisteredCount(); ++i) {
        const SYS_APP_INIT_PF pfInit = g_apstRegiseterApp[i]->pfnInit;
        if (pfInit == nullptr) {
            continue;
        }
        const u32 ulRet = pfInit();
        if (ulRet != 0) {
            ZOL_LOG_TAG(kAppErr, "SYS_IA", "App init is fail. ret=%u!", ulRet);
            return ulRet;
        }
    }
    return 0;
}

// The final wake-up: the second event of every task of the chain.
u32 SYS_AwakeAppTask() {
    for (u32 i = 0; i < ChainLength(); ++i) {
        const u32 ulRet = RUK_Ev_Write(g_ulTaskLinkId[i], SYS_APP_EVENT);
        if (ulRet != RUK_OK) {
            ZOL_LOG_TAG(kAppErr, "SYS_AAT", "Ev Write is fail. ret=%u, g_ulTaskLinkId[%u]=%u!", ulRet, i,
                        g_ulTaskLinkId[i]);
            return ulRet;
        }
    }
    return 0;
}

// The steps of "INIT": create the tasks, start the chain, wait for its end, wake everyone.
u32 SYS_RunStartUp() {
    u32 ulRet = SYS_CreateAppTask();
    if (ulRet != 0) {
        ZOL_LOG_TAG(kAppErr, "SYS_HT", "SYS_CreateAppTask fail. ret=%u!", ulRet);
        return ulRet;
    }
    // Without any application task there is no chain to pass the event along, and nothing to wake.
    if (ChainLength() == 0) {
        return 0;
    }
    ulRet = RUK_Ev_Write(g_ulTaskLinkId[0], SYS_APP_EVENT);
    if (ulRet != RUK_OK) {
        ZOL_LOG_TAG(kAppErr, "SYS_HT", "Ev_Write is fail. ret=%u, TaskLinkId[0]=%u!", ulRet, g_ulTaskLinkId[0]);
        return ulRet;
    }
    u32 ulReceived = 0;
    ulRet = RUK_Ev_Read(SYS_APP_EVENT, &ulReceived, RUK_WAIT, 0);
    if (ulRet != RUK_OK) {
        ZOL_LOG_TAG(kAppErr, "SYS_HT", "Ev_Read is fail. ret=%u!", ulRet);
        return ulRet;
    }
    ulRet = SYS_AwakeAppTask();
    if (ulRet != 0) {
        ZOL_LOG_TAG(kAppErr, "SYS_HT", "SYS_AwakeAppTask is fail. ret=%u!", ulRet);
    }
    return ulRet;
}

void SYS_InitTaskMain(uintptr_t, uintptr_t, uintptr_t, uintptr_t) {
    g_ulInitTaskId.store(RUK_TaskCurrentIdGet(), std::memory_order_release);
    const u32 ulRet = SYS_RunStartUp();
    if (ulRet != 0) {
        ZOL_LOG_TAG(kAppErr, "SYS_HT", "fail(0x%x)", ulRet);
    }
    // A failed start-up ends the wait too: SYS_StartApp returns the recorded code.
    g_ulStartResult = ulRet;
    g_ulInitTaskId.store(0, std::memory_order_release);
    g_bStartDone.store(true, std::memory_order_release);
}

} // namespace

extern "C" {

ZOL_EXPORT SYS_AppInfo *g_apstRegiseterApp[SYS_APP_MAX_NUM] = {};
ZOL_EXPORT u32 g_ulRegiseterAppPriority[SYS_APP_MAX_NUM] = {};
ZOL_EXPORT u32 g_ulRegAppNum = 0;
ZOL_EXPORT u32 g_ulTaskLinkId[SYS_APP_MAX_NUM] = {};
ZOL_EXPORT u32 g_ulTaskLinkNum = 0;

ZOL_EXPORT u32 SYS_RegAppInfoPriority(SYS_AppInfo *pstApp, u32 ulPriority) {
    if (g_ulRegAppNum >= SYS_APP_MAX_NUM) {
        ZOL_LOG_TAG(kAppErr, "SYS_RAIP", "AppNum is max");
        return SYS_APP_ERR_FULL;
    }
    if (pstApp == nullptr) {
        ZOL_LOG_TAG(kAppErr, "SYS_RAIP", "App info is null");
        return SYS_APP_ERR_NULL;
    }
    // Insertion from the end keeps equal priorities in registration order.
    u32 ulPos = g_ulRegAppNum;
    for (; ulPos > 0 && g_ulRegiseterAppPriority[ulPos - 1] > ulPriority; --ulPos) {
        g_apstRegiseterApp[ulPos] = g_apstRegiseterApp[ulPos - 1];
        g_ulRegiseterAppPriority[ulPos] = g_ulRegiseterAppPriority[ulPos - 1];
        g_apstRegiseterApp[ulPos]->ulRegIndex = ulPos;
    }
    g_apstRegiseterApp[ulPos] = pstApp;
    g_ulRegiseterAppPriority[ulPos] = ulPriority;
    pstApp->ulRegIndex = ulPos;
    ++g_ulRegAppNum;
    return 0;
}

ZOL_EXPORT u32 SYS_RegAppInfo(SYS_AppInfo *pstApp) {
    return SYS_RegAppInfoPriority(pstApp, 0);
}

ZOL_EXPORT u32 SYS_CreateAppTask(void) {
    u32 ulLinked = 0;
    for (u32 i = 0; i < RegisteredCount(); ++i) {
        SYS_AppInfo *const pstApp = g_apstRegiseterApp[i];
        if (pstApp->pfnTaskEntry == nullptr) {
            continue;
        }
        const u32 ulRet =
            RUK_TaskCreate(pstApp->szTaskName, &pstApp->ulTaskId, pstApp->pfnTaskEntry, pstApp->ulTaskPrio,
                           pstApp->ulTaskPara1, pstApp->ulTaskPara2, pstApp->aulTaskArgs);
        if (ulRet != RUK_OK) {
            ZOL_LOG_TAG(kAppErr, "SYS_CAT", "T create fail. ret=%u!", ulRet);
            g_ulTaskLinkNum = ulLinked;
            return ulRet;
        }
        ZOL_LOG_MSG(kAppEventInfo, "SYS_CAT", "Create task result succeed", "appNum:%u", g_ulRegAppNum);
        g_ulTaskLinkId[ulLinked++] = pstApp->ulTaskId;
    }
    g_ulTaskLinkNum = ulLinked;
    return 0;
}

ZOL_EXPORT u32 SYS_StartApp(void) {
    const u32 ulInitRet = SYS_InitApps();
    if (ulInitRet != 0) {
        ZOL_LOG_TAG(kAppErr, "SYS_SAP", "Init App is fail. ret=%u!", ulInitRet);
        return SYS_APP_ERR_INIT;
    }
    g_bStartDone.store(false, std::memory_order_relaxed);
    u32 ulInitTaskId = 0;
    uintptr_t auArgs[4] = {0, 0, 0, 0};
    const u32 ulRet =
        RUK_TaskCreate("INIT", &ulInitTaskId, SYS_InitTaskMain, m_aulTaskPrio[kInitTaskPrioEntry], 0, 0, auArgs);
    if (ulRet != RUK_OK) {
        ZOL_LOG_TAG(kAppErr, "SYS_SAP", "Task create fail. ret=%u!", ulRet);
        return ulRet;
    }
    while (!g_bStartDone.load(std::memory_order_acquire)) {
        (void)RUK_TaskDelay(kPollMs);
    }
    return g_ulStartResult;
}

ZOL_EXPORT u32 JUX_GetTaskFollowMe(u32 ulTaskId) {
    const char *const pcName = RUK_GetTaskName(ulTaskId);
    ZOL_LOG_TAG(kAppNoticeUnfiltered, "JUX_GTFM", "Task %-4s Init ... ok", (pcName != nullptr) ? pcName : "");
    const u32 ulLength = ChainLength();
    for (u32 i = 0; i < ulLength; ++i) {
        if (g_ulTaskLinkId[i] == ulTaskId) {
            return (i + 1 == ulLength) ? g_ulInitTaskId.load(std::memory_order_acquire) : g_ulTaskLinkId[i + 1];
        }
    }
    return 0; // not in the chain: no successor
}

} // extern "C"
