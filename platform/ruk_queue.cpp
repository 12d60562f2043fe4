// Queues of the stand-in platform: bounded rings of four-word records under one mutex, with separate
// gates for readers and writers that are signalled only when somebody waits, once per wait. This is on
// the library's message-delivery path, so a write or read that does not wait costs one lock round.
#include "ruk_queue.h"

#include <memory>
#include <new>
#include <type_traits>

#include "plat_fault.h"
#include "ruk_table.h"
#include "ruk_wait.h"

namespace plat {
namespace {

struct QueueRecord {
    std::atomic<bool> live{false};
    u32 depth = 0;
    u64 (*ring)[4] = nullptr; // depth records, allocated once

    std::mutex lock;
    WaitGate notEmpty; // readers; guarded by lock
    WaitGate notFull;  // writers; guarded by lock
    u32 head = 0;      // index of the oldest record; guarded by lock
    u32 count = 0;     // records held; guarded by lock
};

// Queues live until the process ends; 64 Ki of them is far beyond what a process creates.
using QueueTable = StableTable<QueueRecord, 64, 1024>;

// Constant-initialised and trivially destructible: no initialisation guard on the hot paths, and
// usable by threads that still run while the process exits.
QueueTable g_queues;
static_assert(std::is_trivially_destructible_v<QueueTable>, "must stay usable during exit");

void CopyRecord(u64 (&dst)[4], const u64 *src) {
    dst[0] = src[0];
    dst[1] = src[1];
    dst[2] = src[2];
    dst[3] = src[3];
}

// Checks the arguments of a write or read and finds the queue.
u32 Resolve(u32 ulQueId, const u64 *pRecord, u32 ulMode, QueueRecord **ppQueue) {
    if (pRecord == nullptr || BadMode(ulMode)) {
        return RUK_ERR_PARAM;
    }
    *ppQueue = g_queues.Find(ulQueId);
    return *ppQueue != nullptr ? RUK_OK : RUK_ERR_NOT_FOUND;
}

// After a write or read under the lock: wakes the other side if it sleeps, and passes the turn on to
// another sleeper of the own side while the queue still has room (writers) or records (readers).
void WakeAfter(std::unique_lock<std::mutex> &lock, WaitGate &other, WaitGate &own, bool ownStillReady) {
    const bool wakeOther = ShouldSignal(other);
    const bool wakeOwn = ownStillReady && ShouldSignal(own);
    lock.unlock();
    if (wakeOther) {
        other.cond.notify_one();
    }
    if (wakeOwn) {
        own.cond.notify_one();
    }
}

} // namespace
} // namespace plat

extern "C" u32 RUK_Que_Create(const char *pcName, u32 ulDepth, u32 ulFlags, u32 *pulQueId) {
    (void)pcName;
    (void)ulFlags;
    if (plat::FaultHit("RUK_Que_Create")) {
        return RUK_ERR_INJECTED;
    }
    if (ulDepth == 0 || pulQueId == nullptr) {
        return RUK_ERR_PARAM;
    }
    std::unique_ptr<u64[][4]> ring(new (std::nothrow) u64[ulDepth][4]);
    if (ring == nullptr) {
        return RUK_ERR_NOMEM;
    }
    u32 id = 0;
    plat::QueueRecord *queue = plat::g_queues.Add(&id);
    if (queue == nullptr) {
        return RUK_ERR_NOMEM;
    }
    queue->depth = ulDepth;
    queue->ring = ring.release();
    queue->live.store(true, std::memory_order_release);
    *pulQueId = id;
    return RUK_OK;
}

extern "C" u32 RUK_Que_Write(u32 ulQueId, const u64 aullMsg[4], u32 ulMode, u32 ulTimeout) {
    if (plat::FaultHit("RUK_Que_Write")) {
        return RUK_ERR_INJECTED;
    }
    plat::QueueRecord *queue = nullptr;
    u32 check = plat::Resolve(ulQueId, aullMsg, ulMode, &queue);
    if (check != RUK_OK) {
        return check;
    }
    std::unique_lock<std::mutex> lock(queue->lock);
    u32 rc = plat::WaitGated(lock, queue->notFull, ulMode, ulTimeout, RUK_ERR_FULL,
                             [queue] { return queue->count < queue->depth; });
    if (rc != RUK_OK) {
        return rc;
    }
    u32 tail = queue->head + queue->count;
    plat::CopyRecord(queue->ring[tail < queue->depth ? tail : tail - queue->depth], aullMsg);
    ++queue->count;
    plat::WakeAfter(lock, queue->notEmpty, queue->notFull, queue->count < queue->depth);
    return RUK_OK;
}

extern "C" u32 RUK_Que_Read(u32 ulQueId, u64 aullMsg[4], u32 ulMode, u32 ulTimeout) {
    if (plat::FaultHit("RUK_Que_Read")) {
        return RUK_ERR_INJECTED;
    }
    plat::QueueRecord *queue = nullptr;
    u32 check = plat::Resolve(ulQueId, aullMsg, ulMode, &queue);
    if (check != RUK_OK) {
        return check;
    }
    std::unique_lock<std::mutex> lock(queue->lock);
    u32 rc =
        plat::WaitGated(lock, queue->notEmpty, ulMode, ulTimeout, RUK_ERR_EMPTY, [queue] { return queue->count != 0; });
    if (rc != RUK_OK) {
        return rc;
    }
    const u64 *oldest = queue->ring[queue->head];
    for (int i = 0; i < 4; ++i) {
        aullMsg[i] = oldest[i];
    }
    queue->head = queue->head + 1 == queue->depth ? 0 : queue->head + 1;
    --queue->count;
    plat::WakeAfter(lock, queue->notFull, queue->notEmpty, queue->count != 0);
    return RUK_OK;
}
