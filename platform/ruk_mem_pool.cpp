// The pool's shared parts: the reserved range cut into slabs, one central free list per size class,
// and large blocks straight from malloc with a registry of the live ones.
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
    block->cls = kLargeClass;
    block->size = ulSize;
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

} // namespace plat
