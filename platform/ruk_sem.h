/* Counting semaphores. Ids are non-zero and never reused while the semaphore lives. */
#ifndef RUK_SEM_H
#define RUK_SEM_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Creates a semaphore with ulCount units (0: unavailable until posted). ulOption (queueing order on the
 * device) is accepted and ignored. RUK_ERR_PARAM for a null id pointer. */
u32 RUK_Sm_Create(const char *pcName, u32 ulCount, u32 ulOption, u32 *pulSmId);

/* Deletes a semaphore; tasks waiting on it return RUK_ERR_DELETED. RUK_ERR_NOT_FOUND for an unknown id. */
u32 RUK_Sm_Delete(u32 ulSmId);

/* Takes one unit. When none is available: RUK_NOWAIT returns RUK_ERR_EMPTY at once; otherwise the call
 * waits up to ulTimeout ms (0: for ever) and returns RUK_ERR_TIMEOUT. */
u32 RUK_Sm_P(u32 ulSmId, u32 ulMode, u32 ulTimeout);

/* Gives one unit back and wakes one waiter. Does not block. */
u32 RUK_Sm_V(u32 ulSmId);

#ifdef __cplusplus
}
#endif

#endif /* RUK_SEM_H */
