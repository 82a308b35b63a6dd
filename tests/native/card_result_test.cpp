// The card layer's code table and its hexadecimal conversions.
#include "card/card_result.h"
#include "card/hex_converter.h"
#include "services/log.h"
#include "smmw.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// The codes a caller tells apart (blocked, wrong code, denied, cancelled, no card), and anything
// unlisted, next to and between the listed codes.
TEST(CardResult, ModuleCodesMapToTheCodesCallersTellApart) {
    const uint32_t rows[][2] = {{3002, 4}, {3004, 1}, {3006, 23}, {3007, 22}, {3008, 5}, {3013, 14},
                                {0, 3},    {2999, 3}, {3016, 3},  {3029, 3},  {3099, 3}, {0xFFFFFFFF, 3}};
    for (const auto& row : rows)
        EXPECT_EQ(MapModuleCode(row[0]), row[1]) << "module code " << row[0];
}

TEST(CardResult, ForeignExceptionsBecomeCodesWithoutEscaping) {
    EXPECT_EQ(CallModule(CVLOG_ERROR, L"%ls", [] { throw std::bad_alloc(); }), CV_OBJ_API_NO_MEMORY);
    EXPECT_EQ(CallModule(CVLOG_ERROR, L"%ls", [] { throw 42; }), CV_OBJ_API_FAILED);
    EXPECT_EQ(CallModule(CVLOG_ERROR, L"%ls", [] { throw static_cast<NV::Framework::IException*>(nullptr); }),
              CV_OBJ_API_FAILED);
    EXPECT_EQ(CallModule(CVLOG_ERROR, L"%ls", [] {}), CV_OBJ_API_OK);
}

TEST(CardHex, BytesBecomeUpperCaseDigitsAndBack) {
    CSecStr text;
    NV::Framework::CConverter::BinToHex(std::vector<uint8_t>{0x00, 0x0A, 0xB1, 0xFF}, text);
    EXPECT_STREQ(text.GetString(), L"000AB1FF");
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(NV::Framework::CConverter::HexToBin(CSecStr(L"000ab1Ff"), bytes));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0x00, 0x0A, 0xB1, 0xFF}));
    ASSERT_TRUE(NV::Framework::CConverter::HexToBin(CSecStr(L""), bytes));
    EXPECT_TRUE(bytes.empty());
    for (const wchar_t* bad : {L"0", L"0G", L"12 34", L"-1"}) {
        bytes = {1, 2};
        EXPECT_FALSE(NV::Framework::CConverter::HexToBin(CSecStr(bad), bytes)) << bad;
        EXPECT_TRUE(bytes.empty()) << bad;
    }
}
