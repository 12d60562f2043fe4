// The repetition filter of the log writer: at most one record per tag every 500 ms, counted per tag.
#include "foundation/log_internal.h"

#include <cstddef>
#include <cstring>
#include <sys/time.h>

#include "bounds_checked.h"
#include "plat_hash.h"
#include "ruk_mutex.h"
#include "ruk_task.h"

namespace zol::log {
namespace {

constexpr u32 kFilterKeyLen = 64;
constexpr u32 kFilterKeySuffix = 4; // the number behind the tag in every key
constexpr u32 kFilterKind = 1;
constexpr u64 kFilterIntervalMs = ZOL_LOG_FILTER_INTERVAL_MS;
constexpr u32 kFilterBuckets = 256;
constexpr s32 kFilterHashFlags = -4;
constexpr u32 kFilterHashOwner = 0xF8030000u;

// One record per distinct key, stored in the platform hash table. Size LP64 and ILP32: 80.
struct ZOL_LogFilterRec {
    char szKey[kFilterKeyLen]; // tag followed by "4", NUL-terminated
    u32 ulKind;                // always kFilterKind; compared with the key
    u32 ulCallCnt;             // records of this key let through; 1 when created
    u64 ullLastTime;           // time of the last record let through, microseconds
};
static_assert(sizeof(ZOL_LogFilterRec) == 80, "filter records are 80-byte elements of the hash table");
static_assert(offsetof(ZOL_LogFilterRec, ulKind) == 64 && offsetof(ZOL_LogFilterRec, ullLastTime) == 72,
              "filter record layout");

// The filter lock is prepared by the first thread that needs it; the others wait for the outcome
// instead of preparing the same mutex twice.
enum MutexState : u32 { kMutexUnprepared = 0, kMutexPreparing = 1, kMutexReady = 2 };
RUK_MUTEX_S g_stFilterMutex;
std::atomic<u32> g_ulFilterMutexState{kMutexUnprepared};

// Guarded by g_stFilterMutex, like every record in it: created by the first lookup, never freed.
void *g_pLogFilterHash = nullptr;

// Byte sum of the key as signed chars, modulo 256 (a negative sum wraps like the unsigned word it is
// kept in).
u32 FilterHash(const void *pKey) {
    if (pKey == nullptr) {
        return 0;
    }
    u32 ulSum = 0;
    for (const char *pc = static_cast<const char *>(pKey); *pc != '\0'; ++pc) {
        ulSum += static_cast<u32>(static_cast<s32>(static_cast<s8>(*pc)));
    }
    return ulSum % kFilterBuckets;
}

u32 FilterCompare(const void *pElmt, const void *pProbe) {
    if (pElmt == nullptr || pProbe == nullptr) {
        return 0;
    }
    const auto *pstLeft = static_cast<const ZOL_LogFilterRec *>(pElmt);
    const auto *pstRight = static_cast<const ZOL_LogFilterRec *>(pProbe);
    return (std::strcmp(pstLeft->szKey, pstRight->szKey) == 0 && pstLeft->ulKind == pstRight->ulKind) ? 1u : 0u;
}

// Takes the filter lock, preparing it on first use. False when the lock cannot be had: the caller then
// leaves the table alone, because an unlocked lookup would race with other threads' insertions.
bool FilterLock() {
    for (;;) {
        u32 ulState = g_ulFilterMutexState.load(std::memory_order_acquire);
        if (ulState == kMutexReady) {
            return RUK_MutexLock(&g_stFilterMutex) == RUK_OK;
        }
        if (ulState == kMutexUnprepared) {
            if (g_ulFilterMutexState.compare_exchange_strong(ulState, kMutexPreparing, std::memory_order_acq_rel)) {
                bool bReady = RUK_MutexInit(&g_stFilterMutex, nullptr) == RUK_OK;
                // On failure the next attempt, by any thread, prepares the mutex again.
                g_ulFilterMutexState.store(bReady ? kMutexReady : kMutexUnprepared, std::memory_order_release);
                if (!bReady) {
                    return false;
                }
            }
            continue;
        }
        (void)RUK_TaskDelay(0); // another thread is preparing the mutex
    }
}

// First record of a key: a new element, let through uncounted whether or not it could be stored.
void FilterInsertLocked(const ZOL_LogFilterRec &stProbe, u64 ullNow) {
    auto *pstRec = static_cast<ZOL_LogFilterRec *>(HASH_NewData(g_pLogFilterHash, kFilterHashOwner));
    if (pstRec == nullptr) {
        return;
    }
    if (strcpy_s(pstRec->szKey, sizeof(pstRec->szKey), stProbe.szKey) != BC_EOK) {
        HASH_FreeData(g_pLogFilterHash, pstRec);
        return;
    }
    pstRec->ulKind = kFilterKind;
    pstRec->ulCallCnt = 1;
    pstRec->ullLastTime = ullNow;
    if (HASH_AddNode(g_pLogFilterHash, pstRec->szKey, pstRec, kFilterHashOwner) != RUK_OK) {
        HASH_FreeData(g_pLogFilterHash, pstRec);
    }
}

// Lookup, interval test and update (or insertion) as one step under the lock, so that concurrent
// callers of one tag see each other's updates: exactly one of them passes per interval. The time is
// read under the lock too, so a record's time never goes back because a slower thread wrote it last.
bool FilterCheckLocked(const ZOL_LogFilterRec &stProbe, u32 *pulCallCnt) {
    if (g_pLogFilterHash == nullptr) {
        g_pLogFilterHash = HASH_CreateNew(kFilterHashFlags, sizeof(ZOL_LogFilterRec), kFilterBuckets, FilterHash,
                                          FilterCompare, kFilterHashOwner);
        if (g_pLogFilterHash == nullptr) {
            return true; // no table, no filter: let the call through and try again next time
        }
    }
    u64 ullNow = ZOL_LogNowUs();
    auto *pstRec = static_cast<ZOL_LogFilterRec *>(HASH_FindElmtFromFirst(g_pLogFilterHash, &stProbe));
    if (pstRec == nullptr) {
        FilterInsertLocked(stProbe, ullNow);
        return true;
    }
    if ((ullNow - pstRec->ullLastTime) / 1000u < kFilterIntervalMs) {
        return false; // suppressed calls are not counted
    }
    pstRec->ullLastTime = ullNow;
    *pulCallCnt = ++pstRec->ulCallCnt;
    return true;
}

} // namespace

u64 ZOL_LogNowUs() {
    struct timeval stNow {};
    (void)gettimeofday(&stNow, nullptr);
    return static_cast<u64>(stNow.tv_sec) * 1000000u + static_cast<u64>(stNow.tv_usec);
}

bool ZOL_LogFilterCheck(const char *pcTag, u32 *pulCallCnt) {
    *pulCallCnt = 0;
    ZOL_LogFilterRec stProbe;
    // A tag too long for the key (63 characters or more) cannot be filtered and is always reported.
    if (pcTag == nullptr || sprintf_s(stProbe.szKey, sizeof(stProbe.szKey), "%s%u", pcTag, kFilterKeySuffix) < 0) {
        return true;
    }
    stProbe.ulKind = kFilterKind;
    if (!FilterLock()) {
        return true;
    }
    bool bPass = FilterCheckLocked(stProbe, pulCallCnt);
    (void)RUK_MutexUnlock(&g_stFilterMutex);
    return bPass;
}

} // namespace zol::log
