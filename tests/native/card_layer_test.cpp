// The card object layer against the simulated security module: connections shared between
// copies of a reader, every operation's answer and its default when the module fails, the
// unblock round trip, and card removals reaching the event bus.
#include "card/card_removal_events.h"
#include "card/card_result.h"
#include "card/cv_card_management.h"
#include "card/cv_card_properties.h"
#include "card/cv_reader_list.h"
#include "card/mw_controller.h"
#include "services/event_bus.h"
#include "services/log.h"
#include "services/settings.h"

#include "helpdesk_response.h"
#include "sim_test_support.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

using NV::SMMW::IContext;
using NV::SMMW::IController;

// Counts contexts and remembers how the last one was asked for.
class CountingController : public IController {
  public:
    explicit CountingController(IController& inner) : m_inner(inner) {}
    void Initialize() override { m_inner.Initialize(); }
    std::vector<NV::SMMW::IReader*> ListReaders() override { return m_inner.ListReaders(); }
    IContext* EstablishContext(const NV::SMMW::ParameterMap& parameters) override {
        const std::wstring* name = parameters.Find(L"ReaderName");
        lastReaderName = name ? *name : L"<none>";
        IContext* context = m_inner.EstablishContext(parameters);
        ++established;
        return context;
    }
    void ReleaseContext(IContext* context) override {
        ++released;
        m_inner.ReleaseContext(context);
    }
    void Subscribe(NV::SMMW::IReaderEventSink* sink) override { m_inner.Subscribe(sink); }
    void Unsubscribe(NV::SMMW::IReaderEventSink* sink) override { m_inner.Unsubscribe(sink); }

    int established = 0;
    int released = 0;
    std::wstring lastReaderName;

  private:
    IController& m_inner;
};

// Lines are formatted as in use, and dropped.
struct NullLog : ILogSink {
    void Write(const wchar_t*, int, const wchar_t*) override {}
};

struct MapStore : ISettingsStore {
    std::map<std::wstring, CVData> values;
    bool Read(const wchar_t* key, CVData& value) override {
        auto it = values.find(key);
        if (it == values.end()) return false;
        value = it->second;
        return true;
    }
};

// A ready PIV card whose PIN the help desk can unblock; `extra` adds or overrides card fields.
std::string Card(const std::string& extra = "") {
    return R"({"serial": "4356534D00000001", "type": "piv", "transactionTimeout": 30,
               "pin": {"value": "123456", "min": 6, "max": 8, "weakCheck": true, "triesLeft": 3, "maxTries": 3},
               "unblock": {"adminKey": "00112233445566778899AABBCCDDEEFF", "authenticable": true},
               "unlockCode": "5A3C96E10F7B2D48", "capabilities": ["ImportCertificate"])" +
           (extra.empty() ? "" : ", " + extra) + "}";
}

std::string OneReader(const std::string& card) {
    return R"({"readers": [{"name": "R1", "card": )" + card + "}]}";
}

class CardLayer : public ::testing::Test {
  protected:
    void SetUp() override {
        SetLogSink(&log);
        SetSettingsStore(&settings);
        SetMWControllerForTesting(&counting);
        Load(OneReader(Card()));
    }
    void TearDown() override {
        StopCardRemovalEvents();
        SetMWControllerForTesting(nullptr);
        SetSettingsStore(nullptr);
        SetLogSink(nullptr);
    }
    void Load(const std::string& json) {
        std::string error;
        ASSERT_TRUE(simulator.LoadProfile(json, &error)) << error;
    }

    simtest::FakeCrypto crypto;
    sim::SimController simulator{crypto};
    CountingController counting{simulator};
    NullLog log;
    MapStore settings;
};

