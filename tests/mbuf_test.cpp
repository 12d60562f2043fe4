// Message buffers through the exported API: record layout, creation, destruction, zeroing and the copy
// operations, each checked against a flat-byte model and the chain invariant (reference counts included).
#include <cstddef>

#include "zol_mbuf.h"

#include "leak_check.h"
#include "mbuf_test_model.h"

namespace zol::test {
namespace {

class MbufTest : public LeakCheckedTest {};

u32 ControlWord(const MBUF *m, u32 offset) {
    u32 w = 0;
    std::memcpy(&w, m->controlInfo + offset, sizeof w);
    return w;
}

extern "C" u32 MbufTestCHeaderFirstLength(const MBUF *m);

TEST(MbufLayout, RecordsHaveTheirFixedOffsets) {
    EXPECT_EQ(sizeof(DataBlockDescriptor), 32u);
    EXPECT_EQ(offsetof(DataBlockDescriptor, blockSize), 4u);
    EXPECT_EQ(offsetof(DataBlockDescriptor, dataLength), 6u);
    EXPECT_EQ(offsetof(DataBlockDescriptor, data), 8u);
    EXPECT_EQ(offsetof(DataBlockDescriptor, dataBlock), 16u);
    EXPECT_EQ(offsetof(DataBlockDescriptor, next), 24u);
    EXPECT_EQ(sizeof(MBUF), 376u);
    EXPECT_EQ(offsetof(MBUF, totalDataLength), 8u);
    EXPECT_EQ(offsetof(MBUF, dataBlockCount), 12u);
    EXPECT_EQ(offsetof(MBUF, reserved1), 16u);
    EXPECT_EQ(offsetof(MBUF, controlInfo), 24u);
    EXPECT_EQ(offsetof(MBUF, firstDescriptor), 344u);
    MBUF m{};
    m.firstDescriptor.dataLength = 77;
    EXPECT_EQ(MbufTestCHeaderFirstLength(&m), 77u); // C sees the same layout
}

TEST_F(MbufTest, CreateForControlPacketBoundsAndFreshState) {
    MBUF *m = MBUF_CreateForControlPacket(300, 1748, kType, kMod);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->firstDescriptor.data, m->firstDescriptor.dataBlock + 300);
    EXPECT_EQ(m->firstDescriptor.dataLength, 1748);
    EXPECT_EQ(m->firstDescriptor.blockSize, MBUF_BLOCK_SIZE);
    EXPECT_EQ(m->firstDescriptor.type, kType);
    EXPECT_EQ(m->firstDescriptor.next, nullptr);
    EXPECT_EQ(m->reserved0, 0u);
    for (u32 i = 0; i < MBUF_CONTROL_INFO_SIZE; i += 4) {
        const u32 expected = i == 276 ? 0xFFFFFFFFu : (i == 296 ? 255u : 0u);
        EXPECT_EQ(ControlWord(m, i), expected) << "control word at " << i;
    }
    ExpectSound({m});
    EXPECT_EQ(RefCount(m->firstDescriptor.dataBlock), 1u);
    EXPECT_EQ(MBUF_Destroy(m), 0u);

    EXPECT_EQ(MBUF_CreateForControlPacket(301, 0, kType, kMod), nullptr);
    EXPECT_EQ(MBUF_CreateForControlPacket(0, 1749, kType, kMod), nullptr);
    MBUF *empty = MBUF_CreateForControlPacket(40, 0, kType, kMod);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->totalDataLength, 0u);
    EXPECT_EQ(empty->dataBlockCount, 1u);
    EXPECT_EQ(empty->firstDescriptor.data - empty->firstDescriptor.dataBlock, 40);
    EXPECT_EQ(MBUF_Destroy_X(empty, 1234), 0u);
    EXPECT_EQ(MBUF_Destroy(nullptr), 1u);
    EXPECT_EQ(MBUF_Destroy_X(nullptr, 5), 1u);
}

