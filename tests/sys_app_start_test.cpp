// The whole start-up of the application task framework in a fresh process: initialisations in registry
// order, one task per application with an entry, the event passed along the chain, the wake-up.
#include <gtest/gtest.h>

#include "zol_app.h"

#include "ruk_task.h"

#include "app_tasks.h"
#include "imagent_reader.h"

namespace {

using zol::test::g_appLog;
using zol::test::RecordInit;

// One test on purpose: start-up runs once per process.
TEST(SysAppStartTest, InitsTasksChainAndWakeUpInOrder) {
    // Registered out of order; registry order is app 0..4 by priority. App 2 has no task, app 3 no init.
    static SYS_AppInfo apps[5];
    const SYS_APP_INIT_PF inits[5] = {RecordInit<0>, RecordInit<1>, RecordInit<2>, nullptr, RecordInit<4>};
    for (int app : {4, 1, 3, 0, 2}) {
        zol::test::MakeApp(&apps[app], app, app != 2, inits[app]);
        ASSERT_EQ(SYS_RegAppInfoPriority(&apps[app], 10u * app), 0u);
    }
    zol::test::ImAgentCapture capture;
    ASSERT_EQ(SYS_StartApp(), 0u);

    for (int app : {0, 1, 2, 4}) { // app 2 is initialised although it has no task
        EXPECT_EQ(g_appLog.initOrder[app], app < 4 ? app + 1 : 4) << app;
    }
    // The chain: the tasks of apps 0, 1, 3, 4 in registry order, with the ids the descriptors got, each
    // finishing its start-up after the one before and sent to its successor, the last one to "INIT".
    // Every ready notice is logged (never filtered), in chain order, with the task's name.
    ASSERT_EQ(g_ulTaskLinkNum, 4u);
    const int chain[4] = {0, 1, 3, 4};
    const auto notices = capture.WithTag("JUX_GTFM");
    ASSERT_EQ(notices.size(), 4u);
    for (int i = 0; i < 4; ++i) {
        const SYS_AppInfo &app = apps[chain[i]];
        EXPECT_EQ(g_ulTaskLinkId[i], app.ulTaskId) << i;
        EXPECT_EQ(g_appLog.ownId[chain[i]].load(), app.ulTaskId) << i;
        EXPECT_EQ(g_appLog.readyOrder[chain[i]], i + 1) << i;
        EXPECT_STREQ(RUK_GetTaskName(app.ulTaskId), app.szTaskName);
        EXPECT_STREQ(RUK_GetTaskName(g_appLog.successor[chain[i]].load()),
                     i < 3 ? apps[chain[i + 1]].szTaskName : "INIT");
        EXPECT_EQ(notices[i].Formatted(), std::string("Task ") + app.szTaskName + " Init ... ok");
    }
    EXPECT_TRUE(apps[2].ulTaskId == 0 && g_appLog.readyOrder[2] == 0);
    const auto created = capture.WithTag("SYS_CAT");
    ASSERT_FALSE(created.empty());
    EXPECT_EQ(created[0].Text(zol::test::kImFirstText + 1), "Create task result succeed");
    EXPECT_EQ(created[0].Formatted(), "appNum:5");

    // Every task gets the wake-up after SYS_StartApp has returned or about then.
    for (int app : chain)
        EXPECT_TRUE(zol::test::Eventually([&] { return g_appLog.woken[app].load(); })) << "app " << app;
    // Start-up is over: the last task's successor is no longer "INIT", and an unknown id has none.
    EXPECT_EQ(JUX_GetTaskFollowMe(apps[4].ulTaskId), 0u);
    EXPECT_EQ(JUX_GetTaskFollowMe(apps[0].ulTaskId), apps[1].ulTaskId);
    EXPECT_EQ(JUX_GetTaskFollowMe(0xDEADBEEFu), 0u);
}

} // namespace
