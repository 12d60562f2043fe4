// The whole start-up of the application task framework in a fresh process: initialisations in registry
// order, one task per application with an entry, the event passed along the chain, the wake-up.
#include <gtest/gtest.h>

#include "zol_app.h"

#include "ruk_task.h"

#include "app_tasks.h"
#include "imagent_reader.h"

namespace {

using zol::test::Eventually;
using zol::test::g_appLog;
using zol::test::MakeApp;
using zol::test::RecordInit;

// One test on purpose: start-up runs once per process.
TEST(SysAppStartTest, InitsTasksChainAndWakeUpInOrder) {
    // Registered out of order; registry order is app 0..4 by priority. App 2 has no task, app 3 no init.
    static SYS_AppInfo apps[5];
    MakeApp(&apps[0], 0, true, RecordInit<0>);
    MakeApp(&apps[1], 1, true, RecordInit<1>);
    MakeApp(&apps[2], 2, false, RecordInit<2>);
    MakeApp(&apps[3], 3, true, nullptr);
    MakeApp(&apps[4], 4, true, RecordInit<4>);
    ASSERT_EQ(SYS_RegAppInfoPriority(&apps[4], 40), 0u);
    ASSERT_EQ(SYS_RegAppInfoPriority(&apps[1], 10), 0u);
    ASSERT_EQ(SYS_RegAppInfoPriority(&apps[3], 30), 0u);
    ASSERT_EQ(SYS_RegAppInfoPriority(&apps[0], 0), 0u);
    ASSERT_EQ(SYS_RegAppInfoPriority(&apps[2], 20), 0u);

    zol::test::ImAgentCapture capture;
    ASSERT_EQ(SYS_StartApp(), 0u);

    EXPECT_EQ(g_appLog.initOrder[0], 0);
    EXPECT_EQ(g_appLog.initOrder[1], 1);
    EXPECT_EQ(g_appLog.initOrder[2], 2); // initialised although it has no task
    EXPECT_EQ(g_appLog.initOrder[4], 3);

    // The chain: the tasks of apps 0, 1, 3, 4 in registry order, with the ids the descriptors got.
    ASSERT_EQ(g_ulTaskLinkNum, 4u);
    const int chain[4] = {0, 1, 3, 4};
    for (int i = 0; i < 4; ++i) {
        EXPECT_NE(apps[chain[i]].ulTaskId, 0u);
        EXPECT_EQ(g_ulTaskLinkId[i], apps[chain[i]].ulTaskId) << i;
        EXPECT_EQ(g_appLog.ownId[chain[i]].load(), apps[chain[i]].ulTaskId) << i;
        EXPECT_EQ(g_appLog.readyOrder[chain[i]], i) << "tasks finish their start-up one after the other";
        EXPECT_STREQ(RUK_GetTaskName(apps[chain[i]].ulTaskId), apps[chain[i]].szTaskName);
    }
    EXPECT_EQ(apps[2].ulTaskId, 0u);
    EXPECT_EQ(g_appLog.readyOrder[2], -1);
    // Each task was sent to its successor; the last one to a task that is none of them ("INIT").
    EXPECT_EQ(g_appLog.successor[0].load(), apps[1].ulTaskId);
    EXPECT_EQ(g_appLog.successor[1].load(), apps[3].ulTaskId);
    EXPECT_EQ(g_appLog.successor[3].load(), apps[4].ulTaskId);
    const u32 initId = g_appLog.successor[4].load();
    EXPECT_NE(initId, 0u);
    EXPECT_STREQ(RUK_GetTaskName(initId), "INIT");

    // Every ready notice is logged (never filtered), in chain order, with the task's name.
    const auto notices = capture.WithTag("JUX_GTFM");
    ASSERT_EQ(notices.size(), 4u);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(notices[i].Formatted(), std::string("Task ") + apps[chain[i]].szTaskName + " Init ... ok");
    }
    const auto created = capture.WithTag("SYS_CAT");
    ASSERT_FALSE(created.empty());
    EXPECT_EQ(created[0].Text(zol::test::kImFirstText + 1), "Create task result succeed");
    EXPECT_EQ(created[0].Formatted(), "appNum:5");

    // Every task gets the wake-up after SYS_StartApp has returned or about then.
    for (int app : chain) {
        EXPECT_TRUE(Eventually([&] { return g_appLog.woken[app].load(); })) << "app " << app << " never woken";
    }
    // Start-up is over: the last task's successor is no longer "INIT", and an unknown id has none.
    EXPECT_EQ(JUX_GetTaskFollowMe(apps[4].ulTaskId), 0u);
    EXPECT_EQ(JUX_GetTaskFollowMe(apps[0].ulTaskId), apps[1].ulTaskId);
    EXPECT_EQ(JUX_GetTaskFollowMe(0xDEADBEEFu), 0u);
}

} // namespace
