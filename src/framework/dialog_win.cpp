#include "framework/dialog_win.h"
#include "framework/resource_icons_win.h"

#include <exception>

#include "framework/control_win.h"
#include "framework/secure_edit_win.h"
#include "services/log.h"
#include "services/secstr.h"

namespace fw {

namespace {

HINSTANCE g_resourceModule = nullptr;

// Messages whose dialog-procedure result is the return value itself, not DWLP_MSGRESULT.
bool ReturnsResultDirectly(UINT message) {
    return (message >= WM_CTLCOLORMSGBOX && message <= WM_CTLCOLORSTATIC) || message == WM_COMPAREITEM ||
           message == WM_VKEYTOITEM || message == WM_CHARTOITEM || message == WM_QUERYDRAGICON ||
           message == WM_INITDIALOG;
}

// The caller's top-level window, which stays disabled while a modal dialog runs: the one above
// the window the caller named. None for a handle that names no window (HWND_MESSAGE among them:
// as a parent it makes the dialog message-only, never seen, and the call never returns) and for a
// window that no longer answers (EnableWindow would wait for it).
HWND CallersWindow(HWND requested) {
    if (!requested || !IsWindow(requested)) return nullptr;
    HWND root = GetAncestor(requested, GA_ROOT);
    if (!root || root == GetDesktopWindow() || IsHungAppWindow(root)) return nullptr;
    return root;
}

// A hidden or minimized owner would take its dialog out of sight (and off the taskbar) with it;
// a message-only window is never visible.
bool MayOwn(HWND window) { return window && IsWindowVisible(window) && !IsIconic(window); }

void LogException(const std::exception* e, UINT templateId, UINT message) {
    GUILOG(CVLOG_ERROR, L"Dialog %u: %S in the handler of message 0x%04x", templateId,
           e ? e->what() : "unknown exception", message);
}

}  // namespace

HINSTANCE ResourceModule() { return g_resourceModule; }

void SetResourceModule(HINSTANCE module) {
    if (module == g_resourceModule) return;
    ReleaseResourceIcons();  // they came from the library being let go
    g_resourceModule = module;
}

std::wstring LoadResString(UINT id, const wchar_t* fallback) {
    const wchar_t* text = nullptr;
    // With a zero buffer size LoadStringW hands out a pointer into the resource itself.
    const int length =
        g_resourceModule ? LoadStringW(g_resourceModule, id, reinterpret_cast<LPWSTR>(&text), 0) : 0;
    if (length > 0 && text) return std::wstring(text, length);
    return fallback ? fallback : L"";
}

Dialog::Dialog(UINT templateId, HWND parent) : m_templateId(templateId), m_hWndParent(parent) {}

Dialog::~Dialog() { DestroyUnhooked(); }

void Dialog::DestroyUnhooked() {
    if (m_hWnd && IsWindow(m_hWnd)) {
        // Unhook first: no handler may run while the object is being torn down.
        SetWindowLongPtrW(m_hWnd, DWLP_USER, 0);
        DestroyWindow(m_hWnd);
    }
    m_hWnd = nullptr;
}

const DLGTEMPLATE* Dialog::FindTemplate() const {
    HINSTANCE module = ResourceModule();
    if (!module) return nullptr;
    HRSRC resource = FindResourceW(module, MAKEINTRESOURCEW(m_templateId), RT_DIALOG);
    HGLOBAL loaded = resource ? LoadResource(module, resource) : nullptr;
    return loaded ? static_cast<const DLGTEMPLATE*>(LockResource(loaded)) : nullptr;
}

bool Dialog::CreateFromTemplate(const DLGTEMPLATE* tmpl, HWND parent) {
    if (!tmpl || m_hWnd) return false;
    HWND hwnd = CreateDialogIndirectParamW(ResourceModule(), tmpl, parent, StaticDialogProc,
                                           reinterpret_cast<LPARAM>(this));
    if (!hwnd) {
        GUILOG(CVLOG_ERROR, L"Dialog %u: creation failed (error %lu)", m_templateId, GetLastError());
        return false;
    }
    m_hWnd = hwnd;
    return true;
}

void Dialog::PreModal() {
    m_modal = true;
    m_ended = false;
    m_modalResult = -1;
    m_disabledParent = nullptr;
    HWND requested = m_hWndParent;
    HWND caller = CallersWindow(requested);
    m_hWndParent = MayOwn(caller) ? caller : nullptr;
    if (requested && m_hWndParent != requested)
        GUILOG(CVLOG_INFO, L"Dialog %u: owner %p replaced by %p", m_templateId, requested, m_hWndParent);
    if (caller && IsWindowEnabled(caller)) {
        EnableWindow(caller, FALSE);
        m_disabledParent = caller;
    }
}

INT_PTR Dialog::RunModalLoop() {
    m_continueModal = !m_ended;
    bool shown = m_hWnd && IsWindowVisible(m_hWnd);
    MSG msg;
    while (m_continueModal && m_hWnd) {
        // Shown once everything queued at creation has been handled: no half-painted window.
        if (!shown && !PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE)) {
            ShowWindow(m_hWnd, SW_SHOWNORMAL);
            UpdateWindow(m_hWnd);
            shown = true;
            continue;
        }
        const BOOL got = GetMessageW(&msg, nullptr, 0, 0);
        if (got == 0 || got == -1) {
            // The host's loop above ours must see the quit request too.
            if (got == 0) PostQuitMessage(static_cast<int>(msg.wParam));
            m_modalResult = -1;
            break;
        }
        if (PreTranslateMessage(msg)) continue;
        if (!m_hWnd || !IsDialogMessageW(m_hWnd, &msg)) {
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
    }
    m_continueModal = false;
    return m_modalResult;
}

void Dialog::EndDialog(INT_PTR result) {
    m_modalResult = result;
    m_ended = true;
    m_continueModal = false;
    // Wakes GetMessage when the call comes from outside a handler of this dialog.
    if (m_hWnd) PostMessageW(m_hWnd, WM_NULL, 0, 0);
}

void Dialog::ModalCleanup() {
    m_continueModal = false;
    m_modal = false;
    const bool wasActive = m_hWnd && GetActiveWindow() == m_hWnd;
    // The parent is enabled before the dialog disappears, so activation returns to it and
    // not to some other application.
    HWND parent = m_disabledParent;
    m_disabledParent = nullptr;
    if (parent && IsWindow(parent)) EnableWindow(parent, TRUE);
    if (m_hWnd) {
        SetWindowPos(m_hWnd, nullptr, 0, 0, 0, 0,
                     SWP_HIDEWINDOW | SWP_NOACTIVATE | SWP_NOZORDER | SWP_NOMOVE | SWP_NOSIZE);
    }
    if (wasActive && MayOwn(parent) && IsWindow(parent)) {
        if (GetWindowThreadProcessId(parent, nullptr) == GetCurrentThreadId()) {
            SetActiveWindow(parent);
        } else {
            SetForegroundWindow(parent);
        }
    }
    if (m_hWnd) DestroyWindow(m_hWnd);
}

INT_PTR Dialog::DoModal() {
    const DLGTEMPLATE* tmpl = FindTemplate();
    if (!tmpl) {
        GUILOG(CVLOG_ERROR, L"Dialog %u: template not found", m_templateId);
        return -1;
    }
    PreModal();
    bool created = CreateFromTemplate(tmpl, m_hWndParent);
    if (!created && m_hWndParent) {
        // A parent that died meanwhile must not cost the user the dialog.
        created = CreateFromTemplate(tmpl, nullptr);
    }
    const INT_PTR result = created ? RunModalLoop() : -1;
    ModalCleanup();
    return result;
}

bool Dialog::CreateChild(HWND parent) {
    if (!parent || m_hWnd) return false;
    m_hWndParent = parent;
    return CreateFromTemplate(FindTemplate(), parent);
}

void Dialog::SetItemText(int id, const wchar_t* text) {
    if (HWND item = Item(id)) SetWindowTextW(item, text ? text : L"");
}

void Dialog::ShowItem(int id, bool show) {
    if (HWND item = Item(id)) ShowWindow(item, show ? SW_SHOW : SW_HIDE);
}

void Dialog::EnableItem(int id, bool enable) {
    if (HWND item = Item(id)) EnableWindow(item, enable ? TRUE : FALSE);
}

bool Dialog::UpdateData(bool save) {
    if (!m_hWnd) return false;
    DataExchange dx{this, save};
    DoDataExchange(dx);
    return true;
}

void Dialog::BindControl(DataExchange& dx, int id, Control& control) {
    if (control.Hwnd()) return;
    if (HWND item = Item(id)) control.Attach(item);
}

BOOL Dialog::OnInitDialog() {
    UpdateData(false);
    return TRUE;
}

bool Dialog::OnCommand(WORD id, WORD code, HWND control) {
    // A button click, or an accelerator (code 1, no control); Escape arrives as IDCANCEL.
    const bool clicked = code == BN_CLICKED || (code == 1 && !control);
    if (!clicked) return false;
    if (id == IDOK) {
        OnOK();
        return true;
    }
    if (id == IDCANCEL) {
        OnCancel();
        return true;
    }
    return false;
}

void Dialog::OnOK() {
    if (UpdateData(true)) EndDialog(IDOK);
}

void Dialog::OnCancel() { EndDialog(IDCANCEL); }

INT_PTR CALLBACK Dialog::StaticDialogProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    Dialog* self = nullptr;
    if (message == WM_INITDIALOG) {
        self = reinterpret_cast<Dialog*>(lParam);
        if (!self) return FALSE;
        SetWindowLongPtrW(hwnd, DWLP_USER, lParam);
        self->m_hWnd = hwnd;
    } else {
        self = reinterpret_cast<Dialog*>(GetWindowLongPtrW(hwnd, DWLP_USER));
    }
    if (!self) return FALSE;  // messages before WM_INITDIALOG (WM_SETFONT) and after WM_NCDESTROY
    try {
        return self->DialogProc(message, wParam, lParam);
    } catch (const std::exception& e) {
        LogException(&e, self->m_templateId, message);
    } catch (...) {
        LogException(nullptr, self->m_templateId, message);
    }
    if (self->m_modal) self->EndDialog(-1);
    return FALSE;
}

