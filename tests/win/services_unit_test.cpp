// The Windows services: settings from the registry, the log file, the session state, message
// boxes, registry strings and the session-lock event source.
#include <gtest/gtest.h>
#include <windows.h>
#include <wtsapi32.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "services/event_bus.h"
#include "services/event_sources_win.h"
#include "services/help_display_win.h"
#include "services/load_library_win.h"
#include "services/log.h"
#include "services/log_win.h"
#include "services/msgbox_win.h"
#include "services/registry_win.h"
#include "services/session_state.h"
#include "services/settings.h"

namespace {

const wchar_t kPolicyKey[] = L"SOFTWARE\\Policies\\Lumetra\\Corvana";
const wchar_t kUserKey[] = L"Software\\Lumetra\\Corvana";
const wchar_t kMachineKey[] = L"SOFTWARE\\Lumetra\\Corvana";
const wchar_t kName[] = L"Corvana.Tests.Services.Value";

std::vector<BYTE> Text(const wchar_t* s) {
    auto p = reinterpret_cast<const BYTE*>(s);
    return std::vector<BYTE>(p, p + (wcslen(s) + 1) * sizeof(wchar_t));
}
template <class T> std::vector<BYTE> Number(T v) {
    auto p = reinterpret_cast<const BYTE*>(&v);
    return std::vector<BYTE>(p, p + sizeof v);
}

// Polls cond until it holds or timeoutMs pass.
bool WaitUntil(const std::function<bool()>& cond, int timeoutMs = 15000) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > end) return false;
        Sleep(5); // the polling interval; the condition decides
    }
    return true;
}

// One registry value for the life of the object.
class ScopedValue {
  public:
    ScopedValue(HKEY root, const wchar_t* path, const wchar_t* name, DWORD type,
                const std::vector<BYTE>& data)
        : m_root(root), m_path(path), m_name(name),
          m_ok(RegSetKeyValueW(root, path, name, type, data.data(), DWORD(data.size())) == ERROR_SUCCESS) {}
    ~ScopedValue() { RegDeleteKeyValueW(m_root, m_path.c_str(), m_name.c_str()); }
    bool Ok() const { return m_ok; }

  private:
    HKEY m_root;
    std::wstring m_path, m_name;
    bool m_ok;
};

class MapStore : public ISettingsStore {
  public:
    std::map<std::wstring, CVData> values;
    bool Read(const wchar_t* key, CVData& value) override {
        auto it = values.find(key);
        if (it == values.end()) return false;
        value = it->second;
        return true;
    }
};

class CaptureSink : public ILogSink {
  public:
    void Write(const wchar_t*, int level, const wchar_t* line) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.emplace_back(level, line);
    }
    bool Has(int level, const std::wstring& line) {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& l : m_lines)
            if (l.first == level && l.second == line) return true;
        return false;
    }

  private:
    std::mutex m_mutex;
    std::vector<std::pair<int, std::wstring>> m_lines;
};

} // namespace

TEST(Settings, FirstLocationHoldingAUsableValueWins) {
    const std::vector<BYTE> binary = {1, 0, 0, 0};
    struct Case {
        DWORD policyType; // REG_NONE: absent
        bool user, machine;
        const wchar_t* expected; // nullptr: not found
    } cases[] = {
        {REG_SZ, true, true, L"policy"},     {REG_NONE, true, true, L"user"},
        {REG_NONE, false, true, L"machine"}, {REG_BINARY, true, true, L"user"},
        {REG_NONE, false, false, nullptr},
    };
    for (const Case& c : cases) {
        std::vector<std::unique_ptr<ScopedValue>> values;
        if (c.policyType != REG_NONE)
            values.emplace_back(new ScopedValue(HKEY_LOCAL_MACHINE, kPolicyKey, kName, c.policyType,
                                                c.policyType == REG_SZ ? Text(L"policy") : binary));
        if (c.user)
            values.emplace_back(new ScopedValue(HKEY_CURRENT_USER, kUserKey, kName, REG_SZ, Text(L"user")));
        if (c.machine)
            values.emplace_back(
                new ScopedValue(HKEY_LOCAL_MACHINE, kMachineKey, kName, REG_SZ, Text(L"machine")));
        for (const auto& v : values)
            ASSERT_TRUE(v->Ok());

        CVData value;
        int notFound = -1;
        int rc = GetSettingValue(kName, value, &notFound);
        if (!c.expected) {
            EXPECT_NE(rc, 0);
            EXPECT_EQ(notFound, 1);
            continue;
        }
        EXPECT_EQ(rc, 0) << c.expected;
        EXPECT_EQ(notFound, 0);
        EXPECT_EQ(value.AsString(), c.expected);
    }
}

