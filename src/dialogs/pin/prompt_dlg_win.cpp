#include "dialogs/pin/prompt_dlg_win.h"
#include <string>
#include "framework/resource_icons_win.h"
#include "resource_ids.h"
#include "services/help_display_win.h"
#include "services/log.h"
#include "services/settings.h"

CPromptDlg::CPromptDlg(const wchar_t* className, UINT templateId, UINT iconId, HWND parent,
                       const wchar_t* readerName)
    : CVDetectCardRemovedDlg(templateId, parent, readerName), m_className(className), m_iconId(iconId) {
    GUILOG(CVLOG_ENTRY, L"%s", m_className);
    GUILOG(CVLOG_INFO, L"%s: pParent = %x, Reader = %s", m_className, (unsigned)(UINT_PTR)parent,
           ReaderName().GetString());
    m_lockWatcher = std::make_unique<CVDelegateSubscriberWorkstationLocked>(this);
    GUILOG(CVLOG_EXIT, L"%s", m_className);
}

CPromptDlg::~CPromptDlg() {
    GUILOG(CVLOG_ENTRY, L"~%s", m_className);
    m_lockWatcher.reset();
}

INT_PTR CPromptDlg::DoModal() {
    const DLGTEMPLATE* tmpl = FindTemplate();
    if (!tmpl) {
        GUILOG(CVLOG_ERROR, L"%s::DoModal: dialog template %u not found", m_className, TemplateId());
        return -1;
    }
    PreModal();
    // These lines carry the help operation's name: log readers search for them so.
    GUILOG(CVLOG_INFO, L"%s::OnContextualHelp: this:%p,hWndParent:%p,m_hWnd:%p,hInst:%p", m_className, this,
           m_hWndParent, m_hWnd, fw::ResourceModule());
    GUILOG(CVLOG_INFO, L"%s::OnContextualHelp: CreateDlgIndirect with hWndParent", m_className);
    bool created = CreateFromTemplate(tmpl, m_hWndParent);
    if (!created) {
        GUILOG(CVLOG_INFO, L"%s::OnContextualHelp: Now try to CreateDlgIndirect with NULL", m_className);
        created = CreateFromTemplate(tmpl, nullptr);
    }
    INT_PTR result = -1;
    if (created) {
        GUILOG(CVLOG_INFO, L"%s::OnContextualHelp: CreateDlgIndirect success (Flags 0x%x, m_hWnd:%p)", m_className,
               (unsigned)GetWindowLongW(m_hWnd, GWL_STYLE), m_hWnd);
        result = RunModalLoop();
    }
    ModalCleanup();
    return result;
}

BOOL CPromptDlg::OnInitDialog() {
    CVDetectCardRemovedDlg::OnInitDialog();
    static_assert(IDC_PIN_ICON == IDC_KP_ICON, "every prompt template has its icon under one id");
    fw::SetItemIcon(m_hWnd, IDC_PIN_ICON, m_iconId);
    SetItemText(IDC_READER_NAME, ReaderName().GetString());
    if (!GetDisplayHelpValue()) HideHelpButton();
    return TRUE;
}

bool CPromptDlg::OnCommand(WORD id, WORD code, HWND control) {
    if (id == IDC_HELP_BUTTON && code == BN_CLICKED) {
        OnContextualHelp();
        return true;
    }
    return CVDetectCardRemovedDlg::OnCommand(id, code, control);
}

