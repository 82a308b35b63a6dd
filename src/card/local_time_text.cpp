#include "card/local_time_text.h"

#include <cwchar>
#include <ctime>

std::wstring LocalTimeText(int64_t secondsSince1970) {
    static const wchar_t* const kDays[] = {L"Sun", L"Mon", L"Tue", L"Wed", L"Thu", L"Fri", L"Sat"};
    static const wchar_t* const kMonths[] = {L"Jan", L"Feb", L"Mar", L"Apr", L"May", L"Jun",
                                             L"Jul", L"Aug", L"Sep", L"Oct", L"Nov", L"Dec"};
    std::tm local = {};
#ifdef _WIN32
    const __time64_t t = secondsSince1970;
    if (_localtime64_s(&local, &t) != 0) return L"(invalid time)";
#else
    const time_t t = static_cast<time_t>(secondsSince1970);
    if (!localtime_r(&t, &local)) return L"(invalid time)";
#endif
    if (local.tm_wday < 0 || local.tm_wday > 6 || local.tm_mon < 0 || local.tm_mon > 11)
        return L"(invalid time)";
    // tm_year may be as large as INT_MAX for the farthest times a 64-bit clock converts.
    const long long year = static_cast<long long>(local.tm_year) + 1900;
    wchar_t text[128] = {};
#ifdef _WIN32
    _snwprintf(text, 127, L"%ls %ls %2d %02d:%02d:%02d %lld", kDays[local.tm_wday], kMonths[local.tm_mon],
               local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, year);
#else
    swprintf(text, 128, L"%ls %ls %2d %02d:%02d:%02d %lld", kDays[local.tm_wday], kMonths[local.tm_mon],
             local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, year);
#endif
    return text;
}
