// The blocked-card story on the simulated card: the static unlock code, the card's own rules for
// the new PIN, and PIN verification with its try counting.
#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "sim_test_support.h"
#include "smmw_sim.h"

using namespace NV::SMMW;
using simtest::CodeOf;

namespace {

const wchar_t kReader[] = L"R1";
const std::vector<uint8_t> kStaticCode = {0x8D, 0x3F, 0x6A, 0x1C, 0x0E, 0x5B, 0x72, 0x94};

// A card with two of its three tries left (PIN 975310), unblocked by kStaticCode.
std::string StaticCodeCard(const std::string& type = "piv", bool weakCheck = true) {
    return R"({"readers":[{"name":"R1","card":{"serial":"01","type":")" + type +
           R"(","pin":{"value":"975310","weakCheck":)" + (weakCheck ? "true" : "false") +
           R"(,"triesLeft":2,"maxTries":3},"unblock":{"staticCode":"8D3F6A1C0E5B7294"}}}]})";
}

// The code and the message of the IException* an operation throws.
struct Failure {
    uint32_t code = 0;
    std::wstring message;
};
template <class F> Failure FailureOf(F&& operation) {
    Failure failure;
    try {
        operation();
    } catch (NV::Framework::IException* e) {
        failure = {e->GetCode(), e->GetMessageText()};
        e->Release();
    }
    return failure;
}

using SimUnblock = simtest::SimTest;

TEST_F(SimUnblock, StaticCodeUnblocksWithoutAChallengeAndEachWrongOneCostsATry) {
    Load(StaticCodeCard());
    IPinCredential* pin = UserPin();
    ASSERT_NE(pin, nullptr);
    // The host falls back to the static-code layout on "not supported".
    EXPECT_EQ(CodeOf([&] { pin->GetUnblockChallenge(); }), SMMW_E_NOT_SUPPORTED);
    std::vector<uint8_t> lastBitWrong = kStaticCode;
    lastBitWrong[7] ^= 1;
    const std::vector<uint8_t> oneByteShort(kStaticCode.begin(), kStaticCode.end() - 1);
    for (const std::vector<uint8_t>& wrong : {lastBitWrong, oneByteShort})
        EXPECT_EQ(CodeOf([&] { pin->Unblock(wrong, L"271828", 0); }), SMMW_E_WRONG_CODE);
    EXPECT_EQ(TriesLeft(), 0u);
    EXPECT_TRUE(controller.PinEquals(kReader, L"975310"));
    // Blocked now, and still unblocked by the right code.
    EXPECT_EQ(CodeOf([&] { pin->Unblock(kStaticCode, L"271828", 0); }), 0u);
    EXPECT_EQ(TriesLeft(), 3u);
    EXPECT_TRUE(controller.PinEquals(kReader, L"271828"));
}

TEST_F(SimUnblock, TheNewPinMeetsTheCardsRulesBeforeTheCodeCounts) {
    const struct {
        const char* type;
        bool weakCheck;
        const wchar_t* newPin;
        const char* refusedRule; // null: accepted
    } rows[] = {
        {"piv", true, L"27a828", "digits"},  // PIV and CAC PINs are numeric
        {"cac", false, L"27a828", "digits"}, // (whatever the weak check)
        {"other", true, L"27a828", nullptr}, // other cards take letters
        {"piv", true, L"123456", "weak"},    // stepping
        {"piv", true, L"888888", "weak"},    // repeated
        {"other", true, L"abcdef", "weak"},  // letters step too
        {"piv", false, L"123456", nullptr},  // the card does not check
        {"piv", true, L"27182", "length"},   // (checked first, as before)
    };
    for (const auto& row : rows) {
        const std::string label = std::string(row.type) + (row.weakCheck ? " weak-check " : " ") +
                                  std::string(row.newPin, row.newPin + wcslen(row.newPin));
        Load(StaticCodeCard(row.type, row.weakCheck));
        IPinCredential* pin = UserPin();
        ASSERT_NE(pin, nullptr);
        const Failure failure = FailureOf([&] { pin->Unblock(kStaticCode, row.newPin, 0); });
        if (!row.refusedRule) {
            EXPECT_EQ(failure.code, 0u) << label;
            EXPECT_TRUE(controller.PinEquals(kReader, row.newPin)) << label;
            continue;
        }
        EXPECT_EQ(failure.code, SMMW_E_INVALID_PARAMETER) << label;
        const std::wstring rule(row.refusedRule, row.refusedRule + strlen(row.refusedRule));
        EXPECT_NE(failure.message.find(rule), std::wstring::npos) << label;
        EXPECT_EQ(failure.message.find(row.newPin), std::wstring::npos) << label;
        // Refused before the code was looked at: no try used, the PIN unchanged.
        EXPECT_EQ(TriesLeft(), 2u) << label;
        EXPECT_TRUE(controller.PinEquals(kReader, L"975310")) << label;
    }
}

