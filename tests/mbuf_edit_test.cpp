// Message buffers through the exported API: cutting, joining, splitting, pull-up, compression, append and
// prepend, on their boundaries, against a flat-byte model, with allocation failures at every step.
#include "zol_mbuf.h"

#include "leak_check.h"
#include "mbuf_test_model.h"

namespace zol::test {
namespace {

class MbufEditTest : public LeakCheckedTest {};

const DataBlockDescriptor *LastOf(const MBUF *m) {
    return Descriptors(m).back();
}

Bytes Cut(const Bytes &b, size_t off, size_t len) {
    Bytes out(b.begin(), b.begin() + off);
    out.insert(out.end(), b.begin() + off + len, b.end());
    return out;
}

TEST_F(MbufEditTest, CutPartInsideAndAcrossBlocks) {
    MBUF *m = Chain({100});
    Bytes model = Flat(m);
    ASSERT_EQ(MBUF_CutPart(m, 5, 10), 0u);
    model = Cut(model, 5, 10);
    EXPECT_EQ(Flat(m), model);
    EXPECT_EQ(m->totalDataLength, 90u);
    MBUF_Destroy(m);

    // Every cut around the boundaries of a chain with an empty descriptor in it.
    for (u32 off : {0u, 1u, 99u, 100u, 150u, 300u, 599u, 600u}) {
        for (u32 len : {0u, 1u, 100u, 200u, 201u, 500u, 600u}) {
            MBUF *c = Chain({100, 0, 200, 300});
            const Bytes flat = Flat(c);
            const u32 count = c->dataBlockCount;
            const bool fits = off + len <= 600;
            ASSERT_EQ(MBUF_CutPart(c, off, len), fits ? 0u : 1u) << off << "+" << len;
            EXPECT_EQ(Flat(c), fits ? Cut(flat, off, len) : flat) << off << "+" << len;
            EXPECT_EQ(c->dataBlockCount, count); // nothing released
            ExpectSound({c});
            MBUF_Destroy(c);
        }
    }
    // A cut across a block boundary shortens the first block, advances the last and empties those between.
    MBUF *c = Chain({100, 200, 300});
    u8 *thirdData = c->firstDescriptor.next->next->data;
    ASSERT_EQ(MBUF_CutPart(c, 50, 300), 0u);
    EXPECT_EQ(Lengths(c), (std::vector<u16>{50, 0, 250}));
    EXPECT_EQ(c->firstDescriptor.next->next->data, thirdData + 50);
    EXPECT_EQ(MBUF_CutPart(nullptr, 0, 0), 1u);
    MBUF_Destroy(c);
}

TEST_F(MbufEditTest, CutTailReleasesWhatFollowsTheNewEnd) {
    for (u32 len : {0u, 1u, 300u, 301u, 500u, 600u}) {
        MBUF *m = Chain({100, 200, 300});
        const Bytes flat = Flat(m);
        ASSERT_EQ(MBUF_CutTail(m, len), 0u) << len;
        EXPECT_EQ(Flat(m), Bytes(flat.begin(), flat.end() - len)) << len;
        ExpectSound({m});
        MBUF_Destroy(m);
    }
    MBUF *m = Chain({100, 200, 300});
    ASSERT_EQ(MBUF_CutTail(m, 300), 0u); // the new end falls on a descriptor's end: that one stays last
    EXPECT_EQ(Lengths(m), (std::vector<u16>{100, 200}));
    ASSERT_EQ(MBUF_CutTail(m, 300), 0u);
    EXPECT_EQ(Lengths(m), (std::vector<u16>{0}));
    EXPECT_EQ(m->dataBlockCount, 1u);
    EXPECT_EQ(MBUF_CutTail(m, 1), 1u);
    EXPECT_EQ(MBUF_CutTail(nullptr, 0), 1u);
    ExpectSound({m});
    MBUF_Destroy(m);
}

TEST_F(MbufEditTest, CutHeadKeepsOrFreesDescriptors) {
    MBUF *m = Chain({100, 200, 300});
    const Bytes flat = Flat(m);
    MBUF_CutHeadInMultiDataBlock(m, 150);
    EXPECT_EQ(Lengths(m), (std::vector<u16>{0, 150, 300}));
    EXPECT_EQ(Flat(m), Bytes(flat.begin() + 150, flat.end()));
    ExpectSound({m});
    MBUF_Destroy(m);

    for (u32 len : {0u, 1u, 99u, 100u, 101u, 300u, 301u, 599u, 600u}) {
        MBUF *c = Chain({100, 0, 200, 300});
        ASSERT_EQ(MBUF_CutAndFreeHead(c, len), 0u) << len;
        EXPECT_EQ(Flat(c), Bytes(flat.begin() + len, flat.end())) << len;
        EXPECT_GT(c->firstDescriptor.dataLength + (len == 600 ? 1 : 0), 0) << "an emptied first block is replaced";
        ExpectSound({c});
        MBUF_Destroy(c);
    }
    // Exactly the first block's bytes: the second descriptor moves into the header.
    MBUF *two = Chain({100, 200});
    u8 *secondBlock = two->firstDescriptor.next->dataBlock;
    ASSERT_EQ(MBUF_CutAndFreeHead(two, 100), 0u);
    EXPECT_EQ(two->dataBlockCount, 1u);
    EXPECT_EQ(two->firstDescriptor.dataBlock, secondBlock);
    EXPECT_EQ(two->firstDescriptor.next, nullptr);
    ASSERT_EQ(MBUF_CutAndFreeHead(two, 200), 0u);
    EXPECT_EQ(Lengths(two), (std::vector<u16>{0}));
    EXPECT_EQ(MBUF_CutAndFreeHead(two, 1), 1u);
    EXPECT_EQ(MBUF_CutAndFreeHead(nullptr, 0), 1u);
    ExpectSound({two});
    MBUF_Destroy(two);
}

TEST_F(MbufEditTest, ConcatenateMovesTheWholeSourceChain) {
    MBUF *dst = Chain({100, 200}, 100, 1);
    MBUF *src = Chain({10, 20, 30}, 100, 2);
    Bytes model = Flat(dst);
    const Bytes tail = Flat(src);
    model.insert(model.end(), tail.begin(), tail.end());
    ASSERT_EQ(MBUF_Concatenate(dst, src, kMod), 0u);
    EXPECT_EQ(dst->dataBlockCount, 5u);
    EXPECT_EQ(Flat(dst), model);
    ExpectSound({dst});
    EXPECT_EQ(MBUF_Concatenate(dst, nullptr, kMod), 1u);
    EXPECT_EQ(MBUF_Concatenate(nullptr, dst, kMod), 1u);
    // Without memory both buffers stay as they were and the caller still owns both.
    MBUF *other = Chain({40});
    const Snapshot before = Take(dst);
    const Snapshot otherBefore = Take(other);
    PLAT_FaultInject("RUK_MemAlloc_F", 0, 1);
    EXPECT_EQ(MBUF_Concatenate(dst, other, kMod), 1u);
    PLAT_FaultClear();
    EXPECT_TRUE(Take(dst) == before);
    EXPECT_TRUE(Take(other) == otherBefore);
    DataBlockDescriptor *last = nullptr;
    PLAT_FaultInject("RUK_MemAlloc_F", 0, 1);
    EXPECT_EQ(MBUF_NeatConcatenate(dst, other, &last, kMod), 1u);
    PLAT_FaultClear();
    EXPECT_TRUE(Take(dst) == before);
    EXPECT_TRUE(Take(other) == otherBefore);
    ExpectSound({dst, other});
    MBUF_Destroy(other);
    MBUF_Destroy(dst);
}

TEST_F(MbufEditTest, NeatConcatenateFoldsSmallPiecesIntoTailRoom) {
    // 100 bytes land in the destination's unshared last block.
    MBUF *dst = Chain({100, 200}, 100, 1);
    MBUF *src = Chain({100}, 100, 2);
    Bytes model = Flat(dst);
    Bytes tail = Flat(src);
    model.insert(model.end(), tail.begin(), tail.end());
    DataBlockDescriptor *last = nullptr;
    ASSERT_EQ(MBUF_NeatConcatenate(dst, src, &last, kMod), 0u);
    EXPECT_EQ(Lengths(dst), (std::vector<u16>{100, 300}));
    EXPECT_EQ(last, dst->firstDescriptor.next);
    EXPECT_EQ(Flat(dst), model);
    ExpectSound({dst});

    // 500 bytes, another type, or a shared last block: linked as they are. Small pieces among the source's
    // descriptors fold into each other.
    MBUF *big = Chain({500}, 100, 3);
    MBUF *typed = Chain({10}, 100, 4);
    typed->firstDescriptor.type = kType + 1;
    MBUF *smalls = Chain({20, 30, 40}, 100, 5);
    for (MBUF *piece : {big, typed, smalls}) {
        tail = Flat(piece);
        model.insert(model.end(), tail.begin(), tail.end());
        ASSERT_EQ(MBUF_NeatConcatenate(dst, piece, &last, kMod), 0u);
    }
    EXPECT_EQ(Lengths(dst), (std::vector<u16>{100, 300, 500, 10, 90}));
    EXPECT_EQ(Flat(dst), model);
    EXPECT_EQ(last->dataLength, 90);
    MBUF *ref = MBUF_ReferenceCopy(dst, 0, 1, kMod);
    MBUF *empty = MBUF_ReferenceCopy(dst, 1000, 0, kMod);  // a block of its own
    MBUF *lastRef = MBUF_ReferenceCopy(dst, 999, 1, kMod); // shares dst's last block
    MBUF *more = Chain({5}, 100, 6);
    tail = Flat(more);
    model.insert(model.end(), tail.begin(), tail.end());
    ASSERT_EQ(MBUF_NeatConcatenate(dst, more, &last, kMod), 0u);
    EXPECT_EQ(Lengths(dst), (std::vector<u16>{100, 300, 500, 10, 90, 5}));
    EXPECT_EQ(Flat(dst), model);
    EXPECT_EQ(MBUF_NeatConcatenate(dst, nullptr, &last, kMod), 1u);
    EXPECT_EQ(MBUF_NeatConcatenate(dst, ref, nullptr, kMod), 1u);
    ExpectSound({dst, ref, empty, lastRef});
    for (MBUF *b : {dst, ref, empty, lastRef}) {
        MBUF_Destroy(b);
    }
}

TEST_F(MbufEditTest, FragmentSplitsAndSharesTheCutBlock) {
    for (u32 off : {0u, 1u, 100u, 150u, 300u, 599u, 600u}) {
        MBUF *m = Chain({100, 200, 300});
        std::memset(m->controlInfo, 0x21, MBUF_CONTROL_INFO_SIZE);
        const Bytes flat = Flat(m);
        MBUF *rest = MBUF_Fragment(m, off, kMod);
        ASSERT_NE(rest, nullptr) << off;
        EXPECT_EQ(Flat(m), Bytes(flat.begin(), flat.begin() + off)) << off;
        EXPECT_EQ(Flat(rest), Bytes(flat.begin() + off, flat.end())) << off;
        EXPECT_EQ(rest->controlInfo[0], off == 600 ? 0 : 0x21) << off; // the end gives a fresh buffer
        const bool inside = off != 100 && off != 300 && off != 600;
        EXPECT_EQ(rest->firstDescriptor.dataBlock == LastOf(m)->dataBlock, inside) << off;
        ExpectSound({m, rest});
        MBUF_Destroy(rest);
        MBUF_Destroy(m);
    }
    MBUF *m = Chain({100});
    EXPECT_EQ(MBUF_Fragment(m, 101, kMod), nullptr);
    EXPECT_EQ(MBUF_Fragment(nullptr, 0, kMod), nullptr);
    const Snapshot before = Take(m);
    PLAT_FaultInject("RUK_MemAlloc_F", 0, 1);
    EXPECT_EQ(MBUF_Fragment(m, 50, kMod), nullptr);
    PLAT_FaultInject("RUK_MemRefInc", 0, 1);
    EXPECT_EQ(MBUF_Fragment(m, 50, kMod), nullptr);
    PLAT_FaultClear();
    EXPECT_TRUE(Take(m) == before);
    ExpectSound({m});
    MBUF_Destroy(m);
}

TEST_F(MbufEditTest, PullUpMakesTheHeadContiguous) {
    MBUF *m = Chain({1000, 1000, 1000}, 0);
    const Bytes flat = Flat(m);
    ASSERT_EQ(MBUF_PullUp(m, 2048, kMod), 0u);
    EXPECT_EQ(Lengths(m), (std::vector<u16>{2048, 952}));
    EXPECT_EQ(m->firstDescriptor.data, m->firstDescriptor.dataBlock);
    EXPECT_EQ(Flat(m), flat);
    ExpectSound({m});
    EXPECT_EQ(MBUF_PullUp(m, 2049, kMod), 1u);
    EXPECT_EQ(MBUF_PullUp(nullptr, 0, kMod), 1u);
    MBUF_Destroy(m);

    // Everything pulled up: the emptied former first descriptor follows the new one.
    MBUF *small = Chain({30, 40});
    const Bytes smallFlat = Flat(small);
    ASSERT_EQ(MBUF_PullUp(small, 70, kMod), 0u);
    EXPECT_EQ(Lengths(small), (std::vector<u16>{70, 0}));
    EXPECT_EQ(small->firstDescriptor.data, small->firstDescriptor.dataBlock + 2048 - 70);
    EXPECT_EQ(Flat(small), smallFlat);
    EXPECT_EQ(MBUF_PullUp(small, 71, kMod), 1u);
    ExpectSound({small});
    // Pull-up of a buffer whose blocks are shared: all or nothing at every allocation step.
    MBUF *ref = MBUF_ReferenceCopy(small, 0, 70, kMod);
    const Snapshot refBefore = Take(ref);
    SweepAllocFailures([&] { return MBUF_PullUp(ref, 50, kMod) == 0; },
                       [&](u32) { EXPECT_TRUE(Take(ref) == refBefore); });
    EXPECT_EQ(Lengths(ref), (std::vector<u16>{50, 20}));
    EXPECT_EQ(Flat(ref), smallFlat);
    ExpectSound({small, ref});
    MBUF_Destroy(ref);
    const Snapshot before = Take(small);
    PLAT_FaultInject("memmove_s", 0, 1);
    EXPECT_EQ(MBUF_PullUp(small, 10, kMod), 1u);
    PLAT_FaultClear();
    EXPECT_TRUE(Take(small) == before);
    ExpectSound({small});
    MBUF_Destroy(small);
}

TEST_F(MbufEditTest, CompressGathersIntoSizedBlocks) {
    struct Case {
        std::initializer_list<u32> lengths;
        u32 blockSize;
    };
    for (const Case &c : {Case{{1000, 1000, 1000, 1000, 1000}, 5000}, Case{{1000, 1000, 1000}, 4096},
                          Case{{50, 50}, 2048}, Case{{0}, 2048}}) {
        MBUF *m = Chain(c.lengths);
        const Bytes flat = Flat(m);
        ASSERT_EQ(MBUF_Compress(m, 1, kMod), 0u);
        EXPECT_EQ(m->dataBlockCount, 1u);
        EXPECT_EQ(m->firstDescriptor.blockSize, c.blockSize);
        EXPECT_EQ(Flat(m), flat);
        ExpectSound({m});
        MBUF_Destroy(m);
    }
    MBUF *m = Chain({100, 200, 300, 400, 500});
    const Bytes flat = Flat(m);
    EXPECT_EQ(MBUF_Compress(m, 0, kMod), 1u);
    const Snapshot before = Take(m);
    PLAT_FaultInject("memmove_s", 2, 1);
    EXPECT_EQ(MBUF_Compress(m, 2, kMod), 1u);
    PLAT_FaultClear();
    EXPECT_TRUE(Take(m) == before);
    SweepAllocFailures([&] { return MBUF_Compress(m, 2, kMod) == 0; }, [&](u32) { EXPECT_TRUE(Take(m) == before); });
    EXPECT_EQ(Lengths(m), (std::vector<u16>{100, 1400}));
    EXPECT_EQ(Flat(m), flat);
    // count = dataBlockCount + 1 adds an empty descriptor; more is refused.
    ASSERT_EQ(MBUF_Compress(m, 3, kMod), 0u);
    EXPECT_EQ(Lengths(m), (std::vector<u16>{100, 1400, 0}));
    EXPECT_EQ(MBUF_Compress(m, 5, kMod), 1u);
    ExpectSound({m});
    MBUF_Destroy(m);
}

TEST_F(MbufEditTest, CompressRefusesWhatOneDescriptorCannotHold) {
    const Bytes src = Pattern(70000, 8);
    MBUF *m = MBUF_CreateByCopyBuffer(0, 70000, src.data(), kType, kMod);
    ASSERT_NE(m, nullptr);
    const Snapshot before = Take(m);
    EXPECT_EQ(MBUF_Compress(m, 1, kMod), 1u);
    EXPECT_EQ(MBUF_Compress(m, 2, kMod), 1u);
    EXPECT_TRUE(Take(m) == before);
    ASSERT_EQ(MBUF_Compress(m, 10, kMod), 0u); // the last 26 descriptors gather into 51,568 bytes
    EXPECT_EQ(m->dataBlockCount, 10u);
    EXPECT_EQ(Flat(m), src);
    ExpectSound({m});
    MBUF_Destroy(m);
}

TEST_F(MbufEditTest, AppendPrefersUnsharedTailRoom) {
    MBUF *m = Chain({100});
    u8 *end = m->firstDescriptor.data + 100;
    EXPECT_EQ(MBUF_AppendMemorySpace(m, 0, kMod), end);
    EXPECT_EQ(MBUF_AppendMemorySpace(m, 100, kMod), end);
    EXPECT_EQ(m->dataBlockCount, 1u);
    EXPECT_EQ(m->totalDataLength, 200u);
    MBUF *ref = MBUF_ReferenceCopy(m, 0, 10, kMod);
    u8 *fresh = MBUF_AppendMemorySpace(m, 100, kMod);
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(m->dataBlockCount, 2u);
    EXPECT_EQ(fresh, m->firstDescriptor.next->dataBlock);
    ExpectSound({m, ref});
    const Snapshot before = Take(m);
    EXPECT_EQ(MBUF_AppendMemorySpace(m, 2049, kMod), nullptr);
    EXPECT_EQ(MBUF_AppendMemorySpace(nullptr, 1, kMod), nullptr);
    PLAT_FaultInject("RUK_MemRefGet", 0, 1); // an unknown count means shared
    EXPECT_NE(MBUF_AppendMemorySpace(m, 100, kMod), nullptr);
    PLAT_FaultClear();
    EXPECT_EQ(m->dataBlockCount, 3u);
    const Snapshot grown = Take(m);
    SweepAllocFailures([&] { return MBUF_AppendMemorySpace(m, 2048, kMod) != nullptr; },
                       [&](u32) { EXPECT_TRUE(Take(m) == grown); });
    EXPECT_EQ(m->dataBlockCount, 4u);
    EXPECT_EQ(m->totalDataLength, before.total + 2148);
    ExpectSound({m, ref});
    MBUF_Destroy(ref);
    MBUF_Destroy(m);
}

TEST_F(MbufEditTest, PrependAddsAHeaderBlockInFront) {
    MBUF *m = Chain({100});
    Bytes model = Flat(m);
    const Snapshot before = Take(m);
    SweepAllocFailures([&] { return MBUF_PrependDataBlock(m, 20, kMod) == 0; },
                       [&](u32) { EXPECT_TRUE(Take(m) == before); });
    EXPECT_EQ(m->dataBlockCount, 2u);
    EXPECT_EQ(m->firstDescriptor.data, m->firstDescriptor.dataBlock + 2028);
    const Bytes header = Pattern(20, 9);
    ASSERT_EQ(MBUF_CopyDataFromBufferToMBuf(m, 0, 20, header.data(), kMod), 0u);
    model.insert(model.begin(), header.begin(), header.end());
    EXPECT_EQ(Flat(m), model);
    EXPECT_EQ(MBUF_PrependDataBlock(m, 0, kMod), 0u);
    EXPECT_EQ(MBUF_PrependDataBlock(m, 2049, kMod), 1u);
    EXPECT_EQ(MBUF_PrependDataBlock(nullptr, 1, kMod), 1u);
    ASSERT_EQ(MBUF_PrependDataBlock(m, 2048, kMod), 0u);
    EXPECT_EQ(m->firstDescriptor.data, m->firstDescriptor.dataBlock);
    EXPECT_EQ(m->totalDataLength, 2048u + 120u);
    ExpectSound({m});
    MBUF_Destroy(m);
}

} // namespace
} // namespace zol::test
