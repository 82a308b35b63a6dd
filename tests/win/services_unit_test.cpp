// The Windows services: settings from the registry, the log file, the session state, registry
// strings and the session-lock event source.
#include <gtest/gtest.h>
#include <windows.h>
#include <wtsapi32.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "api/event_sources_win.h"
#include "services/event_bus.h"
#include "services/log.h"
#include "services/log_win.h"
#include "services/registry_win.h"
#include "services/session_state.h"
#include "services/settings.h"

namespace {

const wchar_t kPolicyKey[] = L"SOFTWARE\\Policies\\Lumetra\\Corvana";
const wchar_t kUserKey[] = L"Software\\Lumetra\\Corvana";
const wchar_t kMachineKey[] = L"SOFTWARE\\Lumetra\\Corvana";
const wchar_t kName[] = L"Corvana.Tests.Services.Value";

// The bytes of a number, or of a string literal with its terminator(s).
template <class T> std::vector<BYTE> Bytes(const T& v) {
    auto p = reinterpret_cast<const BYTE*>(&v);
    return std::vector<BYTE>(p, p + sizeof v);
}

// The registry value kName under root\path for the life of the object.
struct ScopedValue {
    ScopedValue(HKEY root, const wchar_t* path, DWORD type, std::vector<BYTE> data) : root(root), path(path) {
        EXPECT_EQ(RegSetKeyValueW(root, path, kName, type, data.data(), DWORD(data.size())), ERROR_SUCCESS);
    }
    ~ScopedValue() { RegDeleteKeyValueW(root, path, kName); }
    HKEY root;
    const wchar_t* path;
};

struct MapStore : ISettingsStore {
    std::map<std::wstring, CVData> values;
    bool Read(const wchar_t* key, CVData& value) override {
        auto it = values.find(key);
        return it != values.end() && (value = it->second, true);
    }
};

// What GetSettingValue finds for kName: its text, or "-" when nothing usable is there.
std::wstring Lookup() {
    CVData value;
    int notFound = -1;
    const int rc = GetSettingValue(kName, value, &notFound);
    return notFound != (rc != 0) ? L"<notFound is wrong>" : rc ? L"-" : value.AsString();
}

struct Listener : CVDelegateSubscriber {
    std::vector<int> codes;
    void HandleEvent(const CVEventInfo* e) override { codes.push_back(e->code); }
    void Listen() { Subscribe(CV_EVENT_SESSION_STATE, &CV_SOURCE_SESSION_STATE); }
    void Stop() { UnSubscribe(); }
};
int g_opened = 0; // log file opens

HWND NotificationWindow() {
    return FindWindowExW(HWND_MESSAGE, nullptr, L"Corvana.PinGui.SessionNotifications", nullptr);
}
} // namespace

TEST(Settings, FirstLocationHoldingAUsableValueWins) {
    ScopedValue machine(HKEY_LOCAL_MACHINE, kMachineKey, REG_SZ, Bytes(L"machine"));
    ScopedValue badUser(HKEY_CURRENT_USER, kUserKey, REG_BINARY, Bytes(DWORD(1)));
    EXPECT_EQ(Lookup(), L"machine"); // a value of an unusable type hides nothing
    ScopedValue user(HKEY_CURRENT_USER, kUserKey, REG_SZ, Bytes(L"user"));
    EXPECT_EQ(Lookup(), L"user");
    ScopedValue policy(HKEY_LOCAL_MACHINE, kPolicyKey, REG_SZ, Bytes(L"policy"));
    EXPECT_EQ(Lookup(), L"policy");
}

TEST(Settings, TypesMapToValuesAndOnlyTheIntegerOneIsOn) {
    SetEnvironmentVariableW(L"CV_SERVICES_TEST", L"expanded");
    // Type, data, what the lookup finds, IsSettingOn, ReadIntegerSetting(kName, -5).
    const std::tuple<DWORD, std::vector<BYTE>, const wchar_t*, bool, long long> cases[] = {
        {REG_DWORD, Bytes(DWORD(1)), L"", true, 1},
        {REG_QWORD, Bytes(ULONGLONG(1)), L"", true, 1},
        {REG_DWORD, Bytes(DWORD(0xFFFFFFFF)), L"", false, 0xFFFFFFFFLL},
        {REG_QWORD, Bytes(ULONGLONG(0x100000001ULL)), L"", false, 0x100000001LL},
        {REG_SZ, Bytes(L"1"), L"1", false, -5},
        {REG_EXPAND_SZ, Bytes(L"%CV_SERVICES_TEST%\\x"), L"expanded\\x", false, -5},
        {REG_MULTI_SZ, Bytes(L"a\0b\0"), L"-", false, -5},
    };
    for (const auto& [type, data, lookup, on, integer] : cases) {
        SCOPED_TRACE(type);
        ScopedValue v(HKEY_CURRENT_USER, kUserKey, type, data);
        EXPECT_EQ(Lookup(), lookup);
        EXPECT_EQ(IsSettingOn(kName), on);
        EXPECT_EQ(ReadIntegerSetting(kName, -5), integer);
    }
}

