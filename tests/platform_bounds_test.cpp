// Stand-in bounds-checked functions on their boundaries: exact fit, one over, null, overlap, zero count.
#include <cstdarg>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "bounds_checked.h"
#include "standin_ctl.h"

namespace {

using namespace std::string_literals;

// Variadic front for the va_list functions.
template <int (*VFormat)(char *, size_t, const char *, va_list)>
__attribute__((format(printf, 3, 4))) int CallV(char *dest, size_t destMax, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    const int rc = VFormat(dest, destMax, format, ap);
    va_end(ap);
    return rc;
}
constexpr auto Vsprintf = CallV<vsprintf_s>;
constexpr auto Truncated = CallV<vsnprintf_truncated_s>;

// Each call works on a 12-byte buffer holding "abcdefghijk"; after it the buffer starts with `after`.
// With `inject` set, the call is first made to fail once and must then not return `rc`.
struct Case {
    const char *name;
    std::function<int(char *)> call;
    int rc;
    std::string after;
    const char *inject = nullptr;
};

TEST(BoundsChecked, Boundaries) {
    const char *digits = "12345678";
    const size_t huge = size_t{BC_MAX_LEN} + 1;
    const Case cases[] = {
        {"memcpy fit", [&](char *b) { return memcpy_s(b, 8, digits, 8); }, BC_EOK, "12345678ijk\0"s},
        {"memcpy over clears the capacity", [&](char *b) { return memcpy_s(b, 7, digits, 8); }, BC_ERANGE,
         "\0\0\0\0\0\0\0hijk\0"s},
        {"memcpy null source", [&](char *b) { return memcpy_s(b, 8, nullptr, 4); }, BC_EINVAL,
         "\0\0\0\0\0\0\0\0ijk\0"s},
        {"memcpy huge capacity", [&](char *b) { return memcpy_s(b, huge, digits, 4); }, BC_ERANGE, "abcdefghijk\0"s},
        {"memcpy zero", [&](char *) { return memcpy_s(nullptr, 0, nullptr, 0); }, BC_EOK, "abcdefghijk\0"s},
        {"memcpy overlap", [&](char *b) { return memcpy_s(b + 2, 8, b, 4); }, BC_EOVERLAP, "ab\0\0\0\0\0\0\0\0k\0"s},
        {"memcpy adjacent", [&](char *b) { return memcpy_s(b + 4, 8, b, 4); }, BC_EOK, "abcdabcdijk\0"s},
        {"memmove overlap", [&](char *b) { return memmove_s(b + 2, 8, b, 6); }, BC_EOK, "ababcdefijk\0"s},
        {"memmove down", [&](char *b) { return memmove_s(b, 12, b + 1, 5); }, BC_EOK, "bcdeffghijk\0"s},
        {"memmove over", [&](char *b) { return memmove_s(b, 7, digits, 8); }, BC_ERANGE, "\0\0\0\0\0\0\0hijk\0"s},
        {"memset fit", [&](char *b) { return memset_s(b, 8, 'z', 8); }, BC_EOK, "zzzzzzzzijk\0"s},
        {"memset over", [&](char *b) { return memset_s(b, 4, 'z', 5); }, BC_ERANGE, "\0\0\0\0efghijk\0"s},
        {"memset null", [&](char *) { return memset_s(nullptr, 8, 'z', 1); }, BC_EINVAL, "abcdefghijk\0"s},
        {"strcpy fit", [&](char *b) { return strcpy_s(b, 6, "hello"); }, BC_EOK, "hello\0ghijk\0"s},
        {"strcpy over", [&](char *b) { return strcpy_s(b, 5, "hello"); }, BC_ERANGE, "\0bcdefghijk\0"s},
        {"strcpy null source", [&](char *b) { return strcpy_s(b, 6, nullptr); }, BC_EINVAL, "\0bcdefghijk\0"s},
        {"strcpy overlap", [&](char *b) { return b[5] = '\0', strcpy_s(b + 2, 10, b); }, BC_EOVERLAP,
         "ab\0de\0ghijk\0"s},
        {"strncpy count then terminator", [&](char *b) { return strncpy_s(b, 6, digits, 5); }, BC_EOK,
         "12345\0ghijk\0"s},
        {"strncpy short source", [&](char *b) { return strncpy_s(b, 6, "12", 100); }, BC_EOK, "12\0defghijk\0"s},
        {"strncpy over", [&](char *b) { return strncpy_s(b, 6, digits, 6); }, BC_ERANGE, "\0bcdefghijk\0"s},
        {"strncpy zero count", [&](char *b) { return strncpy_s(b, 6, digits, 0); }, BC_EOK, "abcdefghijk\0"s},
        {"strncpy overlap", [&](char *b) { return strncpy_s(b + 1, 11, b, 4); }, BC_EOVERLAP, "a\0"s},
        {"sprintf fit", [&](char *b) { return sprintf_s(b, 6, "%s-%d", "ab", 12); }, 5, "ab-12\0"s},
        {"sprintf over", [&](char *b) { return sprintf_s(b, 5, "%s-%d", "ab", 12); }, -1, "\0"s},
        {"vsprintf fit", [&](char *b) { return Vsprintf(b, 6, "%s-%d", "ab", 12); }, 5, "ab-12\0"s},
        {"vsprintf over", [&](char *b) { return Vsprintf(b, 5, "%s-%d", "ab", 12); }, -1, "\0"s},
        {"truncated cut", [&](char *b) { return Truncated(b, 6, "%s", "abcdefghij"); }, 5, "abcde\0"s},
        {"truncated to nothing", [&](char *b) { return Truncated(b, 1, "%s", "abc"); }, 0, "\0"s},
        {"truncated zero capacity", [&](char *b) { return Truncated(b, 0, "%s", "a"); }, -1, "a"s},
        {"inject memcpy", [&](char *b) { return memcpy_s(b, 8, digits, 1); }, BC_EOK, ""s, "memcpy_s"},
        {"inject memset", [&](char *b) { return memset_s(b, 8, 'z', 1); }, BC_EOK, ""s, "memset_s"},
        {"inject strcpy", [&](char *b) { return strcpy_s(b, 6, "a"); }, BC_EOK, ""s, "strcpy_s"},
        {"inject strncpy", [&](char *b) { return strncpy_s(b, 6, "a", 1); }, BC_EOK, ""s, "strncpy_s"},
        {"inject sprintf", [&](char *b) { return sprintf_s(b, 6, "%d", 1); }, 1, ""s, "sprintf_s"},
        {"inject vsprintf", [&](char *b) { return Vsprintf(b, 6, "%d", 1); }, 1, ""s, "vsprintf_s"},
        {"inject truncated", [&](char *b) { return Truncated(b, 6, "%d", 1); }, 1, ""s, "vsnprintf_truncated_s"},
    };
    for (const Case &c : cases) {
        char buf[12] = "abcdefghijk";
        if (c.inject != nullptr) { // fails once, then works again
            ASSERT_EQ(PLAT_FaultInject(c.inject, 0, 1), 0u) << c.name;
            EXPECT_NE(c.call(buf), c.rc) << c.name;
        }
        EXPECT_EQ(c.call(buf), c.rc) << c.name;
        EXPECT_EQ(std::string(buf, c.after.size()), c.after) << c.name;
    }
    PLAT_FaultClear();
}

} // namespace
