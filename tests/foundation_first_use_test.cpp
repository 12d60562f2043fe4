// What the first calls of a process set up once: the filter lock and the memory handle "zol_mem" (both
// tried again after a failure), and the reporter identity (65535 for a failed slot or CPU query, never
// refreshed). Each program run is a fresh process, so this file holds a single test.
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "zol_foundation.h"

#include "standin_ctl.h"

#include "imagent_reader.h"

namespace zol::test {
namespace {

TEST(FirstUseTest, LockMemoryHandleAndIdentityAreSetUpOnceByTheFirstCalls) {
    setenv("ZOL_CHASSIS_ID", "5", 1);
    setenv("ZOL_SLOT_ID", "2", 1);
    setenv("ZOL_CPU_ID", "1", 1);
    ImAgentCapture agent;
    ASSERT_EQ(PLAT_FaultInject("DEVM_GetSelfSlotId", 0, 1), 0u);
    ASSERT_EQ(PLAT_FaultInject("DEVM_GetSelfCpuId", 0, 1), 0u);

    // The filter lock cannot be prepared: the call passes without touching the table; the next call
    // prepares it and starts the tag's record, which then filters.
    ASSERT_EQ(PLAT_FaultInject("RUK_MutexInit", 0, 1), 0u);
    const char *const texts[] = {"FIRST_LOCK", "message"};
    ZOL_LogPoint point{0x1C, 2, 29, 1};
    for (int i = 0; i < 3; ++i)
        ZOL_WriteLog(&point, "FIRST_LOCK", texts, 2, "first use");
    std::vector<ImRecord> records = agent.Records();
    EXPECT_TRUE(records.size() == 2 || records.size() == 3) << records.size();
    for (const ImRecord &record : records)
        EXPECT_EQ(record.Formatted(), "first use") << "no count before the record exists";

    agent.Clear();
    ASSERT_EQ(PLAT_FaultInject("RUK_HandleInitialize", 0, 1), 0u);
    EXPECT_EQ(ZOL_GetMemHandle(), 0xFFFFFFFFu) << "registration failed";
    u32 handle = ZOL_GetMemHandle();
    EXPECT_NE(handle, 0xFFFFFFFFu) << "registration is tried again";
    EXPECT_EQ(ZOL_GetMemHandle(), handle);
    const std::vector<ImRecord> logged = agent.Records();
    ASSERT_EQ(logged.size(), 1u);
    const ImRecord &failure = records.emplace_back(logged[0]);
    EXPECT_EQ(failure.logId, 0x0EA71028u) << "ZOL_LOG_SAFETY_FUNC_ERR";
    EXPECT_EQ(failure.Tag(), "ZOL_MCF");
    EXPECT_EQ(failure.Text(5), "memory init fail");
    unsigned ret = 0;
    EXPECT_EQ(sscanf(failure.Formatted().c_str(), "ret:%u", &ret), 1) << failure.Formatted();
    EXPECT_NE(ret, 0u);

    // The queries would succeed now, but the identity of the first record stays.
    for (const ImRecord &record : records) {
        EXPECT_EQ(record.Text(0), "5/65535");
        EXPECT_EQ(record.Value(1), 65535u);
    }
}

} // namespace
} // namespace zol::test