// Every answer of CVCardManagement and CVCardProperties for one card, as one line of text.
std::string Outcome(const CVReader& reader) {
    CVCardManagement card(reader);
    CSecStr text;
    uint32_t min = 77, max = 77, timeout = 77;
    std::string line;
    auto add = [&line](const char* name, long long value) {
        line += std::string(name) + "=" + std::to_string(value) + " ";
    };
    add("challenge", card.GetUnlockChallenge(&text));
    add("min", card.GetMinPINLen(&min));
    add("/", min);
    add("max", card.GetMaxPINLen(&max));
    add("/", max);
    add("code", card.GetUnlockCode(&text));
    add("remove", card.RemoveUnlockCode());
    add("timeout", card.GetTransactionTimeoutValue(&timeout));
    add("/", timeout);
    add("cac", card.IsCACCard());
    add("piv", card.IsPIVCard());
    add("weak", card.IsWeakPINCheckActivated());
    add("allowed", card.IsUnlockAllowed());
    card.SetDisplayNotificationDate(1700000000);
    add("date", card.GetDisplayNotificationDate());
    add("serial", CVCardProperties(reader).GetSerialNumber(&text));
    return line;
}

TEST_F(CardLayer, EachOperationAnswersOrFallsBackToItsDefault) {
    const struct {
        const char* failures;
        const char* expected;
    } cases[] = {
        {"", "challenge=0 min=0 /=6 max=0 /=8 code=0 remove=0 timeout=0 /=30 cac=0 piv=1 weak=1 allowed=1 "
             "date=1700000000 serial=0 "},
        // No context: the connection's code, or the default of a question.
        {R"({"operation": "EstablishContext", "code": 3002})",
         "challenge=4 min=4 /=77 max=4 /=77 code=4 remove=4 timeout=4 /=0 cac=0 piv=0 weak=0 allowed=0 date=-1 serial=4 "},
        // Nothing readable: lengths keep the caller's value, the time-out is "none" with success.
        {R"({"operation": "GetProperty", "code": 3007})",
         "challenge=0 min=22 /=77 max=22 /=77 code=22 remove=0 timeout=0 /=0 cac=0 piv=0 weak=0 allowed=1 date=-1 "
         "serial=22 "},
        // No PIN credential: PIN operations do nothing and succeed; unlocking stays allowed.
        {R"({"operation": "ListCredentials", "code": 3099})",
         "challenge=0 min=0 /=77 max=0 /=77 code=0 remove=0 timeout=0 /=30 cac=0 piv=1 weak=0 allowed=1 "
         "date=1700000000 serial=0 "},
        {R"({"operation": "GetCard", "code": 3003})",
         "challenge=0 min=0 /=6 max=0 /=8 code=0 remove=0 timeout=0 /=0 cac=0 piv=0 weak=1 allowed=1 date=-1 serial=4 "},
        {R"({"operation": "GetAccessRight", "code": 3012})",
         "challenge=0 min=0 /=6 max=0 /=8 code=0 remove=0 timeout=0 /=30 cac=0 piv=1 weak=1 allowed=0 "
         "date=1700000000 serial=0 "},
    };
    int serial = 0;
    for (const auto& c : cases) {
        // A card of its own each time: the dates are kept per serial number for the process.
        char serialText[17];
        snprintf(serialText, sizeof serialText, "00000000C0DE%04X", ++serial);
        Load(OneReader(
            Card(std::string("\"serial\": \"") + serialText + "\", \"failures\": [" + c.failures + "]")));
        EXPECT_EQ(Outcome(CVReader(L"R1")), c.expected) << c.failures;
        EXPECT_EQ(counting.established, counting.released) << c.failures;
    }
}

TEST_F(CardLayer, AModuleFailureKeepsTheOutputAndIsReleased) {
    Load(OneReader(Card(R"("failures": [{"property": 25, "code": 3013}])")));
    uint32_t min = 5;
    EXPECT_EQ(CVCardManagement(CVReader(L"R1")).GetMinPINLen(&min), CV_OBJ_API_TIMEOUT);
    EXPECT_EQ(min, 5u);
    // LeakSanitizer reports an exception object that was not released.
}

