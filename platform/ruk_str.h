/* String helpers and the dotted-text form of IPv4 addresses. */
#ifndef RUK_STR_H
#define RUK_STR_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Length of a text; 0 for null. */
u32 RUK_StrLen(const char *pcStr);
/* Last occurrence of the character c, or null (also for a null text). */
char *RUK_StrRChr(const char *pcStr, s32 c);
/* strcmp order; a null text sorts before every other text. */
s32 RUK_StrCmp(const char *pcLeft, const char *pcRight);

/* Writes the dotted text of a host-order IPv4 address into pcStr (at least 16 bytes).
 * RUK_ERR_PARAM for a null buffer. */
u32 RUK_IpAddrToStr(u32 ulIpAddr, char *pcStr);

#ifdef __cplusplus
}
#endif

#endif /* RUK_STR_H */
