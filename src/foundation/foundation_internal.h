// Internal services of the foundation used by every subsystem: memory through the library's handle.
#ifndef ZOL_FOUNDATION_INTERNAL_H
#define ZOL_FOUNDATION_INTERNAL_H

#include <atomic>

#include "zol_foundation.h"

#include "ruk_mem.h"

namespace zol {

// Module identifiers given with allocations (accounting only; not passed on to the platform).
constexpr u32 kModIpc = 0xC00B0000u;
constexpr u32 kModRpc = 0xC00C0000u;

namespace detail {
constexpr u32 kNoMemHandle = 0xFFFFFFFFu;
// The handle of "zol_mem" once registered, else kNoMemHandle.
extern std::atomic<u32> g_memHandle;
// Registers "zol_mem" (the first caller does; repeats give the same number) and returns the handle.
[[gnu::cold]] u32 RegisterMemHandle();

// Every allocation and release asks for the handle: once registered that is one relaxed load (the handle
// is a plain number; the platform's own table publishes what it names). Inline, because these calls sit
// on every message's and buffer's path.
inline u32 MemHandle() {
    const u32 handle = g_memHandle.load(std::memory_order_relaxed);
    return handle != kNoMemHandle ? handle : RegisterMemHandle();
}
} // namespace detail

// Allocation through the handle "zol_mem" in the system partition, tagged with the caller's position.
// Null on failure. Every dynamic block of the library comes from here. ulModuleId is for the caller's
// accounting only; the platform tracks file and line.
inline void *ZOL_MemAlloc(u32 ulModuleId, u32 ulSize, const char *pcFile, u32 ulLine) {
    (void)ulModuleId;
    return RUK_MemAlloc_F(detail::MemHandle(), g_ucSysMemPtNo, ulSize, pcFile, ulLine);
}
// Resizes a block; null on failure with the old block untouched.
inline void *ZOL_MemReAlloc(void *pMem, u32 ulSize, const char *pcFile, u32 ulLine) {
    return RUK_MemReAlloc_F(detail::MemHandle(), g_ucSysMemPtNo, pMem, ulSize, pcFile, ulLine);
}
// Drops one reference (frees with the last); returns the platform's status (0 on success).
inline u32 ZOL_MemFree(void *pMem, const char *pcFile, u32 ulLine) {
    return RUK_MemFree_F(detail::MemHandle(), pMem, pcFile, ulLine);
}

} // namespace zol

// The caller's position, for the memory helpers: ZOL_MEM_ALLOC(mod, size) etc.
#define ZOL_MEM_ALLOC(mod, size) ::zol::ZOL_MemAlloc((mod), (size), __FILE__, __LINE__)
#define ZOL_MEM_REALLOC(ptr, size) ::zol::ZOL_MemReAlloc((ptr), (size), __FILE__, __LINE__)
#define ZOL_MEM_FREE(ptr) ::zol::ZOL_MemFree((ptr), __FILE__, __LINE__)

#endif // ZOL_FOUNDATION_INTERNAL_H
