// Internal services of the foundation used by every subsystem: memory through the library's handle.
#ifndef ZOL_FOUNDATION_INTERNAL_H
#define ZOL_FOUNDATION_INTERNAL_H

#include "zol_foundation.h"

namespace zol {

// Module identifiers given with allocations (accounting only; not passed on to the platform).
constexpr u32 kModIpc = 0xC00B0000u;
constexpr u32 kModRpc = 0xC00C0000u;

// Allocation through the handle "zol_mem" in the system partition, tagged with the caller's position.
// Null on failure. Every dynamic block of the library comes from here.
void *ZOL_MemAlloc(u32 ulModuleId, u32 ulSize, const char *pcFile, u32 ulLine);
// Resizes a block; null on failure with the old block untouched.
void *ZOL_MemReAlloc(void *pMem, u32 ulSize, const char *pcFile, u32 ulLine);
// Drops one reference (frees with the last); returns the platform's status (0 on success).
u32 ZOL_MemFree(void *pMem, const char *pcFile, u32 ulLine);

} // namespace zol

// The caller's position, for the memory helpers: ZOL_MEM_ALLOC(mod, size) etc.
#define ZOL_MEM_ALLOC(mod, size) ::zol::ZOL_MemAlloc((mod), (size), __FILE__, __LINE__)
#define ZOL_MEM_REALLOC(ptr, size) ::zol::ZOL_MemReAlloc((ptr), (size), __FILE__, __LINE__)
#define ZOL_MEM_FREE(ptr) ::zol::ZOL_MemFree((ptr), __FILE__, __LINE__)

#endif // ZOL_FOUNDATION_INTERNAL_H
