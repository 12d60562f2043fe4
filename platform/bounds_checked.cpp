// Stand-in bounds-checked copies and formatting: each refuses, rather than overflows, and clears the
// destination it refused to fill so that no half-written data is mistaken for a result.
#include "bounds_checked.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "plat_fault.h"

// An injected failure of a copy reports BC_EINVAL; of a formatting call, -1 with an empty text.

namespace {

bool Overlaps(const void *a, size_t aLen, const void *b, size_t bLen) {
    const auto pa = reinterpret_cast<uintptr_t>(a);
    const auto pb = reinterpret_cast<uintptr_t>(b);
    return pa < pb + bLen && pb < pa + aLen;
}

// The checks shared by the memory copies. On a refusal with a usable destination, the whole
// capacity is cleared.
int CheckMemCopy(void *dest, size_t destMax, const void *src, size_t count, bool overlapAllowed) {
    if (dest == nullptr) {
        return BC_EINVAL;
    }
    if (destMax > BC_MAX_LEN) {
        return BC_ERANGE; // not a capacity to be trusted with a clear
    }
    int err = BC_EOK;
    if (src == nullptr) {
        err = BC_EINVAL;
    } else if (count > destMax) {
        err = BC_ERANGE;
    } else if (!overlapAllowed && Overlaps(dest, count, src, count)) {
        err = BC_EOVERLAP;
    }
    if (err != BC_EOK) {
        std::memset(dest, 0, destMax);
    }
    return err;
}

// The checks shared by the text copies: destination and capacity first, then the source. A refusal
// with a usable destination leaves it an empty text.
int CheckTextDest(char *strDest, size_t destMax, const char *strSrc) {
    if (strDest == nullptr) {
        return BC_EINVAL;
    }
    if (destMax == 0 || destMax > BC_MAX_LEN) {
        return BC_ERANGE;
    }
    if (strSrc == nullptr) {
        strDest[0] = '\0';
        return BC_EINVAL;
    }
    return BC_EOK;
}

// Copies len characters and a terminator (len < destMax already checked).
int CopyText(char *strDest, const char *strSrc, size_t len) {
    if (Overlaps(strDest, len + 1, strSrc, len + 1)) {
        strDest[0] = '\0';
        return BC_EOVERLAP;
    }
    std::memcpy(strDest, strSrc, len);
    strDest[len] = '\0';
    return BC_EOK;
}

bool IsUsableTextDest(const char *strDest, size_t destMax) {
    return strDest != nullptr && destMax != 0 && destMax <= BC_MAX_LEN;
}

// Formats into strDest; returns the length vsnprintf reports (which may exceed destMax - 1) or -1.
// An unusable destination or format gives -1 without formatting.
int FormatInto(char *strDest, size_t destMax, const char *format, va_list argList) {
    if (!IsUsableTextDest(strDest, destMax)) {
        return -1;
    }
    int len = -1;
    if (format != nullptr) {
        len = std::vsnprintf(strDest, destMax, format, argList);
    }
    if (len < 0) {
        strDest[0] = '\0';
    }
    return len;
}

int FailFormat(char *strDest, size_t destMax) {
    if (IsUsableTextDest(strDest, destMax)) {
        strDest[0] = '\0';
    }
    return -1;
}

// The whole text or nothing: a text that does not fit is replaced by an empty one.
int FormatWhole(char *strDest, size_t destMax, const char *format, va_list argList) {
    const int len = FormatInto(strDest, destMax, format, argList);
    if (len >= 0 && static_cast<size_t>(len) >= destMax) {
        strDest[0] = '\0';
        return -1;
    }
    return len;
}

// memcpy_s and memmove_s differ only in whether overlap is refused; once it is, memmove does for both.
int CheckedMove(const char *pcCall, void *dest, size_t destMax, const void *src, size_t count, bool overlapAllowed) {
    if (plat::FaultHit(pcCall)) {
        return BC_EINVAL;
    }
    if (count == 0) {
        return BC_EOK;
    }
    const int err = CheckMemCopy(dest, destMax, src, count, overlapAllowed);
    if (err == BC_EOK) {
        std::memmove(dest, src, count);
    }
    return err;
}

} // namespace

extern "C" int memcpy_s(void *dest, size_t destMax, const void *src, size_t count) {
    return CheckedMove("memcpy_s", dest, destMax, src, count, false);
}

extern "C" int memmove_s(void *dest, size_t destMax, const void *src, size_t count) {
    return CheckedMove("memmove_s", dest, destMax, src, count, true);
}

extern "C" int memset_s(void *dest, size_t destMax, int c, size_t count) {
    if (plat::FaultHit("memset_s")) {
        return BC_EINVAL;
    }
    if (count == 0) {
        return BC_EOK;
    }
    // The fill value stands in for the source, which cannot be null here.
    const int err = CheckMemCopy(dest, destMax, &c, count, true);
    if (err == BC_EOK) {
        std::memset(dest, c, count);
    }
    return err;
}

extern "C" int strcpy_s(char *strDest, size_t destMax, const char *strSrc) {
    if (plat::FaultHit("strcpy_s")) {
        return BC_EINVAL;
    }
    int err = CheckTextDest(strDest, destMax, strSrc);
    if (err != BC_EOK) {
        return err;
    }
    const size_t len = strnlen(strSrc, destMax);
    if (len == destMax) {
        strDest[0] = '\0';
        return BC_ERANGE;
    }
    return CopyText(strDest, strSrc, len);
}

extern "C" int strncpy_s(char *strDest, size_t destMax, const char *strSrc, size_t count) {
    if (plat::FaultHit("strncpy_s")) {
        return BC_EINVAL;
    }
    if (count == 0) {
        return BC_EOK;
    }
    int err = CheckTextDest(strDest, destMax, strSrc);
    if (err != BC_EOK) {
        return err;
    }
    const size_t len = strnlen(strSrc, count);
    if (len >= destMax) {
        strDest[0] = '\0';
        return BC_ERANGE;
    }
    return CopyText(strDest, strSrc, len);
}

extern "C" int sprintf_s(char *strDest, size_t destMax, const char *format, ...) {
    if (plat::FaultHit("sprintf_s")) {
        return FailFormat(strDest, destMax);
    }
    va_list argList;
    va_start(argList, format);
    const int len = FormatWhole(strDest, destMax, format, argList);
    va_end(argList);
    return len;
}

extern "C" int vsprintf_s(char *strDest, size_t destMax, const char *format, va_list argList) {
    if (plat::FaultHit("vsprintf_s")) {
        return FailFormat(strDest, destMax);
    }
    return FormatWhole(strDest, destMax, format, argList);
}

extern "C" int vsnprintf_truncated_s(char *strDest, size_t destMax, const char *format, va_list argList) {
    if (plat::FaultHit("vsnprintf_truncated_s")) {
        return FailFormat(strDest, destMax);
    }
    const int len = FormatInto(strDest, destMax, format, argList);
    if (len < 0) {
        return -1;
    }
    return static_cast<size_t>(len) >= destMax ? static_cast<int>(destMax - 1) : len;
}
