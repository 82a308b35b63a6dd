#include "card/local_time_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace {

TEST(LocalTimeText, EdgeTimesGiveTheirDateOrInvalid) {
    constexpr int64_t kLastYearThatFitsAnInt = 67768036191676799; // year INT_MAX + 1900 ends
    const struct {
        int64_t seconds;
        const wchar_t* expected;
    } rows[] = {
        {0, L"Thu Jan  1 00:00:00 1970"},
        {-1, L"Wed Dec 31 23:59:59 1969"},
        {1741079100, L"Tue Mar  4 09:05:00 2025"},
        {kLastYearThatFitsAnInt, L"Wed Dec 31 23:59:59 2147485547"},
        {kLastYearThatFitsAnInt + 1, L"(invalid time)"},
        {std::numeric_limits<int64_t>::max(), L"(invalid time)"},
        {std::numeric_limits<int64_t>::min(), L"(invalid time)"},
    };
    // The C run time reads the zone from TZ: UTC makes the expected texts the same everywhere.
    const char* zone = std::getenv("TZ");
    const std::string saved = zone ? zone : "";
    setenv("TZ", "UTC0", 1);
    tzset();
    for (const auto& row : rows)
        EXPECT_EQ(LocalTimeText(row.seconds), row.expected) << row.seconds;
    zone ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
    tzset();
}

} // namespace
