// Internal to the stand-in platform: the block header, the pool's slabs and central lists, and the
// per-thread caches and counters that keep allocation and release free of locks on the hot path.
#ifndef RUK_MEM_INTERNAL_H
#define RUK_MEM_INTERNAL_H

#include <atomic>
#include <cstddef>
#include <mutex>

#include "plat_fault.h"
#include "ruk_types.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define PLAT_POISON(addr, size) ASAN_POISON_MEMORY_REGION((addr), (size))
#define PLAT_UNPOISON(addr, size) ASAN_UNPOISON_MEMORY_REGION((addr), (size))
#else
// Unevaluated elsewhere, so the size expressions cost no loads on the hot paths.
#define PLAT_POISON(addr, size) ((void)sizeof(addr), (void)sizeof(size))
#define PLAT_UNPOISON(addr, size) ((void)sizeof(addr), (void)sizeof(size))
#endif

#define PLAT_LIKELY(x) __builtin_expect(!!(x), 1)
#define PLAT_UNLIKELY(x) __builtin_expect(!!(x), 0)

// Nothing here is part of the platform's interface: calls between these files stay direct.
#pragma GCC visibility push(hidden)

namespace plat {

// Precedes every payload. Size LP64: 32 bytes, so payloads keep the 16-byte alignment of block starts.
// `state` holds the magic in its low half (kMagicLive exactly while the block is allocated) and the
// reference count in its high half (0 once freed), so that the release of a block checked out once is
// decided by one load and one compare. `handle`, `size`, `file` and `line` describe the current
// allocation; `handle` and `size` are atomic (relaxed, plain moves) because PLAT_MemStats reads them
// while other threads allocate. A free block links to the next free one through `next` instead of `file`.
struct BlockHeader {
    std::atomic<u64> state;
    std::atomic<u32> handle;
    std::atomic<u32> size; // bytes requested
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
constexpr u64 kOneRef = u64{1} << 32;
constexpr u64 kStateFree = kMagicFree;             // no references
constexpr u64 kStateSingle = kMagicLive | kOneRef; // live with one reference
inline u32 MagicOf(u64 state) {
    return static_cast<u32>(state);
}
inline u32 RefsOf(u64 state) {
    return static_cast<u32>(state >> 32);
}

constexpr u16 kLargeClass = 0xFFFFu;
constexpr u32 kMaxHandles = 64;
// Size classes hold 32, 64, ... 65,536 bytes of payload; larger blocks come from malloc.
constexpr u32 kMinClassShift = 5;
constexpr u32 kMaxClassShift = 16;
constexpr u32 kClassCount = kMaxClassShift - kMinClassShift + 1;
constexpr u32 kMaxClassBytes = 1u << kMaxClassShift;
constexpr size_t kSlabShift = 20; // slabs of 1 MiB, each holding blocks of one class
constexpr size_t kSlabBytes = size_t{1} << kSlabShift;
constexpr size_t kMaxReserve = size_t{8} << 30;
constexpr size_t kMaxSlabs = kMaxReserve >> kSlabShift;

constexpr u32 Capacity(u32 cls) {
    return 1u << (cls + kMinClassShift);
}
constexpr u32 Stride(u32 cls) {
    return static_cast<u32>(sizeof(BlockHeader)) + Capacity(cls);
}
// The smallest class holding ulSize (1..kMaxClassBytes) bytes, without a branch: sizes up to the
// smallest capacity share its bit length.
inline u32 ClassOf(u32 ulSize) {
    return 32 - kMinClassShift - static_cast<u32>(__builtin_clz((ulSize - 1) | (Capacity(0) - 1)));
}

// Blocks a thread keeps for itself per class: more of the small ones, few of the large ones.
inline constexpr u8 kCacheLimit[kClassCount] = {32, 32, 32, 32, 32, 32, 8, 8, 8, 8, 4, 4};

inline void *Payload(BlockHeader *pstBlock) {
    return pstBlock + 1;
}
inline u32 BlockCapacity(const BlockHeader *pstBlock) {
    return pstBlock->cls == kLargeClass ? pstBlock->size.load(std::memory_order_relaxed) : Capacity(pstBlock->cls);
}

// ---- Slabs, central free lists and large blocks (ruk_mem_pool.cpp) ----

// What a pointer check needs of a slab: whether an offset x is a multiple of the class's stride
// s = 2^shift * d (d odd) is one multiplication: x * d^-1 mod 2^32, rotated right by shift, is at most
// (2^32 - 1) / s exactly for the multiples of s (the exact-division test compilers use for x % s == 0).
struct SlabInfo {
    u32 inverse; // d^-1 modulo 2^32
    u32 limit;   // (2^32 - 1) / s
    u32 shift;
    u32 cls;
};

constexpr SlabInfo SlabInfoFor(u32 cls) {
    u32 shift = static_cast<u32>(__builtin_ctz(Stride(cls)));
    u32 odd = Stride(cls) >> shift;
    u32 inverse = odd; // Newton's iteration doubles the correct low bits: 3 -> 6 -> 12 -> 24 -> 48
    for (int i = 0; i < 4; ++i) {
        inverse *= 2u - odd * inverse;
    }
    return SlabInfo{inverse, 0xFFFFFFFFu / Stride(cls), shift, cls};
}

constexpr bool IsMultipleOf(u32 x, const SlabInfo &info) {
    u32 q = x * info.inverse;
    return ((q >> info.shift) | (q << ((32u - info.shift) & 31u))) <= info.limit;
}

constexpr bool SlabInfosHold() {
    for (u32 cls = 0; cls < kClassCount; ++cls) {
        SlabInfo info = SlabInfoFor(cls);
        u32 s = Stride(cls);
        if ((s >> info.shift) * info.inverse != 1u || !IsMultipleOf(s, info) || IsMultipleOf(s - 16, info) ||
            IsMultipleOf(s + 16, info) || !IsMultipleOf(s * 7, info) || IsMultipleOf(s * 7 + 32, info)) {
            return false;
        }
    }
    return true;
}
static_assert(SlabInfosHold(), "the exact-division test must hold for every class");

// One reserved address range, committed a slab at a time and never unmapped, so the header of a freed
// block stays readable and a double free is recognised by its magic; a pointer is validated by
// arithmetic alone. Constant-initialised and never torn down: blocks may be freed during exit.
class Arena {
  public:
    // A committed slab for the class, or null when the range or memory is exhausted.
    char *NewSlab(u16 cls);

