// What the first calls of a process set up once: the memory handle "zol_mem" (retried after a failed
// registration) and the reporter identity (from the device queries, never refreshed). Each program run
// is a fresh process, so this file holds a single test.
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "zol_foundation.h"

#include "standin_ctl.h"

#include "imagent_reader.h"

namespace zol::test {
namespace {

void LogOnce(const char *tag) {
    const char *const texts[] = {tag, "message"};
    ZOL_LogPoint point{0x1C, 2, 29, 0};
    ZOL_WriteLog(&point, tag, texts, 2, "first use");
}

TEST(FirstUseTest, MemoryHandleAndIdentityAreSetUpOnceByTheFirstCalls) {
    setenv("ZOL_CHASSIS_ID", "7", 1);
    setenv("ZOL_SLOT_ID", "9", 1);
    setenv("ZOL_CPU_ID", "3", 1);
    ImAgentCapture agent;

    ASSERT_EQ(PLAT_FaultInject("RUK_HandleInitialize", 0, 1), 0u);
    EXPECT_EQ(ZOL_GetMemHandle(), 0xFFFFFFFFu) << "registration failed";
    u32 handle = ZOL_GetMemHandle();
    EXPECT_NE(handle, 0xFFFFFFFFu) << "registration is tried again";
    EXPECT_EQ(ZOL_GetMemHandle(), handle);

    std::vector<ImRecord> records = agent.Records();
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
    LogOnce("FIRST_USE");
    records = agent.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].Text(0), "7/9") << "the identity is never refreshed";
    EXPECT_EQ(records[0].Value(1), 3u);
}

} // namespace
} // namespace zol::test
