// The memory service of the stand-in platform: named handles, reference-counted blocks tagged with the
// caller's position, live counters per handle, and detection of double and foreign frees.
#include "ruk_mem.h"

#include <cstring>
#include <new>

#include "plat_fault.h"
#include "ruk_mem_internal.h"
#include "standin_ctl.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define PLAT_POISON(addr, size) ASAN_POISON_MEMORY_REGION((addr), (size))
#define PLAT_UNPOISON(addr, size) ASAN_UNPOISON_MEMORY_REGION((addr), (size))
#else
#define PLAT_POISON(addr, size) ((void)(addr), (void)(size))
#define PLAT_UNPOISON(addr, size) ((void)(addr), (void)(size))
#endif

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

bool KnownHandle(u32 ulHandle) {
    return ulHandle != 0 && ulHandle <= g_handles.count.load(std::memory_order_acquire);
}

// The header of a live block, or null for null, foreign or freed pointers.
BlockHeader *LiveBlock(const void *pBlock) {
    if (pBlock == nullptr || (reinterpret_cast<uintptr_t>(pBlock) & 15) != 0) {
        return nullptr;
    }
    BlockHeader *block = PoolFind(pBlock);
    if (block == nullptr || block->magic.load(std::memory_order_acquire) != kMagicLive) {
        return nullptr;
    }
    return block;
}

// Under ASan exactly the requested bytes are addressable, so overruns into the rest of the class and
// uses after free are caught although the pool recycles blocks instead of returning them to malloc.
void ExposeOnly(BlockHeader *block, u32 ulSize) {
    PLAT_UNPOISON(Payload(block), ulSize);
    PLAT_POISON(static_cast<char *>(Payload(block)) + ulSize, BlockCapacity(block) - ulSize);
}

void *Allocate(u32 ulHandle, u32 ulSize, const char *pcFile, u32 ulLine) {
    if (ulSize == 0 || !KnownHandle(ulHandle)) {
        return nullptr;
    }
    BlockHeader *block = PoolTake(ulSize);
    if (block == nullptr) {
        return nullptr;
    }
    block->handle = ulHandle;
    block->size = ulSize;
    block->file = pcFile;
    block->line = ulLine;
    block->refs.store(1, std::memory_order_relaxed);
    block->magic.store(kMagicLive, std::memory_order_release);
    ExposeOnly(block, ulSize);
    Account(ulHandle, 1, ulSize);
    return Payload(block);
}

// Frees a block whose last reference has just gone.
void Release(BlockHeader *block) {
    block->magic.store(kMagicFree, std::memory_order_release);
    Account(block->handle, ~u64{0}, u64{0} - block->size);
    if (block->cls != kLargeClass) {
        PLAT_POISON(Payload(block), BlockCapacity(block));
    }
    PoolGive(block);
}

// Moves a block's bytes into a fresh block of the new size and frees the old one.
void *Move(BlockHeader *old, u32 ulHandle, u32 ulSize, const char *pcFile, u32 ulLine) {
    void *fresh = Allocate(ulHandle, ulSize, pcFile, ulLine);
    if (fresh != nullptr) {
        std::memcpy(fresh, Payload(old), old->size < ulSize ? old->size : ulSize);
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

extern "C" void *RUK_MemAlloc_F(u32 ulHandle, u8 ucPtNo, u32 ulSize, const char *pcFile, u32 ulLine) {
    (void)ucPtNo; // the stand-in has one partition
    if (plat::FaultHit("RUK_MemAlloc_F")) {
        return nullptr;
    }
    return plat::Allocate(ulHandle, ulSize, pcFile, ulLine);
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
        block->refs.load(std::memory_order_acquire) != 1) {
        return nullptr; // a shared block cannot move or shrink under its other holders
    }
    // A block stays where it is when the new size falls in its own class (and handle).
    if (block->cls == plat::kLargeClass || plat::ClassOf(ulSize) != block->cls || block->handle != ulHandle) {
        return plat::Move(block, ulHandle, ulSize, pcFile, ulLine);
    }
    plat::Account(ulHandle, 0, static_cast<u64>(ulSize) - block->size);
    block->size = ulSize;
    block->file = pcFile;
    block->line = ulLine;
    plat::ExposeOnly(block, ulSize);
    return pBlock;
}

extern "C" u32 RUK_MemFree_F(u32 ulHandle, void *pBlock, const char *pcFile, u32 ulLine) {
    (void)ulHandle; // the block's own handle is charged, whatever the caller says
    (void)pcFile;
    (void)ulLine;
    if (plat::FaultHit("RUK_MemFree_F")) {
        return RUK_ERR_INJECTED;
    }
    plat::BlockHeader *block = plat::LiveBlock(pBlock);
    if (block == nullptr) {
        return RUK_ERR_BAD_BLOCK;
    }
    u32 refs = block->refs.load(std::memory_order_acquire);
    if (refs == 1) {
        // The caller holds the only reference, so nobody else may touch the count: no locked update.
        block->refs.store(0, std::memory_order_relaxed);
        plat::Release(block);
        return RUK_OK;
    }
    do {
        if (refs == 0) {
            return RUK_ERR_BAD_BLOCK; // another thread dropped the last reference meanwhile
        }
    } while (!block->refs.compare_exchange_weak(refs, refs - 1, std::memory_order_acq_rel));
    if (refs == 1) {
        plat::Release(block);
    }
    return RUK_OK;
}

extern "C" u32 RUK_MemRefInc(void *pBlock) {
    if (plat::FaultHit("RUK_MemRefInc")) {
        return RUK_ERR_INJECTED;
    }
    plat::BlockHeader *block = plat::LiveBlock(pBlock);
    if (block == nullptr) {
        return RUK_ERR_BAD_BLOCK;
    }
    u32 refs = block->refs.load(std::memory_order_relaxed);
    do {
        if (refs == 0 || refs == UINT32_MAX) {
            return RUK_ERR_BAD_BLOCK;
        }
    } while (!block->refs.compare_exchange_weak(refs, refs + 1, std::memory_order_relaxed));
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
    *pulCount = block->refs.load(std::memory_order_acquire);
    return RUK_OK;
}

extern "C" void PLAT_MemStats(u32 ulHandle, u64 *pullLiveBlocks, u64 *pullLiveBytes) {
    u64 blocks = 0, bytes = 0;
    if (plat::KnownHandle(ulHandle)) {
        plat::SumStats(ulHandle, &blocks, &bytes);
    }
    if (pullLiveBlocks != nullptr) {
        *pullLiveBlocks = blocks;
    }
    if (pullLiveBytes != nullptr) {
        *pullLiveBytes = bytes;
    }
}