TEST(Settings, RegistryTypesMapToValuesAndOnlyTheIntegerOneIsOn) {
    SetEnvironmentVariableW(L"CV_SERVICES_TEST", L"expanded");
    const wchar_t multi[] = L"a\0b\0";
    struct Case {
        DWORD type;
        std::vector<BYTE> data;
        bool found, on;
        long long integer;   // the answer of ReadIntegerSetting(kName, -5)
        const wchar_t* text; // nullptr: not a string
    } cases[] = {
        {REG_DWORD, Number<DWORD>(1), true, true, 1, nullptr},
        {REG_QWORD, Number<ULONGLONG>(1), true, true, 1, nullptr},
        {REG_DWORD, Number<DWORD>(0), true, false, 0, nullptr},
        {REG_DWORD, Number<DWORD>(2), true, false, 2, nullptr},
        {REG_DWORD, Number<DWORD>(0xFFFFFFFF), true, false, 0xFFFFFFFFLL, nullptr},
        {REG_QWORD, Number<ULONGLONG>(0x100000001ULL), true, false, 0x100000001LL, nullptr},
        {REG_SZ, Text(L"1"), true, false, -5, L"1"},
        {REG_EXPAND_SZ, Text(L"%CV_SERVICES_TEST%\\x"), true, false, -5, L"expanded\\x"},
        {REG_BINARY, Number<DWORD>(1), false, false, -5, nullptr},
        {REG_MULTI_SZ, std::vector<BYTE>((const BYTE*)multi, (const BYTE*)multi + sizeof multi), false, false,
         -5, nullptr},
    };
    for (const Case& c : cases) {
        ScopedValue v(HKEY_CURRENT_USER, kUserKey, kName, c.type, c.data);
        ASSERT_TRUE(v.Ok());
        CVData value;
        int notFound = -1;
        EXPECT_EQ(GetSettingValue(kName, value, &notFound) == 0, c.found) << "type " << c.type;
        EXPECT_EQ(notFound, c.found ? 0 : 1);
        EXPECT_EQ(IsSettingOn(kName), c.on) << "type " << c.type;
        EXPECT_EQ(ReadIntegerSetting(kName, -5), c.integer) << "type " << c.type;
        std::wstring text;
        EXPECT_EQ(ReadStringSetting(kName, text), c.text != nullptr);
        EXPECT_EQ(text, c.text ? c.text : L"");
    }
    EXPECT_FALSE(IsSettingOn(kName));
    EXPECT_FALSE(IsSettingOn(nullptr));
}

TEST(Settings, AStoreOfTheHostReplacesTheRegistryUntilReset) {
    ScopedValue v(HKEY_CURRENT_USER, kUserKey, kName, REG_DWORD, Number<DWORD>(3));
    MapStore store;
    store.values[kName] = CVData::FromInteger(1);
    SetSettingsStore(&store);
    EXPECT_TRUE(IsSettingOn(kName));
    SetSettingsStore(nullptr);
    EXPECT_EQ(ReadIntegerSetting(kName, 0), 3);
}