TEST_F(CardLayer, NoExceptionLeavesTheLayerWhateverFails) {
    const char* operations[] = {
        "GetState",        "EstablishContext",        "ReleaseContext",      "GetCard",
        "ListCredentials", "CreateCredential",        "HasCapability",       "BeginTransaction",
        "EndTransaction",  "ResetTransactionTimeout", "RunAction",           "GetProperty",
        "SetProperty",     "GetAccessRight",          "GetUnblockChallenge", "Unblock"};
    for (const char* operation : operations) {
        Load(OneReader(
            Card(std::string(R"("failures": [{"operation": ")") + operation + R"(", "code": 3028}])")));
        EXPECT_NO_THROW({
            CVReader reader(L"R1");
            Outcome(reader);
            CVCardManagement(reader).UnlockPIN(CSecStr(L"0011223344556677"), CSecStr(L"654321"));
            CVReaderList list;
            list.GetReaderList();
            list.GetReaderFromCUID(L"4356534D00000001");
            CVConnection connection;
            reader.Connect(connection);
            connection.IsCardSupportImportCertificate();
            connection.BeginTransaction();
            connection.ResetTransactionTimeout();
            connection.EndTransaction();
            CVCredentialParams params;
            params.values.push_back({99, CVData::FromInteger(1)});
            connection.CreatePKICredential(params);
            connection.CreateDataCredential(params);
            reader.Disconnect(connection);
        }) << operation;
    }
}

TEST_F(CardLayer, NullOutputsAreRefusedWithoutTouchingTheCard) {
    CVReader reader(L"R1");
    CVCardManagement card(reader);
    EXPECT_EQ(card.GetUnlockChallenge(nullptr), 13u);
    EXPECT_EQ(card.GetMinPINLen(nullptr), 13u);
    EXPECT_EQ(card.GetMaxPINLen(nullptr), 13u);
    EXPECT_EQ(card.GetUnlockCode(nullptr), 13u);
    EXPECT_EQ(card.GetTransactionTimeoutValue(nullptr), 13u);
    EXPECT_EQ(CVCardProperties(reader).GetSerialNumber(nullptr), 13u);
    EXPECT_EQ(card.UnlockPIN(CSecStr(L"not hex"), CSecStr(L"654321")), 13u);
    EXPECT_EQ(counting.established, 0);
}

TEST_F(CardLayer, UnlockAllowedOnlyWhenTheUnblockRuleCanBeMet) {
    const struct {
        const char* card;
        bool allowed;
    } cases[] = {
        {R"("unblock": {"adminKey": "00112233445566778899AABBCCDDEEFF", "authenticable": true})", true},
        {R"("unblock": {"adminKey": "00112233445566778899AABBCCDDEEFF", "authenticable": false})", false},
        {R"("failures": [{"operation": "ListCredentials", "code": 3099}])", true}, // no PIN credential
    };
    for (const auto& c : cases) {
        Load(OneReader(Card(c.card)));
        EXPECT_EQ(CVCardManagement(CVReader(L"R1")).IsUnlockAllowed(), c.allowed) << c.card;
    }
    // A PIN without any unblock rule.
    Load(R"({"readers": [{"name": "R1", "card": {"serial": "01", "pin": {"value": "123456"}}}]})");
    EXPECT_FALSE(CVCardManagement(CVReader(L"R1")).IsUnlockAllowed());
}

TEST_F(CardLayer, NumericOnlyForCacAndPivOtherwiseBySetting) {
    const struct {
        const char* card;
        const CVData* setting;
        bool numericOnly;
    } cases[] = {
        {R"("type": "piv")", nullptr, true},
        {R"("type": "cac")", new CVData(CVData::FromInteger(0)), true},
        {R"("type": "other")", nullptr, false},
        {R"("type": "other")", new CVData(CVData::FromInteger(0)), false},
        {R"("type": "other")", new CVData(CVData::FromInteger(1)), true},
        {R"("type": "other")", new CVData(CVData::FromInteger(2)), false},
        {R"("type": "other")", new CVData(CVData::FromString(L"1")), false},
        // A card whose type cannot be read is "not that type", and the setting decides.
        {R"("failures": [{"property": 3, "code": 3001}, {"property": 4, "code": 3001}])", nullptr, false},
        {R"("failures": [{"property": 3, "code": 3001}, {"property": 4, "code": 3001}])",
         new CVData(CVData::FromInteger(1)), true},
    };
    for (const auto& c : cases) {
        settings.values.clear();
        if (c.setting) settings.values[L"Corvana.PINPolicies.PreventAlphaPIN"] = *c.setting;
        delete c.setting;
        Load(OneReader(Card(c.card)));
        EXPECT_EQ(CVCardManagement(CVReader(L"R1")).IsAlphaPINCheckActivated(), c.numericOnly) << c.card;
    }
}

TEST_F(CardLayer, CopiesOfAReaderShareOneContextUntilTheLastDisconnects) {
    CVReader reader(L"R1");
    CVReader first(reader), second(reader);
    CVConnection a, b, again;
    ASSERT_EQ(first.Connect(a), 0u);
    ASSERT_EQ(second.Connect(b), 0u);
    EXPECT_EQ(a.GetContext(), b.GetContext());
    // A copy that is connected already does not count twice.
    ASSERT_EQ(first.Connect(again), 0u);
    EXPECT_EQ(again.GetContext(), a.GetContext());

    // Two card objects on the reader work on the open context.
    CVCardManagement one(reader), two(reader);
    EXPECT_TRUE(one.IsPIVCard());
    uint32_t min = 0;
    EXPECT_EQ(two.GetMinPINLen(&min), 0u);
    EXPECT_EQ(counting.established, 1);

    EXPECT_EQ(first.Disconnect(a), 0u);
    EXPECT_EQ(counting.released, 0);
    EXPECT_EQ(second.Disconnect(b), 0u);
    EXPECT_EQ(counting.released, 1);
    EXPECT_FALSE(b.IsConnected());

    // Closed again: the next operation opens a context of its own.
    EXPECT_TRUE(one.IsPIVCard());
    EXPECT_EQ(counting.established, 2);
    EXPECT_EQ(counting.released, 2);
}

TEST_F(CardLayer, AnEmptyReaderNameLetsTheModuleChooseTheReader) {
    EXPECT_TRUE(CVCardManagement(CVReader(L"")).IsPIVCard());
    EXPECT_EQ(counting.lastReaderName, L"<none>");
    EXPECT_TRUE(CVCardManagement(CVReader(L"R1")).IsPIVCard());
    EXPECT_EQ(counting.lastReaderName, L"R1");
}

TEST_F(CardLayer, TwoPrimaryPinsMeanNoPinCredential) {
    Load(OneReader(Card(R"("pin": {"value": "123456", "primaryCount": 2})")));
    CVCardManagement card{CVReader(L"R1")};
    CSecStr challenge(L"old");
    EXPECT_EQ(card.GetUnlockChallenge(&challenge), 0u);
    EXPECT_TRUE(challenge.IsEmpty());
    EXPECT_FALSE(card.IsWeakPINCheckActivated());
}

TEST_F(CardLayer, SerialNumbersAreUpperCaseWithLeadingZerosAndKeyTheDates) {
    Load(
        R"({"readers": [{"name": "R1", "card": {"serial": "000a0B1c"}}, {"name": "R2", "card": {"serial": "00FF"}},
                         {"name": "R3"}]})");
    CVReader one(L"R1"), two(L"R2");
    CSecStr serial;
    ASSERT_EQ(CVCardProperties(one).GetSerialNumber(&serial), 0u);
    EXPECT_STREQ(serial.GetString(), L"000A0B1C");

    CVCardManagement(one).SetDisplayNotificationDate(1234567890);
    EXPECT_EQ(CVCardManagement(one).GetDisplayNotificationDate(), 1234567890);
    EXPECT_EQ(CVCardManagement(two).GetDisplayNotificationDate(), -1);

    CVReaderList list;
    ASSERT_EQ(list.GetReaderList(), 0u);
    std::vector<std::wstring> names;
    for (CVReaderPosition pos = list.GetFirstReaderPosition(); pos;)
        names.push_back(list.GetNextReader(pos)->GetReaderName());
    EXPECT_EQ(names, (std::vector<std::wstring>{L"R1", L"R2", L"R3"}));
    CVReader* found = list.GetReaderFromCUID(L"00ff");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->GetReaderName(), L"R2");
    EXPECT_EQ(list.GetReaderFromCUID(L"0A0B1C"), nullptr);
    EXPECT_EQ(counting.established, counting.released);
}

