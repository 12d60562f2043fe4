// Counters that many tasks bump at once without a locked instruction, for statistics on hot paths.
#ifndef ZOL_TASK_COUNTERS_H
#define ZOL_TASK_COUNTERS_H

#include <atomic>

#include "zol_types.h"

namespace zol {

// Each task adds into a slab of its own, where it is the only writer (a relaxed load and store, no locked
// read-modify-write), and a reader sums the slabs. A task takes a free slab on its first addition and
// gives it back when it ends, counts included: the next task adds on top, so the sums stay exact. Tasks
// beyond kSlabs share one more slab with atomic additions. A read while tasks add sees each cell at some
// recent value. Tag makes each use its own set of slabs (all state is static, zero at load).
template <typename Tag, u32 kCells, u32 kSlabs = 16>
class TaskCounters {
  public:
    static void Add(u32 cell, u64 value) {
        Slab *slab = OwnSlab();
        Bump(slab, cell, value);
    }

    // Adds to two neighbouring cells (a count and its bytes, say) with one look-up of the task's slab.
    static void AddPair(u32 cell, u64 first, u64 second) {
        Slab *slab = OwnSlab();
        Bump(slab, cell, first);
        Bump(slab, cell + 1, second);
    }

    static u64 Read(u32 cell) {
        u64 sum = shared_.cells[cell].load(std::memory_order_relaxed);
        for (const Slab &slab : slabs_) {
            sum += slab.cells[cell].load(std::memory_order_relaxed);
        }
        return sum;
    }

  private:
    struct alignas(64) Slab {
        std::atomic<u64> cells[kCells];
        std::atomic<bool> taken;
    };

    // Gives the task's slab back when the task ends; a task that adds again while ending uses the shared one.
    struct Lease {
        ~Lease() {
            if (t_slab != &shared_ && t_slab != nullptr) {
                t_slab->taken.store(false, std::memory_order_release); // publishes the counts to the next taker
            }
            t_slab = &shared_;
        }
    };

    static Slab *OwnSlab() {
        Slab *slab = t_slab;
        return __builtin_expect(slab != nullptr, 1) ? slab : Claim();
    }

    static void Bump(Slab *slab, u32 cell, u64 value) {
        std::atomic<u64> &c = slab->cells[cell];
        if (__builtin_expect(slab == &shared_, 0)) {
            c.fetch_add(value, std::memory_order_relaxed);
        } else {
            c.store(c.load(std::memory_order_relaxed) + value, std::memory_order_relaxed);
        }
    }

    [[gnu::noinline, gnu::cold]] static Slab *Claim() {
        static thread_local Lease t_lease; // constructed here, so only tasks that count register an exit hook
        (void)&t_lease;
        t_slab = &shared_;
        for (Slab &slab : slabs_) {
            bool expected = false;
            if (!slab.taken.load(std::memory_order_relaxed) &&
                slab.taken.compare_exchange_strong(expected, true, std::memory_order_acquire)) {
                t_slab = &slab;
                break;
            }
        }
        return t_slab;
    }

    static inline Slab slabs_[kSlabs];
    static inline Slab shared_;
    static inline thread_local Slab *t_slab __attribute__((tls_model("initial-exec"))) = nullptr;
};

} // namespace zol

#endif // ZOL_TASK_COUNTERS_H
