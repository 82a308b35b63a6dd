#include "services/secstr.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

std::wstring Text(const CSecStr& s) {
    return std::wstring(s.GetString(), static_cast<size_t>(s.GetLength()));
}

bool AllZero(const wchar_t* p, int count) {
    for (int i = 0; i < count; ++i)
        if (p[i] != 0) return false;
    return true;
}

TEST(SecStr, NullAndEmptyInputsGiveAnEmptyTerminatedString) {
    CSecStr fromNull(nullptr), fromZeroCount(L"abc", 0), def;
    for (const CSecStr* s : {&fromNull, &fromZeroCount, &def}) {
        EXPECT_TRUE(s->IsEmpty());
        ASSERT_NE(s->GetString(), nullptr);
        EXPECT_EQ(s->GetString()[0], L'\0');
        EXPECT_EQ(s->Compare(nullptr), 0);
    }
    EXPECT_EQ(Text(CSecStr(L"abcdef", 3)), L"abc");
    EXPECT_LT(CSecStr(L"a").Compare(L"b"), 0);
    EXPECT_GT(CSecStr(L"a").Compare(nullptr), 0);
    EXPECT_EQ(CSecStr(L"ab")[1], L'b');
    EXPECT_EQ(CSecStr(L"ab")[2], L'\0');
    EXPECT_EQ(CSecStr(L"ab")[-1], L'\0');
}

TEST(SecStr, GetBufferKeepsTextAndReleaseBufferFindsTheEnd) {
    CSecStr s(L"1234");
    wchar_t* buffer = s.GetBuffer(300);
    EXPECT_EQ(std::wstring(buffer), L"1234");
    for (int i = 4; i < 300; ++i)
        buffer[i] = L'x';
    buffer[300] = 0;
    s.ReleaseBuffer();
    EXPECT_EQ(s.GetLength(), 300);

    buffer = s.GetBuffer(0);
    buffer[2] = 0;
    s.ReleaseBuffer(-1);
    EXPECT_EQ(Text(s), L"12");
    EXPECT_TRUE(AllZero(s.GetString() + 2, 299)) << "the abandoned tail must be wiped";

    s.GetBuffer(5);
    s.ReleaseBuffer(1 << 30); // beyond the buffer: clamped, not an overrun
    EXPECT_LE(s.GetLength(), 1 << 30);
    EXPECT_EQ(s.GetString()[s.GetLength()], L'\0');
}

TEST(SecStr, EmptyDeleteAndTrimWipeTheCharactersTheyDrop) {
    CSecStr s(L"  secret  ");
    const wchar_t* data = s.GetString();
    s.TrimRight();
    EXPECT_TRUE(AllZero(data + 8, 2));
    s.Delete(2, 3);
    EXPECT_EQ(Text(s), L"  ret");
    EXPECT_TRUE(AllZero(data + 5, 5));
    s.Empty();
    EXPECT_TRUE(AllZero(data, 10));
    EXPECT_EQ(s.GetString()[0], L'\0');
}

TEST(SecStr, InsertAndDeleteAtEveryPositionMatchAReferenceString) {
    const std::wstring base = L"abcdef";
    for (int index = -2; index <= 8; ++index) {
        CSecStr s(base.c_str());
        s.Insert(index, L"XYZ", 3);
        std::wstring expected = base;
        expected.insert(static_cast<size_t>(index < 0 ? 0 : (index > 6 ? 6 : index)), L"XYZ");
        EXPECT_EQ(Text(s), expected) << "insert at " << index;
        for (int count = -1; count <= 8; ++count) {
            CSecStr d(base.c_str());
            d.Delete(index, count);
            std::wstring e = base;
            size_t at = static_cast<size_t>(index < 0 ? 0 : (index > 6 ? 6 : index));
            if (count > 0) e.erase(at, static_cast<size_t>(count));
            EXPECT_EQ(Text(d), e) << "delete " << count << " at " << index;
        }
    }
}

TEST(SecStr, AppendingManyCharactersAndItsOwnTextGrowsSafely) {
    CSecStr s;
    std::wstring expected;
    for (int i = 0; i < 1000; ++i) {
        s.AppendChar(static_cast<wchar_t>(L'a' + i % 26));
        expected += static_cast<wchar_t>(L'a' + i % 26);
    }
    EXPECT_EQ(Text(s), expected);
    s.Insert(1, s.GetString(), s.GetLength()); // the source is freed by the growth
    expected.insert(1, expected);
    EXPECT_EQ(Text(s), expected);
    s.Append(nullptr, 5);
    s.Insert(3, L"ignored", 0);
    EXPECT_EQ(Text(s), expected);
}

