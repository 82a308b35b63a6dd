#include "framework/control_win.h"

#include <commctrl.h>

#include <exception>

#include "services/log.h"

namespace fw {

namespace {

// One id for every wrapper: a window carries at most one Control.
constexpr UINT_PTR kSubclassId = 0x46574354;  // "FWCT"
// Where FromHandle finds the wrapper. mingw-w64's comctl32 import library lacks
// GetWindowSubclass, so the pointer is kept in a window property as well.
constexpr wchar_t kProperty[] = L"fw.Control";

}  // namespace

Control::~Control() { Detach(); }

bool Control::Attach(HWND hwnd) {
    if (!hwnd || m_hWnd || !IsWindow(hwnd) || FromHandle(hwnd)) return false;
    if (!SetPropW(hwnd, kProperty, this)) return false;
    if (!SetWindowSubclass(hwnd, SubclassProc, kSubclassId, reinterpret_cast<DWORD_PTR>(this))) {
        RemovePropW(hwnd, kProperty);
        return false;
    }
    m_hWnd = hwnd;
    return true;
}

void Control::Detach() {
    if (!m_hWnd) return;
    RemoveWindowSubclass(m_hWnd, SubclassProc, kSubclassId);
    RemovePropW(m_hWnd, kProperty);
    m_hWnd = nullptr;
}

Control* Control::FromHandle(HWND hwnd) {
    return hwnd ? static_cast<Control*>(GetPropW(hwnd, kProperty)) : nullptr;
}

LRESULT Control::DefaultProc(UINT message, WPARAM wParam, LPARAM lParam) {
    return m_hWnd ? DefSubclassProc(m_hWnd, message, wParam, lParam) : 0;
}

LRESULT CALLBACK Control::SubclassProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR id,
                                       DWORD_PTR ref) {
    auto* self = reinterpret_cast<Control*>(ref);
    if (message == WM_NCDESTROY) {
        // Last message of the window: the object must not point at it afterwards, whatever happens.
        if (self) {
            try {
                self->OnDetached();
            } catch (...) {
                GUILOG(CVLOG_ERROR, L"Control: exception while detaching from a destroyed window");
            }
            self->m_hWnd = nullptr;
        }
        RemoveWindowSubclass(hwnd, SubclassProc, id);
        RemovePropW(hwnd, kProperty);
        return DefSubclassProc(hwnd, message, wParam, lParam);
    }
    if (!self) return DefSubclassProc(hwnd, message, wParam, lParam);
    try {
        return self->WndProc(message, wParam, lParam);
    } catch (...) {
        GUILOG(CVLOG_ERROR, L"Control: exception in the handler of message 0x%04x", message);
    }
    return DefSubclassProc(hwnd, message, wParam, lParam);
}

}  // namespace fw
