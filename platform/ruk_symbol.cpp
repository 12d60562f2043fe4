// Stand-in call stacks (glibc backtrace) and symbol texts of code addresses (dladdr).
#include "ruk_symbol.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <dlfcn.h>
#include <execinfo.h>
#include <limits.h>
#include <vector>

#include "plat_fault.h"

namespace {

// Room for a full path plus the function name, offset and address; longer names are cut.
constexpr size_t kSymTextSize = PATH_MAX + 256;

} // namespace

// Frames above the caller that a sanitizer's interceptor of backtrace() may add to the trace.
constexpr u32 kExtraFrames = 4;

// Not inlined, so that the caller's return address is a frame of the trace of its own.
extern "C" __attribute__((noinline)) u32 RUK_CallStackSelfGet(u32 ulDepth, u32 ulSkip, void **ppFrames, u32 *pulCount) {
    if (plat::FaultHit("RUK_CallStackSelfGet")) {
        return RUK_ERR_INJECTED;
    }
    if (ppFrames == nullptr || pulCount == nullptr || ulDepth == 0) {
        return RUK_ERR_PARAM;
    }
    const u64 wanted = static_cast<u64>(ulDepth) + ulSkip + 1 + kExtraFrames;
    if (wanted > INT_MAX / sizeof(void *)) {
        return RUK_ERR_PARAM;
    }
    std::vector<void *> frames(static_cast<size_t>(wanted));
    const u64 got = static_cast<u64>(std::max(0, backtrace(frames.data(), static_cast<int>(wanted))));
    // The caller's frame is the one holding our return address. Looking for it, rather than assuming it
    // is frame 1, keeps the skip exact when an interceptor (ASan wraps backtrace) adds frames of its own.
    u64 first = 1;
    for (u64 i = 0; i < got; ++i) {
        if (frames[i] == __builtin_return_address(0)) {
            first = i;
            break;
        }
    }
    u32 count = 0;
    for (u64 i = first + ulSkip; i < got && count < ulDepth; ++i) {
        ppFrames[count++] = frames[i];
    }
    *pulCount = count;
    return RUK_OK;
}

extern "C" const char *RUK_SymNameGet(void *pAddr) {
    if (plat::FaultHit("RUK_SymNameGet")) {
        return nullptr;
    }
    if (pAddr == nullptr) {
        return nullptr;
    }
    static thread_local char t_text[kSymTextSize];
    const uintptr_t addr = reinterpret_cast<uintptr_t>(pAddr);
    Dl_info info{};
    if (dladdr(pAddr, &info) == 0 || info.dli_fname == nullptr) {
        std::snprintf(t_text, sizeof t_text, "[0x%" PRIxPTR "]", addr);
    } else if (info.dli_sname != nullptr && info.dli_saddr != nullptr) {
        std::snprintf(t_text, sizeof t_text, "%s(%s+0x%" PRIxPTR ") [0x%" PRIxPTR "]", info.dli_fname, info.dli_sname,
                      addr - reinterpret_cast<uintptr_t>(info.dli_saddr), addr);
    } else {
        // No exported name covers the address: the offset is from the object's load address, which is
        // what address-to-line tools expect for a position-independent object.
        std::snprintf(t_text, sizeof t_text, "%s(+0x%" PRIxPTR ") [0x%" PRIxPTR "]", info.dli_fname,
                      addr - reinterpret_cast<uintptr_t>(info.dli_fbase), addr);
    }
    return t_text;
}
