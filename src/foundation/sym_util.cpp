// Bare function names of code addresses, taken from the platform's symbol texts.
#include "foundation/log_points.h"

#include <cstring>

#include "bounds_checked.h"
#include "ruk_str.h"
#include "ruk_symbol.h"

namespace {

bool IsIdentChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// Copies at most ulLen characters of pcSrc, bounded by the destination's capacity.
int CopyBounded(char *pcName, u32 ulSize, const char *pcSrc, size_t ulLen) {
    size_t ulMax = ulSize - 1;
    return strncpy_s(pcName, ulSize, pcSrc, (ulLen < ulMax) ? ulLen : ulMax);
}

// "[0x4000]" holds the address itself: the text between the last '[' and the last ']' behind it.
int CopyBracketed(const char *pcOpen, char *pcName, u32 ulSize) {
    const char *pcStart = pcOpen + 1;
    const char *pcClose = std::strrchr(pcStart, ']');
    size_t ulLen = (pcClose != nullptr) ? static_cast<size_t>(pcClose - pcStart) : std::strlen(pcStart);
    return CopyBounded(pcName, ulSize, pcStart, ulLen);
}

} // namespace

extern "C" void BDS_SymNameGetCheck(const char *pcSrc, char *pcName, u32 ulSize) {
    if (pcName == nullptr || ulSize == 0) {
        return;
    }
    (void)memset_s(pcName, ulSize, 0, ulSize);
    if (pcSrc == nullptr) {
        return;
    }
    for (u32 i = 0; i + 1 < ulSize && IsIdentChar(pcSrc[i]); ++i) {
        pcName[i] = pcSrc[i];
    }
    // A bare offset such as 0x1c (no symbol name) is marked so it cannot pass for a name.
    if (pcName[0] == '0') {
        pcName[0] = '-';
    }
}

extern "C" void BDS_SymNameGetEx(void *pAddr, char *pcName, u32 ulSize) {
    if (pAddr == nullptr || pcName == nullptr || ulSize == 0) {
        ZOL_LOG_MSG(zol::log::kSymProcessInfo, "BDS_SNGE", "Input para is NULL", "arrSize:%u!", ulSize);
        return;
    }
    pcName[0] = '\0';
    const char *pcSym = RUK_SymNameGet(pAddr);
    if (pcSym == nullptr) {
        return;
    }
    int iRet = BC_EOK;
    const char *pcParen = RUK_StrRChr(pcSym, '(');
    const char *pcBracket = RUK_StrRChr(pcSym, '[');
    if (pcParen != nullptr) {
        const char *pcFunc = pcParen + 1;
        BDS_SymNameGetCheck((*pcFunc == '+') ? pcFunc + 1 : pcFunc, pcName, ulSize);
    } else if (pcBracket != nullptr) {
        iRet = CopyBracketed(pcBracket, pcName, ulSize);
    } else {
        iRet = CopyBounded(pcName, ulSize, pcSym, RUK_StrLen(pcSym));
    }
    if (iRet != BC_EOK) {
        ZOL_LOG_MSG(zol::log::kSymSafetyErr, "BDS_SNGE", "strncpy_s fail", "ret:%u!", static_cast<u32>(iRet));
    }
}
