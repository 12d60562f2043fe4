// Failures of the message-buffer operations are reported as error records carrying the operation's tag
// and its fixed message: a representative case per kind of failure (bad argument, bounds, allocation,
// platform call), one per tag so that the repetition filter never hides one.
#include <functional>

#include "zol_mbuf.h"

#include "imagent_reader.h"
#include "leak_check.h"
#include "mbuf_test_model.h"

namespace zol::test {
namespace {

class MbufLogTest : public LeakCheckedTest {};

TEST_F(MbufLogTest, FailuresAreReportedWithTheirTagAndMessage) {
    ImAgentCapture agent;
    MBUF *m = Chain({100, 200});
    u8 buf[64] = {};
    struct Case {
        const char *tag;
        const char *message;
        std::function<void()> trigger;
    };
    const Case cases[] = {
        {"MBUF_CFCP", "Space greater than block!", [] { MBUF_CreateForControlPacket(301, 0, kType, kMod); }},
        {"MBUF_DX", "MBuf is null!", [] { MBUF_Destroy(nullptr); }},
        {"MBUF_CDFMBTB", "Input Length is greater than the difference between totalDataLength and offset!",
         [&] { MBUF_CopyDataFromMBufToBuffer(m, 300, 1, buf); }},
        {"MBUF_CBCB", "Data block descriptor data block is null!",
         [&] {
             PLAT_FaultInject("RUK_MemAlloc_F", 1, 1);
             MBUF_CreateByCopyBuffer(0, 1, buf, 1, kMod);
         }},
        {"MBUF_CP", "memmove_s fail!",
         [&] {
             PLAT_FaultInject("memmove_s", 0, 1);
             MBUF_CutPart(m, 1, 1);
         }},
    };
    for (const Case &c : cases) {
        agent.Clear();
        c.trigger();
        PLAT_FaultClear();
        const std::vector<ImRecord> records = agent.WithTag(c.tag);
        ASSERT_EQ(records.size(), 1u) << c.tag;
        EXPECT_EQ(records[0].logId, 0x0EA71013u) << "ZOL_LOG_MBUF_PROCESS_ERR";
        EXPECT_EQ(records[0].Formatted(), c.message) << c.tag;
    }
    ExpectSoundThenDestroy({m});
}

} // namespace
} // namespace zol::test
