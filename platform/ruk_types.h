/* Types, wait modes and status codes shared by every service of the platform's OS adaptation layer. */
#ifndef RUK_TYPES_H
#define RUK_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifndef ZOL_FIXED_WIDTH_TYPES
#define ZOL_FIXED_WIDTH_TYPES
/* The same guard is used by the library's exported type header, so both can be included in any order. */
typedef uint8_t u8;
typedef uint16_t u16;
typedef uint32_t u32;
typedef uint64_t u64;
typedef int8_t s8;
typedef int16_t s16;
typedef int32_t s32;
typedef int64_t s64;
#endif

/* Mode words of the blocking calls (events, queues, semaphores). Time-outs are milliseconds; a time-out
 * of 0 with RUK_WAIT waits for ever. A mode without RUK_NOWAIT waits. */
#define RUK_WAIT 0x40000000u   /* block until satisfied or time-out */
#define RUK_NOWAIT 0x80000000u /* return at once */
#define RUK_EV_ANY 0x04000000u /* event read: any requested bit (default: all) */

/* Status codes. Every call returns RUK_OK (0) on success and one of these otherwise. */
#define RUK_OK 0u
#define RUK_ERR_PARAM 0x00A10001u     /* null pointer, zero size or depth, bad mode */
#define RUK_ERR_TIMEOUT 0x00A10002u   /* a waiting call ran out of time */
#define RUK_ERR_NOMEM 0x00A10003u     /* the platform could not allocate what it needed */
#define RUK_ERR_FULL 0x00A10004u      /* queue full and the caller did not wait */
#define RUK_ERR_EMPTY 0x00A10005u     /* nothing to take (queue, events, semaphore) and the caller did not wait */
#define RUK_ERR_NOT_FOUND 0x00A10006u /* unknown or deleted task, queue, semaphore, handle or list node */
#define RUK_ERR_INJECTED 0x00A10007u  /* failure forced by the test control PLAT_FaultInject */
#define RUK_ERR_SYSTEM 0x00A10008u    /* the operating system refused (thread creation, ...) */
#define RUK_ERR_DELETED 0x00A10009u   /* the semaphore was deleted while the caller waited on it */
#define RUK_ERR_BAD_BLOCK 0x00A1000Au /* not a live block of the memory service (double or foreign free) */

#endif /* RUK_TYPES_H */
