// The card object layer on Windows with the real security-module library (the simulator next to
// this test in bin/): the per-card display-notification date in the data cache, also across
// processes, and card removals reaching the event bus.
#include <gtest/gtest.h>
#include <windows.h>
#include <oleauto.h>

#include <memory>
#include <string>
#include <vector>

#include "api/event_sources_win.h"
#include "card/cob_api.h"
#include "card/cv_card_management.h"
#include "card/mw_controller.h"
#include "services/data_cache_win.h"
#include "services/event_bus.h"
#include "self_child_win.h"
#include "smmw_sim.h"

namespace {

const wchar_t kReader1[] = L"Card Test Reader 1";
const wchar_t kReader2[] = L"Card Test Reader 2";
const wchar_t kSerial1[] = L"00CA2D000000A001";
const wchar_t kSerial2[] = L"00CA2D000000A002";
// Reader 1: a PIV card; reader 2: a CAC card.
const char kProfile[] = R"({"readers": [
    {"name": "Card Test Reader 1", "card": {"serial": "00CA2D000000A001", "type": "piv"}},
    {"name": "Card Test Reader 2", "card": {"serial": "00CA2D000000A002", "type": "cac"}}]})";
const wchar_t kDateVariable[] = L"CARD_LAYER_TEST_DATE";
const wchar_t kDateStore[] = L"Software\\Lumetra\\Corvana\\DataCache\\{DE7C1351-5982-43b3-AB97-74D3FCACF684}";

template <class F> F Export(HMODULE module, const char* name) {
    return module ? reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

// The module the layer loaded from bin/, given this test's profile; null when either failed.
HMODULE LoadSimulator() {
    HMODULE module = GetMWController() ? GetModuleHandleW(L"cv.smmw.mwctl.dll") : nullptr;
    auto loadJson = Export<CvSimLoadProfileJsonFn>(module, "CvSimLoadProfileJson");
    return loadJson && loadJson(kProfile) == CVSIM_OK ? module : nullptr;
}

class CardLayerWin : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(sim = LoadSimulator(), nullptr) << "bin\\cv.smmw.mwctl.dll or its profile"; }
    HMODULE sim = nullptr;
};

// Mapped as resources, not loaded as modules of the process; a second start changes nothing.
TEST_F(CardLayerWin, StartsWithItsResourceLibraries) {
    EXPECT_EQ(cvCobAPI_Initialize(), 0u);
    EXPECT_EQ(cvCobAPI_Initialize(), 0u);
    EXPECT_EQ(GetModuleHandleW(L"cvCobAPIrc.dll"), nullptr);
    EXPECT_EQ(GetModuleHandleW(L"cvCobAPIlrc.dll"), nullptr);
    EXPECT_EQ(cvCobAPI_Finalize(), 0u);
}

TEST_F(CardLayerWin, DisplayDateIsKeptPerCardAcrossProcesses) {
    for (const wchar_t* serial : {kSerial1, kSerial2})
        RegDeleteTreeW(HKEY_CURRENT_USER, (std::wstring(kDateStore) + L"\\" + serial).c_str());
    CVReader one(kReader1), two(kReader2);
    EXPECT_EQ(CVCardManagement(one).GetDisplayNotificationDate(), -1);

    // Written by another process, read here.
    const long long date = 1700000000LL + (long long)(GetTickCount64() % 100000);
    SetEnvironmentVariableW(kDateVariable, std::to_wstring(date).c_str());
    EXPECT_EQ(RunSelfChild(L"CardLayerWinChild.DISABLED_WritesTheDateOfTheFirstCard", 60000), 0);
    SetEnvironmentVariableW(kDateVariable, nullptr);
    EXPECT_EQ(CVCardManagement(one).GetDisplayNotificationDate(), date);
    EXPECT_EQ(CVCardManagement(two).GetDisplayNotificationDate(), -1);
    // The record as other users of the data cache see it.
    BYTE stored[64] = {};
    DWORD size = sizeof stored;
    ASSERT_EQ(RegGetValueW(HKEY_CURRENT_USER, (std::wstring(kDateStore) + L"\\" + kSerial1).c_str(),
                           L"DisplayNotificationDate", RRF_RT_REG_BINARY, nullptr, stored, &size),
              ERROR_SUCCESS);
    ASSERT_EQ(size, 24u); // format, element type, lower bound, count; one 64-bit element
    EXPECT_EQ(stored[4], VT_UI8);
    long long element = 0;
    memcpy(&element, stored + 16, 8);
    EXPECT_EQ(element, date);
}