std::string Narrow(const CSecStr& text) {
    return std::string(text.GetString(), text.GetString() + text.GetLength());
}

CSecStr ResponseDigits(const std::string& response) {
    CSecStr digits;
    for (char ch : response)
        if (ch != ' ') digits.AppendChar(static_cast<wchar_t>(ch));
    return digits;
}

TEST_F(CardLayer, TheHelpDeskResponseUnblocksAndAWrongOneDoesNot) {
    Load(OneReader(Card(R"("pin": {"value": "123456", "triesLeft": 0, "maxTries": 3})")));
    CVCardManagement card{CVReader(L"R1")};
    const std::string key = "00112233445566778899AABBCCDDEEFF";

    CSecStr challenge;
    std::string response, error;
    ASSERT_EQ(card.GetUnlockChallenge(&challenge), 0u);
    EXPECT_EQ(challenge.GetLength(), 16);
    ASSERT_EQ(helpdesk::ComputeResponse(crypto, Narrow(challenge), key, response, error),
              helpdesk::ResponseStatus::Ok);
    CSecStr wrong = ResponseDigits(response);
    wrong.Replace(wrong.Left(1).GetString(), wrong[0] == L'0' ? L"1" : L"0");
    EXPECT_EQ(card.UnlockPIN(wrong, CSecStr(L"615243")), CV_OBJ_API_WRONG_CODE);
    sim::SimPinState state{};
    ASSERT_TRUE(simulator.GetPinState(L"R1", &state));
    EXPECT_TRUE(state.blocked);

    ASSERT_EQ(card.GetUnlockChallenge(&challenge), 0u);
    ASSERT_EQ(helpdesk::ComputeResponse(crypto, Narrow(challenge), key, response, error),
              helpdesk::ResponseStatus::Ok);
    EXPECT_EQ(card.UnlockPIN(ResponseDigits(response), CSecStr(L"615243")), CV_OBJ_API_OK);
    ASSERT_TRUE(simulator.GetPinState(L"R1", &state));
    EXPECT_FALSE(state.blocked);
    EXPECT_TRUE(simulator.PinEquals(L"R1", L"615243"));
}

