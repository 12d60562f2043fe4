// The application registry: priority order with registration order among equals, the positions written
// back into the descriptors, and the full registry. Nothing is started here.
#include <gtest/gtest.h>
#include <vector>

#include "zol_app.h"

namespace {

std::vector<int> Order(const std::vector<SYS_AppInfo> &apps) {
    std::vector<int> order;
    for (u32 i = 0; i < g_ulRegAppNum; ++i) {
        order.push_back(static_cast<int>(g_apstRegiseterApp[i] - apps.data()));
        EXPECT_EQ(g_apstRegiseterApp[i]->ulRegIndex, i) << "descriptor at position " << i;
    }
    return order;
}

// One test on purpose: the registry belongs to the process and is never emptied.
TEST(SysAppRegistryTest, PriorityOrderAndFullRegistry) {
    std::vector<SYS_AppInfo> apps(SYS_APP_MAX_NUM + 1);
    EXPECT_EQ(SYS_RegAppInfoPriority(nullptr, 3), SYS_APP_ERR_NULL);
    const u32 priorities[4] = {5, 1, 5, 0};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(SYS_RegAppInfoPriority(&apps[i], priorities[i]), 0u);
    EXPECT_EQ(Order(apps), (std::vector<int>{3, 1, 0, 2}));
    EXPECT_EQ(std::vector<u32>(g_ulRegiseterAppPriority, g_ulRegiseterAppPriority + 4), (std::vector<u32>{0, 1, 5, 5}));
    // Priority 0 goes after the earlier priority-0 descriptors; in unsigned order the largest goes last.
    EXPECT_EQ(SYS_RegAppInfo(&apps[4]), 0u);
    EXPECT_EQ(SYS_RegAppInfoPriority(&apps[5], 0xFFFFFFFFu), 0u);
    EXPECT_EQ(SYS_RegAppInfoPriority(&apps[6], 2), 0u);
    EXPECT_EQ(Order(apps), (std::vector<int>{3, 4, 1, 6, 0, 2, 5}));

    for (u32 i = 7; i < SYS_APP_MAX_NUM; ++i)
        ASSERT_EQ(SYS_RegAppInfoPriority(&apps[i], 3), 0u);
    const std::vector<SYS_AppInfo *> before(g_apstRegiseterApp, g_apstRegiseterApp + SYS_APP_MAX_NUM);
    EXPECT_EQ(SYS_RegAppInfoPriority(&apps[SYS_APP_MAX_NUM], 0), SYS_APP_ERR_FULL);
    EXPECT_EQ(SYS_RegAppInfoPriority(nullptr, 0), SYS_APP_ERR_FULL); // full is checked first
    EXPECT_EQ(g_ulRegAppNum, SYS_APP_MAX_NUM);
    EXPECT_EQ(std::vector<SYS_AppInfo *>(g_apstRegiseterApp, g_apstRegiseterApp + SYS_APP_MAX_NUM), before);
    Order(apps); // every position still written back
    // The priority-3 block sits between priorities 2 and 5.
    EXPECT_EQ(g_apstRegiseterApp[4], &apps[7]);
    EXPECT_EQ(g_apstRegiseterApp[SYS_APP_MAX_NUM - 3], &apps[0]);
}

} // namespace
