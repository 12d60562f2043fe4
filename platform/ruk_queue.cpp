// Queues of the stand-in platform: bounded rings of four-word records. A write or read that need not
// wait takes no lock (this is the library's message-delivery path); only callers that must wait, and
// those that wake them, meet under the queue's mutex. Sleepers are woken at most once per wait: a burst
// of writes while the reader sleeps costs one wake-up, not one per record.
#include "ruk_queue.h"

#include <type_traits>

#include "plat_fault.h"
#include "ruk_ring.h"
#include "ruk_table.h"
#include "ruk_wait.h"

namespace plat {
namespace {

// The callers of one side (readers or writers) waiting under the queue's mutex.
struct Sleepers {
    std::atomic<u32> count{0}; // changed under the mutex, read by the other side without it
    bool signalled = false;    // a notify is on its way and no sleeper has woken since; guarded by the mutex
    std::condition_variable cond;
};

struct QueueRecord {
    std::atomic<bool> live{false};
    RecordRing ring;
    std::mutex lock;
    Sleepers readers; // wait for a record
    Sleepers writers; // wait for room
};

// Queues live until the process ends; 64 Ki of them is far beyond what a process creates.
using QueueTable = StableTable<QueueRecord, 64, 1024>;

// Constant-initialised and trivially destructible: no initialisation guard on the hot paths, and
// usable by threads that still run while the process exits.
QueueTable g_queues;
static_assert(std::is_trivially_destructible_v<QueueTable>, "must stay usable during exit");

// Checks the arguments of a write or read and finds the queue.
u32 Resolve(u32 ulQueId, const u64 *pRecord, u32 ulMode, QueueRecord **ppQueue) {
    if (pRecord == nullptr || BadMode(ulMode)) {
        return RUK_ERR_PARAM;
    }
    *ppQueue = g_queues.Find(ulQueId);
    return *ppQueue != nullptr ? RUK_OK : RUK_ERR_NOT_FOUND;
}

// Under the mutex: notifies one sleeper unless none waits or a notify is on its way already.
void SignalLocked(std::unique_lock<std::mutex> &lock, Sleepers &side) {
    if (side.count.load(std::memory_order_relaxed) == 0 || side.signalled) {
        return;
    }
    side.signalled = true;
    lock.unlock();
    side.cond.notify_one();
}

// After a successful write or read: wakes a sleeper of the other side, if there is one. The sequentially
// consistent load pairs with the sleeper's registration (see RecordRing).
void WakeOther(QueueRecord &queue, Sleepers &other) {
    if (other.count.load(std::memory_order_seq_cst) == 0) {
        return;
    }
    std::unique_lock<std::mutex> lock(queue.lock);
    SignalLocked(lock, other);
}

// Retries `attempt` (a push or a pop) until it succeeds, the caller's time is up, or the caller asked not
// to wait. A sleeper that succeeds passes the turn on to the next sleeper of its side, which may find
// more room or records; a needless wake-up costs that sleeper one failed attempt.
template <class Attempt>
u32 Wait(QueueRecord &queue, Sleepers &own, u32 ulMode, u32 ulTimeoutMs, u32 ulNotNow, Attempt attempt) {
    if ((ulMode & RUK_NOWAIT) != 0) {
        return ulNotNow;
    }
    YieldBeforeBlocking();
    if (attempt()) {
        return RUK_OK;
    }
    std::unique_lock<std::mutex> lock(queue.lock);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ulTimeoutMs);
    own.count.fetch_add(1, std::memory_order_seq_cst);
    bool done = attempt();
    while (!done) {
        if (ulTimeoutMs == 0) {
            own.cond.wait(lock);
        } else if (own.cond.wait_until(lock, deadline) == std::cv_status::timeout) {
            own.signalled = false;
            done = attempt();
            break;
        }
        own.signalled = false;
        done = attempt();
    }
    own.count.fetch_sub(1, std::memory_order_relaxed);
    NoteBlocked();
    if (done) {
        SignalLocked(lock, own);
    }
    return done ? RUK_OK : RUK_ERR_TIMEOUT;
}

// The course of a write or a read: find the queue, try at once, wait for the own side's turn when the
// caller allows it, then wake a sleeper of the other side. `attempt` pushes or pops on the ring.
template <class Attempt>
u32 Transfer(u32 ulQueId, const u64 *pRecord, u32 ulMode, u32 ulTimeout, u32 ulNotNow, Sleepers QueueRecord::*own,
             Sleepers QueueRecord::*other, Attempt attempt) {
    QueueRecord *queue = nullptr;
    u32 rc = Resolve(ulQueId, pRecord, ulMode, &queue);
    if (rc != RUK_OK) {
        return rc;
    }
    auto once = [queue, &attempt] { return attempt(queue->ring); };
    if (!once()) {
        rc = Wait(*queue, queue->*own, ulMode, ulTimeout, ulNotNow, once);
        if (rc != RUK_OK) {
            return rc;
        }
    }
    WakeOther(*queue, queue->*other);
    return RUK_OK;
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
    u32 id = 0;
    plat::QueueRecord *queue = plat::g_queues.Add(&id);
    if (queue == nullptr || !queue->ring.Init(ulDepth)) {
        return RUK_ERR_NOMEM; // a record without its ring never becomes live: its id is lost, nothing else
    }
    queue->live.store(true, std::memory_order_release);
    *pulQueId = id;
    return RUK_OK;
}

extern "C" u32 RUK_Que_Write(u32 ulQueId, const u64 aullMsg[4], u32 ulMode, u32 ulTimeout) {
    if (plat::FaultHit("RUK_Que_Write")) {
        return RUK_ERR_INJECTED;
    }
    return plat::Transfer(ulQueId, aullMsg, ulMode, ulTimeout, RUK_ERR_FULL, &plat::QueueRecord::writers,
                          &plat::QueueRecord::readers,
                          [aullMsg](plat::RecordRing &ring) { return ring.TryPush(aullMsg); });
}

extern "C" u32 RUK_Que_Read(u32 ulQueId, u64 aullMsg[4], u32 ulMode, u32 ulTimeout) {
    if (plat::FaultHit("RUK_Que_Read")) {
        return RUK_ERR_INJECTED;
    }
    return plat::Transfer(ulQueId, aullMsg, ulMode, ulTimeout, RUK_ERR_EMPTY, &plat::QueueRecord::readers,
                          &plat::QueueRecord::writers,
                          [aullMsg](plat::RecordRing &ring) { return ring.TryPop(aullMsg); });
}
