// The pool's shared parts: the reserved range cut into slabs, one central free list per size class,
// large blocks straight from malloc with a registry of the live ones, and the count of live blocks.
#include <cstdlib>
#include <new>
#include <sys/mman.h>
#include <unordered_set>

#include "ruk_mem_internal.h"

namespace plat {
namespace {

constexpr size_t kMinReserve = size_t{256} << 20;

// Central state of one class: free blocks and the unused end of its newest slab.
struct alignas(64) SizeClass {
    std::mutex lock;
    BlockHeader *free = nullptr; // guarded by lock
    char *cursor = nullptr;      // next block to carve; guarded by lock
    char *end = nullptr;         // end of the newest slab; guarded by lock
};

// Constant-initialised and never torn down, like the arena.
SizeClass g_classes[kClassCount];

// Live large blocks, so that a pointer is checked before its header is read: a freed large block goes
// back to malloc and may be unmapped.
struct LargeBlocks {
    std::mutex lock;
    std::unordered_set<const void *> live; // guarded by lock
};

LargeBlocks &Large() {
    static LargeBlocks *large = new LargeBlocks(); // never destroyed: frees may run during exit
    return *large;
}

} // namespace

Arena g_arena;

bool Arena::Reserve() {
    for (size_t bytes = kMaxReserve; bytes >= kMinReserve; bytes /= 2) {
        void *range = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (range != MAP_FAILED) {
            slabLimit_ = bytes >> kSlabShift;
            base_.store(reinterpret_cast<uintptr_t>(range), std::memory_order_relaxed); // published by slabs_
            return true;
        }
    }
    return false;
}

char *Arena::NewSlab(u16 cls) {
    std::lock_guard<std::mutex> guard(growLock_);
    if (base_.load(std::memory_order_relaxed) == 0 && !Reserve()) {
        return nullptr;
    }
    size_t index = slabs_.load(std::memory_order_relaxed);
    if (index >= slabLimit_) {
        return nullptr;
    }
    char *slab = reinterpret_cast<char *>(base_.load(std::memory_order_relaxed) + (index << kSlabShift));
    if (mprotect(slab, kSlabBytes, PROT_READ | PROT_WRITE) != 0) {
        return nullptr;
    }
    slabInfo_[index] = SlabInfoFor(cls);
    slabs_.store(index + 1, std::memory_order_release); // publishes base_ and slabInfo_[index]
    return slab;
}

void Arena::NoteCarved(const char *end) {
    uintptr_t offset = reinterpret_cast<uintptr_t>(end - 1) - base_.load(std::memory_order_relaxed);
    u32 bytes = static_cast<u32>((offset & (kSlabBytes - 1)) + 1);
    carved_[offset >> kSlabShift].store(bytes, std::memory_order_release); // after the carved headers
}

void Arena::CountLive(u32 ulHandle, u64 *pullBlocks, u64 *pullBytes) const {
    size_t committed = slabs_.load(std::memory_order_acquire);
    const char *base = reinterpret_cast<const char *>(base_.load(std::memory_order_relaxed));
    for (size_t slab = 0; slab < committed; ++slab) {
        u32 stride = Stride(slabInfo_[slab].cls);
        u32 carved = carved_[slab].load(std::memory_order_acquire);
        const char *start = base + (slab << kSlabShift);
        for (u32 at = 0; at + stride <= carved; at += stride) {
            CountIfLive(reinterpret_cast<const BlockHeader *>(start + at), ulHandle, pullBlocks, pullBytes);
        }
    }
}

BlockHeader *CentralTake(u16 cls, u32 want, u32 *pulGot) {
    SizeClass &sc = g_classes[cls];
    std::lock_guard<std::mutex> guard(sc.lock);
    BlockHeader *list = nullptr;
    u32 got = 0;
    for (; got < want && sc.free != nullptr; ++got) {
        BlockHeader *block = sc.free;
        sc.free = block->next;
        block->next = list;
        list = block;
    }
    for (; got < want; ++got) {
        if (sc.cursor == nullptr || static_cast<size_t>(sc.end - sc.cursor) < Stride(cls)) {
            sc.cursor = g_arena.NewSlab(cls);
            if (sc.cursor == nullptr) {
                break;
            }
            sc.end = sc.cursor + kSlabBytes;
        }
        BlockHeader *block = reinterpret_cast<BlockHeader *>(sc.cursor);
        sc.cursor += Stride(cls);
        block->state.store(kStateFree, std::memory_order_relaxed);
        block->cls = cls;
        block->next = list;
        list = block;
        g_arena.NoteCarved(sc.cursor);
    }
    *pulGot = got;
    return list;
}

void CentralGive(u16 cls, BlockHeader *first, BlockHeader *last) {
    SizeClass &sc = g_classes[cls];
    std::lock_guard<std::mutex> guard(sc.lock);
    last->next = sc.free;
    sc.free = first;
}

BlockHeader *TakeLarge(u32 ulSize) {
    void *raw = std::malloc(sizeof(BlockHeader) + ulSize);
    if (raw == nullptr) {
        return nullptr;
    }
    BlockHeader *block = new (raw) BlockHeader;
    block->state.store(kStateFree, std::memory_order_relaxed); // counted only once checked out
    block->cls = kLargeClass;
    block->size.store(ulSize, std::memory_order_relaxed);
    LargeBlocks &large = Large();
    std::lock_guard<std::mutex> guard(large.lock);
    try {
        large.live.insert(Payload(block));
    } catch (const std::bad_alloc &) { // out of memory is a null result, never an abort
        std::free(raw);
        return nullptr;
    }
    return block;
}

void GiveLarge(BlockHeader *pstBlock) {
    {
        LargeBlocks &large = Large();
        std::lock_guard<std::mutex> guard(large.lock);
        large.live.erase(Payload(pstBlock));
    }
    pstBlock->~BlockHeader();
    std::free(pstBlock);
}

BlockHeader *FindLarge(const void *p) {
    LargeBlocks &large = Large();
    std::lock_guard<std::mutex> guard(large.lock);
    return large.live.count(p) != 0 ? static_cast<BlockHeader *>(const_cast<void *>(p)) - 1 : nullptr;
}

void CountLive(u32 ulHandle, u64 *pullBlocks, u64 *pullBytes) {
    *pullBlocks = 0;
    *pullBytes = 0;
    g_arena.CountLive(ulHandle, pullBlocks, pullBytes);
    LargeBlocks &large = Large();
    std::lock_guard<std::mutex> guard(large.lock); // a registered block stays allocated while it is held
    for (const void *payload : large.live) {
        CountIfLive(static_cast<const BlockHeader *>(payload) - 1, ulHandle, pullBlocks, pullBytes);
    }
}

} // namespace plat
