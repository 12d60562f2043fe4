// Queues of the stand-in platform: bounded rings of four-word records under one mutex, with separate
// condition variables for readers and writers that are signalled only when somebody waits. This is on
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
    std::condition_variable notEmpty;
    std::condition_variable notFull;
    u32 head = 0;  // index of the oldest record; guarded by lock
    u32 count = 0; // records held; guarded by lock
    u32 readersWaiting = 0;
    u32 writersWaiting = 0;
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
    u32 rc = plat::WaitUntil(lock, queue->notFull, queue->writersWaiting, ulMode, ulTimeout, RUK_ERR_FULL,
                             [queue] { return queue->count < queue->depth; });
    if (rc != RUK_OK) {
        return rc;
    }
    u32 tail = queue->head + queue->count;
    plat::CopyRecord(queue->ring[tail < queue->depth ? tail : tail - queue->depth], aullMsg);
    ++queue->count;
    bool wake = queue->readersWaiting != 0;
    lock.unlock();
    if (wake) {
        queue->notEmpty.notify_one();
    }
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
    u32 rc = plat::WaitUntil(lock, queue->notEmpty, queue->readersWaiting, ulMode, ulTimeout, RUK_ERR_EMPTY,
                             [queue] { return queue->count != 0; });
    if (rc != RUK_OK) {
        return rc;
    }
    const u64 *oldest = queue->ring[queue->head];
    for (int i = 0; i < 4; ++i) {
        aullMsg[i] = oldest[i];
    }
    queue->head = queue->head + 1 == queue->depth ? 0 : queue->head + 1;
    --queue->count;
    bool wake = queue->writersWaiting != 0;
    lock.unlock();
    if (wake) {
        queue->notFull.notify_one();
    }
    return RUK_OK;
}
