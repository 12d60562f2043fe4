// Stand-in information-model agent: every sent object is one strict JSON line, also under concurrency.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <variant>
#include <vector>

#include "im_agent.h"
#include "standin_ctl.h"

namespace {

using Param = std::variant<std::string, u32>;
struct Record {
    u32 logId = 0;
    std::vector<Param> params;
};

// A strict reader of exactly the shape the agent writes: {"logId":N,"params":[V,...]} where V is a
// JSON string or a non-negative integer. Anything else (including a torn line) fails the parse.
class LineParser {
  public:
    explicit LineParser(const std::string &line) : s_(line) {}

    bool Parse(Record *rec) {
        if (!Lit("{\"logId\":") || !Number(&rec->logId) || !Lit(",\"params\":[")) {
            return false;
        }
        while (pos_ < s_.size() && s_[pos_] != ']') {
            if (!rec->params.empty() && !Lit(",")) {
                return false;
            }
            if (pos_ < s_.size() && s_[pos_] == '"') {
                std::string text;
                if (!String(&text)) {
                    return false;
                }
                rec->params.emplace_back(text);
            } else {
                u32 value = 0;
                if (!Number(&value)) {
                    return false;
                }
                rec->params.emplace_back(value);
            }
        }
        return Lit("]}") && pos_ == s_.size();
    }

