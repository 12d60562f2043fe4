// Start-up failures of the application task framework in a fresh process: a failing initialisation, "INIT"
// or an application task that cannot be created, an event write failing inside "INIT".
#include <gtest/gtest.h>

#include "zol_app.h"

#include "ruk_types.h"
#include "standin_ctl.h"

#include "app_tasks.h"
#include "imagent_reader.h"

namespace {

using zol::test::g_appLog;

std::atomic<u32> g_secondInitResult{42};
u32 SecondInit() {
    g_appLog.initOrder[1] = ++g_appLog.inits;
    return g_secondInitResult;
}

// One test on purpose: the registry and the chain belong to the process.
TEST(SysAppFailTest, FailuresEndStartUpWithTheirCodes) {
    static SYS_AppInfo apps[3];
    const SYS_APP_INIT_PF inits[3] = {zol::test::RecordInit<0>, SecondInit, zol::test::RecordInit<2>};
    for (int i = 0; i < 3; ++i) {
        zol::test::MakeApp(&apps[i], i, true, inits[i]);
        ASSERT_EQ(SYS_RegAppInfo(&apps[i]), 0u);
    }
    // A failing initialisation: later initialisations do not run, no task is created.
    zol::test::ImAgentCapture capture;
    EXPECT_EQ(SYS_StartApp(), SYS_APP_ERR_INIT);
    const auto initLog = capture.WithTag("SYS_IA"), startLog = capture.WithTag("SYS_SAP");
    ASSERT_TRUE(initLog.size() == 1 && startLog.size() == 1);
    EXPECT_EQ(initLog[0].Formatted(), "App init is fail. ret=42!");
    EXPECT_EQ(startLog[0].Formatted(), "Init App is fail. ret=42!");
    EXPECT_EQ(g_appLog.inits.load(), 2) << "initialisations after the failing one must not run";
    EXPECT_EQ(g_ulTaskLinkNum, 0u);
    for (auto &app : apps)
        EXPECT_EQ(app.ulTaskId, 0u);

    // "INIT" itself cannot be created: the initialisations ran, no task exists.
    g_secondInitResult = 0;
    g_appLog.inits = 0;
    ASSERT_EQ(PLAT_FaultInject("RUK_TaskCreate", 0, 1), 0u);
    EXPECT_EQ(SYS_StartApp(), RUK_ERR_INJECTED);
    EXPECT_EQ(g_appLog.inits.load(), 3);
    EXPECT_TRUE(g_ulTaskLinkNum == 0 && apps[0].ulTaskId == 0);

    // "INIT" runs, the first application task is created, the second is refused: "INIT" records the code
    // and ends, which ends the wait; the chain holds only the task created before the failure, which
    // never got the start-up event.
    ASSERT_EQ(PLAT_FaultInject("RUK_TaskCreate", 2, 1), 0u);
    EXPECT_EQ(SYS_StartApp(), RUK_ERR_INJECTED);
    ASSERT_EQ(g_ulTaskLinkNum, 1u);
    EXPECT_TRUE(apps[0].ulTaskId != 0 && g_ulTaskLinkId[0] == apps[0].ulTaskId && apps[2].ulTaskId == 0);

    // A failing event write inside "INIT" ends start-up the same way.
    ASSERT_EQ(PLAT_FaultInject("RUK_Ev_Write", 0, 1), 0u);
    EXPECT_EQ(SYS_StartApp(), RUK_ERR_INJECTED);
    EXPECT_EQ(g_ulTaskLinkNum, 3u);
    EXPECT_EQ(g_appLog.readies.load(), 0);
    PLAT_FaultClear();
}

} // namespace
