// A failing application initialisation stops the start-up in a fresh process: later initialisations are
// not run, no task is created, SYS_StartApp returns 1.
#include <gtest/gtest.h>

#include "zol_app.h"

#include "app_tasks.h"
#include "imagent_reader.h"

namespace {

using zol::test::g_appLog;
using zol::test::MakeApp;

u32 FailingInit() {
    ++g_appLog.inits;
    return 42;
}

TEST(SysAppInitFailTest, FailedInitialisationStopsStartUp) {
    static SYS_AppInfo apps[3];
    for (int i = 0; i < 3; ++i) {
        MakeApp(&apps[i], i, true, (i == 1) ? FailingInit : zol::test::kRecordInit[i]);
        ASSERT_EQ(SYS_RegAppInfo(&apps[i]), 0u);
    }
    zol::test::ImAgentCapture capture;
    EXPECT_EQ(SYS_StartApp(), SYS_APP_ERR_INIT);
    const auto initLog = capture.WithTag("SYS_IA");
    ASSERT_EQ(initLog.size(), 1u);
    EXPECT_EQ(initLog[0].Formatted(), "App init is fail. ret=42!");
    const auto startLog = capture.WithTag("SYS_SAP");
    ASSERT_EQ(startLog.size(), 1u);
    EXPECT_EQ(startLog[0].Formatted(), "Init App is fail. ret=42!");
    EXPECT_EQ(g_appLog.initOrder[0], 0);
    EXPECT_EQ(g_appLog.inits.load(), 2);
    EXPECT_EQ(g_appLog.initOrder[2], -1) << "initialisations after the failing one must not run";
    EXPECT_EQ(g_ulTaskLinkNum, 0u);
    for (auto &app : apps) {
        EXPECT_EQ(app.ulTaskId, 0u);
    }
}

} // namespace
