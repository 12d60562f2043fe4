// Internal to the stand-in platform: the bounded ring of four-word records behind queues, for any number
// of writers and readers, without a lock. Every slot carries a sequence number that says whose turn it
// is: the writer of position p may fill slot p % depth once it reads p there, the reader of p may empty
// it once it reads p + 1, and the reader hands the slot on to the writer of p + depth. Positions are
// 64-bit and never wrap. Blocking is left to the caller; the publishing stores and the loads that read
// them are sequentially consistent, so that a caller that registers a sleeper and then tries again, and
// a caller that publishes and then looks for sleepers, cannot both miss each other.
#ifndef RUK_RING_H
#define RUK_RING_H

#include <atomic>
#include <memory>
#include <new>

#include "ruk_types.h"

namespace plat {

class RecordRing {
  public:
    // Allocates the slots; false when out of memory. Called once, before the ring is shared.
    bool Init(u32 depth) {
        slots_.reset(new (std::nothrow) Slot[depth]);
        if (slots_ == nullptr) {
            return false;
        }
        for (u32 i = 0; i < depth; ++i) {
            slots_[i].seq.store(i, std::memory_order_relaxed);
        }
        depth_ = depth;
        return true;
    }

    // Appends a copy of the record; false when the ring is full.
    bool TryPush(const u64 *record) {
        u64 pos = tail_.load(std::memory_order_relaxed);
        for (;;) {
            Slot &slot = slots_[pos % depth_];
            const auto lag = static_cast<long long>(slot.seq.load(std::memory_order_seq_cst) - pos);
            if (lag == 0) {
                if (tail_.compare_exchange_weak(pos, pos + 1, std::memory_order_relaxed)) {
                    CopyWords(slot.words, record);
                    slot.seq.store(pos + 1, std::memory_order_seq_cst);
                    return true;
                }
            } else if (lag < 0) {
                return false; // the slot still holds the record of the previous round
            } else {
                pos = tail_.load(std::memory_order_relaxed); // another writer took this position
            }
        }
    }

    // Takes the oldest record; false when the ring is empty (or its oldest record is still being written).
    bool TryPop(u64 *record) {
        u64 pos = head_.load(std::memory_order_relaxed);
        for (;;) {
            Slot &slot = slots_[pos % depth_];
            const auto lag = static_cast<long long>(slot.seq.load(std::memory_order_seq_cst) - (pos + 1));
            if (lag == 0) {
                if (head_.compare_exchange_weak(pos, pos + 1, std::memory_order_relaxed)) {
                    CopyWords(record, slot.words);
                    slot.seq.store(pos + depth_, std::memory_order_seq_cst);
                    return true;
                }
            } else if (lag < 0) {
                return false;
            } else {
                pos = head_.load(std::memory_order_relaxed); // another reader took this position
            }
        }
    }

  private:
    struct Slot {
        std::atomic<u64> seq;
        u64 words[4];
    };

    static void CopyWords(u64 *dst, const u64 *src) {
        dst[0] = src[0];
        dst[1] = src[1];
        dst[2] = src[2];
        dst[3] = src[3];
    }

    std::unique_ptr<Slot[]> slots_;
    u32 depth_ = 0;
    alignas(64) std::atomic<u64> tail_{0}; // next position to write
    alignas(64) std::atomic<u64> head_{0}; // next position to read
};

} // namespace plat

#endif // RUK_RING_H