    // The header of the pool block whose payload starts at p, whether live or free, or null when p is not
    // exactly such a payload start (null, outside the committed slabs, or inside a block).
    BlockHeader *BlockAt(const void *p) const {
        size_t committed = slabs_.load(std::memory_order_acquire); // publishes base_ and slabInfo_
        uintptr_t offset = reinterpret_cast<uintptr_t>(p) - base_.load(std::memory_order_relaxed);
        size_t slab = offset >> kSlabShift; // below the base wraps to huge
        if (PLAT_UNLIKELY(slab >= committed)) {
            return nullptr;
        }
        const SlabInfo &info = slabInfo_[slab];
        u32 at = static_cast<u32>(offset & (kSlabBytes - 1)) - static_cast<u32>(sizeof(BlockHeader));
        if (PLAT_UNLIKELY(at >= kSlabBytes) || PLAT_UNLIKELY(!IsMultipleOf(at, info))) {
            return nullptr; // the payload of a block cannot start in the first header's place
        }
        return static_cast<BlockHeader *>(const_cast<void *>(p)) - 1;
    }

    // Records that blocks have been carved from the slab up to `end` (under the class's lock).
    void NoteCarved(const char *end);
    // Adds up the live blocks of a handle, and their requested bytes, over the carved part of every slab.
    void CountLive(u32 ulHandle, u64 *pullBlocks, u64 *pullBytes) const;

  private:
    bool Reserve();

