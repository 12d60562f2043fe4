/* The wait list: a process-wide registry of registrations grouped into lists by a 32-bit list id, each
 * holding a procedure, a 64-bit value and a 64-bit context, and known to its owner by a handle.
 * Every operation is serialised by one mutex. Plain C. */
#ifndef ZOL_WAITLIST_H
#define ZOL_WAITLIST_H

#include "zol_types.h"

ZOL_EXTERN_C_BEGIN

/* Called by RUK_WaitListDelFromList with the registration's context; the result becomes the
 * registration's value and the word written to *pullNewContext its context. It runs with the wait
 * list's (non-recursive) mutex held, so it must not call the wait-list operations. */
typedef u64 (*WAITLIST_PROC_PF)(u64 ullContext, u64 *pullNewContext);

#define WAITLIST_OK 0u
#define WAITLIST_ERR_NOT_FOUND 1u /* DelFromList: no such list, or a damaged node; removal: list gone */
#define WAITLIST_ERR_HANDLE 2u    /* unknown or stale handle; removal: registration not in its list */
#define WAITLIST_ERR_FAILED 3u    /* registration failed (memory, index table, damaged list, lock) */
#define WAITLIST_ERR_PARAM 4u     /* null argument or handle 0; removal: damaged main list */

/* Registers pfProc in list ulListId with value 0 and context 0. *pulHandle is set to 0 first and to the
 * new handle (never 0) on success. 0; WAITLIST_ERR_PARAM for a null pulHandle or pfProc (nothing is
 * allocated); WAITLIST_ERR_FAILED for every other failure, which leaves nothing behind. */
ZOL_EXPORT u32 RUK_WaitListRegister(u32 ulListId, u32 *pulHandle, WAITLIST_PROC_PF pfProc);

/* Removes a registration; its list disappears with its last registration. 0; WAITLIST_ERR_PARAM for
 * handle 0; WAITLIST_ERR_HANDLE for an unknown handle; otherwise the result of the removal (0, 1, 2 or
 * 4). The handle is invalid afterwards whatever the result. */
ZOL_EXPORT u32 RUK_WaitListUnregister(u32 ulHandle);

/* Sets the registration's value and context. 0, or WAITLIST_ERR_HANDLE for an unknown handle. */
ZOL_EXPORT u32 RUK_WaitListSet(u32 ulHandle, u64 ullValue, u64 ullContext);

/* Reads the registration's value into *pullValue (not checked, must be valid). 0, or WAITLIST_ERR_HANDLE. */
ZOL_EXPORT u32 RUK_WaitListGet(u32 ulHandle, u64 *pullValue);

/* Calls the procedure of every registration of list ulListId whose value equals ullValue, in
 * registration order, on the calling thread. The new-context word is cleared once per call, not per
 * procedure: a procedure that does not write it passes on the context left by the previous one.
 * 0 when the list was walked; WAITLIST_ERR_NOT_FOUND when there is no such list or a damaged node was
 * met (registrations handled before it keep their changes). */
ZOL_EXPORT u32 RUK_WaitListDelFromList(u32 ulListId, u64 ullValue);

/* Kept for the processes that call it: returns 0 whatever it is given. */
ZOL_EXPORT u32 RUK_VFS_PureNameIsTooLong(const char *pcName);

ZOL_EXTERN_C_END

#endif /* ZOL_WAITLIST_H */
