// Stand-in information-model agent: every sent object is one JSON line, also under concurrency.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "im_agent.h"
#include "standin_ctl.h"

#include "imagent_reader.h"

namespace {

using ImParam = decltype(zol::test::ImRecord::params)::value_type;

u32 SendRecord(u32 logId, const std::string &text, u32 number) {
    void *h = IM_Agent_GetHandle();
    void *obj = nullptr;
    u32 rc = IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, logId, &obj, h);
    if (rc == RUK_OK &&
        ((rc = IM_Agent_AddPara(obj, IM_AGENT_PARA_U32, 4, &number, h)) != RUK_OK ||
         (rc = IM_Agent_AddPara(obj, IM_AGENT_PARA_TEXT, static_cast<u32>(text.size()), text.data(), h)) != RUK_OK)) {
        IM_Agent_ObjFree(obj, h);
    }
    return rc == RUK_OK ? IM_Agent_Send(obj, h) : rc;
}

TEST(ImAgent, ParametersInOrderWithEscapingAndFailuresWriteNothing) {
    zol::test::ImAgentCapture capture;
    const std::string path = std::getenv("ZOL_IMAGENT_FILE");
    const std::string tricky("q\"b\\s\n\t\x01\x1f end\xc3\xa9\0z", 17);
    ASSERT_EQ(RUK_OK, SendRecord(42, tricky, 4294967295u));
    void *h = IM_Agent_GetHandle(), *obj = nullptr;
    ASSERT_EQ(RUK_OK, IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, 7, &obj, h));
    ASSERT_EQ(RUK_OK, IM_Agent_Send(obj, h)); // no parameters
    const u32 value = 5;
    ASSERT_EQ(RUK_OK, IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, 1, &obj, h));
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_AddPara(obj, IM_AGENT_PARA_U32, 2, &value, h));
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_AddPara(obj, IM_AGENT_PARA_TEXT, 3, nullptr, h));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("IM_Agent_AddPara", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, IM_Agent_AddPara(obj, IM_AGENT_PARA_U32, 4, &value, h));
    EXPECT_EQ(RUK_OK, IM_Agent_ObjFree(obj, h)); // discarded: nothing written
    // Failed creation and send (which still takes the object over, or ASan would report it lost), and a
    // file that cannot be opened.
    for (const char *call : {"IM_Agent_ObjCreate", "IM_Agent_Send"}) {
        ASSERT_EQ(RUK_OK, PLAT_FaultInject(call, 0, 1));
        EXPECT_EQ(RUK_ERR_INJECTED, SendRecord(2, "lost", 1)) << call;
    }
    setenv("ZOL_IMAGENT_FILE", "/nonexistent-dir/x.jsonl", 1);
    EXPECT_EQ(RUK_ERR_SYSTEM, SendRecord(4, "lost", 1));
    setenv("ZOL_IMAGENT_FILE", path.c_str(), 1);

    const auto records = capture.Records();
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ(42u, records[0].logId);
    EXPECT_EQ(records[0].params, (std::vector<ImParam>{4294967295u, tricky}));
    EXPECT_TRUE(records[1].logId == 7u && records[1].params.empty());
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) { // control bytes only escaped, as JSON requires
        EXPECT_TRUE(std::none_of(line.begin(), line.end(), [](char c) { return c >= 0 && c < 0x20; })) << line;
    }
}

TEST(ImAgent, ConcurrentSendersWriteWholeLines) {
    zol::test::ImAgentCapture capture;
    constexpr u32 kThreads = 8, kPerThread = 150;
    auto text = [](u32 t) { return std::string(1000 + t * 500, static_cast<char>('a' + t)); };
    std::vector<std::thread> threads;
    for (u32 t = 0; t < kThreads; ++t) {
        // Long texts make a torn or interleaved line very likely if writes were split.
        threads.emplace_back([t, &text] {
            for (u32 i = 0; i < kPerThread; ++i)
                EXPECT_EQ(RUK_OK, SendRecord(t, text(t), i));
        });
    }
    for (auto &th : threads)
        th.join();
    const auto records = capture.Records(); // a line that does not parse fails the test
    ASSERT_EQ(kThreads * kPerThread, records.size());
    std::vector<u32> next(kThreads, 0); // each thread's sequence numbers arrive in order
    for (const auto &rec : records) {
        ASSERT_LT(rec.logId, kThreads);
        EXPECT_EQ(rec.params, (std::vector<ImParam>{next[rec.logId]++, text(rec.logId)}));
    }
}

} // namespace
