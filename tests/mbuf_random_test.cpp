// A long fixed-seed sequence of mixed message-buffer operations over a pool of buffers that share blocks,
// each buffer checked against its flat-byte model and the whole pool against the chain invariant (exact
// reference counts) after every step; some steps run with an allocation failure injected.
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
        for (MBUF *m : bufs_) {
            MBUF_Destroy(m);
        }
    }

    void Step() {
        const u32 op = Rand(13);
        injected_ = bufs_.size() > 1 && Rand(5) == 0 && op >= 4;
        if (injected_) {
            PLAT_FaultInject("RUK_MemAlloc_F", Rand(3), 1);
        }
        Run(op);
        PLAT_FaultClear();
        Check();
    }

    void Check() {
        std::vector<const MBUF *> all(bufs_.begin(), bufs_.end());
        ExpectSound(all);
        for (size_t i = 0; i < bufs_.size(); ++i) {
            ASSERT_EQ(Flat(bufs_[i]), models_[i]) << "buffer " << i << " after op " << lastOp_;
        }
    }

    u32 failures() const { return failures_; }
    u32 sharedSeen() const { return sharedSeen_; }

  private:
    u32 Rand(u32 n) { return n == 0 ? 0 : static_cast<u32>(rng_() % n); }
    size_t Pick() { return Rand(static_cast<u32>(bufs_.size())); }
    u32 Total(size_t i) const { return bufs_[i]->totalDataLength; }

    bool Unshared(size_t i) {
        for (const DataBlockDescriptor *d : Descriptors(bufs_[i])) {
            if (RefCount(d->dataBlock) != 1) {
                ++sharedSeen_;
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

    // An all-or-nothing operation failed: only an injected failure may cause that, and it changed nothing.
    void ExpectFailedCleanly(bool ok, size_t i, const Snapshot &before) {
        if (!ok) {
            ++failures_;
            EXPECT_TRUE(injected_) << "op " << lastOp_ << " failed without an injected failure";
            EXPECT_TRUE(Take(bufs_[i]) == before) << "op " << lastOp_;
        }
    }

    void Run(u32 op) {
        lastOp_ = op;
        if (bufs_.empty() || (op < 2 && bufs_.size() < kMaxBuffers)) {
            Create();
            return;
        }
        const size_t i = Pick();
        switch (op) {
        case 2:
            Destroy(i);
            break;
        case 3:
            Write(i);
            break;
        case 4:
            RefCopy(i);
            break;
        case 5:
            RawCopy(i);
            break;
        case 6:
            Join(i);
            break;
        case 7:
            Fragment(i);
            break;
        case 8:
            Cut(i);
            break;
        case 9:
            PullUp(i);
            break;
        case 10:
            Compress(i);
            break;
        case 11:
            Append(i);
            break;
        default:
            Prepend(i);
            break;
        }
    }

    void Create() {
        const u32 len = Rand(3000);
        const Bytes src = Pattern(len, Rand(1000));
        Add(MBUF_CreateByCopyBuffer(Rand(2049), len, src.data(), kType, kMod), src);
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
        const u32 len = Rand(std::min<u32>(3000, kMaxTotal - std::min(kMaxTotal, off)));
        const Bytes src = Pattern(len, Rand(1000));
        ASSERT_EQ(MBUF_CopyDataFromBufferToMBuf(bufs_[i], off, len, src.data(), kMod), 0u);
        Bytes &model = models_[i];
        model.resize(std::max<size_t>(model.size(), off + len));
        std::copy(src.begin(), src.end(), model.begin() + off);
    }

    void RefCopy(size_t i) {
        if (bufs_.size() >= kMaxBuffers) {
            return;
        }
        const u32 off = Rand(Total(i) + 1);
        const u32 len = Rand(Total(i) - off + 1);
        const Snapshot before = Take(bufs_[i]);
        MBUF *c = MBUF_ReferenceCopy(bufs_[i], off, len, kMod);
        ExpectFailedCleanly(c != nullptr, i, before);
        Add(c, Bytes(models_[i].begin() + off, models_[i].begin() + off + len));
    }

    void RawCopy(size_t i) {
        const u32 off = Rand(Total(i) + 1);
        const u32 len = Rand(Total(i) - off + 1);
        const Snapshot before = Take(bufs_[i]);
        if (bufs_.size() >= kMaxBuffers || Total(i) == 0) {
            return;
        }
        MBUF *c = MBUF_RawCopy(bufs_[i], off, len, Rand(301), kMod);
        ExpectFailedCleanly(c != nullptr, i, before);
        Add(c, Bytes(models_[i].begin() + off, models_[i].begin() + off + len));
    }

    void Join(size_t i) {
        const size_t j = Pick();
        if (i == j || Total(i) + Total(j) > kMaxTotal) {
            return;
        }
        const Snapshot before = Take(bufs_[i]);
        DataBlockDescriptor *last = nullptr;
        const bool neat = Rand(2) == 0;
        const u32 rc =
            neat ? MBUF_NeatConcatenate(bufs_[i], bufs_[j], &last, kMod) : MBUF_Concatenate(bufs_[i], bufs_[j], kMod);
        ExpectFailedCleanly(rc == 0, i, before);
        if (rc == 0) {
            EXPECT_TRUE(!neat || last == Descriptors(bufs_[i]).back());
            models_[i].insert(models_[i].end(), models_[j].begin(), models_[j].end());
            Remove(j);
        }
    }

    void Fragment(size_t i) {
        if (bufs_.size() >= kMaxBuffers) {
            return;
        }
        const u32 off = Rand(Total(i) + 1);
        const Snapshot before = Take(bufs_[i]);
        MBUF *rest = MBUF_Fragment(bufs_[i], off, kMod);
        ExpectFailedCleanly(rest != nullptr, i, before);
        if (rest != nullptr) {
            Bytes tail(models_[i].begin() + off, models_[i].end());
            models_[i].resize(off);
            Add(rest, std::move(tail));
        }
    }

    void Cut(size_t i) {
        const u32 which = Rand(4);
        if (which == 0 && !Unshared(i)) {
            return; // a cut inside a descriptor moves bytes inside a possibly shared block
        }
        const u32 off = Rand(Total(i) + 1);
        const u32 len = Rand(Total(i) - off + 1);
        Bytes &model = models_[i];
        if (which == 0) {
            ASSERT_EQ(MBUF_CutPart(bufs_[i], off, len), 0u);
            model.erase(model.begin() + off, model.begin() + off + len);
        } else if (which == 1) {
            ASSERT_EQ(MBUF_CutTail(bufs_[i], len), 0u);
            model.resize(model.size() - len);
        } else if (which == 2) {
            ASSERT_EQ(MBUF_CutAndFreeHead(bufs_[i], len), 0u);
            model.erase(model.begin(), model.begin() + len);
        } else {
            MBUF_CutHeadInMultiDataBlock(bufs_[i], len);
            model.erase(model.begin(), model.begin() + len);
        }
    }

    void PullUp(size_t i) {
        const u32 len = Rand(std::min<u32>(Total(i), MBUF_BLOCK_SIZE) + 1);
        const Snapshot before = Take(bufs_[i]);
        const u32 rc = MBUF_PullUp(bufs_[i], len, kMod);
        ExpectFailedCleanly(rc == 0, i, before);
        if (rc == 0) {
            EXPECT_EQ(bufs_[i]->firstDescriptor.dataLength, len);
        }
    }

    void Compress(size_t i) {
        const u32 count = 1 + Rand(bufs_[i]->dataBlockCount + 1);
        const Snapshot before = Take(bufs_[i]);
        const u32 rc = MBUF_Compress(bufs_[i], count, kMod);
        ExpectFailedCleanly(rc == 0, i, before);
        if (rc == 0) {
            EXPECT_EQ(bufs_[i]->dataBlockCount, count);
        }
    }

    void Append(size_t i) {
        const u32 len = Rand(MBUF_BLOCK_SIZE + 1);
        if (Total(i) + len > kMaxTotal) {
            return;
        }
        const Snapshot before = Take(bufs_[i]);
        u8 *space = MBUF_AppendMemorySpace(bufs_[i], len, kMod);
        ExpectFailedCleanly(space != nullptr, i, before);
        if (space != nullptr) {
            const Bytes fill = Pattern(len, Rand(1000));
            std::copy(fill.begin(), fill.end(), space);
            models_[i].insert(models_[i].end(), fill.begin(), fill.end());
        }
    }

    void Prepend(size_t i) {
        const u32 len = Rand(MBUF_BLOCK_SIZE + 1);
        if (Total(i) + len > kMaxTotal) {
            return;
        }
        const Snapshot before = Take(bufs_[i]);
        const u32 rc = MBUF_PrependDataBlock(bufs_[i], len, kMod);
        ExpectFailedCleanly(rc == 0, i, before);
        if (rc == 0) {
            const Bytes fill = Pattern(len, Rand(1000));
            std::copy(fill.begin(), fill.end(), bufs_[i]->firstDescriptor.data);
            models_[i].insert(models_[i].begin(), fill.begin(), fill.end());
        }
    }

    std::mt19937 rng_;
    std::vector<MBUF *> bufs_;
    std::vector<Bytes> models_;
    bool injected_ = false;
    u32 failures_ = 0;
    u32 sharedSeen_ = 0;
    u32 lastOp_ = 0;
};

class MbufRandomTest : public LeakCheckedTest {};

TEST_F(MbufRandomTest, MixedOperationsKeepContentsAndInvariants) {
    Sim sim(20240611u);
    for (int step = 0; step < 4000 && !HasFatalFailure(); ++step) {
        SCOPED_TRACE(step);
        sim.Step();
        if (HasFailure()) {
            break; // the first divergence is the interesting one
        }
    }
    // The sequence must have reached the failure paths and buffers sharing blocks.
    EXPECT_GT(sim.failures(), 20u);
    EXPECT_GT(sim.sharedSeen(), 20u);
}

} // namespace
} // namespace zol::test
