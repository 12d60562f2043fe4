// Internal to the stand-in platform: the block header, the pool's slabs and central lists, and the
// per-thread caches and counters that keep allocation and release free of locks on the hot path.
#ifndef RUK_MEM_INTERNAL_H
#define RUK_MEM_INTERNAL_H

#include <atomic>
#include <cstddef>
#include <mutex>

#include "ruk_types.h"

// Nothing here is part of the platform's interface: calls between these files stay direct.
#pragma GCC visibility push(hidden)

namespace plat {

// Precedes every payload. Size LP64: 32 bytes, so payloads keep the 16-byte alignment of block starts.
// `magic` is kMagicLive exactly while the block is allocated; `refs` is its reference count (0 once
// freed). `handle`, `size`, `file` and `line` describe the current allocation. A free block links to the
// next free one through `next` instead of `file`.
struct BlockHeader {
    std::atomic<u32> magic;
    std::atomic<u32> refs;
    u32 handle;
    u32 size; // bytes requested
    u32 line;
    u16 cls; // size class, or kLargeClass for a block straight from malloc
    u16 spare;
    union {
        const char *file;
        BlockHeader *next;
    };
};
static_assert(sizeof(BlockHeader) == 32, "the header must keep payloads 16-byte aligned");

constexpr u32 kMagicLive = 0x5A4D454Du;
constexpr u32 kMagicFree = 0x66726565u;
constexpr u16 kLargeClass = 0xFFFFu;
constexpr u32 kMaxHandles = 64;
// Size classes hold 32, 64, ... 65,536 bytes of payload; larger blocks come from malloc.
constexpr u32 kMinClassShift = 5;
constexpr u32 kMaxClassShift = 16;
constexpr u32 kClassCount = kMaxClassShift - kMinClassShift + 1;
constexpr u32 kMaxClassBytes = 1u << kMaxClassShift;
constexpr size_t kSlabShift = 20; // slabs of 1 MiB, each holding blocks of one class
constexpr size_t kSlabBytes = size_t{1} << kSlabShift;

constexpr u32 Capacity(u32 cls) {
    return 1u << (cls + kMinClassShift);
}
constexpr u32 Stride(u32 cls) {
    return static_cast<u32>(sizeof(BlockHeader)) + Capacity(cls);
}
inline u16 ClassOf(u32 ulSize) {
    return ulSize <= Capacity(0) ? 0 : static_cast<u16>(32 - __builtin_clz(ulSize - 1) - kMinClassShift);
}
// Whether x (below 2^20) is a multiple of a class's stride, without a division: q = x * ceil(2^40 / d)
// >> 40 equals x / d exactly for x < 2^20 and d <= 2^17, since the rounding error stays below 2^-20.
constexpr u64 StrideReciprocal(u32 cls) {
    return ((u64{1} << 40) + Stride(cls) - 1) / Stride(cls);
}
inline constexpr u64 kStrideReciprocals[kClassCount] = {
    StrideReciprocal(0), StrideReciprocal(1), StrideReciprocal(2),  StrideReciprocal(3),
    StrideReciprocal(4), StrideReciprocal(5), StrideReciprocal(6),  StrideReciprocal(7),
    StrideReciprocal(8), StrideReciprocal(9), StrideReciprocal(10), StrideReciprocal(11)};
static_assert(kClassCount == 12 && kSlabShift <= 20, "one reciprocal per class, offsets below 2^20");
inline bool OnStride(u32 x, u32 cls) {
    u64 quotient = (x * kStrideReciprocals[cls]) >> 40;
    return quotient * Stride(cls) == x;
}

// Blocks a thread keeps for itself per class: more of the small ones, few of the large ones.
constexpr u32 CacheLimit(u32 cls) {
    return cls <= 5 ? 32 : (cls <= 9 ? 8 : 4);
}
inline void *Payload(BlockHeader *pstBlock) {
    return pstBlock + 1;
}
inline u32 BlockCapacity(const BlockHeader *pstBlock) {
    return pstBlock->cls == kLargeClass ? pstBlock->size : Capacity(pstBlock->cls);
}

// ---- Slabs, central free lists and large blocks (ruk_mem_pool.cpp) ----

// One reserved address range, committed a slab at a time and never unmapped, so the header of a freed
// block stays readable and a double free is recognised by its magic; a pointer is validated by
// arithmetic alone. Constant-initialised and never torn down: blocks may be freed during exit.
class Arena {
  public:
    // A committed slab for the class, or null when the range or memory is exhausted.
    char *NewSlab(u16 cls);

    bool Contains(const void *p) const {
        size_t committed = slabs_.load(std::memory_order_acquire);
        return committed != 0 && (Offset(p) >> kSlabShift) < committed; // below the base wraps to huge
    }

    // The header of the block whose payload starts at p (Contains(p) holds), or null when p is not
    // exactly a payload start.
    BlockHeader *BlockAt(const void *p) const {
        uintptr_t offset = Offset(p);
        u32 inSlab = static_cast<u32>(offset & (kSlabBytes - 1));
        u16 cls = slabClass_[offset >> kSlabShift];
        if (inSlab < sizeof(BlockHeader) || !OnStride(inSlab - static_cast<u32>(sizeof(BlockHeader)), cls)) {
            return nullptr;
        }
        return static_cast<BlockHeader *>(const_cast<void *>(p)) - 1;
    }