class LogFile : public ::testing::Test {
  protected:
    void SetUp() override {
        wchar_t temp[MAX_PATH];
        GetTempPathW(MAX_PATH, temp);
        m_dir = std::wstring(temp) + L"cvpin-log-" + std::to_wstring(GetCurrentProcessId());
        m_file = m_dir + L"\\new folder\\test.log";
        m_store.values[L"Corvana.Logging.File"] = CVData::FromString(m_file);
        SetSettingsStore(&m_store);
    }
    void TearDown() override {
        SetSettingsStore(nullptr);
        ReloadLogSettings();
        DeleteFileW(m_file.c_str());
        RemoveDirectoryW((m_dir + L"\\new folder").c_str());
        RemoveDirectoryW(m_dir.c_str());
    }
    void SetLevels(long long mask) { m_store.values[L"Corvana.Logging.Levels"] = CVData::FromInteger(mask); }
    // The file's lines; one without its CR LF ending does not match the line format.
    std::vector<std::string> Lines() {
        std::vector<std::string> lines;
        std::ifstream in(std::filesystem::path(m_file), std::ios::binary);
        for (std::string line; std::getline(in, line);)
            lines.push_back(!line.empty() && line.back() == '\r' ? line.substr(0, line.size() - 1)
                                                                 : line + "\n");
        return lines;
    }

    MapStore m_store;
    std::wstring m_dir, m_file;
};

TEST_F(LogFile, WritesOnlyTheEnabledLevelsInTheLineFormat) {
    struct Case {
        long long mask;
        std::set<int> written;
    } cases[] = {{0x1, {1}}, {0x4, {0}}, {0x1A, {2, 8, 16}}, {0, {}}};
    const std::regex format(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} (\d+) (\d+) NVPINGUI (\d+) (.*)$)");
    for (const Case& c : cases) {
        DeleteFileW(m_file.c_str());
        SetLevels(c.mask);
        ReloadLogSettings();
        for (int level : {0, 1, 2, 8, 16}) {
            SetLastError(ERROR_ACCESS_DENIED);
            GUILOG(level, L"level %d \u00e9 %s", level, L"wide");
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED)); // callers report it next
        }
        std::set<int> written;
        for (const std::string& line : Lines()) {
            std::smatch m;
            ASSERT_TRUE(std::regex_match(line, m, format)) << line;
            EXPECT_EQ(std::stoul(m[1]), GetCurrentProcessId());
            EXPECT_EQ(std::stoul(m[2]), GetCurrentThreadId());
            int level = std::stoi(m[3]);
            EXPECT_EQ(m[4].str(), "level " + std::to_string(level) + " \xC3\xA9 wide");
            written.insert(level);
        }
        EXPECT_EQ(written, c.written) << "mask " << c.mask;
    }
}

TEST_F(LogFile, PicksUpChangedSettingsWithoutBeingAsked) {
    SetLevels(0);
    ReloadLogSettings();
    GUILOG(CVLOG_ERROR, L"dropped");
    SetLevels(0x1);
    EXPECT_TRUE(WaitUntil(
        [&] {
            GUILOG(CVLOG_ERROR, L"probe");
            return !Lines().empty();
        },
        5000));
    for (const std::string& line : Lines())
        EXPECT_EQ(line.find("dropped"), std::string::npos);
}

namespace {
int WINAPI ReportLocked(unsigned* state) {
    *state = 0;
    return 0;
}
int WINAPI FailWithoutAnswer(unsigned*) {
    return 5;
}
} // namespace

TEST(SessionState, AHostProviderDecidesUntilReset) {
    unsigned state = 7;
    SetSessionStateProvider(ReportLocked);
    EXPECT_EQ(GetSessionState(&state), 0);
    EXPECT_EQ(state, 0u);
    EXPECT_TRUE(IsWorkstationLocked());
    SetSessionStateProvider(FailWithoutAnswer);
    EXPECT_FALSE(IsWorkstationLocked()); // a failing source counts as unlocked
    SetSessionStateProvider(nullptr);
    state = 7;
    GetSessionState(&state);
    EXPECT_EQ(state, 7u); // the test's session is not locked (and Wine cannot tell)
    EXPECT_FALSE(IsWorkstationLocked());
    EXPECT_NE(GetSessionState(nullptr), 0);
}