// A path no file system takes costs one attempt, not one per line; a corrected one is used at once.
TEST(LogFile, WritesOnlyTheEnabledLevelsInTheLineFormatAndRetriesOnlyACorrectedPath) {
    MapStore store;
    store.values[L"Corvana.Logging.File"] = CVData::FromString(L"C:\\" + std::wstring(2040, L'x') + L"\\a.log");
    store.values[L"Corvana.Logging.Levels"] = CVData::FromInteger(0x1F);
    SetSettingsStore(&store);
    SetLogFileOpener([](const wchar_t* path) {
        ++g_opened;
        return OpenLogFile(path);
    });
    ReloadLogSettings();
    for (int i = 0; i < 200; ++i)
        GUILOG(CVLOG_ERROR, L"line %d", i);
    EXPECT_EQ(g_opened, 1);

    const auto dir = std::filesystem::temp_directory_path() / "cvpin-log-test";
    const auto file = dir / "new folder" / "test.log"; // the folder is made on demand
    store.values[L"Corvana.Logging.File"] = CVData::FromString(file.wstring());
    for (int mask : {0x1, 0x4, 0x1A}) {
        store.values[L"Corvana.Logging.Levels"] = CVData::FromInteger(mask);
        ReloadLogSettings();
        SetLastError(ERROR_ACCESS_DENIED);
        for (int level : {0, 1, 2, 8, 16})
            GUILOG(level, L"mask %x level %d \u00e9", mask, level);
    }
    EXPECT_EQ(GetLastError(), DWORD(ERROR_ACCESS_DENIED)); // callers report it next
    EXPECT_EQ(g_opened, 6); // one per line written
    // This process, the level (again in the text), UTF-8, and CR LF at the end.
    const std::regex re(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )" + std::to_string(GetCurrentProcessId()) +
                        R"( \d+ NVPINGUI (\d+) mask (\w+) level \1 \xC3\xA9\r)");
    std::string line, written;
    for (std::ifstream in(file, std::ios::binary); std::getline(in, line);) {
        std::smatch m;
        EXPECT_TRUE(std::regex_match(line, m, re)) << line;
        written += m.str(2) + ":" + m.str(1) + " ";
    }
    EXPECT_EQ(written, "1:1 4:0 1a:2 1a:8 1a:16 ");
    SetLogFileOpener(nullptr);
    SetSettingsStore(nullptr);
    ReloadLogSettings();
    std::filesystem::remove_all(dir);
}

// A host's provider that reports a locked session is used by the prompt tests.
TEST(SessionState, AFailingHostProviderCountsAsUnlocked) {
    SetSessionStateProvider([](unsigned*) { return 5; });
    EXPECT_FALSE(IsWorkstationLocked()); // a failing source counts as unlocked
    SetSessionStateProvider(nullptr);
    EXPECT_FALSE(IsWorkstationLocked()); // the test's session is not locked (and Wine cannot tell)
    EXPECT_NE(GetSessionState(nullptr), 0);
}

TEST(Registry, StringReadsStayInsideTheBufferAndAreTerminated) {
    ScopedValue v(HKEY_CURRENT_USER, kUserKey, REG_SZ, Bytes(L"abcdef"));
    auto read = [](const wchar_t* name, wchar_t* buffer, DWORD capacity, DWORD* chars) {
        return nvRegReadStringValueEx(HKEY_CURRENT_USER, kUserKey, name, buffer, capacity, chars);
    };
    const std::tuple<DWORD, LONG, const wchar_t*> cases[] = {
        {7, ERROR_SUCCESS, L"abcdef"}, {6, ERROR_MORE_DATA, L"abcde"}, {1, ERROR_MORE_DATA, L""}};
    for (const auto& [capacity, rc, text] : cases) {
        SCOPED_TRACE(capacity);
        std::wstring buffer(20, L'#');
        DWORD chars = 99;
        EXPECT_EQ(read(kName, &buffer[0], capacity, &chars), rc);
        EXPECT_STREQ(buffer.c_str(), text);
        EXPECT_EQ(chars, wcslen(text));
        EXPECT_EQ(buffer.substr(capacity), std::wstring(20 - capacity, L'#')) << "written past the end";
    }
    wchar_t buffer[8];
    DWORD chars;
    EXPECT_EQ(read(kName, nullptr, 8, &chars), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(read(kName, buffer, 0, &chars), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(read(kName, buffer, 8, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_NE(read(L"Corvana.Tests.Missing", buffer, 8, &chars), ERROR_SUCCESS);
    EXPECT_STREQ(buffer, L"");
}

TEST(SessionEvents, ALockIsPublishedWhileSomeoneListens) {
    InstallBuiltInEventSources();
    Listener listener;
    listener.Listen();
    ASSERT_NE(NotificationWindow(), nullptr);
    SendMessageW(NotificationWindow(), WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK, 0);
    SendMessageW(NotificationWindow(), WM_WTSSESSION_CHANGE, WTS_SESSION_LOCK, 0);
    EXPECT_EQ(listener.codes, std::vector<int>{CV_SESSION_CODE_LOCKING});
    listener.Stop();
    EXPECT_EQ(NotificationWindow(), nullptr);

    // The last listener may leave on another thread: the window then closes on its own one.
    listener.Listen();
    std::thread([&] { listener.Stop(); }).join();
    for (MSG msg; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);)
        DispatchMessageW(&msg);
    EXPECT_EQ(NotificationWindow(), nullptr);
    RemoveBuiltInEventSources();
}
