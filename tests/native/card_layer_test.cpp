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
#include <sstream>
#include <string>
#include <vector>

namespace {

using NV::SMMW::IContext;

// Counts contexts and remembers how the last one was asked for.
struct CountingSimulator : sim::SimController {
    using SimController::SimController;
    IContext* EstablishContext(const NV::SMMW::ParameterMap& parameters) override {
        const std::wstring* name = parameters.Find(L"ReaderName");
        lastReaderName = name ? *name : L"<none>";
        IContext* context = SimController::EstablishContext(parameters);
        ++established;
        return context;
    }
    void ReleaseContext(IContext* context) override {
        ++released;
        SimController::ReleaseContext(context);
    }
    int established = 0, released = 0;
    std::wstring lastReaderName;
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

class CardLayer : public ::testing::Test {
  protected:
    void SetUp() override {
        SetLogSink(&log);
        SetSettingsStore(&settings);
        SetMWControllerForTesting(&simulator);
        LoadCard("");
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
    // One reader with a ready PIV card whose PIN the help desk can unblock; `extra` adds card fields
    // or replaces them.
    void LoadCard(const std::string& extra) {
        Load(R"({"readers": [{"name": "R1", "card": {"serial": "4356534D00000001", "transactionTimeout": 30,
                 "unblock": {"adminKey": "00112233445566778899AABBCCDDEEFF"}, "unlockCode": "5A3C96E10F7B2D48",
                 "capabilities": ["ImportCertificate"])" +
             (extra.empty() ? "" : ", " + extra) + "}}]}");
    }

