// A C++ object attached to a child control by subclassing (comctl32 SetWindowSubclass).
#pragma once
#include <windows.h>

namespace fw {

class Control {
public:
    Control() = default;
    virtual ~Control();  // detaches
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    bool Attach(HWND hwnd);  // false when already attached or hwnd is null
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
    static LRESULT CALLBACK SubclassProc(HWND, UINT, WPARAM, LPARAM, UINT_PTR, DWORD_PTR);
};

}  // namespace fw
