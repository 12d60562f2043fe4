// Mutexes of the stand-in platform: a POSIX mutex kept in the caller's opaque storage. Debug builds
// use the error-checking kind, so relocking or unlocking a mutex not owned is reported, not hung.
#include "ruk_mutex.h"

#include <pthread.h>

#include "plat_fault.h"

static_assert(sizeof(pthread_mutex_t) <= sizeof(RUK_MUTEX_S), "a POSIX mutex must fit RUK_MUTEX_S");
static_assert(alignof(pthread_mutex_t) <= alignof(RUK_MUTEX_S), "RUK_MUTEX_S must align a POSIX mutex");

namespace {

pthread_mutex_t *Native(RUK_MUTEX_S *pstMutex) {
    return reinterpret_cast<pthread_mutex_t *>(pstMutex);
}

#ifdef NDEBUG
constexpr int kMutexKind = PTHREAD_MUTEX_NORMAL;
#else
constexpr int kMutexKind = PTHREAD_MUTEX_ERRORCHECK;
#endif

} // namespace

extern "C" u32 RUK_MutexInit(RUK_MUTEX_S *pstMutex, const void *pAttr) {
    if (plat::FaultHit("RUK_MutexInit")) {
        return RUK_ERR_INJECTED;
    }
    if (pstMutex == nullptr || pAttr != nullptr) {
        return RUK_ERR_PARAM;
    }
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, kMutexKind);
    int rc = pthread_mutex_init(Native(pstMutex), &attr);
    pthread_mutexattr_destroy(&attr);
    return rc == 0 ? RUK_OK : RUK_ERR_SYSTEM;
}

extern "C" u32 RUK_MutexLock(RUK_MUTEX_S *pstMutex) {
    if (plat::FaultHit("RUK_MutexLock")) {
        return RUK_ERR_INJECTED;
    }
    if (pstMutex == nullptr) {
        return RUK_ERR_PARAM;
    }
    return pthread_mutex_lock(Native(pstMutex)) == 0 ? RUK_OK : RUK_ERR_SYSTEM;
}

extern "C" u32 RUK_MutexUnlock(RUK_MUTEX_S *pstMutex) {
    if (plat::FaultHit("RUK_MutexUnlock")) {
        return RUK_ERR_INJECTED;
    }
    if (pstMutex == nullptr) {
        return RUK_ERR_PARAM;
    }
    return pthread_mutex_unlock(Native(pstMutex)) == 0 ? RUK_OK : RUK_ERR_SYSTEM;
}
