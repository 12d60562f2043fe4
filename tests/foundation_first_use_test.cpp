// What the first calls of a process set up once: the filter lock, the memory handle "zol_mem" (both
// tried again after a failure) and the reporter identity (from the device queries, never refreshed).
// Each program run is a fresh process, so this file holds a single test.
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "zol_foundation.h"

#include "standin_ctl.h"

#include "imagent_reader.h"

namespace zol::test {
namespace {

void LogOnce(const char *tag, bool filtered) {
    const char *const texts[] = {tag, "message"};
    ZOL_LogPoint point{0x1C, 2, 29, static_cast<u8>(filtered ? 1 : 0)};
    ZOL_WriteLog(&point, tag, texts, 2, "first use");
}

TEST(FirstUseTest, LockMemoryHandleAndIdentityAreSetUpOnceByTheFirstCalls) {
    setenv("ZOL_CHASSIS_ID", "7", 1);
    setenv("ZOL_SLOT_ID", "9", 1);
    setenv("ZOL_CPU_ID", "3", 1);
    ImAgentCapture agent;

    // The filter lock cannot be prepared: the call passes without touching the table; the next call
    // prepares it and starts the tag's record, which then filters.
    ASSERT_EQ(PLAT_FaultInject("RUK_MutexInit", 0, 1), 0u);
    for (int i = 0; i < 3; ++i) {
        LogOnce("FIRST_LOCK", true);
    }
    std::vector<ImRecord> records = agent.Records();
    EXPECT_GE(records.size(), 2u);
    EXPECT_LE(records.size(), 3u);
    for (const ImRecord &record : records) {
        EXPECT_EQ(record.Formatted(), "first use") << "no count before the record exists";
    }

    agent.Clear();
    ASSERT_EQ(PLAT_FaultInject("RUK_HandleInitialize", 0, 1), 0u);
    EXPECT_EQ(ZOL_GetMemHandle(), 0xFFFFFFFFu) << "registration failed";
    u32 handle = ZOL_GetMemHandle();
    EXPECT_NE(handle, 0xFFFFFFFFu) << "registration is tried again";
    EXPECT_EQ(ZOL_GetMemHandle(), handle);

    records = agent.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].logId, 0x0EA71028u) << "ZOL_LOG_SAFETY_FUNC_ERR";
    ASSERT_EQ(records[0].params.size(), 7u);
    EXPECT_EQ(records[0].Text(0), "7/9");
    EXPECT_EQ(records[0].Value(1), 3u);
    EXPECT_EQ(records[0].Tag(), "ZOL_MCF");
    EXPECT_EQ(records[0].Text(5), "memory init fail");
    unsigned ret = 0;
    EXPECT_EQ(sscanf(records[0].Formatted().c_str(), "ret:%u", &ret), 1) << records[0].Formatted();
    EXPECT_NE(ret, 0u);

    setenv("ZOL_SLOT_ID", "11", 1);
    setenv("ZOL_CPU_ID", "4", 1);
    agent.Clear();
    LogOnce("FIRST_USE", false);
    records = agent.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].Text(0), "7/9") << "the identity is never refreshed";
    EXPECT_EQ(records[0].Value(1), 3u);
}

} // namespace
} // namespace zol::test