// Run by DisplayDateIsKeptPerCardAcrossProcesses in a process of its own (disabled otherwise).
TEST(CardLayerWinChild, DISABLED_WritesTheDateOfTheFirstCard) {
    wchar_t value[32] = {};
    if (!GetEnvironmentVariableW(kDateVariable, value, 32)) GTEST_SKIP() << "run by another test";
    ASSERT_NE(LoadSimulator(), nullptr);
    CVCardManagement(CVReader(kReader1)).SetDisplayNotificationDate(_wtoi64(value));
}

class RemovalWatcher : public CVDelegateSubscriber {
  public:
    RemovalWatcher() { Subscribe(CV_EVENT_CARD_REMOVED, &CV_SOURCE_CARD_EVENTS); }
    ~RemovalWatcher() override { UnSubscribe(); }
    void HandleEvent(const CVEventInfo* event) override {
        if (event->code == 0) readers.push_back(event->readerName);
    }
    std::vector<std::wstring> readers;
};

TEST_F(CardLayerWin, ACardRemovedInTheModuleReachesTheEventBus) {
    InstallBuiltInEventSources();
    {
        // The bus's first card-removal subscriber makes the layer listen to the module.
        RemovalWatcher watcher;
        auto removeCard = Export<CvSimRemoveCardFn>(sim, "CvSimRemoveCard");
        auto insertCard = Export<CvSimInsertCardFn>(sim, "CvSimInsertCard");
        ASSERT_TRUE(removeCard && insertCard);
        ASSERT_EQ(removeCard(kReader2), CVSIM_OK);
        // The module tells its sinks on the thread that removed the card: no waiting needed.
        EXPECT_EQ(watcher.readers, std::vector<std::wstring>{kReader2});
        ASSERT_EQ(insertCard(kReader2), CVSIM_OK);
        EXPECT_EQ(watcher.readers.size(), 1u);
    }
    RemoveBuiltInEventSources();
}

// The data cache on its own (the display date above is its one record type): no id leads out of
// the store, and only plain values are kept (a string's pointer would be stored otherwise).
TEST(DataCache, RefusesIdsLeavingTheStoreAndElementsThatAreNotValues) {
    std::unique_ptr<NV::DataStore::DataCacheClient> client(NV::DataStore::GetDataCacheClient());
    ASSERT_NE(client, nullptr);
    BSTR store = SysAllocString(L"{CardLayerTest}"), bad = SysAllocString(L"a\\b");
    SAFEARRAY* numbers = SafeArrayCreateVector(VT_I4, 0, 1);
    SAFEARRAY* strings = SafeArrayCreateVector(VT_BSTR, 0, 1);
    EXPECT_EQ(client->SetData(store, bad, store, numbers), E_INVALIDARG);
    EXPECT_EQ(client->SetData(bad, store, store, numbers), E_INVALIDARG);
    EXPECT_EQ(client->SetData(store, store, store, strings), DISP_E_BADVARTYPE);
    EXPECT_EQ(client->GetData(store, store, bad, &numbers), E_INVALIDARG);
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\Lumetra\\Corvana\\DataCache\\{CardLayerTest}");
    SafeArrayDestroy(numbers);
    SafeArrayDestroy(strings);
    SysFreeString(store);
    SysFreeString(bad);
}

} // namespace