TEST(SecStr, SubstringsClampOutOfRangeArguments) {
    const CSecStr s(L"abcdef");
    struct Row {
        CSecStr got;
        const wchar_t* expected;
    } rows[] = {
        {s.Mid(2), L"cdef"},      {s.Mid(2, 2), L"cd"},    {s.Mid(-3, 2), L"ab"},    {s.Mid(4, 100), L"ef"},
        {s.Mid(6), L""},          {s.Mid(99, 1), L""},     {s.Mid(1, -5), L"bcdef"}, {s.Left(2), L"ab"},
        {s.Left(-1), L""},        {s.Left(99), L"abcdef"}, {s.Right(2), L"ef"},      {s.Right(-1), L""},
        {s.Right(99), L"abcdef"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(Text(row.got), row.expected);
    EXPECT_EQ(s.Find(L'c'), 2);
    EXPECT_EQ(s.Find(L'c', 3), -1);
    EXPECT_EQ(s.Find(L'a', -4), 0);
    EXPECT_EQ(s.Find(L"de"), 3);
    EXPECT_EQ(s.Find(L"de", 4), -1);
    EXPECT_EQ(s.Find(L"x"), -1);
    EXPECT_EQ(s.Find(static_cast<const wchar_t*>(nullptr)), -1);
    EXPECT_EQ(s.Find(L"a", 100), -1);
}

TEST(SecStr, ReplaceCountsAndHandlesGrowthShrinkAndItsOwnText) {
    CSecStr s(L"a-b-c");
    EXPECT_EQ(s.Replace(L"-", L"<long separator>"), 2);
    EXPECT_EQ(Text(s), L"a<long separator>b<long separator>c");
    EXPECT_EQ(s.Replace(L"<long separator>", nullptr), 2);
    EXPECT_EQ(Text(s), L"abc");
    EXPECT_EQ(s.Replace(L"", L"x"), 0);
    EXPECT_EQ(s.Replace(nullptr, L"x"), 0);
    EXPECT_EQ(s.Replace(L"zz", L"x"), 0);
    EXPECT_EQ(s.Replace(L"b", s.GetString()), 1);
    EXPECT_EQ(Text(s), L"aabcc");
    CSecStr overlapping(L"aaaa");
    EXPECT_EQ(overlapping.Replace(L"aa", L"b"), 2);
    EXPECT_EQ(Text(overlapping), L"bb");
}

TEST(SecStr, MakeUpperFoldsAsciiAndLatin1Only) {
    CSecStr s(L"az\u00e0\u00f6\u00f7\u00fe\u00ff\u0101{Z");
    s.MakeUpper();
    EXPECT_EQ(Text(s), L"AZ\u00c0\u00d6\u00f7\u00de\u00ff\u0101{Z");
}

TEST(SecStr, TrimRemovesBlanksTabsAndLineBreaksOnly) {
    CSecStr s(L" \t\r\n x\ty \n\r\t ");
    s.TrimLeft();
    EXPECT_EQ(Text(s), L"x\ty \n\r\t ");
    s.TrimRight();
    EXPECT_EQ(Text(s), L"x\ty");
    CSecStr blank(L" \t ");
    blank.TrimRight();
    EXPECT_TRUE(blank.IsEmpty());
}

TEST(SecStr, FormatGrowsBeyondItsFirstBufferAndMayUseItsOwnText) {
    CSecStr s;
    s.Format(L"%d characters", 12);
    EXPECT_EQ(Text(s), L"12 characters");
    std::wstring longText(5000, L'q');
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
    EXPECT_TRUE(a == b);
    const CSecStr& alias = a;
    a = alias;
    EXPECT_EQ(Text(a), L"first");
    a = a.GetString() + 2;
    EXPECT_EQ(Text(a), L"rst");
    CSecStr moved(std::move(a));
    EXPECT_EQ(Text(moved), L"rst");
    EXPECT_TRUE(a.IsEmpty()); // NOLINT: a moved-from string is defined to be empty
    b = std::move(moved);
    EXPECT_EQ(Text(b), L"rst");
    CSecStr& self = b;
    b = std::move(self);
    EXPECT_EQ(Text(b), L"rst");
    b = static_cast<const wchar_t*>(nullptr);
    EXPECT_TRUE(b.IsEmpty());
    EXPECT_TRUE(b != CSecStr(L"x"));
}

} // namespace
