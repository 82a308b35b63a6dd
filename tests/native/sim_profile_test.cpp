#include "profile.h"

#include <gtest/gtest.h>

#include <string>

#include "sim_test_support.h"

namespace {

// A card with every field but one replaced by `cardFields`.
std::string WithCard(const std::string& cardFields) {
    return R"({"readers":[{"name":"R","card":{"serial":"01")" + cardFields + "}}]}";
}

// Secrets (the PIN, the administrator key, a static unlock code) are never quoted back.
TEST(SimProfile, MalformedProfilesAreRefusedNamingTheFieldButNoSecret) {
    const struct {
        std::string json;
        const char* expected; // part of the error
    } rows[] = {
        {"", "not valid JSON"},
        {"[]", "profile: must be an object"},
        {"{}", "profile.readers: missing"},
        {R"({"readers":{}})", "profile.readers: must be a list"},
        {R"({"readers":[{"card":null}]})", "readers[0].name: missing"},
        {R"({"readers":[{"name":""}]})", "readers[0].name: must not be empty"},
        {R"({"readers":[{"name":"R"},{"name":"R"}]})", "readers[1].name: used by two readers"},
        {R"({"readers":[{"name":"R","colour":1}]})", "readers[0]: unknown field \"colour\""},
        {R"({"readers":[{"name":"R","card":{}}]})", "readers[0].card.serial: missing"},
        {R"({"readers":[{"name":"R","card":{"serial":""}}]})", "card.serial: must hold at least one byte"},
        {R"({"readers":[{"name":"R","card":{"serial":"0G"}}]})",
         "card.serial: character 2 is not a hexadecimal"},
        {WithCard(R"(,"type":"smart")"), "card.type: unknown type \"smart\""},
        {WithCard(R"(,"transactionTimeout":-1)"), "card.transactionTimeout: must not be negative"},
        {WithCard(R"(,"transactionTimeout":1.5)"), "card.transactionTimeout: must be a whole number"},
        {WithCard(R"(,"pin":{"triesLeft":4,"maxTries":3})"), "card.pin.triesLeft: must not exceed maxTries"},
        {WithCard(R"(,"pin":{"maxTries":0})"), "card.pin.maxTries: must be at least 1"},
        {WithCard(R"(,"pin":{"primaryCount":3})"), "card.pin.primaryCount: must be at most 2"},
        {WithCard(R"(,"pin":{"min":8,"max":6})"), "card.pin.max: must not be below min"},
        {WithCard(R"(,"pin":{"value":"12345"})"), "card.pin.value: length outside min..max"},
        {WithCard(R"(,"pin":{"value":"12 456"})"), "card.pin.value: must be printable ASCII"},
        {WithCard(R"(,"pin":{"weakCheck":1})"), "card.pin.weakCheck: must be true or false"},
        {WithCard(R"(,"unblock":{"adminKey":"0011223344556677"})"),
         "card.unblock.adminKey: must be 16 or 24 bytes"},
        {WithCard(R"(,"unblock":{"authenticable":true})"), "card.unblock.adminKey: must be a string"},
        {WithCard(R"(,"unblock":{"adminKey":"SECRETKEY0112233445566778899AABBCC"})"),
         "card.unblock.adminKey: "},
        {WithCard(R"(,"pin":{"value":"SECRET 1"})"), "card.pin.value: "},
        {WithCard(R"(,"pin":{"value":"SECRET" )"), "not valid JSON"},
        {WithCard(R"(,"unblock":{"staticCode":"8D3F6A1C0E5B72","authenticable":true})"),
         "card.unblock.staticCode: must be 8 bytes"},
        {WithCard(
             R"(,"unblock":{"staticCode":"8D3F6A1C0E5B7294","adminKey":"00112233445566778899AABBCCDDEEFF"})"),
         "card.unblock.staticCode: not allowed beside \"adminKey\""},
        {WithCard(R"(,"unblock":{"staticCode":"8D3F6A1C0E5B72QQ"})"), "card.unblock.staticCode: "},
        {WithCard(R"(,"unlockCode":"")"), "card.unlockCode: must hold at least one byte"},
        {WithCard(R"(,"capabilities":[1])"), "card.capabilities: must be a list of strings"},
        {WithCard(R"(,"failures":[{"operation":"Fly","code":3099}])"),
         "failures[0].operation: unknown operation \"Fly\""},
        {WithCard(R"(,"failures":[{"code":3099}])"), "failures[0]: needs exactly one of"},
        {WithCard(R"(,"failures":[{"operation":"Unblock","property":3,"code":3099}])"),
         "needs exactly one of"},
        {WithCard(R"(,"failures":[{"operation":"Unblock","code":42}])"),
         "failures[0].code: module codes start at 3000"},
        {WithCard(R"(,"failures":[{"operation":"Unblock"}])"), "failures[0].code: missing"},
        {R"({"readers":[],"failures":[{"operation":"Unblock","code":3099}]})",
         "profile.failures[0].operation: unknown"},
    };
    for (const auto& row : rows) {
        sim::Profile profile;
        std::string error;
        EXPECT_FALSE(sim::ParseProfile(row.json, profile, &error)) << row.json;
        EXPECT_NE(error.find(row.expected), std::string::npos) << row.json << "\n  gave: " << error;
        EXPECT_EQ(error.find("SECRET"), std::string::npos) << error;
        EXPECT_EQ(error.find("8D3F"), std::string::npos) << error;
    }
}

TEST(SimProfile, ShippedProfilesParseAndTheDefaultFileIsTheBuiltIn) {
    EXPECT_EQ(simtest::ShippedProfile("default.json"), sim::DefaultProfileJson());
    sim::Profile builtIn, blocked;
    std::string error;
    ASSERT_TRUE(sim::ParseProfile(sim::DefaultProfileJson(), builtIn, &error)) << error;
    ASSERT_TRUE(sim::ParseProfile(simtest::ShippedProfile("blocked-card.json"), blocked, &error)) << error;
    ASSERT_EQ(blocked.readers.size(), 2u);
    EXPECT_EQ(blocked.readers[0].card.pin.triesLeft, 0u);
    EXPECT_FALSE(blocked.readers[1].card.hasUnblockRight);
}

// Brackets open `depth` levels inside the first reader's note.
std::string NestedNote(size_t depth, const std::string& open, const std::string& close) {
    std::string note;
    for (size_t i = 0; i < depth; ++i)
        note += open;
    for (size_t i = 0; i < depth; ++i)
        note += close;
    return R"({"readers":[{"name":"R","description":)" + note + "}]}";
}

TEST(SimProfile, DeepNestingIsRefusedWithoutExhaustingTheStack) {
    const struct {
        std::string json;
        bool accepted;
    } rows[] = {
        {NestedNote(200000, "[", "]"), false},
        {NestedNote(50000, R"({"a":)", "}"), false},
        {NestedNote(200000, "[", ""), false}, // never closed
        {NestedNote(10, R"({"a":[)", "]}"), true},
        // Brackets inside strings are text, also after an escaped quote.
        {NestedNote(1, "[\"\\\"" + std::string(100000, '[') + "\"", "]"), true},
    };
    simtest::FakeCrypto crypto;
    sim::SimController controller(crypto);
    for (const auto& row : rows) {
        sim::Profile profile;
        std::string error;
        EXPECT_EQ(sim::ParseProfile(row.json, profile, &error), row.accepted) << error;
        EXPECT_TRUE(row.accepted || error.find("nested more than") != std::string::npos) << error;
        EXPECT_EQ(controller.LoadProfile(row.json, &error), row.accepted) << error;
    }
}

TEST(SimProfile, AProfileOfManyReadersLoadsEveryReaderInOrder) {
    constexpr int kReaders = 20000;
    std::string json = R"({"readers":[)";
    for (int i = 0; i < kReaders; ++i)
        json += (i ? "," : "") + std::string(R"({"name":"Reader )") + std::to_string(i) +
                R"(","card":{"serial":"0A"}})";
    json += "]}";
    simtest::FakeCrypto crypto;
    sim::SimController controller(crypto);
    for (int load = 0; load < 2; ++load) { // the second load reuses every reader
        std::string error;
        ASSERT_TRUE(controller.LoadProfile(json, &error)) << error;
        const std::vector<NV::SMMW::IReader*> readers = controller.ListReaders();
        ASSERT_EQ(readers.size(), static_cast<size_t>(kReaders));
        EXPECT_EQ(std::wstring(readers.front()->GetName()), L"Reader 0");
        EXPECT_EQ(std::wstring(readers.back()->GetName()), L"Reader " + std::to_wstring(kReaders - 1));
    }
}

} // namespace
