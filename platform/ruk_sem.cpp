// Counting semaphores of the stand-in platform. Synchronous calls create and delete one per call, so
// creation takes a slot from a free list and nothing global is locked while a caller waits.
#include "ruk_sem.h"

#include <atomic>
#include <new>
#include <type_traits>

#include "plat_fault.h"
#include "ruk_wait.h"

namespace plat {
namespace {

// A semaphore id is (generation << 16) | (slot index + 1): never 0, and a deleted semaphore's id stops
// matching its slot because deletion moves the generation on. Slots are never freed, so a stale id is
// resolved and refused without touching freed memory.
constexpr u32 kIndexBits = 16;
constexpr u32 kIndexMask = (1u << kIndexBits) - 1;
constexpr u32 kSlotsPerChunk = 256;
constexpr u32 kMaxSlots = kIndexMask; // index + 1 must fit the low bits
constexpr u32 kNoSlot = 0xFFFFFFFFu;

struct SemSlot {
    std::mutex lock;
    std::condition_variable cond;
    u32 gen = 0;            // generation of the current or next semaphore; guarded by lock
    bool live = false;      // guarded by lock
    u32 count = 0;          // guarded by lock
    u32 waiters = 0;        // guarded by lock
    u32 nextFree = kNoSlot; // guarded by the table's freeLock while the slot is free
};

// Slots in chunks that never move. Free slots form a first-in first-out list, so a slot rests as long
// as possible before its generation is used again. A deleted slot returns to the list only once its
// last waiter has left, so a stale waiter can never swallow a wake-up meant for the slot's next user.
class SemTable {
  public:
    SemSlot *Slot(u32 ulIndex) const {
        SemSlot *chunk = chunks_[ulIndex / kSlotsPerChunk].load(std::memory_order_acquire);
        return chunk != nullptr ? &chunk[ulIndex % kSlotsPerChunk] : nullptr;
    }

    // A free slot's index, or kNoSlot.
    u32 Take() {
        std::lock_guard<std::mutex> guard(freeLock_);
        if (freeHead_ != kNoSlot) {
            u32 index = freeHead_;
            freeHead_ = Slot(index)->nextFree;
            if (freeHead_ == kNoSlot) {
                freeTail_ = kNoSlot;
            }
            return index;
        }
        if (used_ >= kMaxSlots) {
            return kNoSlot;
        }
        auto &chunk = chunks_[used_ / kSlotsPerChunk];
        if (chunk.load(std::memory_order_relaxed) == nullptr) {
            SemSlot *slots = new (std::nothrow) SemSlot[kSlotsPerChunk];
            if (slots == nullptr) {
                return kNoSlot;
            }
            chunk.store(slots, std::memory_order_release);
        }
        return used_++;
    }

    void Give(u32 ulIndex) {
        std::lock_guard<std::mutex> guard(freeLock_);
        Slot(ulIndex)->nextFree = kNoSlot;
        if (freeTail_ == kNoSlot) {
            freeHead_ = ulIndex;
        } else {
            Slot(freeTail_)->nextFree = ulIndex;
        }
        freeTail_ = ulIndex;
    }

  private:
    std::mutex freeLock_;
    u32 used_ = 0;           // slots ever handed out; guarded by freeLock_
    u32 freeHead_ = kNoSlot; // guarded by freeLock_
    u32 freeTail_ = kNoSlot; // guarded by freeLock_
    std::atomic<SemSlot *> chunks_[(kMaxSlots + kSlotsPerChunk - 1) / kSlotsPerChunk] = {};
};

// Constant-initialised and trivially destructible: no initialisation guard on the hot paths, and
// usable by threads that still run while the process exits.
SemTable g_sems;
static_assert(std::is_trivially_destructible_v<SemTable>, "must stay usable during exit");

// The slot of an id, locked, when the id names a live semaphore; otherwise null and nothing locked.
SemSlot *LockLive(u32 ulSmId, std::unique_lock<std::mutex> &lock) {
    u32 low = ulSmId & kIndexMask;
    SemSlot *slot = low != 0 ? g_sems.Slot(low - 1) : nullptr;
    if (slot == nullptr) {
        return nullptr;
    }
    lock = std::unique_lock<std::mutex>(slot->lock);
    if (!slot->live || slot->gen != ulSmId >> kIndexBits) {
        lock.unlock();
        return nullptr;
    }
    return slot;
}

} // namespace
} // namespace plat

