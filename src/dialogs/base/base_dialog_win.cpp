#include "dialogs/base/base_dialog_win.h"
#include "services/log.h"

CBaseDialog::Impl::Impl(UINT templateId, int colored, const RECT* position, HWND parent)
    : CSecureDialog(templateId, parent), m_colored(colored), m_background(CreateSolidBrush(GetSysColor(COLOR_WINDOW))) {
    if (position) {
        m_x = position->left;
        m_y = position->top;
    }
}

CBaseDialog::Impl::~Impl() = default;

BOOL CBaseDialog::Impl::OnInitDialog() {
    LogScope log(L"CBaseDialog::OnInitDialog");
    OnInitDialogSecure();
    // Always placed, so a dialog built without a position opens at 0,0 unless its class moves it.
    SetWindowPos(m_hWnd, nullptr, m_x, m_y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    return TRUE;
}

bool CBaseDialog::Impl::OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) {
    switch (message) {
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
        if (!m_colored) return false;
        SetBkColor(reinterpret_cast<HDC>(wParam), GetSysColor(COLOR_WINDOW));
        SetBkMode(reinterpret_cast<HDC>(wParam), TRANSPARENT);
        SetTextColor(reinterpret_cast<HDC>(wParam), GetSysColor(COLOR_WINDOWTEXT));
        result = reinterpret_cast<LRESULT>(m_background.Get());
        return true;
    case WM_SYSCOLORCHANGE:
        m_background.Reset(CreateSolidBrush(GetSysColor(COLOR_WINDOW)));
        return false;
    }
    return CSecureDialog::OnMessage(message, wParam, lParam, result);
}

void CBaseDialog::Impl::ResizeDlg(int controlId, int dx, int dy) {
    LogScope log(L"CBaseDialog::ResizeDlg");
    HWND target = controlId == 0 ? m_hWnd : Item(controlId);
    if (!target) return;
    RECT r;
    GetWindowRect(target, &r);
    SetWindowPos(target, nullptr, 0, 0, (r.right - r.left) - dx, (r.bottom - r.top) - dy,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    RedrawWindow(target, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN);
}

void CBaseDialog::Impl::HidePinFromMemory(CSecStr& s) {
    LogScope log(L"CBaseDialog::HidePinFromMemory");
    if (s.IsEmpty()) return;
    int length = s.GetLength();
    SecureWipe(s.GetBuffer(length), sizeof(wchar_t) * length);
    s.ReleaseBuffer(-1);
}
