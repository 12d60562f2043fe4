// ZOL_FormatToBuff: appends formatted text to a bounded buffer, for the diagnostic displays.
#include "foundation/log_points.h"

#include <cstdarg>

#include "bounds_checked.h"

extern "C" void ZOL_FormatToBuff(char *pcBuf, u32 ulBufSize, u32 *pulUsed, s32 iLineNo, const char *pcFormat, ...) {
    u32 ulUsed = (pulUsed != nullptr) ? *pulUsed : 0;
    int iLen = -1;
    // A used length beyond the buffer leaves no room at all; refuse it like any text that does not fit.
    if (pcBuf != nullptr && ulUsed <= ulBufSize) {
        va_list args;
        va_start(args, pcFormat);
        iLen = vsprintf_s(pcBuf + ulUsed, ulBufSize - ulUsed, pcFormat, args);
        va_end(args);
    }
    if (iLen < 0) {
        ZOL_LOG_MSG(zol::log::kUtilSafetyErr, "ZOL_FTB", "Format to buf fail", "lineNo:%d", iLineNo);
        return;
    }
    if (pulUsed != nullptr) {
        *pulUsed += static_cast<u32>(iLen);
    }
}
