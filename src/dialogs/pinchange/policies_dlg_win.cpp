#include "dialogs/pinchange/policies_dlg_win.h"
#include "dialogs/pinchange/rule_box_layout.h"
#include "resource_ids.h"
#include "services/log.h"

namespace {

HICON LoadRuleIcon(UINT id) {
    // Shared: the system owns it, so neither this dialog nor a copy of it has to free it.
    HINSTANCE module = fw::ResourceModule();
    return module ? static_cast<HICON>(LoadImageW(module, MAKEINTRESOURCEW(id), IMAGE_ICON, 16, 16, LR_SHARED))
                  : nullptr;
}

std::wstring LengthText(UINT id, int length) {
    std::wstring format = fw::LoadResString(id);
    wchar_t text[256];
    if (swprintf(text, 256, format.c_str(), length) < 0) return format;
    return text;
}

// Row order of the layout, and the control pairs of each row.
struct RowControls {
    int text;
    int icon;
};
const RowControls kStack[pinrules::kStackCount] = {
    {IDC_RULE_MIN_TEXT, IDC_RULE_MIN_ICON},     {IDC_RULE_MAX_TEXT, IDC_RULE_MAX_ICON},
    {IDC_RULE_WEAK_TEXT, IDC_RULE_WEAK_ICON},   {IDC_RULE_SAME_TEXT, IDC_RULE_SAME_ICON},
    {IDC_RULE_ALPHA_TEXT, IDC_RULE_ALPHA_ICON}, {IDC_RULE_CONFIRM_TEXT, IDC_RULE_CONFIRM_ICON},
};

RECT ChildRect(HWND parent, HWND child) {
    RECT r;
    GetWindowRect(child, &r);
    MapWindowPoints(nullptr, parent, reinterpret_cast<POINT*>(&r), 2);
    return r;
}

}  // namespace

CVPoliciesDlg::Impl::Impl(const PwdRuleArgs* rules, int mode, const RECT* position, HWND parent, int topMargin,
                          int leftShift, int rowSpacing)
    : CBaseDialog::Impl(IDD_PIN_RULES, mode, position, parent),
      nTopMargin(topMargin),
      nLeftShift(leftShift),
      nRowSpacing(rowSpacing) {
    LogScope log(L"CVPoliciesDlg::CVPoliciesDlg");
    if (rules)
        m_rules = pinrules::MakeRuleSet(rules->bPreventAlphaPIN, rules->bAllowWeakPIN, rules->bPreventSamePIN,
                                        rules->dwMinPINLen, rules->dwMaxPINLen);
    m_metIcon = LoadRuleIcon(IDI_RULE_MET);
    m_unmetIcon = LoadRuleIcon(IDI_RULE_UNMET);
}

CVPoliciesDlg::Impl::~Impl() { GUILOG(CVLOG_ENTRY, L"CVPoliciesDlg::~CVPoliciesDlg"); }

int CVPoliciesDlg::Impl::LocCreate(HWND parent) {
    LogScope log(L"CVPoliciesDlg::LocCreate");
    return CreateChild(parent) ? 1 : 0;
}

BOOL CVPoliciesDlg::Impl::OnInitDialog() {
    LogScope log(L"CVPoliciesDlg::OnInitDialog");
    BOOL result = CBaseDialog::Impl::OnInitDialog();
    for (int i = 0; i < pinrules::kStackCount; ++i) {
        m_rowText[i] = Item(kStack[i].text);
        m_rowIcon[i] = Item(kStack[i].icon);
    }
    std::wstring title = fw::LoadResString(IDS_RULES_TITLE);
    if (!title.empty()) SetItemText(IDC_RULE_BOX, title.c_str());
    PutPoliciesInBox();
    return result;
}

bool CVPoliciesDlg::Impl::VerifyAndUpdatePolicies(CSecStr current, CSecStr candidate, CSecStr newPin, CSecStr confirm) {
    LogScope log(L"CVPoliciesDlg::VerifyAndUpdatePolicies");
    using namespace pinrules;
    const Outcome out = Evaluate(m_rules, current, candidate, newPin, confirm);
    const RowOutcome* row = out.rows;
    SetMinPINLen(row[kMinLength].visible ? static_cast<int>(m_rules.minLength) : -1, row[kMinLength].visible,
                 row[kMinLength].met);
    SetMaxPINLen(row[kMaxLength].visible ? static_cast<int>(m_rules.maxLength) : -1, row[kMaxLength].visible,
                 row[kMaxLength].met);
    SetPreventSamePIN(row[kSamePin].visible, row[kSamePin].met);
    SetWeakPIN(row[kWeakPin].visible, row[kWeakPin].met);
    SetAlphaPIN(row[kAlphabetic].visible, row[kAlphabetic].met);
    SetConfirmPIN(row[kConfirmation].met);
    if (m_hWnd) {
        if (HWND box = Item(IDC_RULE_BOX); box && !IsWindowEnabled(box)) EnableWindow(box, TRUE);
        ShowWindow(m_hWnd, SW_SHOW);
    }
    for (CSecStr* s : {&current, &candidate, &newPin, &confirm}) HidePinFromMemory(*s);
    return out.allMet;
}