TEST_F(SimUnblock, VerifyingCountsTriesAndABlockedPinRefusesEvenTheRightOne) {
    Load(StaticCodeCard());
    const struct {
        const wchar_t* pin;
        int result;
        unsigned triesLeft;
    } steps[] = {
        {L"000000", CVSIM_E_NO_MATCH, 1}, // two tries left to start with
        {L"975310", CVSIM_OK, 3},         // the right PIN restores them all
        {L"000000", CVSIM_E_NO_MATCH, 2}, // then down to none
        {L"000000", CVSIM_E_NO_MATCH, 1}, // the last try
        {L"000000", CVSIM_E_NO_MATCH, 0}, // the PIN is blocked
        {L"975310", CVSIM_E_BLOCKED, 0},  // blocked: not even the right one, and nothing counted
    };
    for (const auto& step : steps) {
        unsigned triesLeft = 99;
        EXPECT_EQ(controller.VerifyPin(kReader, step.pin, &triesLeft), step.result);
        EXPECT_EQ(triesLeft, step.triesLeft);
    }
    // The story's end: unblocked with the code, the new PIN verifies.
    IPinCredential* pin = UserPin();
    ASSERT_NE(pin, nullptr);
    ASSERT_EQ(CodeOf([&] { pin->Unblock(kStaticCode, L"271828", 0); }), 0u);
    EXPECT_EQ(controller.VerifyPin(kReader, L"271828", nullptr), CVSIM_OK);

    // Nothing to verify against: an unknown reader, a card taken out.
    EXPECT_EQ(controller.VerifyPin(L"R9", L"271828", nullptr), CVSIM_E_NOT_FOUND);
    ASSERT_TRUE(controller.RemoveCard(kReader));
    EXPECT_EQ(controller.VerifyPin(kReader, L"271828", nullptr), CVSIM_E_NOT_FOUND);
}

TEST_F(SimUnblock, TheShippedVariantsAreAStaticCodeCardAndACardThatCannotBeUnlocked) {
    Load(simtest::ShippedProfile("blocked-card-variants.json"));
    IPinCredential* staticCard = UserPin(L"Corvana Simulated Reader 3");
    IPinCredential* lockedOut = UserPin(L"Corvana Simulated Reader 4");
    ASSERT_TRUE(staticCard && lockedOut);
    EXPECT_EQ(CodeOf([&] { staticCard->GetUnblockChallenge(); }), SMMW_E_NOT_SUPPORTED);
    EXPECT_EQ(CodeOf([&] { staticCard->Unblock(kStaticCode, L"271828", 0); }), 0u);
    EXPECT_EQ(CodeOf([&] { lockedOut->GetUnblockChallenge(); }), SMMW_E_ACCESS_DENIED);
    EXPECT_EQ(controller.VerifyPin(L"Corvana Simulated Reader 4", L"864209", nullptr), CVSIM_E_BLOCKED);
}

} // namespace
