/* Mutexes embedded in the caller's records. Not recursive; error-checking in debug builds. */
#ifndef RUK_MUTEX_H
#define RUK_MUTEX_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Storage for one mutex; its contents belong to the platform. Zero-filled storage is not a mutex until
 * RUK_MutexInit succeeds. */
typedef struct {
    u64 aullOpaque[8];
} RUK_MUTEX_S;

/* Prepares the mutex; pAttr is reserved and must be null. RUK_ERR_PARAM for a null mutex. */
u32 RUK_MutexInit(RUK_MUTEX_S *pstMutex, const void *pAttr);
/* Blocks until the calling thread owns the mutex. */
u32 RUK_MutexLock(RUK_MUTEX_S *pstMutex);
/* Releases a mutex the calling thread owns. */
u32 RUK_MutexUnlock(RUK_MUTEX_S *pstMutex);

#ifdef __cplusplus
}
#endif

#endif /* RUK_MUTEX_H */
