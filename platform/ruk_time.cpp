// Stand-in calendar time over the C library's local time and the zone offset it reports.
#include "ruk_time.h"

#include <ctime>

#include "plat_fault.h"

namespace {

constexpr u16 kMinYear = 1970;
constexpr u16 kMaxYear = 9999;

bool IsLeapYear(u32 year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

u32 DaysInMonth(u32 year, u32 month) {
    static const u8 kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return (month == 2 && IsLeapYear(year)) ? 29u : kDays[month - 1];
}

bool IsValidDate(const RUK_DATE_TIME_S &t) {
    if (t.usYear < kMinYear || t.usYear > kMaxYear || t.ucMonth < 1 || t.ucMonth > 12) {
        return false;
    }
    return t.ucDate >= 1 && t.ucDate <= DaysInMonth(t.usYear, t.ucMonth) && t.ucHour < 24 && t.ucMinute < 60 &&
           t.ucSecond <= 60;
}

} // namespace

extern "C" u32 RUK_TzLocalTimeGet(RUK_DATE_TIME_S *pstTime, u32 *pulZoneSec) {
    if (plat::FaultHit("RUK_TzLocalTimeGet")) {
        return RUK_ERR_INJECTED;
    }
    if (pstTime == nullptr || pulZoneSec == nullptr) {
        return RUK_ERR_PARAM;
    }
    struct timespec now {};
    struct tm local {};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0 || localtime_r(&now.tv_sec, &local) == nullptr) {
        return RUK_ERR_SYSTEM;
    }
    pstTime->usYear = static_cast<u16>(local.tm_year + 1900);
    pstTime->ucMonth = static_cast<u8>(local.tm_mon + 1);
    pstTime->ucDate = static_cast<u8>(local.tm_mday);
    pstTime->ucHour = static_cast<u8>(local.tm_hour);
    pstTime->ucMinute = static_cast<u8>(local.tm_min);
    pstTime->ucSecond = static_cast<u8>(local.tm_sec);
    pstTime->ucWeek = static_cast<u8>(local.tm_wday);
    pstTime->ulMillisecond = static_cast<u32>(now.tv_nsec / 1000000);
    *pulZoneSec = static_cast<u32>(static_cast<s32>(local.tm_gmtoff));
    return RUK_OK;
}

extern "C" u32 RUK_SystimeSecSince1970(const RUK_DATE_TIME_S *pstTime, u32 *pulSecHigh, u32 *pulSecLow) {
    if (plat::FaultHit("RUK_SystimeSecSince1970")) {
        return RUK_ERR_INJECTED;
    }
    if (pstTime == nullptr || pulSecHigh == nullptr || pulSecLow == nullptr || !IsValidDate(*pstTime)) {
        return RUK_ERR_PARAM;
    }
    struct tm fields {};
    fields.tm_year = pstTime->usYear - 1900;
    fields.tm_mon = pstTime->ucMonth - 1;
    fields.tm_mday = pstTime->ucDate;
    fields.tm_hour = pstTime->ucHour;
    fields.tm_min = pstTime->ucMinute;
    fields.tm_sec = pstTime->ucSecond;
    // The fields read as UTC, less the zone offset in force at that moment. The offset is looked up
    // twice because the first guess may fall on the other side of a daylight-saving change.
    const time_t asUtc = timegm(&fields);
    time_t result = asUtc;
    for (int pass = 0; pass < 2; ++pass) {
        struct tm local {};
        if (localtime_r(&result, &local) == nullptr) {
            return RUK_ERR_PARAM;
        }
        result = asUtc - local.tm_gmtoff;
    }
    if (result < 0) {
        return RUK_ERR_PARAM; // a local time just after the epoch in a zone east of UTC
    }
    const u64 seconds = static_cast<u64>(result);
    *pulSecHigh = static_cast<u32>(seconds >> 32);
    *pulSecLow = static_cast<u32>(seconds);
    return RUK_OK;
}
