// Stand-in bounds-checked functions on their boundaries: exact fit, one over, null, overlap, zero count.
#include <cstdarg>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "bounds_checked.h"
#include "standin_ctl.h"

namespace {

class BoundsChecked : public ::testing::Test {
  protected:
    void SetUp() override { PLAT_FaultClear(); }
    void TearDown() override { PLAT_FaultClear(); }
};

bool AllBytes(const char *p, size_t n, char value) {
    for (size_t i = 0; i < n; ++i) {
        if (p[i] != value) {
            return false;
        }
    }
    return true;
}

using MemCopyFn = int (*)(void *, size_t, const void *, size_t);

// What memcpy_s and memmove_s share: fit, one over, nulls, zero count, huge capacity.
void CheckCommonCopy(MemCopyFn copy) {
    const char src[8] = {'1', '2', '3', '4', '5', '6', '7', '8'};
    char dest[8];
    std::memset(dest, 'x', sizeof dest);
    EXPECT_EQ(BC_EOK, copy(dest, 8, src, 8));
    EXPECT_EQ(0, std::memcmp(dest, src, 8));
    std::memset(dest, 'x', sizeof dest);
    EXPECT_EQ(BC_ERANGE, copy(dest, 7, src, 8));
    EXPECT_TRUE(AllBytes(dest, 7, '\0')); // the capacity, and only it, is cleared
    EXPECT_EQ('x', dest[7]);
    std::memset(dest, 'x', sizeof dest);
    EXPECT_EQ(BC_EINVAL, copy(dest, 8, nullptr, 4));
    EXPECT_TRUE(AllBytes(dest, 8, '\0'));
    EXPECT_EQ(BC_EINVAL, copy(nullptr, 8, src, 4));
    std::memset(dest, 'x', sizeof dest);
    EXPECT_EQ(BC_EOK, copy(dest, 0, src, 0));
    EXPECT_EQ(BC_EOK, copy(nullptr, 0, nullptr, 0));
    EXPECT_EQ(BC_ERANGE, copy(dest, size_t{BC_MAX_LEN} + 1, src, 4));
    EXPECT_TRUE(AllBytes(dest, 8, 'x'));
}

TEST_F(BoundsChecked, MemoryCopiesAndOverlap) {
    CheckCommonCopy(memcpy_s);
    CheckCommonCopy(memmove_s);

    char buf[16] = "abcdefghijklmno";
    EXPECT_EQ(BC_EOVERLAP, memcpy_s(buf + 2, 8, buf, 4));
    EXPECT_TRUE(AllBytes(buf + 2, 8, '\0'));
    std::strcpy(buf, "abcdefghijklmno");
    EXPECT_EQ(BC_EOK, memcpy_s(buf + 4, 8, buf, 4)); // adjacent, not overlapping
    EXPECT_STREQ("abcdabcdijklmno", buf);
    std::strcpy(buf, "abcdefghijklmno");
    EXPECT_EQ(BC_EOK, memmove_s(buf + 2, 8, buf, 6));
    EXPECT_STREQ("ababcdefijklmno", buf);
    EXPECT_EQ(BC_EOK, memmove_s(buf, 16, buf + 1, 5));
    EXPECT_STREQ("babcddefijklmno", buf);

    ASSERT_EQ(RUK_OK, PLAT_FaultInject("memcpy_s", 0, 1));
    EXPECT_NE(BC_EOK, memcpy_s(buf, 16, "z", 1));
    EXPECT_EQ(BC_EOK, memcpy_s(buf, 16, "z", 1));
    EXPECT_EQ('z', buf[0]);
}

TEST_F(BoundsChecked, MemsetBoundaries) {
    char buf[8];
    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(BC_EOK, memset_s(buf, 8, 'a', 8));
    EXPECT_TRUE(AllBytes(buf, 8, 'a'));
    EXPECT_EQ(BC_ERANGE, memset_s(buf, 4, 'b', 5));
    EXPECT_TRUE(AllBytes(buf, 4, '\0'));
    EXPECT_TRUE(AllBytes(buf + 4, 4, 'a'));
    EXPECT_EQ(BC_EOK, memset_s(buf, 0, 'c', 0));
    EXPECT_EQ(BC_EOK, memset_s(nullptr, 0, 'c', 0));
    EXPECT_EQ(BC_EINVAL, memset_s(nullptr, 8, 'c', 1));
    EXPECT_EQ(BC_ERANGE, memset_s(buf, size_t{BC_MAX_LEN} + 1, 'c', 1));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("memset_s", 0, 1));
    EXPECT_NE(BC_EOK, memset_s(buf, 8, 'd', 1));
}

