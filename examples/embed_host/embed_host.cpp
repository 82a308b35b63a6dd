// A caller's program that embeds the PIN change form of cv.corvana.gui.pin.dll in a window of
// its own, built from the library's public headers alone. The form enables the window's OK
// button while the PINs may be accepted; OK takes the PINs with GetChangePINInfoFromUser_s (the
// form's, nothing more is shown), Cancel or closing the window does not.
//
// Exit code: 0 the PINs were taken; 1 cancelled; 2 the form could not be created; 3 the PINs
// were refused; 4 the form's window outlived the form.
#include <windows.h>
#include <cvpingui.h>
#include <cvpingui_change_pin_dlg.h>

namespace {

const wchar_t kClassName[] = L"CvPinEmbedHost";
const int kMargin = 10;
const int kButtonWidth = 80;
const int kButtonHeight = 26;

CChangePINDialog* g_form = nullptr;
HWND g_formWindow = nullptr;
int g_exitCode = 1;

int TakePins(HWND window) {
    wchar_t current[64], next[64];
    unsigned currentLength = 0, nextLength = 0;
    // The rule arguments do not matter here: the form's own rules decide.
    const unsigned rc = GetChangePINInfoFromUser_s(0, 1, CVPIN_NO_LENGTH_RULE, CVPIN_NO_LENGTH_RULE, 0, 0, next, 64,
                                                   &nextLength, current, 64, &currentLength, L"", window, 1,
                                                   nullptr, nullptr, 0);
    // A real host would change the card's PIN here.
    SecureZeroMemory(current, sizeof current);
    SecureZeroMemory(next, sizeof next);
    return rc == 0 ? 0 : 3;
}

HWND AddButton(HWND window, int id, const wchar_t* text, DWORD style, int x, int y) {
    return CreateWindowExW(0, L"BUTTON", text, WS_CHILD | WS_VISIBLE | WS_TABSTOP | style, x, y, kButtonWidth,
                           kButtonHeight, window, reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), nullptr, nullptr);
}

// The form, then OK and Cancel under it; the window fits them.
bool CreateContent(HWND window) {
    HWND ok = AddButton(window, IDOK, L"OK", BS_DEFPUSHBUTTON | WS_DISABLED, 0, 0);
    HWND cancel = AddButton(window, IDCANCEL, L"Cancel", BS_PUSHBUTTON, 0, 0);
    const PwdRuleArgs rules = {/*digits only*/ 1, /*allow weak*/ 0, /*same PIN*/ 0, /*min*/ 4, /*max*/ 8, 0};
    const RECT position = {kMargin, kMargin, 0, 0};
    g_form = new CChangePINDialog(0, 0, /*current PIN*/ true, &position, &rules, ok, window, 15, 0, 6, nullptr,
                                  nullptr, 0);
    if (!g_form || !g_form->LocCreate(window)) return false;
    g_formWindow = g_form->GetSafeHwnd();
    ShowWindow(g_formWindow, SW_SHOW);

    RECT form;
    GetWindowRect(g_formWindow, &form);
    MapWindowPoints(nullptr, window, reinterpret_cast<POINT*>(&form), 2);
    const int y = form.bottom + kMargin;
    const int right = form.right > 2 * kButtonWidth + kMargin ? form.right : 2 * kButtonWidth + kMargin;
    SetWindowPos(cancel, nullptr, right - kButtonWidth, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
    SetWindowPos(ok, nullptr, right - 2 * kButtonWidth - kMargin / 2, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER);

    RECT frame = {0, 0, right + kMargin, y + kButtonHeight + kMargin};
    AdjustWindowRectEx(&frame, GetWindowLongW(window, GWL_STYLE), FALSE, GetWindowLongW(window, GWL_EXSTYLE));
    SetWindowPos(window, nullptr, 0, 0, frame.right - frame.left, frame.bottom - frame.top,
                 SWP_NOMOVE | SWP_NOZORDER);
    return true;
}

LRESULT CALLBACK HostProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_CREATE:
        if (!CreateContent(window)) {
            g_exitCode = 2;
            return -1;
        }
        return 0;
    case WM_COMMAND:
        if (LOWORD(wParam) == IDOK) {
            g_exitCode = TakePins(window);
            DestroyWindow(window);
        } else if (LOWORD(wParam) == IDCANCEL) {
            DestroyWindow(window);
        }
        return 0;
    case WM_DESTROY:
        delete g_form;  // destroys the form's window now, before the system takes the children
        g_form = nullptr;
        if (g_formWindow && IsWindow(g_formWindow)) g_exitCode = 4;
        PostQuitMessage(g_exitCode);
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

}  // namespace

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR, int show) {
    WNDCLASSW wc = {};
    wc.lpfnWndProc = HostProc;
    wc.hInstance = instance;
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    wc.lpszClassName = kClassName;
    RegisterClassW(&wc);
    HWND window = CreateWindowExW(WS_EX_CONTROLPARENT, kClassName, L"Change your PIN", WS_OVERLAPPEDWINDOW,
                                  CW_USEDEFAULT, CW_USEDEFAULT, 400, 400, nullptr, nullptr, instance, nullptr);
    if (!window) return g_exitCode;
    ShowWindow(window, show);

    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
        if (IsDialogMessageW(window, &msg)) continue;  // Tab between the fields, Enter, Escape
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
    return static_cast<int>(msg.wParam);
}
