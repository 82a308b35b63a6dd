#include "card/local_time_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace {

// The C run time reads the zone from TZ: UTC makes the expected texts the same everywhere.
class UtcZone {
  public:
    UtcZone() {
        if (const char* zone = std::getenv("TZ")) m_saved = zone, m_had = true;
        setenv("TZ", "UTC0", 1);
        tzset();
    }
    ~UtcZone() {
        if (m_had)
            setenv("TZ", m_saved.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

  private:
    std::string m_saved;
    bool m_had = false;
};

TEST(LocalTimeText, EdgeTimesGiveTheirDateOrInvalid) {
    constexpr int64_t kLastYearThatFitsAnInt = 67768036191676799; // year INT_MAX + 1900 ends
    struct Row {
        int64_t seconds;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {0, L"Thu Jan  1 00:00:00 1970"},
        {-1, L"Wed Dec 31 23:59:59 1969"},
        {1741079100, L"Tue Mar  4 09:05:00 2025"},
        {kLastYearThatFitsAnInt, L"Wed Dec 31 23:59:59 2147485547"},
        {kLastYearThatFitsAnInt + 1, L"(invalid time)"},
        {std::numeric_limits<int64_t>::max(), L"(invalid time)"},
        {std::numeric_limits<int64_t>::min(), L"(invalid time)"},
    };
    UtcZone utc;
    for (const Row& row : rows)
        EXPECT_EQ(LocalTimeText(row.seconds), row.expected) << row.seconds;
}

} // namespace
