// Registration of the library's memory handle "zol_mem", which every allocation of the library names.
#include "foundation/foundation_internal.h"
#include "foundation/log_points.h"

#include <atomic>

#include "ruk_mem.h"

namespace zol::detail {

// Registered lazily by the first caller. Registering the same name twice gives the same handle, so two
// threads racing to register store the same value; the atomic only keeps that benign race well defined.
std::atomic<u32> g_memHandle{kNoMemHandle};

// Kept as the platform left the handle on failure (still unregistered), so the next call tries again.
[[gnu::noinline]] u32 RegisterMemHandle() {
    u32 ulHandle = kNoMemHandle;
    u32 ulRet = RUK_HandleInitialize("zol_mem", &ulHandle);
    g_memHandle.store(ulHandle, std::memory_order_relaxed);
    if (ulRet != RUK_OK) {
        ZOL_LOG_MSG(zol::log::kUtilSafetyErr, "ZOL_MCF", "memory init fail", "ret:%u", ulRet);
    }
    return ulHandle;
}

} // namespace zol::detail

extern "C" u32 ZOL_GetMemHandle(void) {
    return zol::detail::MemHandle();
}