TEST_F(MbufTest, FailedCreationLeavesNothingAllocated) {
    // The leak check of the fixture proves each failed step released what it had.
    const u32 steps = SweepAllocFailures(
        [] {
            MBUF *m = MBUF_CreateForControlPacket(10, 20, kType, kMod);
            return m != nullptr && MBUF_Destroy(m) == 0;
        },
        [](u32) {});
    EXPECT_EQ(steps, 2u);
    const Bytes src = Pattern(5000, 3);
    const u32 copySteps = SweepAllocFailures(
        [&] {
            MBUF *m = MBUF_CreateByCopyBuffer(100, 5000, src.data(), kType, kMod);
            return m != nullptr && Flat(m) == src && MBUF_Destroy(m) == 0;
        },
        [](u32) {});
    EXPECT_EQ(copySteps, 6u); // header, first block, then two more descriptors of record + block
}

TEST_F(MbufTest, DestroyDropsOneReferencePerDescriptor) {
    MBUF *m = Chain({100, 200, 300});
    const Bytes before = Flat(m);
    MBUF *copy = MBUF_ReferenceCopy(m, 50, 400, kMod);
    ASSERT_NE(copy, nullptr);
    ExpectSound({m, copy});
    EXPECT_EQ(RefCount(m->firstDescriptor.dataBlock), 2u);
    EXPECT_EQ(MBUF_Destroy(m), 0u);
    // The copy's blocks survive the source and still hold its bytes.
    ExpectSound({copy});
    EXPECT_EQ(Flat(copy), Bytes(before.begin() + 50, before.begin() + 450));
    EXPECT_EQ(MBUF_Destroy(copy), 0u);
}

TEST_F(MbufTest, AssignZeroClearsOnlyTheData) {
    MBUF *m = Chain({10, 0, 30}, 8);
    u8 *first = m->firstDescriptor.dataBlock;
    std::memset(first, 0xAB, 8); // head room
    EXPECT_EQ(MBUF_AssignZero(m), 0u);
    EXPECT_EQ(Flat(m), Bytes(40, 0));
    EXPECT_EQ(first[7], 0xAB);
    EXPECT_EQ(MBUF_AssignZero(nullptr), 1u);
    // A failing fill stops at once: the descriptors before it stay zeroed, the rest untouched.
    Fill(m, Bytes(40, 0x11));
    PLAT_FaultInject("memset_s", 2, 1);
    EXPECT_EQ(MBUF_AssignZero(m), 1u);
    PLAT_FaultClear();
    Bytes expected(40, 0x11);
    std::fill(expected.begin(), expected.begin() + 10, 0);
    EXPECT_EQ(Flat(m), expected);
    MBUF_Destroy(m);
}

TEST_F(MbufTest, ReadRangesAtDescriptorBoundaries) {
    MBUF *m = Chain({100, 0, 200, 300});
    const Bytes flat = Flat(m);
    Bytes out(600, 0);
    // Every start and length around the boundaries 100 and 300, and the end.
    for (u32 off : {0u, 1u, 99u, 100u, 101u, 299u, 300u, 301u, 599u, 600u}) {
        for (u32 len : {0u, 1u, 2u, 100u, 200u, 201u, 599u, 600u}) {
            const bool fits = off + len <= 600;
            std::fill(out.begin(), out.end(), 0);
            EXPECT_EQ(MBUF_CopyDataFromMBufToBuffer(m, off, len, out.data()), fits ? 0u : 1u) << off << "+" << len;
            if (fits) {
                EXPECT_TRUE(std::equal(out.begin(), out.begin() + len, flat.begin() + off)) << off << "+" << len;
            }
        }
    }
    EXPECT_EQ(MBUF_CopyDataFromMBufToBuffer(m, 601, 0, out.data()), 1u);
    EXPECT_EQ(MBUF_CopyDataFromMBufToBuffer(nullptr, 0, 0, out.data()), 1u);
    EXPECT_EQ(MBUF_CopyDataFromMBufToBuffer(m, 0, 0, nullptr), 1u);
    EXPECT_EQ(Flat(m), flat);
    ExpectSound({m});
    MBUF_Destroy(m);
}

