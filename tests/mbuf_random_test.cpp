// A long fixed-seed sequence of mixed message-buffer operations over a pool of buffers that share blocks,
// each buffer checked against its flat-byte model and the whole pool against the chain invariant (exact
// reference counts) after every step; some steps run with an allocation failure injected, and an
// all-or-nothing operation that fails must leave its buffer as it was.
#include <functional>
#include <random>

#include "zol_mbuf.h"

#include "leak_check.h"
#include "mbuf_test_model.h"

namespace zol::test {
namespace {

constexpr size_t kMaxBuffers = 8;
constexpr u32 kMaxTotal = 12000;

class Sim {
  public:
    explicit Sim(u32 seed) : rng_(seed) {}
    ~Sim() {
        for (MBUF *m : bufs_)
            MBUF_Destroy(m);
    }

    void Step() {
        op_ = Rand(13);
        injected_ = bufs_.size() > 1 && Rand(5) == 0 && op_ >= 4;
        if (injected_) {
            PLAT_FaultInject("RUK_MemAlloc_F", Rand(3), 1);
        }
        if (bufs_.empty() || (op_ < 2 && !Full())) {
            const Bytes src = Pattern(Rand(3000), Rand(1000));
            Add(MBUF_CreateByCopyBuffer(Rand(2049), static_cast<u32>(src.size()), src.data(), kType, kMod), src);
        } else if (op_ >= 2) {
            using Op = void (Sim::*)(size_t);
            static constexpr Op kOps[] = {&Sim::Destroy,  &Sim::Write,    &Sim::Copy, &Sim::Copy,
                                          &Sim::Join,     &Sim::Fragment, &Sim::Cut,  &Sim::PullUp,
                                          &Sim::Compress, &Sim::Grow,     &Sim::Grow};
            std::invoke(kOps[op_ - 2], this, Rand(static_cast<u32>(bufs_.size())));
        }
        PLAT_FaultClear();
        ExpectSound(std::vector<const MBUF *>(bufs_.begin(), bufs_.end()));
        for (size_t i = 0; i < bufs_.size(); ++i)
            ASSERT_EQ(Flat(bufs_[i]), models_[i]) << "buffer " << i << " after op " << op_;
    }

    u32 failures = 0;
    u32 sharedSeen = 0;

  private:
    u32 Rand(u32 n) { return n == 0 ? 0 : static_cast<u32>(rng_() % n); }
    u32 Total(size_t i) const { return bufs_[i]->totalDataLength; }
    bool Full() const { return bufs_.size() >= kMaxBuffers; }
    // A random range [off, off + len) of buffer i.
    std::pair<u32, u32> Range(size_t i) {
        const u32 off = Rand(Total(i) + 1);
        return {off, Rand(Total(i) - off + 1)};
    }
    bool Unshared(size_t i) {
        ZOL_FOR_EACH_DESCRIPTOR(d, bufs_[i]) {
            if (RefCount(d->dataBlock) != 1) {
                ++sharedSeen;
                return false;
            }
        }
        return true;
    }
    void Add(MBUF *m, Bytes model) {
        if (m != nullptr) {
            bufs_.push_back(m);
            models_.push_back(std::move(model));
        }
    }
    void Remove(size_t i) {
        bufs_.erase(bufs_.begin() + static_cast<long>(i));
        models_.erase(models_.begin() + static_cast<long>(i));
    }
    // Only an injected failure may make an all-or-nothing operation on buffer i fail, and it must change
    // nothing. op returns true on success.
    template <typename Op>
    bool Attempt(size_t i, Op op) {
        const Bytes before = Take(bufs_[i]);
        const bool ok = op();
        if (!ok) {
            ++failures;
            EXPECT_TRUE(injected_) << "op " << op_ << " failed without an injected failure";
            EXPECT_EQ(Take(bufs_[i]), before) << "op " << op_;
        }
        return ok;
    }