// Without a help file there is no Help button; the buttons before it close up to the edge.
void CPromptDlg::HideHelpButton() {
    HWND help = Item(IDC_HELP_BUTTON);
    if (!help) return;
    RECT helpRect;
    GetWindowRect(help, &helpRect);
    ShowWindow(help, SW_HIDE);
    HWND cancel = Item(IDCANCEL);
    if (!cancel) return;
    RECT cancelRect;
    GetWindowRect(cancel, &cancelRect);
    int dx = helpRect.left - cancelRect.left;
    for (int id : {IDOK, IDCANCEL}) {
        HWND button = Item(id);
        if (!button) continue;
        RECT r;
        GetWindowRect(button, &r);
        MapWindowPoints(nullptr, m_hWnd, reinterpret_cast<POINT*>(&r), 2);
        SetWindowPos(button, nullptr, r.left + dx, r.top, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
}

void CPromptDlg::OnContextualHelp() {
    GUILOG(CVLOG_ENTRY, L"%s::OnContextualHelp", m_className);
    DoDisplayTopic(HELP_TOPIC_PIN_PROMPT);
}

void CPromptDlg::BringToFront() {
    SetForegroundWindow(m_hWnd);
    // The templates create the prompts topmost already; re-stacking a window costs a round
    // trip to the window system on every prompt.
    if (!(GetWindowLongW(m_hWnd, GWL_EXSTYLE) & WS_EX_TOPMOST))
        SetWindowPos(m_hWnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
}

bool CPromptDlg::GetBrandingBitmaps(std::wstring& path) {
    GUILOG(CVLOG_ENTRY, L"%s::GetBrandingBitmaps", m_className);
    return ReadStringSetting(L"SecurityModuleMW.AuthenticationDialog.BannerHiRes", path);
}

void CPromptDlg::TryToInsertBitmap() {
    GUILOG(CVLOG_ENTRY, L"%s::TryToInsertBitmap", m_className);
    ShowItem(IDC_BANNER_PICTURE, false);
    ShowItem(IDC_SECOND_PICTURE, false);
    std::wstring path;
    HWND placeholder = Item(IDC_BANNER_PLACEHOLDER);
    if (!GetBrandingBitmaps(path) || path.empty() || !placeholder) return;
    m_banner.Reset(static_cast<HBITMAP>(LoadImageW(nullptr, path.c_str(), IMAGE_BITMAP, 0, 0, LR_LOADFROMFILE)));
    HWND picture = Item(IDC_BANNER_PICTURE);
    if (m_banner && picture) {
        ShowWindow(placeholder, SW_HIDE);
        MakeRoomForBanner(placeholder);
        // STM_SETIMAGE may hand back a copy the control made; that one is ours to delete.
        HGDIOBJ previous = reinterpret_cast<HGDIOBJ>(
            SendMessageW(picture, STM_SETIMAGE, IMAGE_BITMAP, reinterpret_cast<LPARAM>(m_banner.Get())));
        if (previous && previous != m_banner.Get()) DeleteObject(previous);
        RECT client;
        GetClientRect(placeholder, &client);
        SetWindowPos(picture, nullptr, 0, 0, client.right, client.bottom, SWP_NOMOVE | SWP_NOZORDER);
    }
    ShowItem(IDC_BANNER_PICTURE, m_banner.Get() != nullptr);
}

namespace {
struct BandShift {
    HWND dialog;
    int height;
};
bool IsBannerControl(int id) {
    return id == IDC_BANNER_PLACEHOLDER || id == IDC_BANNER_PICTURE || id == IDC_SECOND_PICTURE;
}
BOOL CALLBACK MoveBelowBand(HWND child, LPARAM lParam) {
    auto* shift = reinterpret_cast<BandShift*>(lParam);
    if (GetParent(child) != shift->dialog || IsBannerControl(GetDlgCtrlID(child))) return TRUE;
    const RECT r = fw::ChildRect(shift->dialog, child);
    SetWindowPos(child, nullptr, r.left, r.top + shift->height, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    return TRUE;
}
}  // namespace

// The templates leave no room for a banner, as most sites have none; with one, the rest of the
// dialog moves down below it.
void CPromptDlg::MakeRoomForBanner(HWND placeholder) {
    RECT band;
    GetClientRect(placeholder, &band);
    BandShift shift = {m_hWnd, band.bottom};
    if (shift.height <= 0) return;
    EnumChildWindows(m_hWnd, MoveBelowBand, reinterpret_cast<LPARAM>(&shift));
    RECT frame;
    GetWindowRect(m_hWnd, &frame);
    // Still centred where the template asked for it.
    SetWindowPos(m_hWnd, nullptr, frame.left, frame.top - shift.height / 2, frame.right - frame.left,
                 frame.bottom - frame.top + shift.height, SWP_NOZORDER | SWP_NOACTIVATE);
}
