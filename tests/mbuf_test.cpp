// Message buffers through the exported API: creation, destruction, zeroing, writing and the copies on their
// boundaries, against a flat-byte model and the chain invariant (reference counts included), with allocation
// failures injected at every step. Contents after arbitrary copies are the randomized sequence's job.
#include <tuple>

#include "zol_mbuf.h"

#include "leak_check.h"
#include "mbuf_test_model.h"

namespace zol::test {
namespace {

class MbufTest : public LeakCheckedTest {};

TEST_F(MbufTest, CreationBoundsFreshStateLayoutsAndFailures) {
    MBUF *m = MBUF_CreateForControlPacket(300, 1748, kType, kMod);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->firstDescriptor.data, m->firstDescriptor.dataBlock + 300);
    for (u32 i = 0; i < MBUF_CONTROL_INFO_SIZE; i += 4) {
        u32 word = 0;
        std::memcpy(&word, m->controlInfo + i, sizeof word);
        EXPECT_EQ(word, i == 276 ? 0xFFFFFFFFu : (i == 296 ? 255u : 0u)) << "control word at " << i;
    }
    ExpectSoundThenDestroy({m});
    EXPECT_EQ(MBUF_CreateForControlPacket(301, 0, kType, kMod), nullptr);
    EXPECT_EQ(MBUF_CreateForControlPacket(0, 1749, kType, kMod), nullptr);
    EXPECT_EQ(MBUF_Destroy(nullptr), 1u);
    EXPECT_EQ(MBUF_Destroy_X(nullptr, 5), 1u);
    // The leak check of the fixture proves each failed step released what it had.
    EXPECT_EQ(SweepAllocFailures([] { return MBUF_Destroy(MBUF_CreateForControlPacket(10, 20, kType, kMod)) == 0; }),
              2u);
    const Bytes src = Pattern(5000, 3);
    EXPECT_EQ(SweepAllocFailures([&] {
                  MBUF *c = MBUF_CreateByCopyBuffer(100, 5000, src.data(), kType, kMod);
                  return c != nullptr && Flat(c) == src && MBUF_Destroy(c) == 0;
              }),
              6u); // header, first block, then two more descriptors of record + block

