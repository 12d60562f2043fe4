// Stand-in string helpers and the dotted text of IPv4 addresses.
#include "ruk_str.h"

#include <cstdio>
#include <cstring>

#include "plat_fault.h"

extern "C" u32 RUK_StrLen(const char *pcStr) {
    return pcStr == nullptr ? 0 : static_cast<u32>(std::strlen(pcStr));
}

extern "C" char *RUK_StrRChr(const char *pcStr, s32 c) {
    return pcStr == nullptr ? nullptr : const_cast<char *>(std::strrchr(pcStr, c));
}

extern "C" s32 RUK_StrCmp(const char *pcLeft, const char *pcRight) {
    if (pcLeft == nullptr || pcRight == nullptr) {
        // Null sorts first; two nulls are equal.
        return (pcLeft == nullptr ? 0 : 1) - (pcRight == nullptr ? 0 : 1);
    }
    return std::strcmp(pcLeft, pcRight);
}

extern "C" u32 RUK_IpAddrToStr(u32 ulIpAddr, char *pcStr) {
    if (plat::FaultHit("RUK_IpAddrToStr")) {
        return RUK_ERR_INJECTED;
    }
    if (pcStr == nullptr) {
        return RUK_ERR_PARAM;
    }
    // Host order: the most significant byte is the first of the dotted text. 16 bytes always suffice.
    std::snprintf(pcStr, 16, "%u.%u.%u.%u", (ulIpAddr >> 24) & 0xFFu, (ulIpAddr >> 16) & 0xFFu, (ulIpAddr >> 8) & 0xFFu,
                  ulIpAddr & 0xFFu);
    return RUK_OK;
}