void CVPoliciesDlg::Impl::SetMinPINLen(int length, bool visible, bool met) {
    SetRow(IDC_RULE_MIN_TEXT, IDC_RULE_MIN_ICON, LengthText(IDS_RULE_MIN_LENGTH, length), visible, met);
}

void CVPoliciesDlg::Impl::SetMaxPINLen(int length, bool visible, bool met) {
    SetRow(IDC_RULE_MAX_TEXT, IDC_RULE_MAX_ICON, LengthText(IDS_RULE_MAX_LENGTH, length), visible, met);
}

void CVPoliciesDlg::Impl::SetWeakPIN(bool visible, bool met) {
    SetRow(IDC_RULE_WEAK_TEXT, IDC_RULE_WEAK_ICON, fw::LoadResString(IDS_RULE_WEAK), visible, met);
}

void CVPoliciesDlg::Impl::SetPreventSamePIN(bool visible, bool met) {
    SetRow(IDC_RULE_SAME_TEXT, IDC_RULE_SAME_ICON, fw::LoadResString(IDS_RULE_SAME), visible, met);
}

void CVPoliciesDlg::Impl::SetAlphaPIN(bool visible, bool met) {
    SetRow(IDC_RULE_ALPHA_TEXT, IDC_RULE_ALPHA_ICON, fw::LoadResString(IDS_RULE_ALPHA), visible, met);
}

void CVPoliciesDlg::Impl::SetConfirmPIN(bool met) {
    SetRow(IDC_RULE_CONFIRM_TEXT, IDC_RULE_CONFIRM_ICON, fw::LoadResString(IDS_RULE_CONFIRM), true, met);
}

HWND CVPoliciesDlg::Impl::RowControl(int id) const {
    // Looked up once: finding a child by id is a round trip to the window system, and this runs
    // on every keystroke.
    for (int i = 0; i < pinrules::kStackCount; ++i) {
        if (kStack[i].text == id) return m_rowText[i];
        if (kStack[i].icon == id) return m_rowIcon[i];
    }
    return nullptr;
}

void CVPoliciesDlg::Impl::SetRow(int textId, int iconId, const std::wstring& text, bool visible, bool met) {
    HWND textControl = RowControl(textId);
    if (textControl) {
        // Runs on every keystroke: a static repaints whenever its text is set, so only a
        // changed text is handed over and rows that keep their text do not flicker.
        wchar_t shown[256];
        const int length = GetWindowTextW(textControl, shown, 256);
        if (text.compare(0, std::wstring::npos, shown, static_cast<size_t>(length)) != 0)
            SetWindowTextW(textControl, text.c_str());
    }
    HWND iconControl = RowControl(iconId);
    const int show = visible ? SW_SHOW : SW_HIDE;
    // ShowWindow with the state a window already has does nothing, so no repaint either.
    if (textControl) ShowWindow(textControl, show);
    if (iconControl) ShowWindow(iconControl, show);
    if (visible) SetPolicyIcon(iconControl, met ? m_metIcon : m_unmetIcon);
}

void CVPoliciesDlg::Impl::SetPolicyIcon(HWND iconControl, HICON icon) {
    if (!iconControl) return;
    HICON current = reinterpret_cast<HICON>(SendMessageW(iconControl, STM_GETICON, 0, 0));
    if (current == icon) return;
    SendMessageW(iconControl, STM_SETICON, reinterpret_cast<WPARAM>(icon), 0);
    if (m_hWnd) UpdateWindow(m_hWnd);
}

void CVPoliciesDlg::Impl::PutPoliciesInBox() {
    LogScope log(L"CVPoliciesDlg::PutPoliciesInBox");
    using namespace pinrules;
    HWND box = Item(IDC_RULE_BOX);
    if (!box) return;
    const HWND* texts = m_rowText;
    const HWND* icons = m_rowIcon;
    for (int i = 0; i < kStackCount; ++i)
        if (!texts[i] || !icons[i]) return;
    const bool shown[kStackCount] = {
        m_rules.minLength != kNoLengthRule, m_rules.maxLength != kNoLengthRule, m_rules.weakRule,
        m_rules.samePinRule, m_rules.alphaRule, true,
    };
    RowGeometry rows[kStackCount];
    for (int i = 0; i < kStackCount; ++i) {
        const RECT text = ChildRect(m_hWnd, texts[i]);
        rows[i] = {shown[i], text.left, text.bottom - text.top, ChildRect(m_hWnd, icons[i]).left};
    }
    const RECT boxRect = ChildRect(m_hWnd, box);
    const BoxLayout layout =
        LayOutRuleBox(boxRect.top, boxRect.bottom - boxRect.top, rows, nTopMargin, nLeftShift, nRowSpacing);
    for (int i = 0; i < kStackCount; ++i) {
        const RowPlacement& p = layout.rows[i];
        if (!p.move) continue;
        const UINT flags = SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE;
        SetWindowPos(texts[i], nullptr, p.textX, p.textY, 0, 0, flags);
        SetWindowPos(icons[i], nullptr, p.iconX, p.iconY, 0, 0, flags);
    }
    ResizeDlg(0, 0, layout.shrinkBy);
    ResizeDlg(IDC_RULE_BOX, 0, layout.shrinkBy);
}
