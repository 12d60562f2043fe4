/* Test controls of the stand-in platform. Not part of the device API: only tests and tools include this
 * header, but the functions live in the platform library itself, so a program that links only
 * libzol_comm.so reaches them. */
#ifndef STANDIN_CTL_H
#define STANDIN_CTL_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The next ulCount calls of the named platform function fail, after ulSkip that succeed. Returns 0 when
 * the name is known, RUK_ERR_NOT_FOUND otherwise. Injecting again for a name replaces its setting.
 * Calls that return a status return RUK_ERR_INJECTED; calls that return a pointer return null; the
 * MESH_ calls return -1 with error number EIO. */
u32 PLAT_FaultInject(const char *pcCall, u32 ulSkip, u32 ulCount);

/* Cancels every pending injection. */
void PLAT_FaultClear(void);

/* Blocks and bytes (as requested) still allocated from a memory handle; both 0 for an unknown handle.
 * Null pointers are skipped. */
void PLAT_MemStats(u32 ulHandle, u64 *pullLiveBlocks, u64 *pullLiveBytes);

#ifdef __cplusplus
}
#endif

#endif /* STANDIN_CTL_H */
