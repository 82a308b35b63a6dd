#include "driver_win.h"

#include <cctype>
#include <chrono>
#include <cstdio>
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

// The first window of the thread for which is() holds; null on time-out or once stop() holds.
HWND WaitForWindow(DWORD thread, const std::function<bool(HWND)>& is, int timeoutMs,
                   const std::function<bool()>& stop = [] { return false; }) {
    HWND found = nullptr;
    WaitUntil(
        [&] {
            ForEachWindow(thread, nullptr, [&](HWND hwnd) { return is(hwnd) && (found = hwnd) != nullptr; });
            return found != nullptr || stop();
        },
        timeoutMs);
    return found;
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

HWND WaitForDialog(const Caller& caller, int timeoutMs) {
    // Dialogs are of the system's dialog class, whose atom is 32770 ("#32770").
    auto isDialog = [](HWND hwnd) { return IsWindowVisible(hwnd) && GetClassLongPtrW(hwnd, GCW_ATOM) == 32770; };
    return WaitForWindow(caller.ThreadId(), isDialog, timeoutMs, [&] { return caller.Finished(); });
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

HWND WaitForDialogOver(DWORD threadId, HWND over, int timeoutMs) {
    return WaitForWindow(threadId, [over](HWND hwnd) { return hwnd != over && IsWindowVisible(hwnd); }, timeoutMs);
}

std::wstring HelpDeskResponse(const std::wstring& challenge, const std::wstring& adminKey) {
    FILE* tool = _wpopen((L"cvhelpdesk.exe " + challenge + L" " + adminKey).c_str(), L"r");
    std::wstring response;  // the tool prints "1A2B 3C4D 5E6F 7081"
    for (int c; tool && (c = fgetc(tool)) != EOF;) {
        if (c == ' ') response += L'-';
        else if (isxdigit(c)) response += static_cast<wchar_t>(c);
    }
    if (tool) _pclose(tool);
    return response;
}

int RemoveCard(const wchar_t* reader) { return CVPinGuiPublishEvent(10002, &kCardEvents, 0, reader); }

int SessionEvent(int code) { return CVPinGuiPublishEvent(10001, &kSessionEvents, code, nullptr); }

ScopedSetting::ScopedSetting(const wchar_t* name, DWORD value) : m_name(name) {
    RegSetKeyValueW(HKEY_CURRENT_USER, kSettingsKey, name, REG_DWORD, &value, sizeof(value));
}

ScopedSetting::ScopedSetting(const wchar_t* name, const wchar_t* value) : m_name(name) {
    RegSetKeyValueW(HKEY_CURRENT_USER, kSettingsKey, name, REG_SZ, value, DWORD((wcslen(value) + 1) * sizeof(wchar_t)));
}

ScopedSetting::~ScopedSetting() { RegDeleteKeyValueW(HKEY_CURRENT_USER, kSettingsKey, m_name.c_str()); }

}  // namespace drv
