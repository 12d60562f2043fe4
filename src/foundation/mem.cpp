// The library's memory handle "zol_mem" and the allocation helpers every subsystem uses.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"

#include <atomic>

#include "ruk_mem.h"

namespace {

constexpr u32 kNoMemHandle = 0xFFFFFFFFu;

// Registered lazily by the first caller. Registering the same name twice gives the same handle, so two
// threads racing to register store the same value; the atomic only keeps that benign race well defined.
std::atomic<u32> g_ulMemHandle{kNoMemHandle};

// The first caller registers; kept as the platform left the handle on failure (still unregistered), so
// the next call tries again.
[[gnu::noinline, gnu::cold]] u32 RegisterMemHandle() {
    u32 ulHandle = kNoMemHandle;
    u32 ulRet = RUK_HandleInitialize("zol_mem", &ulHandle);
    g_ulMemHandle.store(ulHandle, std::memory_order_relaxed);
    if (ulRet != RUK_OK) {
        ZOL_LOG_MSG(zol::log::kUtilSafetyErr, "ZOL_MCF", "memory init fail", "ret:%u", ulRet);
    }
    return ulHandle;
}

// Every allocation and release asks for the handle: once registered that is one relaxed load (the
// handle is a plain number; the platform's own table publishes what it names).
inline u32 MemHandle() {
    const u32 ulHandle = g_ulMemHandle.load(std::memory_order_relaxed);
    return ulHandle != kNoMemHandle ? ulHandle : RegisterMemHandle();
}

} // namespace

extern "C" u32 ZOL_GetMemHandle(void) {
    return MemHandle();
}

namespace zol {

void *ZOL_MemAlloc(u32 ulModuleId, u32 ulSize, const char *pcFile, u32 ulLine) {
    (void)ulModuleId; // for the caller's accounting only; the platform tracks file and line
    return RUK_MemAlloc_F(MemHandle(), g_ucSysMemPtNo, ulSize, pcFile, ulLine);
}

void *ZOL_MemReAlloc(void *pMem, u32 ulSize, const char *pcFile, u32 ulLine) {
    return RUK_MemReAlloc_F(MemHandle(), g_ucSysMemPtNo, pMem, ulSize, pcFile, ulLine);
}

u32 ZOL_MemFree(void *pMem, const char *pcFile, u32 ulLine) {
    return RUK_MemFree_F(MemHandle(), pMem, pcFile, ulLine);
}

} // namespace zol
