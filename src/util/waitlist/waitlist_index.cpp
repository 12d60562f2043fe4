// The wait list's handle index table: handles resolve to registrations through a growable table whose
// entry number is the handle's low 16 bits and whose stored handle carries a clock tag in the high bits.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"
#include "util/waitlist/waitlist_internal.h"

#include <cstring>

#include "ruk_time.h"

namespace zol::waitlist {

WAITLIST_INDEX_S *g_pstWaitListIndex = nullptr;
u32 g_ulWaitListIndexNum = 0;

namespace {

// The lowest free entry, growing the table (20 entries, then doubling) when none is free; the entry
// number, or WAITLIST_BAD_INDEX when memory runs out (the old table is kept).
u32 WaitList_AllocIndex() {
    for (u32 i = 1; i < g_ulWaitListIndexNum; ++i) {
        if (g_pstWaitListIndex[i].ulHandle == 0) {
            return i;
        }
    }
    if (g_ulWaitListIndexNum == 0) {
        const u32 ulBytes = WAITLIST_INDEX_INIT_NUM * sizeof(WAITLIST_INDEX_S);
        g_pstWaitListIndex =
            static_cast<WAITLIST_INDEX_S *>(ZOL_MemAlloc(WAITLIST_INDEX_MOD_ID, ulBytes, WAITLIST_FILE, __LINE__));
        if (g_pstWaitListIndex == nullptr) {
            return WAITLIST_BAD_INDEX;
        }
        std::memset(g_pstWaitListIndex, 0, ulBytes);
        g_ulWaitListIndexNum = WAITLIST_INDEX_INIT_NUM;
        return 1;
    }
    const u32 ulOld = g_ulWaitListIndexNum;
    // Entries above 0xFFFF are refused by the caller, so the table stops being useful long before a
    // doubled size could overflow 32 bits.
    auto *pstNew = static_cast<WAITLIST_INDEX_S *>(
        ZOL_MemReAlloc(g_pstWaitListIndex, 2 * ulOld * sizeof(WAITLIST_INDEX_S), WAITLIST_FILE, __LINE__));
    if (pstNew == nullptr) {
        ZOL_LOG_MSG(log::kWaitListCheckErr, "RUK_WLAI", "Remalloc memory failed", "index:%u, count:%u", ulOld, ulOld);
        return WAITLIST_BAD_INDEX;
    }
    std::memset(pstNew + ulOld, 0, ulOld * sizeof(WAITLIST_INDEX_S));
    g_pstWaitListIndex = pstNew;
    g_ulWaitListIndexNum = 2 * ulOld;
    return ulOld;
}

// The handle's tag: the low 16 bits of the seconds since 1970. When the clock cannot be read the tag is
// 0, which still gives a valid (non-zero) handle.
u32 ClockSeconds() {
    RUK_DATE_TIME_S stNow = {};
    u32 ulZone = 0;
    u32 ulSecHigh = 0;
    u32 ulSecLow = 0;
    if (RUK_TzLocalTimeGet(&stNow, &ulZone) == RUK_OK) {
        (void)RUK_SystimeSecSince1970(&stNow, &ulSecHigh, &ulSecLow);
    }
    return ulSecLow;
}

WAITLIST_INDEX_S *EntryOf(u32 ulHandle) {
    const u32 ulIndex = ulHandle & WAITLIST_MAX_INDEX;
    if (g_pstWaitListIndex == nullptr || ulIndex >= g_ulWaitListIndexNum ||
        g_pstWaitListIndex[ulIndex].ulHandle != ulHandle) {
        return nullptr;
    }
    return &g_pstWaitListIndex[ulIndex];
}

} // namespace

u32 WaitList_AssignHandle(WAITLIST_SUB_NODE_S *pstSub, u32 *pulHandle) {
    const u32 ulIndex = WaitList_AllocIndex();
    if (ulIndex > WAITLIST_MAX_INDEX) {
        (void)WaitList_DelSub(pstSub);
        ZOL_LOG_MSG(log::kWaitListCheckErr, "RUK_WLAMN", "Alloc index failed", "index is invalid, index:%d, count:%u",
                    static_cast<s32>(ulIndex), g_ulWaitListIndexNum);
        return WAITLIST_ERR_FAILED;
    }
    const u32 ulHandle = ulIndex + ClockSeconds() * 65536u;
    g_pstWaitListIndex[ulIndex] = WAITLIST_INDEX_S{ulHandle, pstSub};
    *pulHandle = ulHandle;
    return WAITLIST_OK;
}

WAITLIST_SUB_NODE_S *WaitList_FindByHandle(u32 ulHandle) {
    WAITLIST_INDEX_S *const pstEntry = EntryOf(ulHandle);
    return (pstEntry == nullptr) ? nullptr : pstEntry->pstSub;
}

void WaitList_ClearIndex(u32 ulHandle) {
    WAITLIST_INDEX_S *const pstEntry = EntryOf(ulHandle);
    if (pstEntry != nullptr) {
        *pstEntry = WAITLIST_INDEX_S{0, nullptr};
    }
}

} // namespace zol::waitlist