TEST_F(MbufTest, WriteInsideDataNeverChangesTheChain) {
    MBUF *m = Chain({100, 200, 300});
    Bytes model = Flat(m);
    const Snapshot before = Take(m);
    const std::vector<u16> lengths = Lengths(m);
    const Bytes src = Pattern(600, 9);
    for (u32 off : {0u, 50u, 100u, 299u, 300u}) {
        const u32 len = 600 - off;
        ASSERT_EQ(MBUF_CopyDataFromBufferToMBuf(m, off, len, src.data(), kMod), 0u);
        std::copy(src.begin(), src.begin() + len, model.begin() + off);
        EXPECT_EQ(Flat(m), model);
    }
    EXPECT_EQ(Lengths(m), lengths);
    EXPECT_EQ(m->totalDataLength, before.total);
    EXPECT_EQ(m->dataBlockCount, before.count);
    EXPECT_EQ(MBUF_CopyDataFromBufferToMBuf(m, 601, 1, src.data(), kMod), 1u);
    EXPECT_EQ(MBUF_CopyDataFromBufferToMBuf(nullptr, 0, 1, src.data(), kMod), 1u);
    EXPECT_EQ(MBUF_CopyDataFromBufferToMBuf(m, 0, 1, nullptr, kMod), 1u);
    EXPECT_EQ(Flat(m), model);
    ExpectSound({m});
    MBUF_Destroy(m);
}

TEST_F(MbufTest, WritePastTheEndUsesUnsharedTailRoomThenNewBlocks) {
    MBUF *m = MBUF_CreateForControlPacket(300, 100, kType, kMod);
    Fill(m, Pattern(100, 1));
    Bytes model = Flat(m);
    const Bytes src = Pattern(5000, 2);
    ASSERT_EQ(MBUF_CopyDataFromBufferToMBuf(m, 100, 5000, src.data(), kMod), 0u);
    model.insert(model.end(), src.begin(), src.end());
    EXPECT_EQ(Flat(m), model);
    // 1648 bytes fill the tail room, the rest go to new 2048-byte blocks of the buffer's type.
    EXPECT_EQ(Lengths(m), (std::vector<u16>{1748, 2048, 1304}));
    for (const DataBlockDescriptor *d : Descriptors(m)) {
        EXPECT_EQ(d->type, kType);
        EXPECT_EQ(d->blockSize, MBUF_BLOCK_SIZE);
    }
    ExpectSound({m});
    // A write that starts inside the data and runs past the end overwrites and grows.
    ASSERT_EQ(MBUF_CopyDataFromBufferToMBuf(m, 5000, 1000, src.data(), kMod), 0u);
    model.resize(6000);
    std::copy(src.begin(), src.begin() + 1000, model.begin() + 5000);
    EXPECT_EQ(Flat(m), model);
    ExpectSound({m});
    MBUF_Destroy(m);
}

TEST_F(MbufTest, WritePastTheEndOfASharedBlockStartsANewBlock) {
    MBUF *m = MBUF_CreateForControlPacket(300, 100, kType, kMod);
    Fill(m, Pattern(100, 1));
    MBUF *ref = MBUF_ReferenceCopy(m, 0, 100, kMod);
    ASSERT_NE(ref, nullptr);
    u8 *tail = m->firstDescriptor.data + 100;
    std::memset(tail, 0x5A, 50); // the other holder's bytes in the shared tail room
    const Bytes src = Pattern(150, 4);
    ASSERT_EQ(MBUF_CopyDataFromBufferToMBuf(m, 100, 150, src.data(), kMod), 0u);
    EXPECT_EQ(Lengths(m), (std::vector<u16>{100, 150}));
    EXPECT_EQ(tail[0], 0x5A);
    EXPECT_EQ(tail[49], 0x5A);
    Bytes model = Flat(ref);
    model.insert(model.end(), src.begin(), src.end());
    EXPECT_EQ(Flat(m), model);
    ExpectSound({m, ref});
    MBUF_Destroy(ref);
    MBUF_Destroy(m);
}

// When a block cannot be appended the blocks this write added go away, the chain ends where it ended
// before (its last block filled into its tail room) and the bytes written there stay.
TEST_F(MbufTest, WriteWhoseAppendFailsKeepsTheFormerChain) {
    const Bytes src = Pattern(6000, 5);
    for (u32 k = 0; k < 6; ++k) {
        MBUF *m = Chain({100, 200}, 100);
        const Bytes old = Flat(m);
        const std::vector<u16> oldLengths = Lengths(m);
        PLAT_FaultInject("RUK_MemAlloc_F", k, 1);
        const u32 rc = MBUF_CopyDataFromBufferToMBuf(m, 250, 6000, src.data(), kMod);
        PLAT_FaultClear();
        ExpectSound({m});
        if (rc == 0) {
            EXPECT_EQ(k, 4u); // two new blocks of record + block each
            MBUF_Destroy(m);
            break;
        }
        // The former last block (200 bytes after 100 of head room) grew by its 1748 bytes of tail room.
        const u32 kept = 300 + 1748;
        EXPECT_EQ(m->totalDataLength, kept);
        EXPECT_EQ(Lengths(m), (std::vector<u16>{oldLengths[0], static_cast<u16>(200 + 1748)}));
        Bytes model(old.begin(), old.begin() + 250);
        model.insert(model.end(), src.begin(), src.begin() + (kept - 250));
        EXPECT_EQ(Flat(m), model);
        MBUF_Destroy(m);
    }
}

