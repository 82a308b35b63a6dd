#include "driver_win.h"

#include <cctype>
#include <chrono>
#include "cvpingui.h"

namespace drv {

namespace {
const wchar_t kSettingsKey[] = L"Software\\Lumetra\\Corvana";
const GUID kCardEvents = {0xE9F60E34, 0xE16C, 0x4C33, {0xA5, 0xF0, 0xAA, 0x46, 0xDB, 0x99, 0xCA, 0x32}};
const GUID kSessionEvents = {0xF0C38807, 0x4D99, 0x4004, {0x8C, 0x00, 0x7C, 0x1E, 0xA1, 0x49, 0x23, 0x5D}};

// Calls visit for each window of the thread (or each child of a window) until it returns true.
template <class Visit>
void ForEachWindow(DWORD thread, HWND parent, Visit visit) {
    auto step = [](HWND hwnd, LPARAM lParam) -> BOOL { return !(*reinterpret_cast<Visit*>(lParam))(hwnd); };
    if (parent) EnumChildWindows(parent, step, reinterpret_cast<LPARAM>(&visit));
    else EnumThreadWindows(thread, step, reinterpret_cast<LPARAM>(&visit));
}
}  // namespace

bool WaitUntil(const std::function<bool()>& cond, int timeoutMs) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > end) return false;
        // Windows of this thread (a test's owner window) must answer the dialog meanwhile.
        MSG msg;
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
        Sleep(5);  // polling interval, not synchronisation: the condition decides
    }
    return true;
}

Caller::Caller(std::function<int()> call)
    : m_thread([this, call] {
          m_threadId.store(GetCurrentThreadId());
          m_result.store(call());
          m_done.store(true);
      }) {
    WaitUntil([this] { return m_threadId.load() != 0; });
}

Caller::~Caller() {
    if (m_thread.joinable()) m_thread.join();
}

bool Caller::Wait(int timeoutMs) { return WaitUntil([this] { return m_done.load(); }, timeoutMs); }

HWND WaitForDialog(const Caller& caller, int timeoutMs) {
    HWND found = nullptr;
    WaitUntil(
        [&] {
            ForEachWindow(caller.ThreadId(), nullptr, [&](HWND hwnd) {
                wchar_t cls[32] = {};
                GetClassNameW(hwnd, cls, 32);
                if (IsWindowVisible(hwnd) && wcscmp(cls, L"#32770") == 0) found = hwnd;
                return found != nullptr;
            });
            return found != nullptr || caller.Finished();
        },
        timeoutMs);
    return found;
}

Opened::~Opened() {
    if (!Finished() && dialog) Click(dialog, IDCANCEL);
}

void TypeChar(HWND edit, wchar_t ch) { SendMessageW(edit, WM_CHAR, ch, 1); }

void TypeText(HWND edit, const wchar_t* text) {
    for (; *text; ++text) TypeChar(edit, *text);
}

void Click(HWND dialog, int id) {
    if (HWND button = GetDlgItem(dialog, id)) SendMessageW(button, BM_CLICK, 0, 0);
}

void PressKey(HWND dialog, UINT vk) {
    HWND target = GetDlgItem(dialog, 3049);  // the focus is in the PIN field when there is one
    GUITHREADINFO info = {sizeof(info)};
    if (!target && GetGUIThreadInfo(GetWindowThreadProcessId(dialog, nullptr), &info)) target = info.hwndFocus;
    if (!target) target = dialog;
    PostMessageW(target, WM_KEYDOWN, vk, 1);
    PostMessageW(target, WM_KEYUP, vk, 0xC0000001);
    // A sent message is handled only after the posted ones ahead of it have been dispatched.
    DWORD_PTR ignored;
    SendMessageTimeoutW(dialog, WM_NULL, 0, 0, SMTO_BLOCK, 2000, &ignored);
}

HWND FindDescendant(HWND top, int id) {
    HWND found = nullptr;
    ForEachWindow(0, top, [&](HWND hwnd) {
        if (GetDlgCtrlID(hwnd) == id) found = hwnd;
        return found != nullptr;
    });
    return found;
}

std::wstring ItemText(HWND dialog, int id) {
    wchar_t text[512] = {};
    GetDlgItemTextW(dialog, id, text, 512);
    return text;
}

void ClickAway(HWND dialog, int id) { PostMessageW(GetDlgItem(dialog, id), BM_CLICK, 0, 0); }

HWND WaitForDialogOver(DWORD threadId, HWND over, int timeoutMs) {
    struct Search {
        HWND over, found;
    } search{over, nullptr};
    WaitUntil(
        [&] {
            search.found = nullptr;
            EnumThreadWindows(
                threadId,
                [](HWND w, LPARAM s) {
                    auto* search = reinterpret_cast<Search*>(s);
                    if (w != search->over && IsWindowVisible(w)) search->found = w;
                    return TRUE;
                },
                reinterpret_cast<LPARAM>(&search));
            return search.found != nullptr;
        },
        timeoutMs);
    return search.found;
}

std::wstring HelpDeskResponse(const std::wstring& challenge, const std::wstring& adminKey) {
    std::wstring command = L"cvhelpdesk.exe " + challenge + L" " + adminKey;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return L"";
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = writeEnd;
    PROCESS_INFORMATION process{};
    const BOOL started = CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                                        nullptr, &startup, &process);
    CloseHandle(writeEnd);
    std::string output;
    char buffer[128];
    DWORD read = 0;
    while (started && ReadFile(readEnd, buffer, sizeof buffer, &read, nullptr) && read > 0) output.append(buffer, read);
    if (started) {
        WaitForSingleObject(process.hProcess, 30000);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    CloseHandle(readEnd);
    std::wstring response;  // "1A2B 3C4D 5E6F 7081"
    for (char c : output) {
        if (c == ' ') response += L'-';
        else if (isxdigit(static_cast<unsigned char>(c))) response += static_cast<wchar_t>(c);
    }
    return response;
}

int RemoveCard(const wchar_t* reader) { return CVPinGuiPublishEvent(10002, &kCardEvents, 0, reader); }

int SessionEvent(int code) { return CVPinGuiPublishEvent(10001, &kSessionEvents, code, nullptr); }

ScopedSetting::ScopedSetting(const wchar_t* name, DWORD value) : m_name(name) {
    RegSetKeyValueW(HKEY_CURRENT_USER, kSettingsKey, name, REG_DWORD, &value, sizeof(value));
}

ScopedSetting::ScopedSetting(const wchar_t* name, const wchar_t* value) : m_name(name) {
    RegSetKeyValueW(HKEY_CURRENT_USER, kSettingsKey, name, REG_SZ, value,
                    static_cast<DWORD>((wcslen(value) + 1) * sizeof(wchar_t)));
}

ScopedSetting::~ScopedSetting() { RegDeleteKeyValueW(HKEY_CURRENT_USER, kSettingsKey, m_name.c_str()); }

LockedSession::LockedSession() {
    CVPinGuiSetSessionStateProvider([](unsigned* state) { return static_cast<int>(*state = 0); });
}
LockedSession::~LockedSession() { CVPinGuiSetSessionStateProvider(nullptr); }

}  // namespace drv
