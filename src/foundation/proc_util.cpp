// Process name from its id and the calling thread's call stack as text.
#include <cstdio>

#include "zol_foundation.h"

#include "bounds_checked.h"
#include "ruk_str.h"
#include "ruk_symbol.h"

namespace {

constexpr u32 kProcPathLen = 20;
constexpr u32 kMaxStackDepth = 31;
constexpr const char *kUnknownProc = "Unknown";

// Reads the first line of the comm file into pcName; false when nothing could be read.
bool ReadCommLine(const char *pcPath, char *pcName, u32 ulSize) {
    FILE *pFile = std::fopen(pcPath, "r");
    if (pFile == nullptr) {
        return false;
    }
    bool bRead = std::fgets(pcName, static_cast<int>(ulSize), pFile) != nullptr;
    (void)std::fclose(pFile);
    return bRead;
}

} // namespace

extern "C" void ZOL_GetProcNameById(u32 ulPid, char *pcName, u32 ulSize) {
    if (pcName == nullptr || ulSize == 0) {
        return;
    }
    // A path that does not fit (ids of ten digits) opens nothing and falls back like a missing process.
    char szPath[kProcPathLen] = {0};
    (void)sprintf_s(szPath, sizeof(szPath), "/proc/%u/comm", ulPid);
    if (!ReadCommLine(szPath, pcName, ulSize)) {
        (void)strcpy_s(pcName, ulSize, kUnknownProc);
        return;
    }
    u32 ulLen = RUK_StrLen(pcName);
    if (ulLen > 0 && pcName[ulLen - 1] == '\n') {
        pcName[ulLen - 1] = '\0';
    }
}

extern "C" void ZOL_GetCurrStack(u32 ulSkip, u32 ulMaxDepth, char *pcBuf, u32 ulSize) {
    int iUsed = sprintf_s(pcBuf, ulSize, "<CallStack>\r\n");
    if (iUsed < 0) {
        return;
    }
    void *apFrames[kMaxStackDepth] = {nullptr};
    u32 ulDepth = (ulMaxDepth < kMaxStackDepth) ? ulMaxDepth : kMaxStackDepth;
    u32 ulCount = 0;
    if (RUK_CallStackSelfGet(ulDepth, ulSkip, apFrames, &ulCount) != RUK_OK || ulCount <= ulSkip) {
        return;
    }
    if (ulCount > kMaxStackDepth) {
        ulCount = kMaxStackDepth;
    }
    u32 ulUsed = static_cast<u32>(iUsed);
    for (u32 i = 0; i < ulCount; ++i) {
        const char *pcSym = RUK_SymNameGet(apFrames[i]);
        const char *pcSlash = RUK_StrRChr(pcSym, '/');
        const char *pcText = (pcSlash != nullptr) ? pcSlash + 1 : ((pcSym != nullptr) ? pcSym : "");
        // A line that does not fit is refused whole, so the text ends after the last line that fit.
        int iLen = sprintf_s(pcBuf + ulUsed, ulSize - ulUsed, "[%u]%s\r\n", i, pcText);
        if (iLen < 0) {
            return;
        }
        ulUsed += static_cast<u32>(iLen);
    }
}