extern "C" u32 RUK_Sm_Create(const char *pcName, u32 ulCount, u32 ulOption, u32 *pulSmId) {
    (void)pcName;
    (void)ulOption;
    if (plat::FaultHit("RUK_Sm_Create")) {
        return RUK_ERR_INJECTED;
    }
    if (pulSmId == nullptr) {
        return RUK_ERR_PARAM;
    }
    u32 index = plat::g_sems.Take();
    if (index == plat::kNoSlot) {
        return RUK_ERR_NOMEM;
    }
    plat::SemSlot *slot = plat::g_sems.Slot(index);
    std::lock_guard<std::mutex> guard(slot->lock);
    slot->live = true;
    slot->count = ulCount;
    *pulSmId = (slot->gen << plat::kIndexBits) | (index + 1);
    return RUK_OK;
}

extern "C" u32 RUK_Sm_Delete(u32 ulSmId) {
    if (plat::FaultHit("RUK_Sm_Delete")) {
        return RUK_ERR_INJECTED;
    }
    std::unique_lock<std::mutex> lock;
    plat::SemSlot *slot = plat::LockLive(ulSmId, lock);
    if (slot == nullptr) {
        return RUK_ERR_NOT_FOUND;
    }
    slot->live = false;
    slot->gen = (slot->gen + 1) & plat::kIndexMask;
    bool waiters = slot->waiters != 0;
    lock.unlock();
    if (waiters) {
        slot->cond.notify_all(); // the last of them gives the slot back
    } else {
        plat::g_sems.Give((ulSmId & plat::kIndexMask) - 1);
    }
    return RUK_OK;
}

extern "C" u32 RUK_Sm_P(u32 ulSmId, u32 ulMode, u32 ulTimeout) {
    if (plat::FaultHit("RUK_Sm_P")) {
        return RUK_ERR_INJECTED;
    }
    if (plat::BadMode(ulMode)) {
        return RUK_ERR_PARAM;
    }
    std::unique_lock<std::mutex> lock;
    plat::SemSlot *slot = plat::LockLive(ulSmId, lock);
    if (slot == nullptr) {
        return RUK_ERR_NOT_FOUND;
    }
    u32 gen = slot->gen;
    u32 rc = plat::WaitUntil(lock, slot->cond, slot->waiters, ulMode, ulTimeout, RUK_ERR_EMPTY,
                             [slot, gen] { return slot->count != 0 || slot->gen != gen; });
    if (slot->gen != gen) {
        bool last = slot->waiters == 0;
        lock.unlock();
        if (last) {
            plat::g_sems.Give((ulSmId & plat::kIndexMask) - 1);
        }
        return RUK_ERR_DELETED;
    }
    if (rc == RUK_OK) {
        --slot->count;
    }
    return rc;
}

extern "C" u32 RUK_Sm_V(u32 ulSmId) {
    if (plat::FaultHit("RUK_Sm_V")) {
        return RUK_ERR_INJECTED;
    }
    std::unique_lock<std::mutex> lock;
    plat::SemSlot *slot = plat::LockLive(ulSmId, lock);
    if (slot == nullptr) {
        return RUK_ERR_NOT_FOUND;
    }
    if (slot->count == UINT32_MAX) {
        return RUK_ERR_FULL;
    }
    ++slot->count;
    bool wake = slot->waiters != 0;
    lock.unlock();
    if (wake) {
        slot->cond.notify_one();
    }
    return RUK_OK;
}