    void Destroy(size_t i) {
        if (bufs_.size() > 1) {
            EXPECT_EQ(MBUF_Destroy(bufs_[i]), 0u);
            Remove(i);
        }
    }
    // In-place writes change every holder of a shared block, which a per-buffer model cannot follow.
    void Write(size_t i) {
        if (!Unshared(i)) {
            return;
        }
        const u32 off = Rand(Total(i) + 1);
        const Bytes src = Pattern(Rand(std::min<u32>(3000, kMaxTotal - std::min(kMaxTotal, off))), Rand(1000));
        ASSERT_EQ(MBUF_CopyDataFromBufferToMBuf(bufs_[i], off, static_cast<u32>(src.size()), src.data(), kMod), 0u);
        models_[i].resize(std::max(models_[i].size(), off + src.size()));
        std::copy(src.begin(), src.end(), models_[i].begin() + off);
    }
    void Copy(size_t i) {
        const auto [off, len] = Range(i);
        const bool raw = op_ == 5;
        MBUF *c = nullptr;
        if (!Full() && !(raw && Total(i) == 0) && Attempt(i, [&, off = off, len = len] {
                c = raw ? MBUF_RawCopy(bufs_[i], off, len, Rand(301), kMod)
                        : MBUF_ReferenceCopy(bufs_[i], off, len, kMod);
                return c != nullptr;
            })) {
            Add(c, Bytes(models_[i].begin() + off, models_[i].begin() + off + len));
        }
    }
    void Join(size_t i) {
        const size_t j = Rand(static_cast<u32>(bufs_.size()));
        if (i == j || Total(i) + Total(j) > kMaxTotal) {
            return;
        }
        DataBlockDescriptor *last = nullptr;
        const bool neat = Rand(2) == 0;
        if (Attempt(i, [&] {
                return (neat ? MBUF_NeatConcatenate(bufs_[i], bufs_[j], &last, kMod)
                             : MBUF_Concatenate(bufs_[i], bufs_[j], kMod)) == 0;
            })) {
            const DataBlockDescriptor *end = &bufs_[i]->firstDescriptor;
            while (end->next != nullptr)
                end = end->next;
            EXPECT_TRUE(!neat || last == end);
            models_[i].insert(models_[i].end(), models_[j].begin(), models_[j].end());
            Remove(j);
        }
    }
    void Fragment(size_t i) {
        const u32 off = Rand(Total(i) + 1);
        MBUF *rest = nullptr;
        if (!Full() && Attempt(i, [&] { return (rest = MBUF_Fragment(bufs_[i], off, kMod)) != nullptr; })) {
            Add(rest, Bytes(models_[i].begin() + off, models_[i].end()));
            models_[i].resize(off);
        }
    }
    void Cut(size_t i) {
        const u32 which = Rand(4);
        if (which == 0 && !Unshared(i)) {
            return; // a cut inside a descriptor moves bytes inside a possibly shared block
        }
        const auto [off, len] = Range(i);
        Bytes &model = models_[i];
        if (which == 0) {
            ASSERT_EQ(MBUF_CutPart(bufs_[i], off, len), 0u);
            model.erase(model.begin() + off, model.begin() + off + len);
        } else if (which == 1) {
            ASSERT_EQ(MBUF_CutTail(bufs_[i], len), 0u);
            model.resize(model.size() - len);
        } else {
            if (which == 2) {
                ASSERT_EQ(MBUF_CutAndFreeHead(bufs_[i], len), 0u);
            } else {
                MBUF_CutHeadInMultiDataBlock(bufs_[i], len);
            }
            model.erase(model.begin(), model.begin() + len);
        }
    }
    void PullUp(size_t i) {
        const u32 len = Rand(std::min<u32>(Total(i), MBUF_BLOCK_SIZE) + 1);
        if (Attempt(i, [&] { return MBUF_PullUp(bufs_[i], len, kMod) == 0; })) {
            EXPECT_EQ(bufs_[i]->firstDescriptor.dataLength, len);
        }
    }
    void Compress(size_t i) {
        const u32 count = 1 + Rand(bufs_[i]->dataBlockCount + 1);
        if (Attempt(i, [&] { return MBUF_Compress(bufs_[i], count, kMod) == 0; })) {
            EXPECT_EQ(bufs_[i]->dataBlockCount, count);
        }
    }
    // Appends (op 11) or prepends (op 12) space and fills it through the returned address.
    void Grow(size_t i) {
        const Bytes fill = Pattern(Rand(MBUF_BLOCK_SIZE + 1), Rand(1000));
        const u32 len = static_cast<u32>(fill.size());
        const bool append = op_ == 11;
        u8 *space = nullptr;
        if (Total(i) + len <= kMaxTotal && Attempt(i, [&] {
                space = append ? MBUF_AppendMemorySpace(bufs_[i], len, kMod)
                               : (MBUF_PrependDataBlock(bufs_[i], len, kMod) == 0 ? bufs_[i]->firstDescriptor.data
                                                                                  : nullptr);
                return space != nullptr;
            })) {
            std::copy(fill.begin(), fill.end(), space);
            models_[i].insert(append ? models_[i].end() : models_[i].begin(), fill.begin(), fill.end());
        }
    }

    std::mt19937 rng_;
    std::vector<MBUF *> bufs_;
    std::vector<Bytes> models_;
    bool injected_ = false;
    u32 op_ = 0;
};

class MbufRandomTest : public LeakCheckedTest {};

TEST_F(MbufRandomTest, MixedOperationsKeepContentsAndInvariants) {
    Sim sim(20240611u);
    for (int step = 0; step < 4000 && !HasFailure(); ++step) { // the first divergence is the interesting one
        SCOPED_TRACE(step);
        sim.Step();
    }
    // The sequence must have reached the failure paths and buffers sharing blocks.
    EXPECT_GT(sim.failures, 20u);
    EXPECT_GT(sim.sharedSeen, 20u);
}

} // namespace
} // namespace zol::test
