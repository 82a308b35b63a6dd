// The session-lock source. Windows reports a lock to a window registered for session
// notifications; that window lives on the thread of the first subscriber (a dialog's thread,
// which pumps messages), so the library needs no thread of its own.
#include "api/event_sources_win.h"

#include "card/card_removal_events.h"
#include "services/event_bus.h"
#include "services/log.h"

#include <windows.h>
#include <wtsapi32.h>

#include <mutex>

namespace {

const wchar_t kWindowClass[] = L"Corvana.PinGui.SessionNotifications";
// Asks the window to unregister and destroy itself on its own thread.
constexpr UINT kCloseRequest = WM_APP + 1;

HMODULE CodeModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(reinterpret_cast<void*>(&CodeModule)), &module);
    return module;
}

void CloseOnOwnThread(HWND window) {
    WTSUnRegisterSessionNotification(window);
    DestroyWindow(window);
}

LRESULT CALLBACK NotificationWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_WTSSESSION_CHANGE:
        if (wParam == WTS_SESSION_LOCK) {
            GUILOG(CVLOG_INFO, L"Session locked: closing the prompts");
            PublishEvent(CV_EVENT_SESSION_STATE, &CV_SOURCE_SESSION_STATE, CV_SESSION_CODE_LOCKING, L"");
        }
        return 0;
    case kCloseRequest:
        CloseOnOwnThread(window);
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

class SessionStateSource : public IEventSourceHooks {
  public:
    void OnFirstSubscriber(int eventId, const CVGuid& source) override {
        // Card removals come from the security module, which the card layer listens to once
        // for the process; it stays subscribed when the audience leaves.
        if (eventId == CV_EVENT_CARD_REMOVED && source == CV_SOURCE_CARD_EVENTS) {
            StartCardRemovalEvents();
            return;
        }
        if (!IsSessionState(eventId, source)) return;
        std::lock_guard<std::mutex> lock(m_mutex);
        // Counted rather than flagged: should the bus report a new first subscriber before
        // the previous last-gone, the window stays instead of closing under a listener.
        if (++m_audiences > 1 || m_window) return;
        if (!RegisterClassOnce()) return;
        HWND window =
            CreateWindowExW(0, kWindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, m_module, nullptr);
        if (!window) {
            GUILOG(CVLOG_ERROR, L"Session notifications: CreateWindowExW failed (%lu)", GetLastError());
            return;
        }
        if (!WTSRegisterSessionNotification(window, NOTIFY_FOR_THIS_SESSION))
            GUILOG(CVLOG_ERROR, L"WTSRegisterSessionNotification failed (%lu)", GetLastError());
        m_window = window;
        m_owner = GetCurrentThreadId();
    }

    void OnLastSubscriberGone(int eventId, const CVGuid& source) override {
        if (!IsSessionState(eventId, source)) return;
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_audiences > 0 && --m_audiences > 0) return;
        CloseWindowLocked();
    }

    void Shutdown() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_audiences = 0;
        CloseWindowLocked();
        // Fails while a window of another thread still waits to close; it then stays
        // registered for this process, and the next registration replaces it.
        if (m_classRegistered && UnregisterClassW(kWindowClass, m_module)) m_classRegistered = false;
    }

  private:
    static bool IsSessionState(int eventId, const CVGuid& source) {
        return eventId == CV_EVENT_SESSION_STATE && source == CV_SOURCE_SESSION_STATE;
    }

    void CloseWindowLocked() {
        HWND window = m_window;
        if (!window) return;
        m_window = nullptr;
        if (GetCurrentThreadId() == m_owner) {
            CloseOnOwnThread(window);
            return;
        }
        // Windows die with their thread, and a handle may then be reused: ask only a window
        // that still belongs to the thread that made ours.
        if (GetWindowThreadProcessId(window, nullptr) == m_owner) PostMessageW(window, kCloseRequest, 0, 0);
    }

    bool RegisterClassOnce() {
        if (m_classRegistered) return true;
        m_module = CodeModule();
        WNDCLASSEXW wc = {};
        wc.cbSize = sizeof wc;
        wc.lpfnWndProc = NotificationWindowProc;
        wc.hInstance = m_module;
        wc.lpszClassName = kWindowClass;
        // A DLL's classes outlive it: an earlier load of this library at the same address may
        // have left one whose procedure is gone. Replace it.
        if (!RegisterClassExW(&wc) && GetLastError() == ERROR_CLASS_ALREADY_EXISTS) {
            UnregisterClassW(kWindowClass, m_module);
            RegisterClassExW(&wc);
        }
        WNDCLASSEXW check = {};
        check.cbSize = sizeof check;
        m_classRegistered =
            GetClassInfoExW(m_module, kWindowClass, &check) && check.lpfnWndProc == NotificationWindowProc;
        if (!m_classRegistered)
            GUILOG(CVLOG_ERROR, L"Session notifications: RegisterClassExW failed (%lu)", GetLastError());
        return m_classRegistered;
    }

    std::mutex m_mutex;
    HMODULE m_module = nullptr;
    bool m_classRegistered = false;
    int m_audiences = 0;
    HWND m_window = nullptr;
    DWORD m_owner = 0;
};

// Never destroyed: the event bus, which outlives static destructors, may still call the hooks.
SessionStateSource& TheSessionStateSource() {
    static SessionStateSource* source = new SessionStateSource;
    return *source;
}

} // namespace

void InstallBuiltInEventSources() {
    SetEventSourceHooks(&TheSessionStateSource());
}

void RemoveBuiltInEventSources() {
    SetEventSourceHooks(nullptr);
    TheSessionStateSource().Shutdown();
}
