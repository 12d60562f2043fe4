/* Memory partitions: blocks allocated under a named memory handle, tagged with the caller's file and
 * line, each with a reference count (1 when allocated). Safe from any thread; a block may be freed by
 * another thread than the one that allocated it. */
#ifndef RUK_MEM_H
#define RUK_MEM_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Number of the system partition, passed to every allocation. */
extern u8 g_ucSysMemPtNo;

/* Registers a memory handle by name (the same name gives the same handle) and stores it in *pulHandle.
 * RUK_ERR_PARAM for a null or empty name or null pointer; RUK_ERR_NOMEM when no handle is left. */
u32 RUK_HandleInitialize(const char *pcName, u32 *pulHandle);

/* A block of ulSize bytes (ulSize 0 is refused), aligned to 16 bytes, contents undefined, reference count 1;
 * null when the handle is unknown or memory runs out. */
void *RUK_MemAlloc_F(u32 ulHandle, u8 ucPtNo, u32 ulSize, const char *pcFile, u32 ulLine);

/* Resizes a block (pBlock null: allocates). Contents up to the smaller size are kept; on failure null is
 * returned and the old block is untouched. A shared block (reference count above 1) is refused. */
void *RUK_MemReAlloc_F(u32 ulHandle, u8 ucPtNo, void *pBlock, u32 ulSize, const char *pcFile, u32 ulLine);

/* Drops one reference; the block is freed with its last reference. RUK_ERR_BAD_BLOCK for null or a block
 * that is not live (freed already or never allocated here), which is detected without crashing. */
u32 RUK_MemFree_F(u32 ulHandle, void *pBlock, const char *pcFile, u32 ulLine);

/* Adds one reference to a live block. */
u32 RUK_MemRefInc(void *pBlock);

/* Stores the current reference count of a live block in *pulCount. */
u32 RUK_MemRefGet(void *pBlock, u32 *pulCount);

#ifdef __cplusplus
}
#endif

#endif /* RUK_MEM_H */
