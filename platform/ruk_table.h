// Internal to the stand-in platform: a table of records that are never freed, indexed by a dense id,
// so that any thread may resolve an id without locks while other threads add records.
#ifndef RUK_TABLE_H
#define RUK_TABLE_H

#include <atomic>
#include <mutex>
#include <new>

#include "ruk_types.h"

namespace plat {

// Records live in chunks allocated on demand; a chunk never moves and is never freed, so a pointer
// obtained from Find stays valid for the life of the process. T must be default-constructible and
// carry `std::atomic<bool> live`, set by the caller once the record is filled in (Find ignores records
// that are not live yet). Ids run from 1 to kChunks * kChunkSize.
template <class T, u32 kChunkSize, u32 kChunks>
class StableTable {
  public:
    // A fresh record and its id, or null when the table is full or out of memory.
    T *Add(u32 *pulId) {
        std::lock_guard<std::mutex> guard(growLock_);
        if (used_ >= kChunkSize * kChunks) {
            return nullptr;
        }
        u32 chunk = used_ / kChunkSize;
        T *records = chunks_[chunk].load(std::memory_order_relaxed);
        if (records == nullptr) {
            records = new (std::nothrow) T[kChunkSize];
            if (records == nullptr) {
                return nullptr;
            }
            chunks_[chunk].store(records, std::memory_order_release);
        }
        T *record = &records[used_ % kChunkSize];
        *pulId = ++used_;
        return record;
    }

    // The live record of an id, or null.
    T *Find(u32 ulId) const {
        if (ulId == 0 || ulId > kChunkSize * kChunks) {
            return nullptr;
        }
        u32 index = ulId - 1;
        T *records = chunks_[index / kChunkSize].load(std::memory_order_acquire);
        if (records == nullptr) {
            return nullptr;
        }
        T *record = &records[index % kChunkSize];
        return record->live.load(std::memory_order_acquire) ? record : nullptr;
    }

  private:
    std::mutex growLock_;
    u32 used_ = 0; // guarded by growLock_
    std::atomic<T *> chunks_[kChunks] = {};
};

} // namespace plat

#endif // RUK_TABLE_H
