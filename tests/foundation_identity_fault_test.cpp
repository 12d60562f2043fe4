// A reporter identity whose slot and CPU queries fail carries 65535 for each. The identity is filled
// once per process, so this program holds a single test.
#include <cstdlib>
#include <gtest/gtest.h>

#include "zol_foundation.h"

#include "standin_ctl.h"

#include "imagent_reader.h"

namespace zol::test {
namespace {

TEST(IdentityFaultTest, FailedSlotAndCpuQueriesReport65535) {
    setenv("ZOL_CHASSIS_ID", "5", 1);
    setenv("ZOL_SLOT_ID", "2", 1);
    setenv("ZOL_CPU_ID", "1", 1);
    ImAgentCapture agent;
    ASSERT_EQ(PLAT_FaultInject("DEVM_GetSelfSlotId", 0, 1), 0u);
    ASSERT_EQ(PLAT_FaultInject("DEVM_GetSelfCpuId", 0, 1), 0u);

    const char *const texts[] = {"ID_FAULT"};
    ZOL_LogPoint point{0x20, 2, 31, 1};
    ZOL_WriteLog(&point, "ID_FAULT", texts, 1, "queries fail");
    ZOL_WriteLog(&point, "ID_FAULT_2", texts, 1, "identity kept");

    std::vector<ImRecord> records = agent.Records();
    ASSERT_EQ(records.size(), 2u);
    for (const ImRecord &record : records) {
        EXPECT_EQ(record.Text(0), "5/65535");
        EXPECT_EQ(record.Value(1), 65535u);
    }
}

} // namespace
} // namespace zol::test
