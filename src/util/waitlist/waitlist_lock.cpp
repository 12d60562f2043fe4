// The wait list's mutex: one platform mutex, set up by the first operation that needs it.
#include "foundation/log_points.h"
#include "util/waitlist/waitlist_internal.h"

#include <atomic>

#include "ruk_mutex.h"
#include "ruk_task.h"

namespace zol::waitlist {
namespace {

// Set-up state of the mutex. The set-up is claimed by one thread at a time, so two first operations
// at the same moment cannot both initialise it; a failed set-up is tried again by the next operation.
constexpr u32 kMutexNone = 0;
constexpr u32 kMutexReady = 1;
constexpr u32 kMutexSettingUp = 2;

RUK_MUTEX_S g_stWaitListMutex;
std::atomic<u32> g_ulWaitListMutexInit{kMutexNone};

bool SetUpMutex() {
    for (;;) {
        u32 ulState = g_ulWaitListMutexInit.load(std::memory_order_acquire);
        if (ulState == kMutexReady) {
            return true;
        }
        if (ulState == kMutexNone &&
            g_ulWaitListMutexInit.compare_exchange_weak(ulState, kMutexSettingUp, std::memory_order_acquire)) {
            const u32 ulRet = RUK_MutexInit(&g_stWaitListMutex, nullptr);
            g_ulWaitListMutexInit.store(ulRet == RUK_OK ? kMutexReady : kMutexNone, std::memory_order_release);
            if (ulRet != RUK_OK) {
                ZOL_LOG_TAG(log::kWaitListLockErr, "RUK_WLGL", "RUK_MutexInit error! uiRet: %u!", ulRet);
                return false;
            }
            return true;
        }
        (void)RUK_TaskDelay(0); // another thread is setting it up
    }
}

} // namespace

bool WaitList_Lock() {
    return SetUpMutex() && RUK_MutexLock(&g_stWaitListMutex) == RUK_OK;
}

void WaitList_Unlock() {
    if (g_ulWaitListMutexInit.load(std::memory_order_acquire) != kMutexReady) {
        ZOL_LOG_TAG(log::kWaitListLockErr, "RUK_WLRL", "RUK_MutexInit error!");
        return;
    }
    (void)RUK_MutexUnlock(&g_stWaitListMutex);
}

} // namespace zol::waitlist
