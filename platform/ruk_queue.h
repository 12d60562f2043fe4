/* Queues of fixed records of four 64-bit words, first in first out, any number of writers and readers. */
#ifndef RUK_QUEUE_H
#define RUK_QUEUE_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Creates a queue holding at most ulDepth records. ulFlags (ordering options on the device) are
 * accepted and ignored. RUK_ERR_PARAM for depth 0 or a null id pointer. Queues live until the process ends. */
u32 RUK_Que_Create(const char *pcName, u32 ulDepth, u32 ulFlags, u32 *pulQueId);

/* Appends a copy of the record. When the queue is full: RUK_NOWAIT returns RUK_ERR_FULL at once;
 * otherwise the call waits up to ulTimeout ms (0: for ever) for room and returns RUK_ERR_TIMEOUT.
 * RUK_ERR_NOT_FOUND for an unknown queue. */
u32 RUK_Que_Write(u32 ulQueId, const u64 aullMsg[4], u32 ulMode, u32 ulTimeout);

/* Takes the oldest record. When the queue is empty: RUK_NOWAIT returns RUK_ERR_EMPTY at once; otherwise
 * the call waits up to ulTimeout ms (0: for ever) and returns RUK_ERR_TIMEOUT. */
u32 RUK_Que_Read(u32 ulQueId, u64 aullMsg[4], u32 ulMode, u32 ulTimeout);

#ifdef __cplusplus
}
#endif

#endif /* RUK_QUEUE_H */
