// The memory service of the stand-in platform: named handles, reference-counted blocks tagged with the
// caller's position, live blocks counted per handle, and detection of double and foreign frees.
#include "ruk_mem.h"

#include <cstring>
#include <new>

#include "ruk_mem_internal.h"
#include "standin_ctl.h"

u8 g_ucSysMemPtNo = 0;

namespace plat {
namespace {

// Handles are 1..count; a handle's name never changes once registered. Constant-initialised, so the
// hot paths pay no initialisation guard.
struct HandleRegistry {
    std::mutex lock;
    std::atomic<u32> count{0};
    const char *names[kMaxHandles] = {}; // written under lock before `count` covers them
};
HandleRegistry g_handles;

inline bool KnownHandle(u32 ulHandle) {
    return ulHandle - 1 < g_handles.count.load(std::memory_order_acquire); // handle 0 wraps to huge
}

// The header of a live block, or null for null, foreign or freed pointers.
BlockHeader *LiveBlock(const void *pBlock) {
    BlockHeader *block = PoolFind(pBlock);
    if (block == nullptr || MagicOf(block->state.load(std::memory_order_acquire)) != kMagicLive) {
        return nullptr;
    }
    return block;
}

// A block for ulSize bytes through the slow ways: first use of the thread, an empty cache, a large
// size, or a thread that has no cache (ending).
BlockHeader *Take(u32 ulSize) {
    if (ulSize > kMaxClassBytes) {
        return TakeLarge(ulSize);
    }
    u16 cls = static_cast<u16>(ClassOf(ulSize));
    u32 got = 0;
    if (!OpenThread()) {
        return CentralTake(cls, 1, &got);
    }
    BlockHeader *block = t_mem.heads[cls];
    if (block == nullptr) {
        return RefillAndTake(cls);
    }
    t_mem.heads[cls] = block->next;
    ++t_mem.room[cls];
    return block;
}

void *Allocate(u32 ulHandle, u32 ulSize, const char *pcFile, u32 ulLine) {
    if (ulSize == 0 || !KnownHandle(ulHandle)) {
        return nullptr;
    }
    BlockHeader *block = Take(ulSize);
    if (block == nullptr) {
        return nullptr;
    }
    return CheckOut(block, ulHandle, ulSize, pcFile, ulLine);
}

// Everything RUK_MemAlloc_F does when its fast path does not apply.
__attribute__((noinline)) void *AllocateSlow(u32 ulHandle, u32 ulSize, const char *pcFile, u32 ulLine) {
    if (FaultHit("RUK_MemAlloc_F")) {
        return nullptr;
    }
    return Allocate(ulHandle, ulSize, pcFile, ulLine);
}

// Frees a block whose last reference has just gone (its state is free already).
void Release(BlockHeader *block) {
    if (block->cls == kLargeClass) {
        GiveLarge(block);
        return;
    }
    PLAT_POISON(Payload(block), BlockCapacity(block));
    if (OpenThread()) {
        CacheBlock(t_mem, block);
    } else {
        CentralGive(block->cls, block, block);
    }
}

// Everything RUK_MemFree_F does when its fast path does not apply: shared blocks, large blocks, bad
// pointers, threads without a cache and injected failures.
__attribute__((noinline)) u32 FreeSlow(void *pBlock) {
    if (FaultHit("RUK_MemFree_F")) {
        return RUK_ERR_INJECTED;
    }
    BlockHeader *block = PoolFind(pBlock);
    if (block == nullptr) {
        return RUK_ERR_BAD_BLOCK;
    }
    u64 state = block->state.load(std::memory_order_acquire);
    u64 next = 0;
    do {
        if (MagicOf(state) != kMagicLive || RefsOf(state) == 0) {
            return RUK_ERR_BAD_BLOCK; // freed already, possibly by another holder meanwhile
        }
        next = RefsOf(state) == 1 ? kStateFree : state - kOneRef;
    } while (!block->state.compare_exchange_weak(state, next, std::memory_order_acq_rel));
    if (next == kStateFree) {
        Release(block);
    }
    return RUK_OK;
}

// Moves a block's bytes into a fresh block of the new size and frees the old one, whose only
// reference the caller holds.
void *Move(BlockHeader *old, u32 ulHandle, u32 ulSize, const char *pcFile, u32 ulLine) {
    void *fresh = Allocate(ulHandle, ulSize, pcFile, ulLine);
    if (fresh != nullptr) {
        u32 oldSize = old->size.load(std::memory_order_relaxed);
        std::memcpy(fresh, Payload(old), oldSize < ulSize ? oldSize : ulSize);
        old->state.store(kStateFree, std::memory_order_release);
        Release(old);
    }
    return fresh;
}

} // namespace
} // namespace plat

