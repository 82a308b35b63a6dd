#include "services/secstr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

static std::wstring Text(const CSecStr& s) {
    return {s.GetString(), static_cast<size_t>(s.GetLength())};
}

TEST(SecStr, NullAndOutOfRangeArgumentsAreClamped) {
    for (const CSecStr& s : {CSecStr(nullptr), CSecStr(L"abc", 0), CSecStr()})
        EXPECT_STREQ(s.GetString(), L""); // never null
    const CSecStr s(L"abcdef");
    EXPECT_GT(s.Compare(nullptr), 0);
    EXPECT_EQ(s[6] | s[-1], 0);
    const std::pair<CSecStr, const wchar_t*> rows[] = {
        {s.Mid(-3, 2), L"ab"},    {s.Mid(4, 100), L"ef"},   {s.Mid(99, 1), L""},
        {s.Mid(1, -5), L"bcdef"}, {s.Left(-1), L""},        {s.Left(99), L"abcdef"},
        {s.Right(-1), L""},       {s.Right(99), L"abcdef"}, {CSecStr(L"abcdef", 3), L"abc"}};
    for (const auto& row : rows)
        EXPECT_EQ(Text(row.first), row.second);
    EXPECT_EQ(s.Find(L'a', -4), 0);
    EXPECT_EQ(s.Find(static_cast<const wchar_t*>(nullptr)) + s.Find(L"a", 100), -2);
}

TEST(SecStr, GrowthKeepsTheTextAndReleaseBufferWipesTheAbandonedTail) {
    CSecStr s(L"1234");
    wchar_t* buffer = s.GetBuffer(300);
    EXPECT_EQ(std::wstring(buffer), L"1234");
    std::fill(buffer + 4, buffer + 300, L'x');
    buffer[300] = 0;
    s.ReleaseBuffer();
    const std::wstring before = Text(s);
    EXPECT_EQ(before.size(), 300u);
    s.Insert(1, s.GetString(), s.GetLength()); // the source is freed by the growth
    EXPECT_EQ(Text(s), std::wstring(before).insert(1, before));
    s.GetBuffer(0)[2] = 0;
    s.ReleaseBuffer(-1);
    EXPECT_EQ(Text(s), L"11");
    EXPECT_EQ(std::count(s.GetString() + 2, s.GetString() + 600, L'\0'), 598);
    s.GetBuffer(5);
    s.ReleaseBuffer(1 << 30); // beyond the buffer: clamped, not an overrun
    EXPECT_EQ(s.GetString()[s.GetLength()], L'\0');
}

TEST(SecStr, TrimDeleteAndEmptyWipeWhatTheyDrop) {
    CSecStr s(L" \t\r\n secret \n\r\t ");
    s.TrimRight();
    EXPECT_EQ(std::count(s.GetString() + 11, s.GetString() + 16, L'\0'), 5);
    s.TrimLeft();
    EXPECT_EQ(Text(s), L"secret");
    const wchar_t* data = s.GetString();
    s.Delete(1, 3);
    EXPECT_EQ(std::count(data + 3, data + 6, L'\0'), 3);
    s.Empty();
    EXPECT_EQ(std::count(data, data + 6, L'\0'), 6);
}

TEST(SecStr, InsertAndDeleteAtEveryPositionMatchAReference) {
    const std::wstring base = L"abcdef";
    for (int index = -2; index <= 8; ++index) {
        const size_t at = static_cast<size_t>(std::min(std::max(index, 0), 6));
        CSecStr s(base.c_str());
        s.Insert(index, L"XYZ", 3);
        EXPECT_EQ(Text(s), std::wstring(base).insert(at, L"XYZ")) << "insert at " << index;
        for (int count = -1; count <= 8; ++count) {
            CSecStr d(base.c_str());
            d.Delete(index, count);
            EXPECT_EQ(Text(d), count > 0 ? std::wstring(base).erase(at, static_cast<size_t>(count)) : base)
                << "delete " << count << " at " << index;
        }
    }
}

TEST(SecStr, ReplaceAndFormatGrowAndMayUseTheirOwnText) {
    CSecStr s(L"a-b-c");
    EXPECT_EQ(s.Replace(L"-", L"<long separator>"), 2);
    EXPECT_EQ(s.Replace(L"<long separator>", nullptr), 2);
    EXPECT_EQ(s.Replace(L"", L"x") + s.Replace(nullptr, L"x"), 0);
    EXPECT_EQ(s.Replace(L"b", s.GetString()), 1);
    EXPECT_EQ(Text(s), L"aabcc");

    const std::wstring longText(5000, L'q');
    s.Format(L"[%ls]", longText.c_str());
    EXPECT_EQ(Text(s), L"[" + longText + L"]");
    s.Format(L"%ls%ls", s.GetString(), L"!");
    EXPECT_EQ(s.GetLength(), 5003);
    s.Format(nullptr);
    EXPECT_TRUE(s.IsEmpty());
}

TEST(SecStr, CopyMoveAndSelfAssignmentKeepValidStrings) {
    CSecStr a(L"first");
    CSecStr b(a);
    const CSecStr& alias = a;
    a = alias;
    a = a.GetString() + 2; // its own tail
    EXPECT_EQ(Text(a) + Text(b), L"rstfirst");
    CSecStr moved(std::move(a));
    EXPECT_TRUE(a.IsEmpty()); // NOLINT: a moved-from string is defined to be empty
    b = std::move(moved);
    CSecStr& self = b;
    b = std::move(self);
    EXPECT_EQ(Text(b), L"rst");
    b = static_cast<const wchar_t*>(nullptr);
    EXPECT_TRUE(b.IsEmpty());
}
