// The failures of the message-buffer operations are reported as error records with the operation's tag and
// its fixed message, read back from the information-model agent's output file.
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <unistd.h>

#include "zol_mbuf.h"

#include "leak_check.h"
#include "mbuf_test_model.h"

namespace zol::test {
namespace {

constexpr const char *kMbufLogId = "\"logId\":245829651,"; // ZOL_LOG_MBUF_PROCESS_ERR, 0x0EA71013

struct LogCase {
    const char *tag;
    const char *message;
    std::function<void()> trigger;
};

class MbufLogTest : public LeakCheckedTest {
  protected:
    void SetUp() override {
        LeakCheckedTest::SetUp();
        path_ = "/tmp/zol_mbuf_log_test_" + std::to_string(getpid()) + ".jsonl";
        setenv("ZOL_IMAGENT_FILE", path_.c_str(), 1);
    }
    void TearDown() override {
        std::remove(path_.c_str());
        LeakCheckedTest::TearDown();
    }

    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        std::ifstream in(path_);
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    // Runs cases of distinct tags after the repetition filter's 500 ms have passed for every tag, then
    // expects one record per case, in order.
    void ExpectLogged(const std::vector<const LogCase *> &batch) {
        std::this_thread::sleep_for(std::chrono::milliseconds(520));
        const size_t start = Lines().size();
        for (const LogCase *c : batch) {
            c->trigger();
            PLAT_FaultClear();
        }
        const std::vector<std::string> lines = Lines();
        size_t at = start;
        for (const LogCase *c : batch) {
            const std::string tag = std::string("\"") + c->tag + "\",";
            const std::string tail = std::string(c->message) + "\"]}";
            while (at < lines.size() && !(lines[at].find(kMbufLogId) != std::string::npos &&
                                          lines[at].find(tag) != std::string::npos && lines[at].size() >= tail.size() &&
                                          lines[at].compare(lines[at].size() - tail.size(), tail.size(), tail) == 0)) {
                ++at;
            }
            EXPECT_LT(at, lines.size()) << c->tag << ": " << c->message;
            at = std::min(at, lines.size());
        }
    }

