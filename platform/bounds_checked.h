/* Bounds-checked copies and formatting. Each takes the destination's capacity (destMax) and refuses,
 * rather than overflows. Copies return 0 (BC_EOK) or an error code; on a refused copy into a valid
 * destination the destination's first byte (texts) or the whole capacity (memory) is cleared.
 * A count of 0 is a successful no-op, also with destMax 0. */
#ifndef BOUNDS_CHECKED_H
#define BOUNDS_CHECKED_H

#include <stdarg.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define BC_EOK 0
#define BC_EINVAL 22   /* null destination or source */
#define BC_ERANGE 34   /* count larger than destMax, or destMax too large */
#define BC_EOVERLAP 54 /* source and destination overlap where that is not allowed */
#define BC_MAX_LEN 0x7FFFFFFFu

int memcpy_s(void *dest, size_t destMax, const void *src, size_t count);  /* no overlap allowed */
int memmove_s(void *dest, size_t destMax, const void *src, size_t count); /* overlap allowed */
int memset_s(void *dest, size_t destMax, int c, size_t count);
int strcpy_s(char *strDest, size_t destMax, const char *strSrc);
/* Copies at most count characters and always terminates; refused when the copy would not fit. */
int strncpy_s(char *strDest, size_t destMax, const char *strSrc, size_t count);

/* Formatting: the length written (without terminator), or -1 when the text does not fit in destMax - 1
 * characters or on error; after -1 the destination holds an empty text. */
int sprintf_s(char *strDest, size_t destMax, const char *format, ...) __attribute__((format(printf, 3, 4)));
int vsprintf_s(char *strDest, size_t destMax, const char *format, va_list argList)
    __attribute__((format(printf, 3, 0)));
/* Formats at most destMax - 1 characters, cutting longer texts silently; returns the length written, or -1
 * on a bad argument or format error. */
int vsnprintf_truncated_s(char *strDest, size_t destMax, const char *format, va_list argList)
    __attribute__((format(printf, 3, 0)));

#ifdef __cplusplus
}
#endif

#endif /* BOUNDS_CHECKED_H */