namespace {
std::wstring g_boxArgs;
int TestMessageBox(HWND, const wchar_t* text, const wchar_t* reader, int topic, UINT type) {
    g_boxArgs =
        std::wstring(text) + L"|" + reader + L"|" + std::to_wstring(topic) + L"|" + std::to_wstring(type);
    return IDRETRY;
}
} // namespace

TEST(MessageBoxService, AHandlerTakesOverUntilReset) {
    SetMessageBoxHandler(TestMessageBox);
    EXPECT_EQ(CVErrMesDisplayExWithParentParamAndReaderAndHelp(nullptr, L"text", L"R1", 42, MB_OKCANCEL),
              IDRETRY);
    EXPECT_EQ(g_boxArgs, L"text|R1|42|1");
    SetMessageBoxHandler(nullptr);
}

TEST(MessageBoxService, ShowsTheReaderAndOpensTheHelpTopic) {
    ScopedValue help(HKEY_LOCAL_MACHINE, kMachineKey, L"HelpPath", REG_SZ, Text(L"C:\\missing\\help.chm"));
    if (!help.Ok()) GTEST_SKIP() << "HKLM is not writable";
    CaptureSink log;
    SetLogSink(&log);
    bool hasHelp = false, helped = false;
    std::thread user([&] {
        HWND box = nullptr;
        WaitUntil([&] {
            box = FindWindowW(L"#32770", L"Corvana - Reader 1");
            return box && IsWindowVisible(box);
        });
        if (!box) return;
        hasHelp = GetDlgItem(box, IDHELP) != nullptr;
        // F1 rather than the Help button: Wine's message box ignores a click on Help (and
        // MB_TOPMOST, so that is not checked here either).
        HELPINFO hi = {sizeof hi, HELPINFO_WINDOW, 0, box, 0, {0, 0}};
        SendMessageW(box, WM_HELP, 0, reinterpret_cast<LPARAM>(&hi));
        helped = log.Has(CVLOG_INFO, L"Displaying topic 77");
        PostMessageW(box, WM_COMMAND, IDCANCEL, 0);
    });
    int result = CVErrMesDisplayExWithParentParamAndReaderAndHelp(nullptr, L"Remove the card", L"Reader 1",
                                                                  77, MB_OKCANCEL | MB_ICONWARNING);
    user.join();
    SetLogSink(nullptr);
    EXPECT_EQ(result, IDCANCEL);
    EXPECT_TRUE(hasHelp);
    EXPECT_TRUE(helped);
    EXPECT_NE(GetModuleHandleW(L"hhctrl.ocx"), nullptr); // the topic went to the help viewer
    EXPECT_TRUE(log.Has(CVLOG_INFO,
                        L"DoDisplayTopic: nvRegReadStringValueEx(SOFTWARE\\Lumetra\\Corvana, HelpPath) "
                        L"returned C:\\missing\\help.chm"));
    EXPECT_TRUE(log.Has(CVLOG_EXIT, L"GetDisplayHelpValue (1)"));
}

