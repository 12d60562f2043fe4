// Stand-in information-model agent: every sent object is one strict JSON line, also under concurrency.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "im_agent.h"
#include "standin_ctl.h"

namespace {

// Strictly reads {"logId":N,"params":[V,...]} where V is a JSON string or a u32, into the logId and the
// parameters, numbers as their decimal text prefixed with '#'. False on anything else (a torn line).
bool ParseLine(const std::string &s, u32 *logId, std::vector<std::string> *params) {
    size_t pos = 0;
    auto lit = [&](const char *l) { return s.compare(pos, strlen(l), l) == 0 ? (pos += strlen(l), true) : false; };
    auto number = [&](std::string *out) {
        size_t end = s.find_first_not_of("0123456789", pos);
        end = end == std::string::npos ? s.size() : end;
        if (end == pos || end - pos > 10 || (s[pos] == '0' && end - pos > 1) || std::stoull(s.substr(pos)) > ~0u) {
            return false;
        }
        *out = s.substr(pos, end - pos);
        pos = end;
        return true;
    };
    auto text = [&](std::string *out) {
        for (++pos; pos < s.size() && s[pos] != '"'; ++pos) {
            if (static_cast<unsigned char>(s[pos]) < 0x20 || (s[pos] == '\\' && !strchr("\"\\u", s[pos + 1]))) {
                return false;
            }
            if (s.compare(pos, 2, "\\u") == 0) {
                *out += static_cast<char>(std::stoi(s.substr(pos + 2, 4), nullptr, 16));
                pos += 5;
            } else {
                pos += s[pos] == '\\' ? 1 : 0;
                *out += s[pos];
            }
        }
        return pos++ < s.size();
    };
    std::string id;
    if (!lit("{\"logId\":") || !number(&id) || !lit(",\"params\":[")) {
        return false;
    }
    *logId = static_cast<u32>(std::stoul(id));
    while (pos < s.size() && s[pos] != ']') {
        std::string value, digits;
        if ((!params->empty() && !lit(",")) || !(s[pos] == '"' ? text(&value) : number(&digits))) {
            return false;
        }
        params->push_back(digits.empty() ? value : "#" + digits);
    }
    return lit("]}") && pos == s.size();
}

struct Record {
    u32 logId = 0;
    std::vector<std::string> params;
};

class ImAgent : public ::testing::Test {
  protected:
    void SetUp() override {
        path_ = testing::TempDir() + "imagent_" + std::to_string(getpid()) + ".jsonl";
        std::remove(path_.c_str());
        setenv("ZOL_IMAGENT_FILE", path_.c_str(), 1);
    }
    void TearDown() override {
        PLAT_FaultClear();
        std::remove(path_.c_str());
    }
    std::vector<Record> ReadAll() {
        std::vector<Record> records;
        std::ifstream in(path_);
        for (std::string line; std::getline(in, line);) {
            records.emplace_back();
            EXPECT_TRUE(ParseLine(line, &records.back().logId, &records.back().params)) << "bad line: " << line;
        }
        return records;
    }
    std::string path_;
};

u32 SendRecord(u32 logId, const std::string &text, u32 number) {
    void *h = IM_Agent_GetHandle();
    void *obj = nullptr;
    u32 rc = IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, logId, &obj, h);
    if (rc != RUK_OK) {
        return rc;
    }
    if ((rc = IM_Agent_AddPara(obj, IM_AGENT_PARA_U32, 4, &number, h)) != RUK_OK ||
        (rc = IM_Agent_AddPara(obj, IM_AGENT_PARA_TEXT, static_cast<u32>(text.size()), text.data(), h)) != RUK_OK) {
        IM_Agent_ObjFree(obj, h);
        return rc;
    }
    return IM_Agent_Send(obj, h);
}

TEST_F(ImAgent, ParametersInOrderWithEscapingAndFailuresWriteNothing) {
    const std::string tricky("q\"b\\s\n\t\x01\x1f end\xc3\xa9\0z", 17);
    ASSERT_EQ(RUK_OK, SendRecord(42, tricky, 4294967295u));
    void *h = IM_Agent_GetHandle();
    void *obj = nullptr;
    ASSERT_EQ(RUK_OK, IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, 7, &obj, h));
    ASSERT_EQ(RUK_OK, IM_Agent_Send(obj, h)); // no parameters
    const u32 value = 5;
    ASSERT_EQ(RUK_OK, IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, 1, &obj, h));
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_AddPara(obj, IM_AGENT_PARA_U32, 2, &value, h));
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_AddPara(obj, IM_AGENT_PARA_TEXT, 3, nullptr, h));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("IM_Agent_AddPara", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, IM_Agent_AddPara(obj, IM_AGENT_PARA_U32, 4, &value, h));
    EXPECT_EQ(RUK_OK, IM_Agent_ObjFree(obj, h)); // discarded: nothing written
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("IM_Agent_ObjCreate", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, SendRecord(2, "lost", 1));
    // A failed send still takes the object over (ASan would report it lost otherwise).
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("IM_Agent_Send", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, SendRecord(3, "lost", 1));
    setenv("ZOL_IMAGENT_FILE", "/nonexistent-dir/x.jsonl", 1);
    EXPECT_EQ(RUK_ERR_SYSTEM, SendRecord(4, "lost", 1));
    setenv("ZOL_IMAGENT_FILE", path_.c_str(), 1);

    const auto records = ReadAll();
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ(42u, records[0].logId);
    EXPECT_EQ(records[0].params, (std::vector<std::string>{"#4294967295", tricky}));
    EXPECT_EQ(7u, records[1].logId);
    EXPECT_TRUE(records[1].params.empty());
}

TEST_F(ImAgent, ConcurrentSendersWriteWholeLines) {
    constexpr u32 kThreads = 8, kPerThread = 150;
    auto text = [](u32 t) { return std::string(1000 + t * 500, static_cast<char>('a' + t)); };
    std::vector<std::thread> threads;
    for (u32 t = 0; t < kThreads; ++t) {
        // Long texts make a torn or interleaved line very likely if writes were split.
        threads.emplace_back([t, &text] {
            for (u32 i = 0; i < kPerThread; ++i) {
                EXPECT_EQ(RUK_OK, SendRecord(t, text(t), i));
            }
        });
    }
    for (auto &th : threads) {
        th.join();
    }
    const auto records = ReadAll();
    ASSERT_EQ(kThreads * kPerThread, records.size());
    std::vector<u32> next(kThreads, 0); // each thread's sequence numbers arrive in order
    for (const auto &rec : records) {
        ASSERT_LT(rec.logId, kThreads);
        EXPECT_EQ(rec.params, (std::vector<std::string>{"#" + std::to_string(next[rec.logId]++), text(rec.logId)}));
    }
}

} // namespace
