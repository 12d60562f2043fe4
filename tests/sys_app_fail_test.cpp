// Start-up failures of the application task framework in a fresh process: "INIT" cannot be created, an
// application task cannot be created; each time SYS_StartApp returns the platform's code.
#include <gtest/gtest.h>

#include "zol_app.h"

#include "ruk_types.h"
#include "standin_ctl.h"

#include "app_tasks.h"

namespace {

using zol::test::g_appLog;
using zol::test::kRecordInit;

// One test on purpose: the registry and the chain belong to the process.
TEST(SysAppFailTest, FailedTaskCreationEndsStartUpWithThePlatformsCode) {
    static SYS_AppInfo apps[3];
    for (int i = 0; i < 3; ++i) {
        zol::test::MakeApp(&apps[i], i, true, kRecordInit[i]);
        ASSERT_EQ(SYS_RegAppInfo(&apps[i]), 0u);
    }

    // "INIT" itself cannot be created: the initialisations ran, no task exists.
    ASSERT_EQ(PLAT_FaultInject("RUK_TaskCreate", 0, 1), 0u);
    EXPECT_EQ(SYS_StartApp(), RUK_ERR_INJECTED);
    EXPECT_EQ(g_appLog.inits.load(), 3);
    EXPECT_EQ(g_ulTaskLinkNum, 0u);
    EXPECT_EQ(apps[0].ulTaskId, 0u);

    // "INIT" runs, the first application task is created, the second is refused: "INIT" records the code
    // and ends, which ends the wait; the chain holds only the task created before the failure.
    ASSERT_EQ(PLAT_FaultInject("RUK_TaskCreate", 2, 1), 0u);
    EXPECT_EQ(SYS_StartApp(), RUK_ERR_INJECTED);
    EXPECT_EQ(g_ulTaskLinkNum, 1u);
    EXPECT_EQ(g_ulTaskLinkId[0], apps[0].ulTaskId);
    EXPECT_NE(apps[0].ulTaskId, 0u);
    EXPECT_EQ(apps[2].ulTaskId, 0u);
    // The created task never got the start-up event.
    EXPECT_EQ(g_appLog.readies.load(), 0);
    PLAT_FaultClear();

    // A failing event write inside "INIT" ends start-up the same way.
    ASSERT_EQ(PLAT_FaultInject("RUK_Ev_Write", 0, 1), 0u);
    EXPECT_EQ(SYS_StartApp(), RUK_ERR_INJECTED);
    EXPECT_EQ(g_ulTaskLinkNum, 3u);
    EXPECT_EQ(g_appLog.readies.load(), 0);
    PLAT_FaultClear();
}

} // namespace
