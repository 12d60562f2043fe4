// The pool's per-thread parts: opening a thread's cache and counters on first use, refilling and
// spilling the cache against the central lists, and folding everything back when the thread ends.
#include <new>

#include "ruk_mem_internal.h"

namespace plat {
namespace {

struct StatsRegistry {
    std::mutex lock;
    ThreadStats *threads = nullptr;                   // counters of running threads; guarded by lock
    std::atomic<u64> retiredBlocks[kMaxHandles] = {}; // ended threads and threads without counters
    std::atomic<u64> retiredBytes[kMaxHandles] = {};
};

// Constant-initialised and never torn down: threads may end during exit.
StatsRegistry g_stats;

void RetireStats(ThreadStats *stats) {
    std::lock_guard<std::mutex> guard(g_stats.lock);
    for (ThreadStats **link = &g_stats.threads; *link != nullptr; link = &(*link)->next) {
        if (*link == stats) {
            *link = stats->next;
            break;
        }
    }
    for (u32 i = 0; i < kMaxHandles; ++i) {
        g_stats.retiredBlocks[i].fetch_add(stats->live[i].blocks.load(std::memory_order_relaxed));
        g_stats.retiredBytes[i].fetch_add(stats->live[i].bytes.load(std::memory_order_relaxed));
    }
    delete stats;
}

// Runs as the thread ends (a thread-local destructor registered by OpenThread). Later calls of the
// thread, from destructors that run after this one, find no cache and take the shared paths.
struct ThreadCloser {
    ~ThreadCloser() {
        if (t_mem.stats != nullptr) { // else the thread never had a cache
            for (u16 cls = 0; cls < kClassCount; ++cls) {
                if (t_mem.room[cls] != kCacheLimit[cls]) {
                    SpillCache(cls, kCacheLimit[cls] - t_mem.room[cls]);
                }
            }
            RetireStats(t_mem.stats);
            t_mem.stats = nullptr;
        }
        t_mem.closed = true;
    }
};

} // namespace

bool OpenThread() {
    if (t_mem.stats != nullptr || t_mem.closed) {
        return t_mem.stats != nullptr;
    }
    static thread_local ThreadCloser closer;
    (void)closer;
    ThreadStats *stats = new (std::nothrow) ThreadStats();
    if (stats == nullptr) {
        return false; // tried again on the next slow call
    }
    for (u16 cls = 0; cls < kClassCount; ++cls) {
        t_mem.room[cls] = kCacheLimit[cls];
    }
    std::lock_guard<std::mutex> guard(g_stats.lock);
    stats->next = g_stats.threads;
    g_stats.threads = stats;
    t_mem.stats = stats;
    return true;
}

BlockHeader *RefillAndTake(u16 cls) {
    u32 got = 0;
    BlockHeader *list = CentralTake(cls, kCacheLimit[cls] / 2u, &got);
    if (list == nullptr) {
        return nullptr;
    }
    t_mem.heads[cls] = list->next;
    t_mem.room[cls] -= got - 1;
    return list;
}

void SpillCache(u16 cls, u32 count) {
    BlockHeader *first = t_mem.heads[cls];
    BlockHeader *last = first;
    for (u32 i = 1; i < count; ++i) {
        last = last->next;
    }
    t_mem.heads[cls] = last->next;
    t_mem.room[cls] += count;
    CentralGive(cls, first, last);
}

void AccountShared(u32 ulHandle, u64 ullBlocks, u64 ullBytes) {
    g_stats.retiredBlocks[ulHandle - 1].fetch_add(ullBlocks, std::memory_order_relaxed);
    g_stats.retiredBytes[ulHandle - 1].fetch_add(ullBytes, std::memory_order_relaxed);
}

void SumStats(u32 ulHandle, u64 *pullBlocks, u64 *pullBytes) {
    u32 i = ulHandle - 1;
    std::lock_guard<std::mutex> guard(g_stats.lock);
    u64 blocks = g_stats.retiredBlocks[i].load(std::memory_order_relaxed);
    u64 bytes = g_stats.retiredBytes[i].load(std::memory_order_relaxed);
    for (ThreadStats *stats = g_stats.threads; stats != nullptr; stats = stats->next) {
        blocks += stats->live[i].blocks.load(std::memory_order_relaxed);
        bytes += stats->live[i].bytes.load(std::memory_order_relaxed);
    }
    *pullBlocks = blocks;
    *pullBytes = bytes;
}

} // namespace plat
