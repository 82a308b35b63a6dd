// A C++ object attached to a child control by subclassing: our window procedure replaces the
// control's, which it calls for the control's own behaviour.
#pragma once
#include <windows.h>

namespace fw {

class Control {
public:
    Control() = default;
    virtual ~Control();  // detaches
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    // false when already attached, hwnd is null, or the window's user data is taken.
    bool Attach(HWND hwnd);
    void Detach();
    HWND Hwnd() const { return m_hWnd; }
    // The Control attached to hwnd, or null.
    static Control* FromHandle(HWND hwnd);

protected:
    // Messages of the control; call DefaultProc for the control's own behaviour.
    virtual LRESULT WndProc(UINT message, WPARAM wParam, LPARAM lParam) { return DefaultProc(message, wParam, lParam); }
    LRESULT DefaultProc(UINT message, WPARAM wParam, LPARAM lParam);
    virtual void OnDetached() {}  // the window is going away

    HWND m_hWnd = nullptr;

private:
    struct Hook;
    static LRESULT CALLBACK HookProc(HWND, UINT, WPARAM, LPARAM);

    Hook* m_hook = nullptr;
};

}  // namespace fw
