#include "dialogs/base/error_strings.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <memory>
#include <string>

namespace {

TEST(ErrorStrings, MapsEachCodeWithATextToItsStringId) {
    // 11 and 12 are crossed compared with their neighbours; callers rely on the texts they get.
    const struct {
        int code;
        unsigned id;
    } rows[] = {{1, 3059}, {2, 3060}, {3, 3061},  {4, 3062},  {5, 3063},  {6, 3064},  {7, 3065},
                {8, 3066}, {9, 3067}, {10, 3068}, {11, 3071}, {12, 3069}, {14, 3070}, {23, 3172}};
    for (const auto& row : rows)
        EXPECT_EQ(ErrorStringId(row.code), row.id) << "code " << row.code;
    for (int code : {-2147483647 - 1, -1, 0, 13, 15, 16, 17, 18, 19, 20, 21, 22, 24, 3059, 2147483647})
        EXPECT_EQ(ErrorStringId(code), 0u) << "code " << code;
}

int LoadNamed(unsigned id, wchar_t* buffer, int capacity) {
    return std::swprintf(buffer, static_cast<size_t>(capacity), L"text %u", id);
}
int LoadNothing(unsigned, wchar_t*, int) {
    return 0;
}

TEST(ErrorStrings, UnmappedCodesKeepTheLastTextAndAFailedLoadEmptiesIt) {
    auto texts = std::make_unique<ErrorTextBuffer>();
    EXPECT_STREQ(texts->Get(13, LoadNamed), L"");
    EXPECT_STREQ(texts->Get(11, LoadNamed), L"text 3071");
    const wchar_t* previous = texts->Get(24, LoadNamed);
    EXPECT_STREQ(previous, L"text 3071");
    EXPECT_STREQ(texts->Get(0, LoadNothing), L"text 3071");
    EXPECT_EQ(texts->Get(-5, nullptr), previous) << "always the object's own buffer";

    EXPECT_STREQ(texts->Get(2, LoadNothing), L"");
    texts->Get(1, LoadNamed);
    EXPECT_STREQ(texts->Get(3, nullptr), L"");
    const wchar_t* full = texts->Get(4, [](unsigned, wchar_t* buffer, int capacity) {
        std::wmemset(buffer, L'z', static_cast<size_t>(capacity)); // no terminator
        return capacity;
    });
    EXPECT_EQ(std::wcslen(full), static_cast<size_t>(ErrorTextBuffer::kCapacity - 1));
}

} // namespace