    // Layouts of copies made from a flat buffer: head room, lengths.
    for (auto [head, len, lengths] : {std::tuple{100u, 3000u, std::vector<u16>{1948, 1052}},
                                      {2048u, 10u, std::vector<u16>{0, 10}},
                                      {64u, 0u, std::vector<u16>{0}}}) {
        MBUF *copy = MBUF_CreateByCopyBuffer(head, len, src.data(), kType, kMod);
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(Lengths(copy), lengths) << head;
        EXPECT_EQ(copy->firstDescriptor.data, copy->firstDescriptor.dataBlock + std::min(head, 2048u));
        EXPECT_EQ(Flat(copy), Bytes(src.begin(), src.begin() + len));
        ExpectSoundThenDestroy({copy});
    }
    EXPECT_EQ(MBUF_CreateByCopyBuffer(0, 0, nullptr, kType, kMod), nullptr);
    EXPECT_EQ(MBUF_CreateByCopyBuffer(2049, 1, src.data(), kType, kMod), nullptr);
}

TEST_F(MbufTest, AssignZeroClearsOnlyTheDataAndStopsAtAFailingFill) {
    MBUF *m = Chain({10, 0, 30}, 8);
    std::memset(m->firstDescriptor.dataBlock, 0xAB, 8); // head room
    EXPECT_EQ(MBUF_AssignZero(m), 0u);
    EXPECT_EQ(Flat(m), Bytes(40, 0));
    EXPECT_EQ(m->firstDescriptor.dataBlock[7], 0xAB);
    EXPECT_EQ(MBUF_AssignZero(nullptr), 1u);
    Fill(m, Bytes(40, 0x11));
    PLAT_FaultInject("memset_s", 2, 1);
    EXPECT_EQ(MBUF_AssignZero(m), 1u);
    PLAT_FaultClear();
    Bytes expected(10, 0); // the first descriptor was cleared before the fill failed
    expected.resize(40, 0x11);
    EXPECT_EQ(Flat(m), expected);
    MBUF_Destroy(m);
}

TEST_F(MbufTest, WritePastTheEndUsesUnsharedTailRoomThenNewBlocks) {
    MBUF *m = Chain({100}, 300);
    Bytes model = Flat(m);
    const Bytes src = Pattern(5000, 2);
    ASSERT_EQ(MBUF_CopyDataFromBufferToMBuf(m, 100, 5000, src.data(), kMod), 0u);
    model.insert(model.end(), src.begin(), src.end());
    EXPECT_EQ(Flat(m), model);
    // 1648 bytes fill the tail room, the rest go to new 2048-byte blocks of the buffer's type.
    EXPECT_EQ(Lengths(m), (std::vector<u16>{1748, 2048, 1304}));
    EXPECT_EQ(m->firstDescriptor.next->type, kType);
    EXPECT_EQ(MBUF_CopyDataFromBufferToMBuf(m, 5101, 1, src.data(), kMod), 1u);
    EXPECT_EQ(MBUF_CopyDataFromBufferToMBuf(m, 0, 1, nullptr, kMod), 1u);

    // The tail room of a shared block belongs to the other holder too: the write starts a new block.
    MBUF *shared = Chain({100}, 300);
    MBUF *ref = MBUF_ReferenceCopy(shared, 0, 100, kMod);
    u8 *tail = shared->firstDescriptor.data + 100;
    std::memset(tail, 0x5A, 50);
    ASSERT_EQ(MBUF_CopyDataFromBufferToMBuf(shared, 100, 150, src.data(), kMod), 0u);
    EXPECT_EQ(Lengths(shared), (std::vector<u16>{100, 150}));
    EXPECT_EQ(tail[49], 0x5A);
    ExpectSoundThenDestroy({m, shared, ref});
}

// When a block cannot be appended the blocks this write added go away, the chain ends where it ended
// before (its last block filled into its tail room) and the bytes written there stay.
TEST_F(MbufTest, WriteWhoseAppendFailsKeepsTheFormerChain) {
    const Bytes src = Pattern(6000, 5);
    for (u32 k = 0;; ++k) {
        MBUF *m = Chain({100, 200}, 100);
        Bytes model = Flat(m);
        PLAT_FaultInject("RUK_MemAlloc_F", k, 1);
        const u32 rc = MBUF_CopyDataFromBufferToMBuf(m, 250, 6000, src.data(), kMod);
        PLAT_FaultClear();
        ExpectSound({m});
        if (rc == 0) {
            EXPECT_EQ(k, 6u); // three new blocks of record + block each
            MBUF_Destroy(m);
            break;
        }
        EXPECT_EQ(Lengths(m), (std::vector<u16>{100, 200 + 1748}));
        model.resize(250);
        model.insert(model.end(), src.begin(), src.begin() + (300 + 1748 - 250));
        EXPECT_EQ(Flat(m), model);
        MBUF_Destroy(m);
    }
}

TEST_F(MbufTest, RawCopyKeepsTheControlAreaAndRefusesOutOfRange) {
    MBUF *m = Chain({100, 0, 700, 1700}, 0);
    std::memset(m->controlInfo, 0x3C, MBUF_CONTROL_INFO_SIZE);
    for (u32 off : {0u, 100u, 2490u}) { // two blocks after 20 bytes of head room, or one
        MBUF *c = MBUF_RawCopy(m, off, 2500 - off, 20, kMod);
        ASSERT_NE(c, nullptr) << off;
        EXPECT_EQ(c->firstDescriptor.data - c->firstDescriptor.dataBlock, 20);
        EXPECT_EQ(std::memcmp(c->controlInfo, m->controlInfo, MBUF_CONTROL_INFO_SIZE), 0);
        EXPECT_EQ(c->dataBlockCount, 2500 - off <= 2028 ? 1u : 2u);
        MBUF_Destroy(c);
    }
    EXPECT_EQ(MBUF_RawCopy(m, 2500, 1, 0, kMod), nullptr);
    EXPECT_EQ(MBUF_RawCopy(m, 0, 1, 500, kMod), nullptr); // refused by the creation step
    MBUF *empty = MBUF_CreateForControlPacket(0, 0, kType, kMod);
    EXPECT_EQ(MBUF_RawCopy(empty, 0, 0, 0, kMod), nullptr);
    MBUF_Destroy(empty);
    MBUF_Destroy(m);
}

TEST_F(MbufTest, ReferenceCopySharesBlocksThatOutliveTheSource) {
    MBUF *m = Chain({100, 200, 300});
    std::memset(m->controlInfo, 0x42, MBUF_CONTROL_INFO_SIZE);
    MBUF *inner = MBUF_ReferenceCopy(m, 110, 50, kMod); // one descriptor into the source's block
    MBUF *span = MBUF_ReferenceCopy(m, 100, 500, kMod); // starts exactly at a descriptor's end: skips it
    MBUF *none = MBUF_ReferenceCopy(m, 600, 0, kMod);
    ASSERT_TRUE(inner != nullptr && span != nullptr && none != nullptr);
    EXPECT_EQ(inner->firstDescriptor.data, m->firstDescriptor.next->data + 10);
    EXPECT_EQ(Lengths(span), (std::vector<u16>{200, 300}));
    EXPECT_EQ(std::memcmp(none->controlInfo, m->controlInfo, MBUF_CONTROL_INFO_SIZE), 0);
    EXPECT_EQ(MBUF_ReferenceCopy(m, 601, 0, kMod), nullptr);
    EXPECT_EQ(MBUF_ReferenceCopy(m, 1, 600, kMod), nullptr);
    m->firstDescriptor.next->data[10] = 0xEE; // writes through one buffer show through the other
    EXPECT_EQ(inner->firstDescriptor.data[0], 0xEE);
    const Bytes flat = Flat(m);
    EXPECT_EQ(MBUF_Destroy(m), 0u);
    EXPECT_EQ(Flat(span), Bytes(flat.begin() + 100, flat.end()));
    ExpectSoundThenDestroy({inner, span, none});
}

TEST_F(MbufTest, FailedCopiesLeaveTheSourceAndNoReference) {
    MBUF *m = Chain({100, 200, 300, 400});
    const Bytes flat = Flat(m);
    const auto copyMatches = [&](MBUF *c, u32 off, u32 len) {
        const bool ok = c != nullptr && Flat(c) == Bytes(flat.begin() + off, flat.begin() + off + len);
        MBUF_Destroy(c);
        return ok;
    };
    // Header and three records (the first descriptor lives in the header); header and one block.
    EXPECT_EQ(SweepAllocFailures([&] { return copyMatches(MBUF_ReferenceCopy(m, 50, 900, kMod), 50, 900); }, m), 4u);
    EXPECT_EQ(SweepAllocFailures([&] { return copyMatches(MBUF_RawCopy(m, 0, 1000, 0, kMod), 0, 1000); }, m), 2u);
    // A reference that cannot be taken mid-chain drops those already taken.
    for (u32 k = 0; k < 4; ++k) {
        PLAT_FaultInject("RUK_MemRefInc", k, 1);
        EXPECT_EQ(MBUF_ReferenceCopy(m, 0, 1000, kMod), nullptr);
        PLAT_FaultClear();
        ExpectSound({m});
    }
    MBUF_Destroy(m);
}

} // namespace
} // namespace zol::test