    std::mutex growLock_;
    std::atomic<uintptr_t> base_{0};
    size_t slabLimit_ = 0;                    // written once under growLock_
    std::atomic<size_t> slabs_{0};            // committed slabs, from the start of the range
    SlabInfo slabInfo_[kMaxSlabs] = {};       // an entry is written before slabs_ moves past it
    std::atomic<u32> carved_[kMaxSlabs] = {}; // bytes carved from the start of each slab
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
// The live blocks of a handle and their requested bytes, pool and large, as the headers say now. The pool
// keeps no counters on its hot paths: this walk serves PLAT_MemStats, a test control.
void CountLive(u32 ulHandle, u64 *pullBlocks, u64 *pullBytes);

inline void CountIfLive(const BlockHeader *pstBlock, u32 ulHandle, u64 *pullBlocks, u64 *pullBytes) {
    if (MagicOf(pstBlock->state.load(std::memory_order_acquire)) == kMagicLive &&
        pstBlock->handle.load(std::memory_order_relaxed) == ulHandle) {
        ++*pullBlocks;
        *pullBytes += pstBlock->size.load(std::memory_order_relaxed);
    }
}

// The header of the block whose payload starts at p, whether live or free, or null when the pointer
// is not the start of a payload the pool handed out. Reads no memory outside the pool.
inline BlockHeader *PoolFind(const void *p) {
    BlockHeader *block = g_arena.BlockAt(p);
    return block != nullptr ? block : FindLarge(p);
}

// ---- Per-thread caches (ruk_mem_thread.cpp) ----

// Trivially constructible and destructible, so it is usable at any time in the thread's life. `open` is
// set while the thread uses its cache (from its first use) and cleared when the thread's end has flushed
// the cache (`closed`): from then on every call of the thread takes the shared slow paths.
struct ThreadMem {
    BlockHeader *heads[kClassCount]; // non-empty only while open
    u32 room[kClassCount];           // blocks the cache takes before it overflows: kCacheLimit - cached
    bool open;
    bool closed;
};
inline thread_local ThreadMem t_mem __attribute__((tls_model("initial-exec")));

// Prepares the thread's cache on first use; false once the thread is ending.
bool OpenThread();
// A block of the class for an open thread whose cache of it is empty, or null when memory runs out.
BlockHeader *RefillAndTake(u16 cls);
void SpillCache(u16 cls, u32 count);

// Under ASan exactly the requested bytes are addressable, so overruns into the rest of the class and
// uses after free are caught although the pool recycles blocks instead of returning them to malloc.
inline void ExposeOnly(BlockHeader *pstBlock, u32 ulSize) {
    PLAT_UNPOISON(Payload(pstBlock), ulSize);
    PLAT_POISON(static_cast<char *>(Payload(pstBlock)) + ulSize, BlockCapacity(pstBlock) - ulSize);
}

// Marks a block taken from the pool as the caller's, with one reference (the caller counts it).
inline void *CheckOut(BlockHeader *pstBlock, u32 ulHandle, u32 ulSize, const char *pcFile, u32 ulLine) {
    pstBlock->handle.store(ulHandle, std::memory_order_relaxed);
    pstBlock->size.store(ulSize, std::memory_order_relaxed);
    pstBlock->line = ulLine;
    pstBlock->file = pcFile;
    pstBlock->state.store(kStateSingle, std::memory_order_release);
    ExposeOnly(pstBlock, ulSize);
    return Payload(pstBlock);
}

// Puts a pool block whose last reference has gone (state already free) in the thread's cache, giving
// half of it back to the central list when it is full.
inline void CacheBlock(ThreadMem &t, BlockHeader *pstBlock) {
    u16 cls = pstBlock->cls;
    pstBlock->next = t.heads[cls];
    t.heads[cls] = pstBlock;
    if (PLAT_UNLIKELY(--t.room[cls] == 0)) {
        SpillCache(cls, kCacheLimit[cls] / 2u);
    }
}

inline bool FaultsPending() {
    return PLAT_UNLIKELY(g_faultPendingNames.load(std::memory_order_relaxed) != 0);
}

} // namespace plat

#pragma GCC visibility pop

#endif // RUK_MEM_INTERNAL_H
