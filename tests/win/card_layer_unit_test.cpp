// The card object layer on Windows with the real security-module library (the simulator next to
// this test in bin/): the display-notification date kept in the data cache across processes, and
// card removals reaching the event bus.
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

const wchar_t kReader[] = L"Card Test Reader";
const wchar_t kSerial[] = L"00CA2D000000A001";
const char kProfile[] = R"({"readers": [{"name": "Card Test Reader", "card": {"serial": "00CA2D000000A001"}}]})";
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

// Which card a date belongs to is checked natively; here it outlives the process that wrote it.
TEST_F(CardLayerWin, DisplayDateIsKeptAcrossProcesses) {
    const std::wstring store = std::wstring(kDateStore) + L"\\" + kSerial;
    RegDeleteTreeW(HKEY_CURRENT_USER, store.c_str());
    EXPECT_EQ(CVCardManagement(CVReader(kReader)).GetDisplayNotificationDate(), -1);
    const long long date = 1700000000LL + (long long)(GetTickCount64() % 100000);
    SetEnvironmentVariableW(kDateVariable, std::to_wstring(date).c_str());
    EXPECT_EQ(RunSelfChild(L"CardLayerWinChild.DISABLED_WritesTheDate", 60000), 0);
    SetEnvironmentVariableW(kDateVariable, nullptr);
    EXPECT_EQ(CVCardManagement(CVReader(kReader)).GetDisplayNotificationDate(), date);
    // The record as other users of the data cache see it.
    BYTE stored[64] = {};
    DWORD size = sizeof stored;
    ASSERT_EQ(RegGetValueW(HKEY_CURRENT_USER, store.c_str(), L"DisplayNotificationDate", RRF_RT_REG_BINARY, nullptr,
                           stored, &size),
              ERROR_SUCCESS);
    ASSERT_EQ(size, 24u); // format, element type, lower bound, count; one 64-bit element
    EXPECT_EQ(stored[4], VT_UI8);
    long long element = 0;
    memcpy(&element, stored + 16, 8);
    EXPECT_EQ(element, date);
}

// Run by DisplayDateIsKeptAcrossProcesses in a process of its own (disabled otherwise).
TEST(CardLayerWinChild, DISABLED_WritesTheDate) {
    wchar_t value[32] = {};
    if (!GetEnvironmentVariableW(kDateVariable, value, 32)) GTEST_SKIP() << "run by another test";
    ASSERT_NE(LoadSimulator(), nullptr);
    CVCardManagement(CVReader(kReader)).SetDisplayNotificationDate(_wtoi64(value));
}

struct RemovalWatcher : CVDelegateSubscriber {
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
        ASSERT_NE(removeCard, nullptr);
        ASSERT_EQ(removeCard(kReader), CVSIM_OK);
        // The module tells its sinks on the thread that removed the card: no waiting needed.
        EXPECT_EQ(watcher.readers, std::vector<std::wstring>{kReader});
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
