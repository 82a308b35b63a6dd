#include "framework/control_win.h"

#include <exception>
#include <new>

#include "services/log.h"

namespace fw {

// Kept in the window's user data, where every message finds it without a lookup (a window
// property or comctl32's SetWindowSubclass costs a wineserver round trip per message under
// Wine, several per keystroke). It outlives its Control when a later subclass still calls our
// procedure: then it only passes messages on, until the window is destroyed.
struct Control::Hook {
    WNDPROC previous;
    Control* owner;  // null once the Control let go
};

namespace {

// Where FromHandle finds the wrapper: read when data is exchanged, never per message.
constexpr wchar_t kProperty[] = L"fw.Control";

WNDPROC CurrentProc(HWND hwnd) { return reinterpret_cast<WNDPROC>(GetWindowLongPtrW(hwnd, GWLP_WNDPROC)); }

}  // namespace

Control::~Control() { Detach(); }

bool Control::Attach(HWND hwnd) {
    if (!hwnd || m_hWnd || !IsWindow(hwnd) || FromHandle(hwnd)) return false;
    // The user data belongs to whoever set it first; ours cannot share it.
    if (GetWindowLongPtrW(hwnd, GWLP_USERDATA) != 0) {
        GUILOG(CVLOG_ERROR, L"Control: the window's user data is in use; not attached");
        return false;
    }
    auto* hook = new (std::nothrow) Hook{nullptr, this};
    if (!hook || !SetPropW(hwnd, kProperty, this)) {
        delete hook;
        return false;
    }
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(hook));
    // From here on messages reach HookProc, which needs the previous procedure: set it before
    // the window can see one (subclassing happens on the window's own thread).
    hook->previous = CurrentProc(hwnd);
    m_hWnd = hwnd;
    m_hook = hook;
    if (!SetWindowLongPtrW(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(HookProc))) {
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, 0);
        RemovePropW(hwnd, kProperty);
        delete hook;
        m_hWnd = nullptr;
        m_hook = nullptr;
        return false;
    }
    return true;
}

void Control::Detach() {
    if (!m_hWnd) return;
    m_hook->owner = nullptr;
    // Restoring the previous procedure under a later subclass would cut that one out of the
    // chain: then ours stays and passes everything on.
    if (CurrentProc(m_hWnd) == HookProc) {
        SetWindowLongPtrW(m_hWnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(m_hook->previous));
        SetWindowLongPtrW(m_hWnd, GWLP_USERDATA, 0);
        delete m_hook;
    }
    RemovePropW(m_hWnd, kProperty);
    m_hWnd = nullptr;
    m_hook = nullptr;
}

Control* Control::FromHandle(HWND hwnd) {
    return hwnd ? static_cast<Control*>(GetPropW(hwnd, kProperty)) : nullptr;
}

LRESULT Control::DefaultProc(UINT message, WPARAM wParam, LPARAM lParam) {
    return m_hook ? CallWindowProcW(m_hook->previous, m_hWnd, message, wParam, lParam) : 0;
}

LRESULT CALLBACK Control::HookProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* hook = reinterpret_cast<Hook*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (!hook) return DefWindowProcW(hwnd, message, wParam, lParam);
    Control* self = hook->owner;
    if (message == WM_NCDESTROY) {
        // Last message of the window: the object must not point at it afterwards, whatever
        // happens. Its OnDetached still reaches the control (a secure edit wipes it there).
        if (self) {
            try {
                self->OnDetached();
            } catch (...) {
                GUILOG(CVLOG_ERROR, L"Control: exception while detaching from a destroyed window");
            }
            self->m_hWnd = nullptr;
            self->m_hook = nullptr;
            RemovePropW(hwnd, kProperty);
        }
        const WNDPROC previous = hook->previous;
        if (CurrentProc(hwnd) == HookProc) SetWindowLongPtrW(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(previous));
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, 0);
        delete hook;
        return CallWindowProcW(previous, hwnd, message, wParam, lParam);
    }
    if (self) {
        try {
            return self->WndProc(message, wParam, lParam);
        } catch (...) {
            GUILOG(CVLOG_ERROR, L"Control: exception in the handler of message 0x%04x", message);
        }
    }
    return CallWindowProcW(hook->previous, hwnd, message, wParam, lParam);
}

}  // namespace fw