  private:
    bool Reserve();
    uintptr_t Offset(const void *p) const {
        return reinterpret_cast<uintptr_t>(p) - reinterpret_cast<uintptr_t>(base_.load(std::memory_order_relaxed));
    }

    std::mutex growLock_;
    std::atomic<char *> base_{nullptr};
    size_t slabLimit_ = 0;         // written once under growLock_
    u16 *slabClass_ = nullptr;     // class of each committed slab; written before slabs_ moves past it
    std::atomic<size_t> slabs_{0}; // committed slabs, from the start of the range
};
extern Arena g_arena;

// Up to `want` blocks of the class, linked through `next`; fewer (possibly none) when memory runs out.
BlockHeader *CentralTake(u16 cls, u32 want, u32 *pulGot);
// Gives a list of blocks (first .. last) of one class back to the central list.
void CentralGive(u16 cls, BlockHeader *first, BlockHeader *last);
BlockHeader *TakeLarge(u32 ulSize);
void GiveLarge(BlockHeader *pstBlock);
// The header of a live large block whose payload starts at p, or null.
BlockHeader *FindLarge(const void *p);

// ---- Per-thread caches and counters (ruk_mem_thread.cpp) ----

// Live blocks and bytes per handle, kept per thread so that only one thread writes them (no locked
// instructions). They wrap: a thread that frees what another allocated holds "negative" amounts, and
// the sum over all threads is exact.
struct ThreadStats {
    std::atomic<u64> blocks[kMaxHandles];
    std::atomic<u64> bytes[kMaxHandles];
    ThreadStats *next;
};

// Trivially constructible and destructible, so it is usable at any time in the thread's life: once
// the thread ends, its cache is flushed and counters retired, and it is `closed` for good.
struct ThreadMem {
    BlockHeader *heads[kClassCount];
    u32 counts[kClassCount];
    ThreadStats *stats; // null until opened, or if it could not be created
    bool open;
    bool closed;
};
inline thread_local ThreadMem t_mem __attribute__((tls_model("initial-exec")));

// Prepares the thread's cache and counters on first use; false once the thread is ending.
bool OpenThread();
BlockHeader *RefillAndTake(u16 cls);
void GiveSlow(BlockHeader *pstBlock);
void SpillCache(u16 cls, u32 count);
void AccountShared(u32 ulHandle, u64 ullBlocks, u64 ullBytes);
// Sum of a handle's counters over all threads, past and present.
void SumStats(u32 ulHandle, u64 *pullBlocks, u64 *pullBytes);

// Adds (wrapping) deltas to a handle's live counters.
inline void Account(u32 ulHandle, u64 ullBlocks, u64 ullBytes) {
    ThreadStats *stats = t_mem.stats;
    if (stats == nullptr && OpenThread()) {
        stats = t_mem.stats;
    }
    if (stats == nullptr) {
        AccountShared(ulHandle, ullBlocks, ullBytes);
        return;
    }
    u32 i = ulHandle - 1;
    stats->blocks[i].store(stats->blocks[i].load(std::memory_order_relaxed) + ullBlocks, std::memory_order_relaxed);
    stats->bytes[i].store(stats->bytes[i].load(std::memory_order_relaxed) + ullBytes, std::memory_order_relaxed);
}

// A block able to hold ulSize bytes with `cls` set, other fields left to the caller; null when memory
// runs out. Pool blocks are recycled: their payload holds stale data.
inline BlockHeader *PoolTake(u32 ulSize) {
    if (ulSize > kMaxClassBytes) {
        return TakeLarge(ulSize);
    }
    u16 cls = ClassOf(ulSize);
    BlockHeader *block = t_mem.heads[cls];
    if (block == nullptr) {
        return RefillAndTake(cls);
    }
    t_mem.heads[cls] = block->next;
    --t_mem.counts[cls];
    return block;
}

// Returns a block whose last reference has gone (magic already cleared) to the pool.
inline void PoolGive(BlockHeader *pstBlock) {
    u16 cls = pstBlock->cls;
    if (cls == kLargeClass) {
        GiveLarge(pstBlock);
    } else if (!t_mem.open) {
        GiveSlow(pstBlock);
    } else {
        pstBlock->next = t_mem.heads[cls];
        t_mem.heads[cls] = pstBlock;
        if (++t_mem.counts[cls] > CacheLimit(cls)) {
            SpillCache(cls, CacheLimit(cls) / 2);
        }
    }
}

// The header of the block whose payload starts at p, whether live or free, or null when the pointer
// is not the start of a payload the pool handed out. Reads no memory outside the pool.
inline BlockHeader *PoolFind(const void *p) {
    return g_arena.Contains(p) ? g_arena.BlockAt(p) : FindLarge(p);
}

} // namespace plat

#pragma GCC visibility pop

#endif // RUK_MEM_INTERNAL_H