extern "C" u32 RUK_HandleInitialize(const char *pcName, u32 *pulHandle) {
    if (plat::FaultHit("RUK_HandleInitialize")) {
        return RUK_ERR_INJECTED;
    }
    if (pcName == nullptr || pcName[0] == '\0' || pulHandle == nullptr) {
        return RUK_ERR_PARAM;
    }
    plat::HandleRegistry &registry = plat::g_handles;
    std::lock_guard<std::mutex> guard(registry.lock);
    u32 count = registry.count.load(std::memory_order_relaxed);
    for (u32 i = 0; i < count; ++i) {
        if (std::strcmp(registry.names[i], pcName) == 0) {
            *pulHandle = i + 1;
            return RUK_OK;
        }
    }
    size_t len = std::strlen(pcName);
    char *name = count < plat::kMaxHandles ? new (std::nothrow) char[len + 1] : nullptr;
    if (name == nullptr) {
        return RUK_ERR_NOMEM;
    }
    std::memcpy(name, pcName, len + 1);
    registry.names[count] = name;
    registry.count.store(count + 1, std::memory_order_release);
    *pulHandle = count + 1;
    return RUK_OK;
}

// The fast path serves a small block from the thread's cache with no call and no locked instruction;
// anything else goes to AllocateSlow, which also consults the fault injection.
extern "C" void *RUK_MemAlloc_F(u32 ulHandle, u8 ucPtNo, u32 ulSize, const char *pcFile, u32 ulLine) {
    (void)ucPtNo; // the stand-in has one partition
    plat::ThreadMem &t = plat::t_mem;
    if (PLAT_LIKELY(!plat::FaultsPending() && ulSize - 1 < plat::kMaxClassBytes && plat::KnownHandle(ulHandle))) {
        u32 cls = plat::ClassOf(ulSize);
        plat::BlockHeader *block = t.heads[cls];
        if (PLAT_LIKELY(block != nullptr)) { // a cached block means the thread is open
            t.heads[cls] = block->next;
            ++t.room[cls];
            return plat::CheckOut(block, ulHandle, ulSize, pcFile, ulLine);
        }
    }
    return plat::AllocateSlow(ulHandle, ulSize, pcFile, ulLine);
}

extern "C" void *RUK_MemReAlloc_F(u32 ulHandle, u8 ucPtNo, void *pBlock, u32 ulSize, const char *pcFile, u32 ulLine) {
    (void)ucPtNo;
    if (plat::FaultHit("RUK_MemReAlloc_F")) {
        return nullptr;
    }
    if (pBlock == nullptr) {
        return plat::Allocate(ulHandle, ulSize, pcFile, ulLine);
    }
    plat::BlockHeader *block = plat::LiveBlock(pBlock);
    if (block == nullptr || !plat::KnownHandle(ulHandle) || ulSize == 0 ||
        plat::RefsOf(block->state.load(std::memory_order_acquire)) != 1) {
        return nullptr; // a shared block cannot move or shrink under its other holders
    }
    // A block stays where it is when the new size falls in its own class (and handle).
    if (block->cls == plat::kLargeClass || ulSize > plat::kMaxClassBytes || plat::ClassOf(ulSize) != block->cls ||
        block->handle.load(std::memory_order_relaxed) != ulHandle) {
        return plat::Move(block, ulHandle, ulSize, pcFile, ulLine);
    }
    block->size.store(ulSize, std::memory_order_relaxed);
    block->file = pcFile;
    block->line = ulLine;
    plat::ExposeOnly(block, ulSize);
    return pBlock;
}