    simtest::FakeCrypto crypto;
    CountingSimulator simulator{crypto};
    NullLog log;
    MapStore settings;
};

// Every answer of CVCardManagement and CVCardProperties for one card, as one line of text.
std::wstring Outcome(const CVReader& reader) {
    CVCardManagement card(reader);
    // Outputs start with values the card does not have, to show which calls leave them alone.
    CSecStr text(L"old");
    uint32_t min = 77, max = 77, timeout = 77;
    std::wostringstream line;
    // Since C++17 the operands of << are evaluated in order: each output is printed after its call.
    line << "challenge=" << card.GetUnlockChallenge(&text) << "/" << text.GetLength();
    text = L"old";
    line << " code=" << card.GetUnlockCode(&text) << "/" << text.GetString()
         << " remove=" << card.RemoveUnlockCode();
    text = L"old";
    line << " code=" << card.GetUnlockCode(&text) << "/" << text.GetString()
         << " min=" << card.GetMinPINLen(&min) << "/" << min << " max=" << card.GetMaxPINLen(&max) << "/"
         << max << " timeout=" << card.GetTransactionTimeoutValue(&timeout) << "/" << timeout
         << " cac=" << card.IsCACCard() << " piv=" << card.IsPIVCard()
         << " weak=" << card.IsWeakPINCheckActivated() << " allowed=" << card.IsUnlockAllowed()
         << " unlock=" << card.UnlockPIN(CSecStr(L"0011223344556677"), CSecStr(L"615243"));
    card.SetDisplayNotificationDate(1700000000);
    line << " date=" << card.GetDisplayNotificationDate()
         << " serial=" << CVCardProperties(reader).GetSerialNumber(&text);
    return line.str();
}

TEST_F(CardLayer, EachOperationAnswersOrFallsBackToItsDefault) {
    const struct {
        const char* card; // fields added to LoadCard's card or replacing its own
        const wchar_t* expected;
    } cases[] = {
        {"",
         L"challenge=0/16 code=0/5A3C96E10F7B2D48 remove=0 code=0/ min=0/6 max=0/8 timeout=0/30 cac=0 piv=1 "
         "weak=1 allowed=1 unlock=5 date=1700000000 serial=0"},
        // No context: the connection's code, or the default of a question.
        {R"("failures": [{"operation": "EstablishContext", "code": 3002}])",
         L"challenge=4/0 code=4/old remove=4 code=4/old min=4/77 max=4/77 timeout=4/0 cac=0 piv=0 weak=0 "
         "allowed=0 unlock=4 date=-1 serial=4"},
        // Nothing readable: lengths keep the caller's value, the time-out is "none" with success.
        {R"("failures": [{"operation": "GetProperty", "code": 3007}])",
         L"challenge=0/16 code=22/old remove=0 code=22/old min=22/77 max=22/77 timeout=0/0 cac=0 piv=0 "
         "weak=0 allowed=1 unlock=5 date=-1 serial=22"},
        // No PIN credential (none found, or two primary ones): PIN operations do nothing and succeed;
        // unlocking stays allowed.
        {R"("failures": [{"operation": "ListCredentials", "code": 3099}])",
         L"challenge=0/0 code=0/old remove=0 code=0/old min=0/77 max=0/77 timeout=0/30 cac=0 piv=1 weak=0 "
         "allowed=1 unlock=0 date=1700000000 serial=0"},
        {R"("pin": {"value": "123456", "primaryCount": 2})",
         L"challenge=0/0 code=0/old remove=0 code=0/old min=0/77 max=0/77 timeout=0/30 cac=0 piv=1 weak=0 "
         "allowed=1 unlock=0 date=1700000000 serial=0"},
        {R"("failures": [{"operation": "GetCard", "code": 3003}])",
         L"challenge=0/16 code=0/5A3C96E10F7B2D48 remove=0 code=0/ min=0/6 max=0/8 timeout=0/0 cac=0 piv=0 "
         "weak=1 allowed=1 unlock=5 date=-1 serial=4"},
        // Unlocking is allowed only when the unblock rule can be met.
        {R"("failures": [{"operation": "GetAccessRight", "code": 3012}])",
         L"challenge=0/16 code=0/5A3C96E10F7B2D48 remove=0 code=0/ min=0/6 max=0/8 timeout=0/30 cac=0 piv=1 "
         "weak=1 allowed=0 unlock=5 date=1700000000 serial=0"},
        {R"("unblock": {"adminKey": "00112233445566778899AABBCCDDEEFF", "authenticable": false})",
         L"challenge=22/0 code=0/5A3C96E10F7B2D48 remove=0 code=0/ min=0/6 max=0/8 timeout=0/30 cac=0 piv=1 "
         "weak=1 allowed=0 unlock=22 date=1700000000 serial=0"},
        {R"("unblock": null)",
         L"challenge=22/0 code=0/5A3C96E10F7B2D48 remove=0 code=0/ min=0/6 max=0/8 timeout=0/30 cac=0 piv=1 "
         "weak=1 allowed=0 unlock=22 date=1700000000 serial=0"},
    };
    int serial = 0;
    for (const auto& c : cases) {
        // A card of its own each time: the dates are kept per serial number for the process.
        char fields[40];
        snprintf(fields, sizeof fields, "\"serial\": \"00000000C0DE%04X\"%s", ++serial, *c.card ? ", " : "");
        LoadCard(fields + std::string(c.card));
        EXPECT_EQ(Outcome(CVReader(L"R1")), c.expected) << c.card;
        EXPECT_EQ(simulator.established, simulator.released) << c.card;
    }
}

TEST_F(CardLayer, NoExceptionLeavesTheLayerWhateverFails) {
    for (const char* operation :
         {"GetState", "EstablishContext", "ReleaseContext", "GetCard", "ListCredentials", "CreateCredential",
          "HasCapability", "BeginTransaction", "EndTransaction", "ResetTransactionTimeout", "RunAction",
          "GetProperty", "SetProperty", "GetAccessRight", "GetUnblockChallenge", "Unblock"}) {
        LoadCard(std::string(R"("failures": [{"operation": ")") + operation + R"(", "code": 3028}])");
        EXPECT_NO_THROW({
            CVReader reader(L"R1");
            Outcome(reader);
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
    EXPECT_EQ(card.UnlockPIN(CSecStr(L"not hex"), CSecStr(L"615243")), 13u);
    EXPECT_EQ(simulator.established, 0);
}

TEST_F(CardLayer, NumericOnlyForCacAndPivOtherwiseBySetting) {
    const char* unreadableType =
        R"("failures": [{"property": 3, "code": 3001}, {"property": 4, "code": 3001}])";
    const struct {
        const char* card;
        CVData setting; // none: not set
        bool numericOnly;
    } cases[] = {
        {R"("type": "piv")", {}, true},
        {R"("type": "cac")", CVData::FromInteger(0), true},
        {R"("type": "other")", {}, false},
        {R"("type": "other")", CVData::FromInteger(1), true},
        {R"("type": "other")", CVData::FromInteger(2), false},
        {R"("type": "other")", CVData::FromString(L"1"), false},
        // A card whose type cannot be read is "not that type", and the setting decides.
        {unreadableType, {}, false},
        {unreadableType, CVData::FromInteger(1), true},
    };
    for (const auto& c : cases) {
        settings.values.clear();
        if (c.setting.GetType() != CVData::Type::None)
            settings.values[L"Corvana.PINPolicies.PreventAlphaPIN"] = c.setting;
        LoadCard(c.card);
        EXPECT_EQ(CVCardManagement(CVReader(L"R1")).IsAlphaPINCheckActivated(), c.numericOnly) << c.card;
    }
}

TEST_F(CardLayer, CopiesOfAReaderShareOneContextUntilTheLastDisconnects) {
    CVReader reader(L"R1"), first(reader), second(reader);
    CVConnection a, b, again;
    ASSERT_EQ(first.Connect(a) | second.Connect(b) | first.Connect(again), 0u);
    EXPECT_EQ(a.GetContext(), b.GetContext());
    EXPECT_EQ(again.GetContext(), a.GetContext());
    EXPECT_EQ(simulator.lastReaderName, L"R1");
    // Card objects on the reader work on the open context.
    CVCardManagement card(reader);
    EXPECT_TRUE(card.IsPIVCard());
    EXPECT_EQ(simulator.established, 1);

    // A copy that connects again does not count twice.
    EXPECT_EQ(first.Disconnect(a), 0u);
    EXPECT_EQ(simulator.released, 0);
    EXPECT_EQ(second.Disconnect(b), 0u);
    EXPECT_EQ(simulator.released, 1);
    EXPECT_FALSE(b.IsConnected());
    // Closed again: the next operation opens a context of its own.
    EXPECT_TRUE(card.IsPIVCard());
    EXPECT_EQ(simulator.established, 2);
    EXPECT_EQ(simulator.released, 2);
    // Without a name, the module chooses the reader.
    EXPECT_TRUE(CVCardManagement(CVReader(L"")).IsPIVCard());
    EXPECT_EQ(simulator.lastReaderName, L"<none>");
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
    EXPECT_EQ(simulator.established, simulator.released);
}

TEST_F(CardLayer, TheHelpDeskResponseUnblocks) {
    LoadCard(R"("pin": {"value": "123456", "triesLeft": 0, "maxTries": 3})");
    CVCardManagement card{CVReader(L"R1")};
    CSecStr challenge, typed;
    ASSERT_EQ(card.GetUnlockChallenge(&challenge), 0u);
    const std::string hex(challenge.GetString(), challenge.GetString() + challenge.GetLength());
    std::string response, error;
    ASSERT_EQ(helpdesk::ComputeResponse(crypto, hex, "00112233445566778899AABBCCDDEEFF", response, error),
              helpdesk::ResponseStatus::Ok);
    for (char ch : response) // as the user types it in, without the groups' spaces
        if (ch != ' ') typed.AppendChar(static_cast<wchar_t>(ch));
    EXPECT_EQ(card.UnlockPIN(typed, CSecStr(L"615243")), CV_OBJ_API_OK);
    EXPECT_TRUE(simulator.PinEquals(L"R1", L"615243"));
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

    // A key and its container name each other by the same index.
    const CVCredentialParams pki{2048, {{12, CVData::FromInteger(5)}}, {}};
    NV::SMMW::ICredential* key = nullptr;
    ASSERT_EQ(connection.CreatePKICredential(pki, &key), 0u);
    ASSERT_NE(key, nullptr);
    EXPECT_NE(key->GetAccessRight(L"ActionSign"), nullptr);
    NV::SMMW::CredentialParameters container;
    container.type = NV::SMMW::CREDENTIAL_KEY_CONTAINER;
    container.properties = pki.properties;
    NV::SMMW::ICredential* kc = connection.GetContext()->CreateCredential(container, {});
    EXPECT_EQ(connection.GetAssociatedKCCredential(key), kc);
    EXPECT_EQ(connection.GetAssociatedKCCredential(nullptr), nullptr);
    std::vector<NV::SMMW::ICredential*> list;
    EXPECT_EQ(connection.ListPKICredentials(&list), 0u);
    EXPECT_EQ(list, std::vector<NV::SMMW::ICredential*>{key});

    // A data credential is found by its type while it is the only one of that type.
    const CVCredentialParams data{
        0, {{NV::SMMW::ATTRIBUTE_DATA_TYPE, CVData::FromInteger(2)}}, {{40, CVData::FromBytes({1, 2, 3})}}};
    NV::SMMW::ICredential* roots = nullptr;
    ASSERT_EQ(connection.CreateDataCredential(data, &roots), 0u);
    EXPECT_EQ(connection.GetDataCredential(2), roots);
    EXPECT_EQ(connection.GetDataCredential(3), nullptr);
    const CVData value = CVData::FromInteger(9);
    EXPECT_EQ(connection.UpdateCredential(roots, 41, &value), 0u);
    EXPECT_EQ(connection.UpdateCredential(roots, 41, nullptr), CV_OBJ_API_INVALID_PARAMETER);
    ASSERT_EQ(connection.CreateDataCredential(data), 0u);
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
