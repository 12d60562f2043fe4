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

} // namespace

extern "C" u32 ZOL_GetMemHandle(void) {
    u32 ulHandle = g_ulMemHandle.load(std::memory_order_acquire);
    if (ulHandle != kNoMemHandle) {
        return ulHandle;
    }
    u32 ulRet = RUK_HandleInitialize("zol_mem", &ulHandle);
    // Kept as the platform left it: still unregistered after a failure, so the next call tries again.
    g_ulMemHandle.store(ulHandle, std::memory_order_release);
    if (ulRet != RUK_OK) {
        ZOL_LOG_MSG(zol::log::kUtilSafetyErr, "ZOL_MCF", "memory init fail", "ret:%u", ulRet);
    }
    return ulHandle;
}

namespace zol {

void *ZOL_MemAlloc(u32 ulModuleId, u32 ulSize, const char *pcFile, u32 ulLine) {
    (void)ulModuleId; // for the caller's accounting only; the platform tracks file and line
    return RUK_MemAlloc_F(ZOL_GetMemHandle(), g_ucSysMemPtNo, ulSize, pcFile, ulLine);
}

void *ZOL_MemReAlloc(void *pMem, u32 ulSize, const char *pcFile, u32 ulLine) {
    return RUK_MemReAlloc_F(ZOL_GetMemHandle(), g_ucSysMemPtNo, pMem, ulSize, pcFile, ulLine);
}

u32 ZOL_MemFree(void *pMem, const char *pcFile, u32 ulLine) {
    return RUK_MemFree_F(ZOL_GetMemHandle(), pMem, pcFile, ulLine);
}

} // namespace zol