INT_PTR Dialog::DialogProc(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG:
        return OnInitDialog();
    case WM_COMMAND:
        return OnCommand(LOWORD(wParam), HIWORD(wParam), reinterpret_cast<HWND>(lParam)) ? TRUE : FALSE;
    case WM_NOTIFY: {
        LRESULT result = 0;
        if (!lParam || !OnNotify(reinterpret_cast<NMHDR*>(lParam), result)) return FALSE;
        SetWindowLongPtrW(m_hWnd, DWLP_MSGRESULT, result);
        return TRUE;
    }
    case WM_TIMER:
        OnTimer(wParam);
        return TRUE;
    case WM_MOVE:
        OnMove(static_cast<short>(LOWORD(lParam)), static_cast<short>(HIWORD(lParam)));
        return TRUE;
    case WM_HELP:
        OnHelp();
        return TRUE;
    case WM_CLOSE:
        OnCancel();
        return TRUE;
    case WM_DESTROY:
        OnDestroy();
        return FALSE;
    case WM_NCDESTROY: {
        HWND hwnd = m_hWnd;
        m_hWnd = nullptr;
        if (hwnd) SetWindowLongPtrW(hwnd, DWLP_USER, 0);
        return FALSE;
    }
    default: {
        LRESULT result = 0;
        if (!OnMessage(message, wParam, lParam, result)) return FALSE;
        if (ReturnsResultDirectly(message)) return static_cast<INT_PTR>(result);
        SetWindowLongPtrW(m_hWnd, DWLP_MSGRESULT, result);
        return TRUE;
    }
    }
}

RECT ChildRect(HWND parent, HWND child) {
    RECT r{};
    if (!child) return r;
    GetWindowRect(child, &r);
    MapWindowPoints(nullptr, parent, reinterpret_cast<POINT*>(&r), 2);
    return r;
}

void DDX_Text(DataExchange& dx, int id, CSecStr& value) {
    HWND item = dx.dialog ? dx.dialog->Item(id) : nullptr;
    if (!item) return;
    if (auto* edit = dynamic_cast<SecureEdit*>(Control::FromHandle(item))) {
        if (dx.save) {
            value = edit->Text();
        } else {
            edit->SetText(value);
        }
        return;
    }
    if (!dx.save) {
        SetWindowTextW(item, value.GetString());
        return;
    }
    // Straight into the secure buffer: no ordinary string ever holds the text.
    value.Empty();
    const int length = GetWindowTextLengthW(item);
    wchar_t* buffer = value.GetBuffer(length > 0 ? length : 0);
    const int copied = length > 0 ? GetWindowTextW(item, buffer, length + 1) : 0;
    value.ReleaseBuffer(copied > 0 ? copied : 0);
}

}  // namespace fw