  private:
    bool Lit(const char *lit) {
        const std::string l(lit);
        if (s_.compare(pos_, l.size(), l) != 0) {
            return false;
        }
        pos_ += l.size();
        return true;
    }
    bool Number(u32 *out) {
        const size_t start = pos_;
        unsigned long long v = 0;
        while (pos_ < s_.size() && s_[pos_] >= '0' && s_[pos_] <= '9' && pos_ - start < 11) {
            v = v * 10 + static_cast<unsigned>(s_[pos_++] - '0');
        }
        *out = static_cast<u32>(v);
        return pos_ > start && v <= 0xFFFFFFFFull && (s_[start] != '0' || pos_ - start == 1);
    }
    bool String(std::string *out) {
        ++pos_; // opening quote
        while (pos_ < s_.size()) {
            const unsigned char ch = static_cast<unsigned char>(s_[pos_++]);
            if (ch == '"') {
                return true;
            }
            if (ch < 0x20) {
                return false; // raw control characters are not allowed in JSON strings
            }
            if (ch != '\\') {
                *out += static_cast<char>(ch);
            } else if (pos_ < s_.size() && (s_[pos_] == '"' || s_[pos_] == '\\')) {
                *out += s_[pos_++];
            } else if (s_.compare(pos_, 3, "u00") == 0 && pos_ + 5 <= s_.size()) {
                *out += static_cast<char>(std::stoi(s_.substr(pos_ + 1, 4), nullptr, 16));
                pos_ += 5;
            } else {
                return false;
            }
        }
        return false;
    }
    const std::string &s_;
    size_t pos_ = 0;
};

class ImAgent : public ::testing::Test {
  protected:
    void SetUp() override {
        PLAT_FaultClear();
        path_ = testing::TempDir() + "imagent_" + std::to_string(getpid()) + ".jsonl";
        std::remove(path_.c_str());
        setenv("ZOL_IMAGENT_FILE", path_.c_str(), 1);
    }
    void TearDown() override {
        PLAT_FaultClear();
        std::remove(path_.c_str());
        unsetenv("ZOL_IMAGENT_FILE");
    }
    std::vector<Record> ReadAll() {
        std::vector<Record> records;
        std::ifstream in(path_);
        std::string line;
        while (std::getline(in, line)) {
            Record rec;
            EXPECT_TRUE(LineParser(line).Parse(&rec)) << "bad line: " << line;
            records.push_back(rec);
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

TEST_F(ImAgent, ParametersInOrderWithEscaping) {
    const std::string tricky("q\"b\\s\n\t\x01\x1f end\xc3\xa9");
    ASSERT_EQ(RUK_OK, SendRecord(42, tricky, 4294967295u));
    void *h = IM_Agent_GetHandle();
    void *obj = nullptr;
    ASSERT_EQ(RUK_OK, IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, 7, &obj, h));
    ASSERT_EQ(RUK_OK, IM_Agent_Send(obj, h)); // no parameters
    ASSERT_EQ(RUK_OK, IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, 8, &obj, h));
    const char embedded[3] = {'a', '\0', 'b'}; // a text with its length may hold a NUL
    ASSERT_EQ(RUK_OK, IM_Agent_AddPara(obj, IM_AGENT_PARA_TEXT, 3, embedded, h));
    ASSERT_EQ(RUK_OK, IM_Agent_AddPara(obj, IM_AGENT_PARA_TEXT, 0, nullptr, h));
    ASSERT_EQ(RUK_OK, IM_Agent_Send(obj, h));

    const auto records = ReadAll();
    ASSERT_EQ(3u, records.size());
    EXPECT_EQ(42u, records[0].logId);
    ASSERT_EQ(2u, records[0].params.size());
    EXPECT_EQ(Param(4294967295u), records[0].params[0]);
    EXPECT_EQ(Param(tricky), records[0].params[1]);
    EXPECT_EQ(7u, records[1].logId);
    EXPECT_TRUE(records[1].params.empty());
    ASSERT_EQ(2u, records[2].params.size());
    EXPECT_EQ(Param(std::string(embedded, 3)), records[2].params[0]);
    EXPECT_EQ(Param(std::string()), records[2].params[1]);
}

TEST_F(ImAgent, RefusalsObjFreeAndInjectedFailures) {
    void *h = IM_Agent_GetHandle();
    ASSERT_NE(nullptr, h);
    void *obj = nullptr;
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, 1, nullptr, h));
    ASSERT_EQ(RUK_OK, IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, 1, &obj, h));
    const u32 value = 5;
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_AddPara(obj, IM_AGENT_PARA_U32, 2, &value, h));
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_AddPara(obj, IM_AGENT_PARA_U32, 4, nullptr, h));
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_AddPara(obj, 77, 4, &value, h));
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_AddPara(obj, IM_AGENT_PARA_TEXT, 3, nullptr, h));
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_AddPara(nullptr, IM_AGENT_PARA_U32, 4, &value, h));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("IM_Agent_AddPara", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, IM_Agent_AddPara(obj, IM_AGENT_PARA_U32, 4, &value, h));
    EXPECT_EQ(RUK_OK, IM_Agent_ObjFree(obj, h)); // discarded: nothing written
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_ObjFree(nullptr, h));
    EXPECT_EQ(RUK_ERR_PARAM, IM_Agent_Send(nullptr, h));

    ASSERT_EQ(RUK_OK, PLAT_FaultInject("IM_Agent_ObjCreate", 0, 1));
    obj = nullptr;
    EXPECT_EQ(RUK_ERR_INJECTED, IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, 1, &obj, h));
    EXPECT_EQ(nullptr, obj);
    // A failed send still takes the object over (ASan would report it lost otherwise).
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("IM_Agent_Send", 0, 1));
    EXPECT_EQ(RUK_ERR_INJECTED, SendRecord(2, "lost", 1));
    setenv("ZOL_IMAGENT_FILE", "/nonexistent-dir/x.jsonl", 1);
    EXPECT_EQ(RUK_ERR_SYSTEM, SendRecord(3, "lost", 1));
    setenv("ZOL_IMAGENT_FILE", path_.c_str(), 1);
    EXPECT_EQ(RUK_OK, SendRecord(4, "kept", 1));

    const auto records = ReadAll();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(4u, records[0].logId);
}

TEST_F(ImAgent, ConcurrentSendersWriteWholeLines) {
    constexpr u32 kThreads = 8;
    constexpr u32 kPerThread = 150;
    std::vector<std::thread> threads;
    for (u32 t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            // Long texts make a torn or interleaved line very likely if writes were split.
            const std::string text(1000 + t * 500, static_cast<char>('a' + t));
            for (u32 i = 0; i < kPerThread; ++i) {
                EXPECT_EQ(RUK_OK, SendRecord(t, text, i));
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
        ASSERT_EQ(2u, rec.params.size());
        EXPECT_EQ(Param(next[rec.logId]++), rec.params[0]);
        EXPECT_EQ(Param(std::string(1000 + rec.logId * 500, static_cast<char>('a' + rec.logId))), rec.params[1]);
    }
}

} // namespace
