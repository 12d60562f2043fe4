// Application descriptors and task bodies for the start-up tests of the application task framework: each
// task records what it saw of the start-up chain so a test can check the order afterwards.
#ifndef ZOL_TEST_APP_TASKS_H
#define ZOL_TEST_APP_TASKS_H

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "zol_app.h"

#include "ruk_event.h"
#include "ruk_task.h"

namespace zol::test {

constexpr int kMaxApps = 8;

// What the tasks and initialisations saw, written by several threads. Orders count from 1, 0 is never.
struct AppLog {
    std::atomic<int> initOrder[kMaxApps];  // when app i's initialisation ran
    std::atomic<int> readyOrder[kMaxApps]; // when task i finished its start-up
    std::atomic<u32> successor[kMaxApps];  // what JUX_GetTaskFollowMe told task i
    std::atomic<u32> ownId[kMaxApps];      // the id task i runs under
    std::atomic<bool> woken[kMaxApps];     // task i received the final wake-up
    std::atomic<int> inits, readies;
};
inline AppLog g_appLog; // static storage: all zero

// A well-behaved application task: waits for its turn, finishes its start-up, passes the event on, then
// waits for the wake-up. The first argument word is the application's number.
inline void AppTaskBody(uintptr_t app, uintptr_t, uintptr_t, uintptr_t) {
    u32 got = 0;
    if (RUK_Ev_Read(SYS_APP_EVENT, &got, RUK_WAIT, 0) != RUK_OK) {
        return;
    }
    const u32 self = RUK_TaskCurrentIdGet();
    g_appLog.ownId[app] = self;
    g_appLog.readyOrder[app] = ++g_appLog.readies;
    g_appLog.successor[app] = JUX_GetTaskFollowMe(self);
    (void)RUK_Ev_Write(g_appLog.successor[app], SYS_APP_EVENT);
    g_appLog.woken[app] = RUK_Ev_Read(SYS_APP_EVENT, &got, RUK_WAIT, 0) == RUK_OK;
}

template <int N>
u32 RecordInit() {
    g_appLog.initOrder[N] = ++g_appLog.inits;
    return 0;
}

// A descriptor for application `app` named "APnn", with or without a task and an initialisation.
inline void MakeApp(SYS_AppInfo *info, int app, bool withTask, SYS_APP_INIT_PF init) {
    *info = SYS_AppInfo{};
    info->pfnTaskEntry = withTask ? AppTaskBody : nullptr;
    std::snprintf(info->szTaskName, sizeof info->szTaskName, "AP%02d", app);
    info->ulTaskPrio = m_aulTaskPrio[7];
    info->aulTaskArgs[0] = static_cast<uintptr_t>(app);
    info->pfnInit = init;
}

// Waits (bounded, generously) until pred() holds.
template <typename Pred>
bool Eventually(Pred pred) {
    for (int i = 0; i < 3000 && !pred(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return pred();
}

} // namespace zol::test

#endif // ZOL_TEST_APP_TASKS_H
