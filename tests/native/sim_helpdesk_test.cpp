#include "helpdesk_response.h"

#include <gtest/gtest.h>

#include <regex>

#include "sim_test_support.h"

namespace {

using helpdesk::ResponseStatus;

TEST(SimHelpdesk, ResponsesAreGroupedUpperCaseHexAndTypingStylesAgree) {
    simtest::FakeCrypto crypto;
    const std::string key = "00112233445566778899AABBCCDDEEFF";
    std::string expected, response, error;
    ASSERT_EQ(helpdesk::ComputeResponse(crypto, "0123456789abcdef", key, expected, error),
              ResponseStatus::Ok);
    EXPECT_TRUE(std::regex_match(expected, std::regex("[0-9A-F]{4}( [0-9A-F]{4}){3}"))) << expected;
    for (const char* typed : {"01 23 45 67 89 AB CD EF", "0123-4567-89ab-cdef", "  0123 4567\t89AB CDEF "}) {
        ASSERT_EQ(helpdesk::ComputeResponse(crypto, typed, key, response, error), ResponseStatus::Ok)
            << typed;
        EXPECT_EQ(response, expected);
    }
}

TEST(SimHelpdesk, BadInputIsRefusedWithoutQuotingTheKey) {
    simtest::FakeCrypto crypto;
    const std::string goodKey(32, 'A');
    const struct {
        const char* challenge;
        std::string key;
        const char* expected;
    } rows[] = {
        {"0123456789ABCD", goodKey, "challenge: expected 8 bytes"},
        {"0123456789ABCDEF01", goodKey, "challenge: expected 8 bytes"},
        {"0123456789ABCDEX", goodKey, "challenge: character 16 is not a hexadecimal digit"},
        {"0123456789ABCDE", goodKey, "challenge: odd number"},
        {"0 123456789ABCDEF", goodKey, "challenge: separator inside a byte"},
        {"0123456789ABCDEF", std::string(30, 'A'), "administrator key: expected 16 or 24 bytes"},
        {"0123456789ABCDEF", "SECRET" + std::string(26, 'A'), "administrator key: character 1"},
    };
    for (const auto& row : rows) {
        std::string response, error;
        EXPECT_EQ(helpdesk::ComputeResponse(crypto, row.challenge, row.key, response, error),
                  ResponseStatus::BadInput);
        EXPECT_EQ(error.find(row.expected), 0u) << row.challenge << ": " << error;
        EXPECT_EQ(error.find("SECRET"), std::string::npos);
    }
}

} // namespace