// The fast path releases the only reference of a pool block into the thread's cache; shared blocks,
// large blocks, bad pointers and injected failures go to FreeSlow.
extern "C" u32 RUK_MemFree_F(u32 ulHandle, void *pBlock, const char *pcFile, u32 ulLine) {
    (void)ulHandle; // the block's own handle is charged, whatever the caller says
    (void)pcFile;
    (void)ulLine;
    plat::ThreadMem &t = plat::t_mem;
    if (PLAT_LIKELY(!plat::FaultsPending() && t.open)) {
        plat::BlockHeader *block = plat::g_arena.BlockAt(pBlock);
        u64 state = block != nullptr ? block->state.load(std::memory_order_acquire) : 0;
        if (PLAT_LIKELY(state == plat::kStateSingle)) {
            // The caller holds the only reference, so nobody else may touch the state: no locked update.
            block->state.store(plat::kStateFree, std::memory_order_release);
            PLAT_POISON(plat::Payload(block), plat::Capacity(block->cls));
            plat::CacheBlock(t, block);
            return RUK_OK;
        }
        // A shared block loses one reference and stays; the slow path handles whatever else raced in.
        if (plat::MagicOf(state) == plat::kMagicLive && plat::RefsOf(state) > 1 &&
            block->state.compare_exchange_strong(state, state - plat::kOneRef, std::memory_order_acq_rel)) {
            return RUK_OK;
        }
    }
    return plat::FreeSlow(pBlock);
}

extern "C" u32 RUK_MemRefInc(void *pBlock) {
    if (plat::FaultHit("RUK_MemRefInc")) {
        return RUK_ERR_INJECTED;
    }
    plat::BlockHeader *block = plat::PoolFind(pBlock);
    if (block == nullptr) {
        return RUK_ERR_BAD_BLOCK;
    }
    u64 state = block->state.load(std::memory_order_relaxed);
    do {
        if (plat::MagicOf(state) != plat::kMagicLive || plat::RefsOf(state) == 0 || plat::RefsOf(state) == UINT32_MAX) {
            return RUK_ERR_BAD_BLOCK;
        }
    } while (!block->state.compare_exchange_weak(state, state + plat::kOneRef, std::memory_order_relaxed));
    return RUK_OK;
}

extern "C" u32 RUK_MemRefGet(void *pBlock, u32 *pulCount) {
    if (plat::FaultHit("RUK_MemRefGet")) {
        return RUK_ERR_INJECTED;
    }
    if (pulCount == nullptr) {
        return RUK_ERR_PARAM;
    }
    plat::BlockHeader *block = plat::LiveBlock(pBlock);
    if (block == nullptr) {
        return RUK_ERR_BAD_BLOCK;
    }
    *pulCount = plat::RefsOf(block->state.load(std::memory_order_acquire));
    return RUK_OK;
}

extern "C" void PLAT_MemStats(u32 ulHandle, u64 *pullLiveBlocks, u64 *pullLiveBytes) {
    u64 blocks = 0, bytes = 0;
    if (plat::KnownHandle(ulHandle)) {
        plat::CountLive(ulHandle, &blocks, &bytes);
    }
    if (pullLiveBlocks != nullptr) {
        *pullLiveBlocks = blocks;
    }
    if (pullLiveBytes != nullptr) {
        *pullLiveBytes = bytes;
    }
}