TEST_F(BoundsChecked, TextCopies) {
    char dest[6];
    EXPECT_EQ(BC_EOK, strcpy_s(dest, 6, "hello"));
    EXPECT_STREQ("hello", dest);
    EXPECT_EQ(BC_ERANGE, strcpy_s(dest, 5, "hello"));
    EXPECT_STREQ("", dest);
    EXPECT_EQ(BC_EOK, strcpy_s(dest, 1, ""));
    std::strcpy(dest, "abc");
    EXPECT_EQ(BC_EINVAL, strcpy_s(dest, 6, nullptr));
    EXPECT_STREQ("", dest);
    EXPECT_EQ(BC_EINVAL, strcpy_s(nullptr, 6, "a"));
    EXPECT_EQ(BC_ERANGE, strcpy_s(dest, 0, "a"));
    char ring[12] = "abcdef";
    EXPECT_EQ(BC_EOVERLAP, strcpy_s(ring + 2, 10, ring));
    EXPECT_EQ('\0', ring[2]);

    std::strcpy(dest, "zzzzz");
    EXPECT_EQ(BC_EOK, strncpy_s(dest, 6, "abcdefgh", 5)); // count characters, then the terminator
    EXPECT_STREQ("abcde", dest);
    EXPECT_EQ(BC_EOK, strncpy_s(dest, 6, "ab", 100)); // a short source ends the copy
    EXPECT_STREQ("ab", dest);
    EXPECT_EQ(BC_ERANGE, strncpy_s(dest, 6, "abcdefgh", 6));
    EXPECT_STREQ("", dest);
    std::strcpy(dest, "keep");
    EXPECT_EQ(BC_EOK, strncpy_s(dest, 6, "abc", 0)); // zero count: no-op
    EXPECT_STREQ("keep", dest);
    EXPECT_EQ(BC_EOK, strncpy_s(nullptr, 0, nullptr, 0));
    EXPECT_EQ(BC_EINVAL, strncpy_s(dest, 6, nullptr, 3));
    EXPECT_STREQ("", dest);
    std::strcpy(ring, "abcdef");
    EXPECT_EQ(BC_EOVERLAP, strncpy_s(ring + 1, 11, ring, 4));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("strncpy_s", 0, 1));
    EXPECT_NE(BC_EOK, strncpy_s(dest, 6, "a", 1));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("strcpy_s", 0, 1));
    EXPECT_NE(BC_EOK, strcpy_s(dest, 6, "a"));
}

// Variadic front for the va_list functions, so the same checks drive sprintf_s and vsprintf_s.
template <int (*VFormat)(char *, size_t, const char *, va_list)>
__attribute__((format(printf, 3, 4))) int CallV(char *dest, size_t destMax, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    const int rc = VFormat(dest, destMax, format, ap);
    va_end(ap);
    return rc;
}
constexpr auto CallVsprintf = CallV<vsprintf_s>;
constexpr auto CallTruncated = CallV<vsnprintf_truncated_s>;

using FormatFn = int (*)(char *, size_t, const char *, ...);

void CheckWholeFormat(FormatFn fmt) {
    char dest[6];
    EXPECT_EQ(5, fmt(dest, 6, "%s-%d", "ab", 12));
    EXPECT_STREQ("ab-12", dest);
    EXPECT_EQ(-1, fmt(dest, 5, "%s-%d", "ab", 12)); // one over
    EXPECT_STREQ("", dest);
    EXPECT_EQ(0, fmt(dest, 1, "%s", ""));
    EXPECT_EQ(-1, fmt(nullptr, 6, "%d", 1));
    EXPECT_EQ(-1, fmt(dest, 0, "%d", 1));
    std::strcpy(dest, "old");
    EXPECT_EQ(-1, fmt(dest, 6, nullptr));
    EXPECT_STREQ("", dest);
}

TEST_F(BoundsChecked, FormattingWholeOrNothing) {
    CheckWholeFormat(sprintf_s);
    CheckWholeFormat(CallVsprintf);
    char dest[8] = "old";
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("sprintf_s", 0, 1));
    EXPECT_EQ(-1, sprintf_s(dest, 8, "%d", 1));
    EXPECT_STREQ("", dest);
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("vsprintf_s", 0, 1));
    EXPECT_EQ(-1, CallVsprintf(dest, 8, "%d", 1));
}

TEST_F(BoundsChecked, TruncatedFormatting) {
    char dest[6];
    EXPECT_EQ(5, CallTruncated(dest, 6, "%s", "abcde"));
    EXPECT_STREQ("abcde", dest);
    EXPECT_EQ(5, CallTruncated(dest, 6, "%s", "abcdefghij"));
    EXPECT_STREQ("abcde", dest);
    EXPECT_EQ(0, CallTruncated(dest, 1, "%s", "abc"));
    EXPECT_STREQ("", dest);
    EXPECT_EQ(-1, CallTruncated(nullptr, 6, "%s", "a"));
    EXPECT_EQ(-1, CallTruncated(dest, 0, "%s", "a"));
    EXPECT_EQ(-1, CallTruncated(dest, 6, nullptr));
    ASSERT_EQ(RUK_OK, PLAT_FaultInject("vsnprintf_truncated_s", 0, 1));
    EXPECT_EQ(-1, CallTruncated(dest, 6, "%s", "a"));
}

} // namespace