TEST_F(CardLayer, UnlockCodeIsReadAsHexAndRemoved) {
    CVCardManagement card{CVReader(L"R1")};
    CSecStr code;
    ASSERT_EQ(card.GetUnlockCode(&code), 0u);
    EXPECT_STREQ(code.GetString(), L"5A3C96E10F7B2D48");
    ASSERT_EQ(card.RemoveUnlockCode(), 0u);
    ASSERT_EQ(card.GetUnlockCode(&code), 0u);
    EXPECT_TRUE(code.IsEmpty());
}

TEST_F(CardLayer, ConnectionFindsCreatesAndUpdatesCredentials) {
    CVConnection closed;
    EXPECT_EQ(closed.GetUserPinCredential(), nullptr);
    EXPECT_EQ(closed.BeginTransaction(), CV_OBJ_API_FAILED);
    EXPECT_EQ(closed.CreateDataCredential(CVCredentialParams()), CV_OBJ_API_FAILED);

    CVReader reader(L"R1");
    CVConnection connection;
    ASSERT_EQ(reader.Connect(connection), 0u);
    EXPECT_TRUE(connection.IsCardSupportImportCertificate());

    CVCredentialParams pki;
    pki.keySizeBits = 2048;
    pki.properties.push_back({12, CVData::FromInteger(5)});
    NV::SMMW::ICredential* key = nullptr;
    ASSERT_EQ(connection.CreatePKICredential(pki, &key), 0u);
    ASSERT_NE(key, nullptr);
    EXPECT_NE(key->GetAccessRight(L"ActionSign"), nullptr);
    NV::SMMW::CredentialParameters container;
    container.type = NV::SMMW::CREDENTIAL_KEY_CONTAINER;
    container.properties.push_back({12, CVData::FromInteger(5)});
    NV::SMMW::ICredential* kc = connection.GetContext()->CreateCredential(container, {});
    EXPECT_EQ(connection.GetAssociatedKCCredential(key), kc);
    EXPECT_EQ(connection.GetAssociatedKCCredential(nullptr), nullptr);
    std::vector<NV::SMMW::ICredential*> list;
    EXPECT_EQ(connection.ListPKICredentials(&list), 0u);
    EXPECT_EQ(list, std::vector<NV::SMMW::ICredential*>{key});

    CVCredentialParams data;
    data.properties.push_back({NV::SMMW::ATTRIBUTE_DATA_TYPE, CVData::FromInteger(2)});
    data.values.push_back({40, CVData::FromBytes({1, 2, 3})});
    NV::SMMW::ICredential* roots = nullptr;
    ASSERT_EQ(connection.CreateDataCredential(data, &roots), 0u);
    EXPECT_EQ(connection.GetDataCredential(2), roots);
    EXPECT_EQ(connection.GetDataCredential(3), nullptr);
    const CVData value = CVData::FromInteger(9);
    EXPECT_EQ(connection.UpdateCredential(roots, 41, &value), 0u);
    EXPECT_EQ(connection.UpdateCredential(roots, 41, nullptr), CV_OBJ_API_INVALID_PARAMETER);
    ASSERT_EQ(connection.CreateDataCredential(data), 0u); // a second of type 2
    EXPECT_EQ(connection.GetDataCredential(2), nullptr);
    EXPECT_EQ(connection.ListDataCredentials(&list), 0u);
    EXPECT_EQ(list.size(), 2u);

    EXPECT_EQ(connection.ResetTransactionTimeout(), CV_OBJ_API_INVALID_PARAMETER); // none open
    EXPECT_EQ(connection.BeginTransaction(), 0u);
    EXPECT_EQ(connection.ResetTransactionTimeout(), 0u);
    EXPECT_EQ(connection.EndTransaction(), 0u);
    reader.Disconnect(connection);
}

