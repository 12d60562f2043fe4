/* Events: every task has 32 event bits, set by any thread and consumed by the task itself. */
#ifndef RUK_EVENT_H
#define RUK_EVENT_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sets ulEvents in the task's event set and wakes it if it waits for them. Does not block.
 * RUK_ERR_NOT_FOUND for an unknown task, RUK_ERR_PARAM for no bits. */
u32 RUK_Ev_Write(u32 ulTaskId, u32 ulEvents);

/* Takes events of the calling task. Without RUK_EV_ANY all requested bits must be set; with it any one
 * suffices. The bits taken (the requested bits that were set) are cleared and stored in *pulReceived.
 * ulMode: RUK_NOWAIT returns RUK_ERR_EMPTY at once when not satisfied; otherwise the call waits up to
 * ulTimeout ms (0: for ever) and returns RUK_ERR_TIMEOUT. RUK_ERR_PARAM for no bits or a null pointer. */
u32 RUK_Ev_Read(u32 ulEvents, u32 *pulReceived, u32 ulMode, u32 ulTimeout);

#ifdef __cplusplus
}
#endif

#endif /* RUK_EVENT_H */