    std::string path_;
};

void Inject(const char *call, u32 skip) {
    PLAT_FaultInject(call, skip, 1);
}

TEST_F(MbufLogTest, EachFailureIsReportedWithItsTagAndMessage) {
    MBUF *m = Chain({100, 200});
    MBUF *empty = MBUF_CreateForControlPacket(0, 0, kType, kMod);
    MBUF *large = Chain({1500, 1500});
    u8 buf[4096] = {};
    const u32 big = 3000;
    // Cases of one tag go to successive batches; within a batch every tag appears at most once.
    const std::vector<LogCase> cases = {
        {"MBUF_CFCP", "Space greater than block!", [] { MBUF_CreateForControlPacket(301, 0, kType, kMod); }},
        {"MBUF_CFCP", "MBuf is null!",
         [] {
             Inject("RUK_MemAlloc_F", 0);
             MBUF_CreateForControlPacket(0, 0, 1, kMod);
         }},
        {"MBUF_CFCP", "Data block is null!",
         [] {
             Inject("RUK_MemAlloc_F", 1);
             MBUF_CreateForControlPacket(0, 0, 1, kMod);
         }},
        {"MBUF_DX", "MBuf is null!", [] { MBUF_Destroy(nullptr); }},
        {"MBUF_AZ", "MBuf is null!", [] { MBUF_AssignZero(nullptr); }},
        {"MBUF_AZ", "memset_s fail!",
         [&] {
             Inject("memset_s", 0);
             MBUF_AssignZero(m);
         }},
        {"MBUF_CDFMBTB", "fail is 1!", [&] { MBUF_CopyDataFromMBufToBuffer(m, 0, 1, nullptr); }},
        {"MBUF_CDFMBTB", "Offset is greater than total data length!",
         [&] { MBUF_CopyDataFromMBufToBuffer(m, 301, 0, buf); }},
        {"MBUF_CDFMBTB", "Input Length is greater than the difference between totalDataLength and offset!",
         [&] { MBUF_CopyDataFromMBufToBuffer(m, 300, 1, buf); }},
        {"MBUF_CDFMBTB", "memmove_s fail!",
         [&] {
             Inject("memmove_s", 0);
             MBUF_CopyDataFromMBufToBuffer(m, 0, 9, buf);
         }},
        {"MBUF_CDFBTM", "MBuf or buffer is null!", [&] { MBUF_CopyDataFromBufferToMBuf(m, 0, 1, nullptr, kMod); }},
        {"MBUF_CDFBTM", "Offset is greater than total data length!",
         [&] { MBUF_CopyDataFromBufferToMBuf(m, 301, 1, buf, kMod); }},
        {"MBUF_CDFBTM", "fail is 1!",
         [&] {
             Inject("memmove_s", 0);
             MBUF_CopyDataFromBufferToMBuf(m, 0, 9, buf, kMod);
         }},
        {"MBUF_CBCB", "Buffer is null!", [] { MBUF_CreateByCopyBuffer(0, 0, nullptr, kType, kMod); }},
        {"MBUF_CBCB", "Reserve head space is greater than blockSize!",
         [&] { MBUF_CreateByCopyBuffer(2049, 0, buf, kType, kMod); }},
        {"MBUF_CBCB", "MBuf is null!",
         [&] {
             Inject("RUK_MemAlloc_F", 0);
             MBUF_CreateByCopyBuffer(0, 1, buf, 1, kMod);
         }},
        {"MBUF_CBCB", "Data block descriptor data block is null!",
         [&] {
             Inject("RUK_MemAlloc_F", 1);
             MBUF_CreateByCopyBuffer(0, 1, buf, 1, kMod);
         }},
        {"MBUF_RCY", "MBuf is null!", [] { MBUF_RawCopy(nullptr, 0, 0, 0, kMod); }},
        {"MBUF_RCY", "Total data length is 0!", [&] { MBUF_RawCopy(empty, 0, 0, 0, kMod); }},
        {"MBUF_RCY", "Offset is greater than totalDataLength!", [&] { MBUF_RawCopy(m, 301, 0, 0, kMod); }},
        {"MBUF_RCY", "Input Length is greater than the difference between totalDataLength and offset!",
         [&] { MBUF_RawCopy(m, 1, 300, 0, kMod); }},
        {"MBUF_RCY", "Reserve head space is greater than blockSize!", [&] { MBUF_RawCopy(m, 0, 1, 2049, kMod); }},
        {"MBUF_RCY", "memmove_s fail!",
         [&] {
             Inject("memmove_s", 0);
             MBUF_RawCopy(m, 0, 1, 0, kMod);
         }},
        {"MBUF_CTE", "Destination MBuf or source MBuf is null!", [&] { MBUF_Concatenate(m, nullptr, kMod); }},
        {"MBUF_CTE", "Data block descriptor temp is null!",
         [&] {
             Inject("RUK_MemAlloc_F", 0);
             MBUF_Concatenate(m, empty, kMod);
         }},
        {"MBUF_CP", "MBuf is null!", [] { MBUF_CutPart(nullptr, 0, 0); }},
        {"MBUF_CP", "Offset is greater than totalDataLength!", [&] { MBUF_CutPart(m, 301, 0); }},
        {"MBUF_CP", "Input Length is greater than the difference between totalDataLength and offset!",
         [&] { MBUF_CutPart(m, 1, 300); }},
        {"MBUF_CP", "memmove_s fail!",
         [&] {
             Inject("memmove_s", 0);
             MBUF_CutPart(m, 1, 1);
         }},
        {"MBUF_CT", "MBuf fail!", [] { MBUF_CutTail(nullptr, 0); }},
        {"MBUF_CT", "Input Length is greater than totalDataLength!", [&] { MBUF_CutTail(m, 301); }},
        {"MBUF_CAFH", "MBuf is null!", [] { MBUF_CutAndFreeHead(nullptr, 0); }},
        {"MBUF_CAFH", "Input Length is greater than totalDataLength!", [&] { MBUF_CutAndFreeHead(m, 301); }},
        {"MBUF_PU", "pstMBuf is null!", [] { MBUF_PullUp(nullptr, 0, kMod); }},
        {"MBUF_PU", "Input Length is greater than totalDataLength or blockSize!", [&] { MBUF_PullUp(m, 301, kMod); }},
        {"MBUF_PU", "pstDataBlockDescriptor is null!",
         [&] {
             Inject("RUK_MemAlloc_F", 0);
             MBUF_PullUp(m, 1, kMod);
         }},
        {"MBUF_AMS", "pstMBuf is null!", [] { MBUF_AppendMemorySpace(nullptr, 0, kMod); }},
        {"MBUF_AMS", "Input length is greater than blockSize!", [&] { MBUF_AppendMemorySpace(m, 2049, kMod); }},
    };
    // Failures that also make a nested operation log under another tag run alone.
    const std::vector<LogCase> alone = {
        {"MBUF_CDFBTM", "Next data block descriptor is null!",
         [&] {
             Inject("RUK_MemAlloc_F", 0);
             MBUF_CopyDataFromBufferToMBuf(empty, 0, big, buf, kMod);
         }},
        {"MBUF_CBCB", "Mbuf copy data from buffer to Mbuf fail!",
         [&] {
             Inject("RUK_MemAlloc_F", 2);
             MBUF_CreateByCopyBuffer(0, big, buf, kType, kMod);
         }},
        {"MBUF_RCY", "MBufCopy is null!", [&] { MBUF_RawCopy(m, 0, 1, 500, kMod); }},
        {"MBUF_RCY", "Copy data from buffer to mbuf fail!",
         [&] {
             Inject("RUK_MemAlloc_F", 2);
             MBUF_RawCopy(large, 0, big, 0, kMod);
         }},
        {"MBUF_PU", "Copy data from MBuf to buffer fail!",
         [&] {
             Inject("memmove_s", 0);
             MBUF_PullUp(m, 1, kMod);
         }},
    };
    std::map<std::string, size_t> seen;
    std::vector<std::vector<const LogCase *>> batches;
    for (const LogCase &c : cases) {
        const size_t b = seen[c.tag]++;
        batches.resize(std::max(batches.size(), b + 1));
        batches[b].push_back(&c);
    }
    for (const auto &batch : batches) {
        ExpectLogged(batch);
    }
    for (const LogCase &c : alone) {
        ExpectLogged({&c});
    }
    ExpectSound({m, empty, large});
    MBUF_Destroy(large);
    MBUF_Destroy(empty);
    MBUF_Destroy(m);
}

} // namespace
} // namespace zol::test
