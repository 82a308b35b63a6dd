// The card layer's code table and its hexadecimal conversions.
#include "card/card_result.h"
#include "card/hex_converter.h"
#include "services/log.h"
#include "smmw.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(CardResult, EveryModuleCodeMapsToItsLayerCode) {
    const struct {
        uint32_t module;
        uint32_t layer;
    } rows[] = {
        {3000, 13},
        {3001, 21},
        {3002, 4},
        {3003, 4},
        {3005, 4},
        {3009, 4},
        {3011, 4},
        {3014, 4},
        {3019, 4},
        {3022, 4},
        {3004, 1},
        {3006, 23},
        {3021, 23},
        {3007, 22},
        {3008, 5},
        {3010, 5},
        {3012, 9},
        {3020, 9},
        {3013, 14},
        {3015, 2},
        {3017, 8},
        {3018, 7},
        {3028, 6},
        // Anything else, next to and between the listed codes.
        {0, 3},
        {2999, 3},
        {3016, 3},
        {3023, 3},
        {3027, 3},
        {3029, 3},
        {3099, 3},
        {0xFFFFFFFF, 3},
    };
    for (const auto& row : rows)
        EXPECT_EQ(MapModuleCode(row.module), row.layer) << "module code " << row.module;
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
