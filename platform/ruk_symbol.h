/* Call stacks of the calling thread and symbol texts of code addresses. */
#ifndef RUK_SYMBOL_H
#define RUK_SYMBOL_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Fills ppFrames with up to ulDepth return addresses of the calling thread, innermost first, after
 * skipping ulSkip frames above the caller; the number stored goes to *pulCount.
 * RUK_ERR_PARAM for null pointers or depth 0. */
u32 RUK_CallStackSelfGet(u32 ulDepth, u32 ulSkip, void **ppFrames, u32 *pulCount);

/* Symbol text of a code address, "file(function+0xoffset) [0xaddress]", "file(+0xoffset) [0xaddress]" when
 * the function has no exported name, or "[0xaddress]" when no object holds the address. The text lives in
 * a per-thread buffer until the thread's next call. Null for a null address. */
const char *RUK_SymNameGet(void *pAddr);

#ifdef __cplusplus
}
#endif

#endif /* RUK_SYMBOL_H */
