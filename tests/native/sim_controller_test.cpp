#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "sim_test_support.h"

using namespace NV::SMMW;
using simtest::CodeOf;

namespace {

const wchar_t kReader[] = L"R1";

// An empty reader, then one with a blocked card that the help desk can unblock; `extra` (from its
// leading comma) adds card fields or replaces them.
std::string BlockedCard(const std::string& extra = "") {
    return R"({"readers":[{"name":"R0"},{"name":"R1","card":{"serial":"00A1","transactionTimeout":10,)"
           R"("pin":{"value":"111111","triesLeft":0,"maxTries":3},)"
           R"("unblock":{"adminKey":"000102030405060708090A0B0C0D0E0F"})" +
           extra + "}}]}";
}

class SimControllerTest : public simtest::SimTest {
  protected:
    IContext* Open(const wchar_t* reader = kReader) { return simtest::OpenContext(controller, reader); }
    std::vector<uint8_t> RightResponse(const std::vector<uint8_t>& challenge) {
        const std::vector<uint8_t> key = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
        std::vector<uint8_t> response(8);
        crypto.Encrypt3DesBlock(key, challenge.data(), response.data());
        return response;
    }
};

TEST_F(SimControllerTest, RightResponseUnblocksWithTheNewPinAndWrongOnesCostATry) {
    Load(BlockedCard(R"(,"pin":{"value":"111111","triesLeft":2,"maxTries":3})"));
    IPinCredential* pin = UserPin();
    ASSERT_NE(pin, nullptr);
    ASSERT_TRUE(pin->GetAccessRight(L"ActionUnblock")->IsAuthenticable());

    // No challenge asked yet, then wrong responses: a try each, never below zero.
    EXPECT_EQ(CodeOf([&] { pin->Unblock(std::vector<uint8_t>(8), L"271828", 0); }), SMMW_E_WRONG_CODE);
    EXPECT_EQ(TriesLeft(), 1u);
    std::vector<uint8_t> challenge;
    for (int i = 0; i < 2; ++i) {
        challenge = pin->GetUnblockChallenge();
        std::vector<uint8_t> wrong = RightResponse(challenge);
        wrong[i * 7] ^= 0x81;
        EXPECT_EQ(CodeOf([&] { pin->Unblock(wrong, L"271828", 0); }), SMMW_E_WRONG_CODE);
        EXPECT_EQ(TriesLeft(), 0u);
    }
    EXPECT_TRUE(controller.PinEquals(kReader, L"111111"));

    // A new PIN outside the card's limits costs nothing and keeps the challenge.
    challenge = pin->GetUnblockChallenge();
    const std::vector<uint8_t> right = RightResponse(challenge);
    for (const wchar_t* outside : {L"22222", L"222222222", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(CodeOf([&] { pin->Unblock(right, outside, 0); }), SMMW_E_INVALID_PARAMETER);
    EXPECT_EQ(CodeOf([&] { pin->Unblock(right, L"2718281", 0); }), 0u);
    EXPECT_EQ(TriesLeft(), 3u);
    EXPECT_TRUE(controller.PinEquals(kReader, L"2718281"));
    // The challenge answered once.
    EXPECT_EQ(CodeOf([&] { pin->Unblock(right, L"314159", 0); }), SMMW_E_WRONG_CODE);
}

// The card layer's tests see the readers' names, their order and the module's own choice.
TEST_F(SimControllerTest, ReaderStatesAndWhereAContextCannotBeOpened) {
    Load(BlockedCard());
    auto readers = controller.ListReaders();
    ASSERT_EQ(readers.size(), 2u);
    EXPECT_EQ(readers[0]->GetState(), READER_STATE_EMPTY);
    EXPECT_EQ(readers[1]->GetState(), READER_STATE_PRESENT);
    EXPECT_EQ(CodeOf([&] { Open(L"R0"); }), SMMW_E_NO_CARD);
    EXPECT_EQ(CodeOf([&] { Open(L"nowhere"); }), SMMW_E_INVALID_PARAMETER);
    IContext* any = Open(nullptr);
    EXPECT_EQ(CodeOf([&] { controller.ReleaseContext(any); }), 0u);
    EXPECT_EQ(CodeOf([&] { controller.ReleaseContext(any); }), SMMW_E_INVALID_PARAMETER);

    // A profile without the reader: the old object stays valid but is no longer listed.
    Load(R"({"readers":[{"name":"R9"}]})");
    EXPECT_EQ(readers[1]->GetState(), READER_STATE_UNAVAILABLE);
    EXPECT_EQ(controller.ListReaders().size(), 1u);
}

// The card layer's tests see removals reach the event bus, and only while it listens.
TEST_F(SimControllerTest, RemovalInvalidatesContextsUntilANewOne) {
    Load(BlockedCard());
    IContext* context = Open();
    IPinCredential* pin = simtest::PrimaryPin(context);
    ICardContext* card = context->GetCard();
    const std::vector<uint8_t> challenge = pin->GetUnblockChallenge();

    // Removed from another thread, as a test does while the dialog's thread holds the context.
    std::thread([&] { EXPECT_TRUE(controller.RemoveCard(kReader)); }).join();
    EXPECT_FALSE(controller.RemoveCard(kReader));
    EXPECT_EQ(CodeOf([&] { pin->Unblock(RightResponse(challenge), L"271828", 0); }), SMMW_E_CARD_REMOVED);
    EXPECT_EQ(CodeOf([&] { context->BeginTransaction(); }), SMMW_E_CARD_REMOVED);
    EXPECT_EQ(CodeOf([&] { Open(); }), SMMW_E_NO_CARD);

    ASSERT_TRUE(controller.InsertCard(kReader));
    CVData value;
    EXPECT_EQ(CodeOf([&] { card->GetProperty(0, value); }), SMMW_E_CARD_REMOVED); // still the old session
    // The challenge went with the card; the PIN state came back.
    EXPECT_EQ(CodeOf([&] { UserPin()->Unblock(RightResponse(challenge), L"271828", 0); }), SMMW_E_WRONG_CODE);
}

// The unlock dialog renews the transaction while it is open; its Windows test relies on the lapse.
TEST_F(SimControllerTest, TransactionsLapseAfterTheTimeOutWithoutAReset) {
    Load(BlockedCard());
    IContext* context = Open();
    EXPECT_EQ(CodeOf([&] { context->ResetTransactionTimeout(); }), SMMW_E_INVALID_PARAMETER);
    context->BeginTransaction();
    now += std::chrono::seconds(8);
    context->ResetTransactionTimeout();
    now += std::chrono::seconds(8);
    EXPECT_EQ(CodeOf([&] { context->EndTransaction(); }), 0u); // 16 s in all, but reset at 8

    context->BeginTransaction();
    now += std::chrono::seconds(11);
    EXPECT_EQ(CodeOf([&] { context->ResetTransactionTimeout(); }), SMMW_E_TIMEOUT);
    EXPECT_EQ(CodeOf([&] { context->EndTransaction(); }), 0u); // already over: nothing to end
    context->BeginTransaction();
    now += std::chrono::seconds(11);
    EXPECT_EQ(CodeOf([&] { context->EndTransaction(); }), SMMW_E_TIMEOUT);
}

} // namespace
