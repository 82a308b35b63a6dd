#include "dialogs/base/watch_rules.h"

#include <gtest/gtest.h>

namespace {

TEST(WatchRules, ReaderNamesMatchIgnoringOnlyAsciiCase) {
    const struct {
        const wchar_t* watched;
        const wchar_t* event;
        bool matches;
    } rows[] = {
        {nullptr, L"Any Reader 0", true},
        {L"", nullptr, true},
        {L"Reader A 0", L"Reader A 0", true},
        {L"READER a 0", L"reader A 0", true},
        {L"Reader A", L"Reader A 0", false},
        {L"Reader A 0", L"Reader A", false},
        {L"Reader A", nullptr, false},
        {L"Reader A", L"", false},
        {L"\u00c4", L"\u00e4", false}, // no locale-dependent folding
        {L"[", L"{", false},           // punctuation 32 apart is not a case pair
        {L"@", L"`", false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ReaderMatches(row.watched, row.event), row.matches)
            << (row.watched ? "watched set" : "watched null") << " / "
            << (row.event ? "event set" : "event null");
}

TEST(WatchRules, OnlyTheTwoLockingCodesMeanLocking) {
    EXPECT_TRUE(IsSessionLockingCode(10060));
    EXPECT_TRUE(IsSessionLockingCode(10065));
    for (int code : {0, 10059, 10061, 10064, 10066, -10060})
        EXPECT_FALSE(IsSessionLockingCode(code)) << code;
}

} // namespace