TEST_F(MbufTest, CreateByCopyBufferLayout) {
    const Bytes src = Pattern(3000, 6);
    MBUF *m = MBUF_CreateByCopyBuffer(100, 3000, src.data(), kType, kMod);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(Lengths(m), (std::vector<u16>{1948, 1052}));
    EXPECT_EQ(m->firstDescriptor.data, m->firstDescriptor.dataBlock + 100);
    EXPECT_EQ(m->firstDescriptor.next->data, m->firstDescriptor.next->dataBlock);
    EXPECT_EQ(m->firstDescriptor.next->type, kType);
    EXPECT_EQ(ControlWord(m, MBUF_CONTROL_WORD_B_OFFSET), 255u);
    EXPECT_EQ(Flat(m), src);
    ExpectSound({m});
    MBUF_Destroy(m);

    MBUF *full = MBUF_CreateByCopyBuffer(2048, 10, src.data(), kType, kMod);
    ASSERT_NE(full, nullptr);
    EXPECT_EQ(Lengths(full), (std::vector<u16>{0, 10}));
    EXPECT_EQ(Flat(full), Bytes(src.begin(), src.begin() + 10));
    ExpectSound({full});
    MBUF_Destroy(full);

    MBUF *empty = MBUF_CreateByCopyBuffer(64, 0, src.data(), kType, kMod);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->totalDataLength, 0u);
    EXPECT_EQ(empty->firstDescriptor.data - empty->firstDescriptor.dataBlock, 64);
    MBUF_Destroy(empty);
    EXPECT_EQ(MBUF_CreateByCopyBuffer(0, 0, nullptr, kType, kMod), nullptr);
    EXPECT_EQ(MBUF_CreateByCopyBuffer(2049, 1, src.data(), kType, kMod), nullptr);
}

TEST_F(MbufTest, RawCopyIsIndependentOfTheSourceLayout) {
    MBUF *m = Chain({100, 0, 700, 1700}, 0);
    std::memset(m->controlInfo, 0x3C, MBUF_CONTROL_INFO_SIZE);
    const Snapshot before = Take(m);
    for (u32 off : {0u, 99u, 100u, 800u, 2500u}) {
        const u32 len = 2500 - off;
        MBUF *c = MBUF_RawCopy(m, off, len, 20, kMod);
        ASSERT_NE(c, nullptr) << off;
        EXPECT_EQ(Flat(c), Bytes(before.flat.begin() + off, before.flat.end())) << off;
        EXPECT_EQ(c->firstDescriptor.data - c->firstDescriptor.dataBlock, 20);
        EXPECT_EQ(Bytes(c->controlInfo, c->controlInfo + MBUF_CONTROL_INFO_SIZE), before.control);
        EXPECT_EQ(c->dataBlockCount, len <= 2028 ? 1u : 2u);
        ExpectSound({m, c});
        MBUF_Destroy(c);
    }
    EXPECT_TRUE(Take(m) == before);
    EXPECT_EQ(MBUF_RawCopy(m, 2500, 1, 0, kMod), nullptr);
    EXPECT_EQ(MBUF_RawCopy(m, 2501, 0, 0, kMod), nullptr);
    EXPECT_EQ(MBUF_RawCopy(m, 0, 1, 500, kMod), nullptr); // refused by the creation step
    EXPECT_EQ(MBUF_RawCopy(m, 0, 1, 2049, kMod), nullptr);
    EXPECT_EQ(MBUF_RawCopy(nullptr, 0, 0, 0, kMod), nullptr);
    MBUF *c = MBUF_RawCopy(m, 10, 0, 0, kMod);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->totalDataLength, 0u);
    MBUF_Destroy(c);
    MBUF *empty = MBUF_CreateForControlPacket(0, 0, kType, kMod);
    EXPECT_EQ(MBUF_RawCopy(empty, 0, 0, 0, kMod), nullptr);
    MBUF_Destroy(empty);
    ExpectSound({m});
    MBUF_Destroy(m);
}