TEST(Registry, StringReadsStayInsideTheBufferAndAreTerminated) {
    ScopedValue v(HKEY_CURRENT_USER, kUserKey, kName, REG_SZ, Text(L"abcdef"));
    ASSERT_TRUE(v.Ok());
    struct Case {
        DWORD capacity;
        LONG rc;
        const wchar_t* text;
    } cases[] = {{16, ERROR_SUCCESS, L"abcdef"},
                 {7, ERROR_SUCCESS, L"abcdef"},
                 {6, ERROR_MORE_DATA, L"abcde"},
                 {1, ERROR_MORE_DATA, L""}};
    for (const Case& c : cases) {
        wchar_t buffer[20];
        wmemset(buffer, L'#', 20);
        DWORD chars = 99;
        EXPECT_EQ(nvRegReadStringValueEx(HKEY_CURRENT_USER, kUserKey, kName, buffer, c.capacity, &chars),
                  c.rc);
        EXPECT_STREQ(buffer, c.text);
        EXPECT_EQ(chars, wcslen(c.text));
        for (DWORD i = c.capacity; i < 20; ++i)
            ASSERT_EQ(buffer[i], L'#') << "written past capacity " << c.capacity;
    }
    wchar_t buffer[8];
    DWORD chars;
    struct Args {
        HKEY root;
        const wchar_t *subKey, *name;
        wchar_t* buffer;
        DWORD capacity;
        DWORD* chars;
    } invalid[] = {
        {nullptr, kUserKey, kName, buffer, 8, &chars},
        {HKEY_CURRENT_USER, nullptr, kName, buffer, 8, &chars},
        {HKEY_CURRENT_USER, kUserKey, nullptr, buffer, 8, &chars},
        {HKEY_CURRENT_USER, kUserKey, kName, nullptr, 8, &chars},
        {HKEY_CURRENT_USER, kUserKey, kName, buffer, 0, &chars},
        {HKEY_CURRENT_USER, kUserKey, kName, buffer, 8, nullptr},
    };
    for (const Args& a : invalid)
        EXPECT_EQ(nvRegReadStringValueEx(a.root, a.subKey, a.name, a.buffer, a.capacity, a.chars),
                  ERROR_INVALID_PARAMETER);
    EXPECT_NE(
        nvRegReadStringValueEx(HKEY_CURRENT_USER, kUserKey, L"Corvana.Tests.Missing", buffer, 8, &chars),
        ERROR_SUCCESS);
    EXPECT_STREQ(buffer, L"");
}

TEST(LibraryLoader, AMissingLibraryThrowsWithTheReason) {
    HMODULE module = reinterpret_cast<HMODULE>(1);
    try {
        LoadLibrarySync(L"no-such-library.dll", &module, 0);
        FAIL() << "no exception";
    } catch (const NV::Middleware::CMWException& e) {
        EXPECT_EQ(e.GetError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    }
    EXPECT_EQ(module, nullptr);
    EXPECT_EQ(ThisModule(), GetModuleHandleW(nullptr)); // the code of this test is in the .exe
}

namespace {
class Listener : public CVDelegateSubscriber {
  public:
    int codes = 0, lastCode = 0;
    void HandleEvent(const CVEventInfo* e) override { ++codes, lastCode = e->code; }
    void Listen() { Subscribe(CV_EVENT_SESSION_STATE, &CV_SOURCE_SESSION_STATE); }
    void Stop() { UnSubscribe(); }
};
HWND NotificationWindow() {
    return FindWindowExW(HWND_MESSAGE, nullptr, L"Corvana.PinGui.SessionNotifications", nullptr);
}
void Pump() {
    for (MSG msg; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);)
        DispatchMessageW(&msg);
}
} // namespace

TEST(SessionEvents, ALockIsPublishedWhileSomeoneListens) {
    InstallBuiltInEventSources();
    Listener listener;
    listener.Listen();
    HWND window = NotificationWindow();
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(GetWindowThreadProcessId(window, nullptr), GetCurrentThreadId());
    SendMessageW(window, WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK, 0);
    EXPECT_EQ(listener.codes, 0);
    SendMessageW(window, WM_WTSSESSION_CHANGE, WTS_SESSION_LOCK, 0);
    EXPECT_EQ(listener.codes, 1);
    EXPECT_EQ(listener.lastCode, CV_SESSION_CODE_LOCKING);
    listener.Stop();
    EXPECT_EQ(NotificationWindow(), nullptr);

    // The last listener may leave on another thread: the window then closes on its own one.
    listener.Listen();
    std::thread([&] { listener.Stop(); }).join();
    EXPECT_TRUE(WaitUntil([] {
        Pump();
        return NotificationWindow() == nullptr;
    }));
    RemoveBuiltInEventSources();
}
