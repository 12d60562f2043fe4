// Message buffers through the exported API: reading, cutting, joining, splitting, pull-up, compression,
// append and prepend on the boundaries the randomized sequence rarely reaches (descriptor ends, empty
// descriptors, shared last blocks, maximum sizes), against a flat-byte model, with allocation failures.
#include "zol_mbuf.h"

#include "leak_check.h"
#include "mbuf_test_model.h"

namespace zol::test {
namespace {

class MbufEditTest : public LeakCheckedTest {};

// Reads and cuts of every range around the descriptor ends; cutting a part never releases a descriptor,
// even one it empties or an empty one in the chain.
TEST_F(MbufEditTest, ReadsAndCutsAtDescriptorBoundaries) {
    Bytes out(600);
    for (u32 off : {0u, 1u, 99u, 100u, 101u, 299u, 300u, 301u, 599u, 600u, 601u}) {
        for (u32 len : {0u, 1u, 2u, 100u, 200u, 201u, 599u, 600u}) {
            SCOPED_TRACE(std::to_string(off) + "+" + std::to_string(len));
            MBUF *c = Chain({100, 0, 200, 300});
            Bytes model = Flat(c);
            const bool fits = off + len <= 600;
            ASSERT_EQ(MBUF_CopyDataFromMBufToBuffer(c, off, len, out.data()), fits ? 0u : 1u);
            EXPECT_TRUE(!fits || std::equal(out.begin(), out.begin() + len, model.begin() + off));
            ASSERT_EQ(MBUF_CutPart(c, off, len), fits ? 0u : 1u);
            if (fits) {
                model.erase(model.begin() + off, model.begin() + off + len);
            }
            EXPECT_EQ(Flat(c), model);
            EXPECT_EQ(c->dataBlockCount, 4u);
            ExpectSoundThenDestroy({c});
        }
    }
    EXPECT_EQ(MBUF_CopyDataFromMBufToBuffer(nullptr, 0, 0, out.data()), 1u);
    MBUF *m = Chain({100, 200, 300});
    ASSERT_EQ(MBUF_CutPart(m, 50, 300), 0u); // shortens the first, empties the second, advances the third
    EXPECT_EQ(Lengths(m), (std::vector<u16>{50, 0, 250}));
    ASSERT_EQ(MBUF_CutTail(m, 250), 0u); // the new end falls on a descriptor's end: that one stays last
    EXPECT_EQ(Lengths(m), (std::vector<u16>{50}));
    EXPECT_EQ(MBUF_CutTail(m, 51), 1u);
    EXPECT_EQ(MBUF_CopyDataFromMBufToBuffer(m, 0, 0, nullptr), 1u);
    MBUF_Destroy(m);

    MBUF *two = Chain({100, 200});
    u8 *secondBlock = two->firstDescriptor.next->dataBlock;
    ASSERT_EQ(MBUF_CutAndFreeHead(two, 100), 0u); // exactly the first block: the second moves into the header
    EXPECT_TRUE(two->firstDescriptor.dataBlock == secondBlock && two->firstDescriptor.next == nullptr);
    ASSERT_EQ(MBUF_CutAndFreeHead(two, 200), 0u);
    EXPECT_EQ(Lengths(two), (std::vector<u16>{0}));
    EXPECT_EQ(MBUF_CutAndFreeHead(two, 1), 1u);
    ExpectSoundThenDestroy({two});
    MBUF *head = Chain({100, 200, 300});
    MBUF_CutHeadInMultiDataBlock(head, 150); // keeps the emptied descriptor
    EXPECT_EQ(Lengths(head), (std::vector<u16>{0, 150, 300}));
    MBUF_Destroy(head);
}

// Failed concatenations leave both buffers; neat concatenation folds small pieces into unshared tail room.
TEST_F(MbufEditTest, ConcatenationsFailWholeAndFoldSmallPieces) {
    MBUF *dst = Chain({100, 200}, 100, 1);
    MBUF *other = Chain({40}, 100, 2);
    const Bytes before = Take(dst), otherBefore = Take(other);
    DataBlockDescriptor *last = nullptr;
    PLAT_FaultInject("RUK_MemAlloc_F", 0, 2);
    EXPECT_EQ(MBUF_Concatenate(dst, other, kMod), 1u);
    EXPECT_EQ(MBUF_NeatConcatenate(dst, other, &last, kMod), 1u);
    PLAT_FaultClear();
    EXPECT_EQ(MBUF_Concatenate(dst, nullptr, kMod), 1u);
    EXPECT_EQ(MBUF_NeatConcatenate(dst, other, nullptr, kMod), 1u);
    EXPECT_EQ(Take(dst), before);
    EXPECT_EQ(Take(other), otherBefore);
    EXPECT_EQ(MBUF_Destroy(other), 0u);

    Bytes model = Flat(dst);
    // 100 bytes fold into the last block; 500 bytes, another type: linked as they are; small pieces among
    // the source's descriptors fold into each other.
    MBUF *small = Chain({100}, 100, 2);
    MBUF *big = Chain({500}, 100, 3);
    MBUF *typed = Chain({10}, 100, 4);
    typed->firstDescriptor.type = kType + 1;
    MBUF *smalls = Chain({20, 30, 40}, 100, 5);
    for (MBUF *piece : {small, big, typed, smalls}) {
        const Bytes tail = Flat(piece);
        model.insert(model.end(), tail.begin(), tail.end());
        ASSERT_EQ(MBUF_NeatConcatenate(dst, piece, &last, kMod), 0u);
    }
    EXPECT_EQ(Lengths(dst), (std::vector<u16>{100, 300, 500, 10, 90}));
    EXPECT_EQ(Flat(dst), model);
    EXPECT_EQ(last->dataLength, 90);
    MBUF *lastRef = MBUF_ReferenceCopy(dst, 999, 1, kMod); // shares dst's last block: nothing folds into it
    MBUF *more = Chain({5}, 100, 6);
    ASSERT_EQ(MBUF_NeatConcatenate(dst, more, &last, kMod), 0u);
    EXPECT_EQ(Lengths(dst), (std::vector<u16>{100, 300, 500, 10, 90, 5}));
    ExpectSoundThenDestroy({dst, lastRef});
}

TEST_F(MbufEditTest, FragmentSharesTheCutBlockOnlyInsideIt) {
    for (u32 off : {0u, 1u, 100u, 150u, 300u, 600u}) {
        MBUF *m = Chain({100, 200, 300});
        std::memset(m->controlInfo, 0x21, MBUF_CONTROL_INFO_SIZE);
        const Bytes flat = Flat(m);
        MBUF *rest = MBUF_Fragment(m, off, kMod);
        ASSERT_NE(rest, nullptr) << off;
        EXPECT_EQ(Flat(m), Bytes(flat.begin(), flat.begin() + off)) << off;
        EXPECT_EQ(Flat(rest), Bytes(flat.begin() + off, flat.end())) << off;
        EXPECT_EQ(rest->controlInfo[0], off == 600 ? 0 : 0x21) << off; // the end gives a fresh buffer
        const bool inside = off != 100 && off != 300 && off != 600;
        EXPECT_EQ(RefCount(rest->firstDescriptor.dataBlock) == 2, inside) << off;
        ExpectSoundThenDestroy({m, rest});
    }
    MBUF *m = Chain({100});
    ExpectRefusedUnchanged(m, [&] { return MBUF_Fragment(m, 101, kMod) == nullptr; });
    ExpectRefusedUnchanged(
        m, [&] { return MBUF_Fragment(m, 20, kMod) == nullptr; }, "RUK_MemRefInc");
    ExpectSoundThenDestroy({m});
}

TEST_F(MbufEditTest, PullUpMakesTheHeadContiguous) {
    MBUF *m = Chain({1000, 1000, 1000}, 0);
    ASSERT_EQ(MBUF_PullUp(m, 2048, kMod), 0u);
    EXPECT_EQ(Lengths(m), (std::vector<u16>{2048, 952}));
    ExpectRefusedUnchanged(m, [&] { return MBUF_PullUp(m, 2049, kMod) == 1; });
    MBUF_Destroy(m);

    // Everything pulled up: the emptied former first descriptor follows the new one.
    MBUF *small = Chain({30, 40});
    const Bytes smallFlat = Flat(small);
    ASSERT_EQ(MBUF_PullUp(small, 70, kMod), 0u);
    EXPECT_EQ(Lengths(small), (std::vector<u16>{70, 0}));
    EXPECT_EQ(small->firstDescriptor.data, small->firstDescriptor.dataBlock + 2048 - 70);
    // Pull-up of a buffer whose blocks are shared: all or nothing at every allocation step.
    MBUF *ref = MBUF_ReferenceCopy(small, 0, 70, kMod);
    SweepAllocFailures([&] { return MBUF_PullUp(ref, 50, kMod) == 0; }, ref);
    EXPECT_EQ(Lengths(ref), (std::vector<u16>{50, 20}));
    EXPECT_EQ(Flat(ref), smallFlat);
    ExpectSound({small, ref});
    MBUF_Destroy(ref);
    ExpectRefusedUnchanged(small, [&] { return MBUF_PullUp(small, 71, kMod) == 1; });
    ExpectRefusedUnchanged(
        small, [&] { return MBUF_PullUp(small, 10, kMod) == 1; }, "memmove_s");
    MBUF_Destroy(small);
}

TEST_F(MbufEditTest, CompressGathersIntoSizedBlocks) {
    using Lens = std::vector<u32>; // chain and the size of the one block it gathers into
    for (auto [lengths, blockSize] : {std::pair{Lens{1000, 1000, 1000, 1000, 1000}, 5000u},
                                      {Lens{1000, 1000, 1000}, 4096u},
                                      {Lens{50, 50}, 2048u},
                                      {Lens{0}, 2048u}}) {
        MBUF *m = Chain(lengths);
        const Bytes flat = Flat(m);
        ASSERT_EQ(MBUF_Compress(m, 1, kMod), 0u);
        EXPECT_EQ(m->firstDescriptor.blockSize, blockSize);
        EXPECT_EQ(Flat(m), flat);
        ExpectSoundThenDestroy({m});
    }
    MBUF *m = Chain({100, 200, 300, 400, 500});
    const Bytes flat = Flat(m);
    ExpectRefusedUnchanged(m, [&] { return MBUF_Compress(m, 0, kMod) == 1; });
    ExpectRefusedUnchanged(
        m, [&] { return MBUF_Compress(m, 2, kMod) == 1; }, "memmove_s", 2);
    SweepAllocFailures([&] { return MBUF_Compress(m, 2, kMod) == 0; }, m);
    EXPECT_EQ(Lengths(m), (std::vector<u16>{100, 1400}));
    EXPECT_EQ(Flat(m), flat);
    ASSERT_EQ(MBUF_Compress(m, 3, kMod), 0u); // dataBlockCount + 1 adds an empty descriptor; more is refused
    EXPECT_EQ(Lengths(m), (std::vector<u16>{100, 1400, 0}));
    ExpectRefusedUnchanged(m, [&] { return MBUF_Compress(m, 5, kMod) == 1; });
    MBUF_Destroy(m);

    // 70,000 bytes: one or two descriptors cannot hold them; ten can (the last 26 gather into 51,568 bytes).
    const Bytes src = Pattern(70000, 8);
    MBUF *large = MBUF_CreateByCopyBuffer(0, 70000, src.data(), kType, kMod);
    ExpectRefusedUnchanged(large, [&] { return MBUF_Compress(large, 1, kMod) + MBUF_Compress(large, 2, kMod) == 2; });
    ASSERT_EQ(MBUF_Compress(large, 10, kMod), 0u);
    EXPECT_EQ(Flat(large), src);
    ExpectSoundThenDestroy({large});
}

TEST_F(MbufEditTest, AppendPrefersUnsharedTailRoomAndPrependAddsABlockInFront) {
    MBUF *m = Chain({100});
    u8 *end = m->firstDescriptor.data + 100;
    EXPECT_EQ(MBUF_AppendMemorySpace(m, 0, kMod), end);
    EXPECT_EQ(MBUF_AppendMemorySpace(m, 100, kMod), end);
    EXPECT_EQ(m->dataBlockCount, 1u);
    MBUF *ref = MBUF_ReferenceCopy(m, 0, 10, kMod);
    u8 *fresh = MBUF_AppendMemorySpace(m, 100, kMod);
    EXPECT_EQ(fresh, m->firstDescriptor.next->dataBlock);
    EXPECT_EQ(MBUF_AppendMemorySpace(m, 2049, kMod), nullptr);
    PLAT_FaultInject("RUK_MemRefGet", 0, 1); // an unknown count means shared
    EXPECT_NE(MBUF_AppendMemorySpace(m, 100, kMod), nullptr);
    PLAT_FaultClear();
    EXPECT_EQ(m->dataBlockCount, 3u);
    SweepAllocFailures([&] { return MBUF_AppendMemorySpace(m, 2048, kMod) != nullptr; }, m);
    EXPECT_EQ(Lengths(m), (std::vector<u16>{200, 100, 100, 2048}));
    ExpectSoundThenDestroy({m, ref});

    MBUF *p = Chain({100});
    const Bytes model = Flat(p);
    SweepAllocFailures([&] { return MBUF_PrependDataBlock(p, 20, kMod) == 0; }, p);
    EXPECT_EQ(Lengths(p), (std::vector<u16>{20, 100}));
    EXPECT_EQ(p->firstDescriptor.data, p->firstDescriptor.dataBlock + 2028);
    const Bytes flat = Flat(p);
    EXPECT_EQ(Bytes(flat.begin() + 20, flat.end()), model);
    EXPECT_EQ(MBUF_PrependDataBlock(p, 2049, kMod), 1u);
    ASSERT_EQ(MBUF_PrependDataBlock(p, 2048, kMod), 0u);
    EXPECT_EQ(p->firstDescriptor.data, p->firstDescriptor.dataBlock);
    ExpectSoundThenDestroy({p});
}

} // namespace
} // namespace zol::test
