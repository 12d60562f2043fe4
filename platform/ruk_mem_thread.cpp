// The pool's per-thread parts: opening a thread's cache on first use, refilling and spilling it against
// the central lists, and folding it back when the thread ends.
#include "ruk_mem_internal.h"

namespace plat {
namespace {

// Runs as the thread ends (a thread-local destructor registered by OpenThread). Later calls of the
// thread, from destructors that run after this one, find no cache and take the shared paths.
struct ThreadCloser {
    ~ThreadCloser() {
        if (t_mem.open) {
            for (u16 cls = 0; cls < kClassCount; ++cls) {
                if (t_mem.room[cls] != kCacheLimit[cls]) {
                    SpillCache(cls, kCacheLimit[cls] - t_mem.room[cls]);
                }
            }
            t_mem.open = false;
        }
        t_mem.closed = true;
    }
};

} // namespace

bool OpenThread() {
    if (t_mem.open || t_mem.closed) {
        return t_mem.open;
    }
    static thread_local ThreadCloser closer;
    (void)closer;
    for (u16 cls = 0; cls < kClassCount; ++cls) {
        t_mem.room[cls] = kCacheLimit[cls];
    }
    t_mem.open = true;
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

} // namespace plat