class RemovalWatcher : public CVDelegateSubscriber {
  public:
    RemovalWatcher() { Subscribe(CV_EVENT_CARD_REMOVED, &CV_SOURCE_CARD_EVENTS); }
    ~RemovalWatcher() override { UnSubscribe(); }
    void HandleEvent(const CVEventInfo* event) override {
        readers.push_back(std::to_wstring(event->code) + L":" + event->readerName);
    }
    std::vector<std::wstring> readers;
};

TEST_F(CardLayer, CardRemovalsReachTheEventBusWhileSubscribed) {
    RemovalWatcher watcher;
    StartCardRemovalEvents();
    StartCardRemovalEvents(); // once for the process: no second delivery
    ASSERT_TRUE(simulator.RemoveCard(L"R1"));
    ASSERT_TRUE(simulator.InsertCard(L"R1")); // insertions are not removals
    EXPECT_EQ(watcher.readers, std::vector<std::wstring>{L"0:R1"});
    StopCardRemovalEvents();
    ASSERT_TRUE(simulator.RemoveCard(L"R1"));
    EXPECT_EQ(watcher.readers.size(), 1u);
}

TEST_F(CardLayer, WithoutAControllerNothingBreaks) {
    SetMWControllerForTesting(nullptr); // natively there is no library to load
    CVReader reader(L"R1");
    EXPECT_EQ(reader.GetReaderState(), NV::SMMW::READER_STATE_UNAVAILABLE);
    EXPECT_EQ(CVCardManagement(reader).GetDisplayNotificationDate(), -1);
    EXPECT_EQ(CVReaderList().GetReaderList(), CV_OBJ_API_FAILED);
    StartCardRemovalEvents();
}

} // namespace
