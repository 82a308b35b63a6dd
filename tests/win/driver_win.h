// Drives the library's dialogs from a second thread, as a user would: find the window the call
// opened, type into it, click its buttons, pull the card out, lock the session.
#pragma once
#include <windows.h>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include "cvpingui.h"

namespace drv {

constexpr int kTimeoutMs = 15000;

// Polls cond until it holds or the time-out passes.
bool WaitUntil(const std::function<bool()>& cond, int timeoutMs = kTimeoutMs);

// Runs a call of the library on its own thread (the caller's UI thread in real life).
class Caller {
public:
    explicit Caller(std::function<int()> call);
    ~Caller() {
        if (m_thread.joinable()) m_thread.join();
    }
    DWORD ThreadId() const { return m_threadId.load(); }
    bool Finished() const { return m_done.load(); }
    // Waits for the call to return; false on time-out.
    bool Wait(int timeoutMs = kTimeoutMs) {
        return WaitUntil([this] { return m_done.load(); }, timeoutMs);
    }
    int Result() const { return m_result.load(); }

private:
    std::atomic<DWORD> m_threadId{0};
    std::atomic<bool> m_done{false};
    std::atomic<int> m_result{0x7fffffff};
    std::thread m_thread;
};

// The first visible dialog window of the thread; null on time-out (or when the call ends).
HWND WaitForDialog(const Caller& caller, int timeoutMs = kTimeoutMs);

// A call with the first dialog it showed (null when none did), cancelled by the end of the
// object's life if still open.
class Opened : public Caller {
public:
    explicit Opened(std::function<int()> call) : Caller(std::move(call)), dialog(WaitForDialog(*this)) {}
    ~Opened();
    // The call's result once it has returned; kNoResult when it does not return in time.
    int Finish() { return Wait() ? Result() : kNoResult; }
    static constexpr int kNoResult = 0x7fffffff;
    const HWND dialog;
};

inline void TypeChar(HWND edit, wchar_t ch) { SendMessageW(edit, WM_CHAR, ch, 1); }
inline void TypeText(HWND edit, const wchar_t* text) {
    for (; *text; ++text) TypeChar(edit, *text);
}
inline void Backspace(HWND edit) { TypeChar(edit, VK_BACK); }
// Clicks like a mouse: nothing happens on a disabled button.
inline void Click(HWND dialog, int id) { SendMessageW(GetDlgItem(dialog, id), BM_CLICK, 0, 0); }
inline Opened::~Opened() {
    if (!Finished() && dialog) Click(dialog, IDCANCEL);
}
// Enter/Escape the way a keyboard does (through the dialog's message loop, to the control with
// the focus); returns when the dialog's thread has handled them.
void PressKey(HWND dialog, UINT vk);
inline bool IsItemEnabled(HWND dialog, int id) { return IsWindowEnabled(GetDlgItem(dialog, id)); }
inline bool IsItemVisible(HWND dialog, int id) { return IsWindowVisible(GetDlgItem(dialog, id)); }
std::wstring ItemText(HWND dialog, int id);
// A control anywhere under top (in child forms too), by its id; null when there is none.
HWND FindDescendant(HWND top, int id);

// Clicks without waiting for what the click opens (a sent click would wait for a nested dialog).
inline void ClickAway(HWND dialog, int id) { PostMessageW(GetDlgItem(dialog, id), BM_CLICK, 0, 0); }
// A visible window of the thread other than `over` (a nested dialog or a message box); null on
// time-out.
HWND WaitForDialogOver(DWORD threadId, HWND over, int timeoutMs = kTimeoutMs);
// The help desk's response to challenge (as shown, in groups) for the card with administrator
// key adminKey, computed by the help desk's own tool, with "-" between its groups as a user
// might type it; empty when the tool failed.
std::wstring HelpDeskResponse(const std::wstring& challenge, const std::wstring& adminKey);

int RemoveCard(const wchar_t* reader);
int SessionEvent(int code);

// A setting in HKCU\Software\Lumetra\Corvana for the life of the object.
class ScopedSetting {
public:
    ScopedSetting(const wchar_t* name, DWORD value);
    ScopedSetting(const wchar_t* name, const wchar_t* value);
    ~ScopedSetting();

private:
    std::wstring m_name;
};

// The session reads as locked for the life of the object.
struct LockedSession {
    LockedSession() { CVPinGuiSetSessionStateProvider([](unsigned* state) { return static_cast<int>(*state = 0); }); }
    ~LockedSession() { CVPinGuiSetSessionStateProvider(nullptr); }
};

}  // namespace drv
