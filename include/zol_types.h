/* Fixed-width types, the status type and the export macro shared by every exported header of
 * libzol_comm. Plain C: included by C and C++ programs alike. */
#ifndef ZOL_TYPES_H
#define ZOL_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifndef ZOL_FIXED_WIDTH_TYPES
#define ZOL_FIXED_WIDTH_TYPES
/* The same guard is used by the platform's type header, so both can be included in any order. */
typedef uint8_t u8;
typedef uint16_t u16;
typedef uint32_t u32;
typedef uint64_t u64;
typedef int8_t s8;
typedef int16_t s16;
typedef int32_t s32;
typedef int64_t s64;
#endif

/* Result of an exported operation: 0 for success, otherwise a code listed with the operation. */
typedef u32 ZOL_STATUS;
#define ZOL_OK 0u

#if defined(ZOL_BUILDING_LIBRARY)
#define ZOL_EXPORT __attribute__((visibility("default")))
#else
#define ZOL_EXPORT
#endif

#ifdef __cplusplus
#define ZOL_EXTERN_C_BEGIN extern "C" {
#define ZOL_EXTERN_C_END }
#else
#define ZOL_EXTERN_C_BEGIN
#define ZOL_EXTERN_C_END
#endif

#endif /* ZOL_TYPES_H */