TEST_F(MbufTest, ReferenceCopySharesBlocks) {
    MBUF *m = Chain({100, 200, 300});
    std::memset(m->controlInfo, 0x42, MBUF_CONTROL_INFO_SIZE);
    const Snapshot before = Take(m);
    // Inside one block: one descriptor pointing into the source's block.
    MBUF *inner = MBUF_ReferenceCopy(m, 110, 50, kMod);
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(inner->dataBlockCount, 1u);
    EXPECT_EQ(inner->firstDescriptor.data, m->firstDescriptor.next->data + 10);
    EXPECT_EQ(inner->firstDescriptor.dataBlock, m->firstDescriptor.next->dataBlock);
    // Across all three blocks, starting exactly at a descriptor's end (the strict rule skips it).
    MBUF *span = MBUF_ReferenceCopy(m, 100, 500, kMod);
    ASSERT_NE(span, nullptr);
    EXPECT_EQ(Lengths(span), (std::vector<u16>{200, 300}));
    MBUF *all = MBUF_ReferenceCopy(m, 0, 600, kMod);
    ASSERT_NE(all, nullptr);
    EXPECT_EQ(Flat(all), before.flat);
    EXPECT_EQ(Bytes(all->controlInfo, all->controlInfo + MBUF_CONTROL_INFO_SIZE), before.control);
    MBUF *none = MBUF_ReferenceCopy(m, 600, 0, kMod);
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(none->totalDataLength, 0u);
    EXPECT_EQ(Bytes(none->controlInfo, none->controlInfo + MBUF_CONTROL_INFO_SIZE), before.control);
    ExpectSound({m, inner, span, all, none});
    EXPECT_TRUE(Take(m) == before);
    EXPECT_EQ(MBUF_ReferenceCopy(m, 601, 0, kMod), nullptr);
    EXPECT_EQ(MBUF_ReferenceCopy(m, 1, 600, kMod), nullptr);
    EXPECT_EQ(MBUF_ReferenceCopy(nullptr, 0, 0, kMod), nullptr);
    // Writes through one buffer show through the other.
    m->firstDescriptor.next->data[10] = 0xEE;
    EXPECT_EQ(inner->firstDescriptor.data[0], 0xEE);
    for (MBUF *b : {m, inner, span, all, none}) {
        MBUF_Destroy(b);
    }
}

TEST_F(MbufTest, FailedCopiesLeaveTheSourceAndNoReference) {
    MBUF *m = Chain({100, 200, 300, 400});
    const Snapshot before = Take(m);
    const u32 refSteps = SweepAllocFailures(
        [&] {
            MBUF *c = MBUF_ReferenceCopy(m, 50, 900, kMod);
            const bool ok = c != nullptr && Flat(c) == Bytes(before.flat.begin() + 50, before.flat.begin() + 950);
            MBUF_Destroy(c);
            return ok;
        },
        [&](u32) {
            EXPECT_TRUE(Take(m) == before);
            ExpectSound({m});
        });
    EXPECT_EQ(refSteps, 4u); // header and three records: the first descriptor lives in the header
    // A reference that cannot be taken mid-chain drops those already taken.
    for (u32 k = 0; k < 4; ++k) {
        PLAT_FaultInject("RUK_MemRefInc", k, 1);
        EXPECT_EQ(MBUF_ReferenceCopy(m, 0, 1000, kMod), nullptr);
        PLAT_FaultClear();
        ExpectSound({m});
    }
    const u32 rawSteps = SweepAllocFailures(
        [&] {
            MBUF *c = MBUF_RawCopy(m, 0, 1000, 0, kMod);
            const bool ok = c != nullptr && Flat(c) == before.flat;
            MBUF_Destroy(c);
            return ok;
        },
        [&](u32) {
            EXPECT_TRUE(Take(m) == before);
            ExpectSound({m});
        });
    EXPECT_EQ(rawSteps, 2u); // header and block: 1000 bytes fit the first block
    EXPECT_TRUE(Take(m) == before);
    MBUF_Destroy(m);
}

} // namespace
} // namespace zol::test
