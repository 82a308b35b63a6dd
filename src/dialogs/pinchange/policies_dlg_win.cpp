#include "dialogs/pinchange/policies_dlg_win.h"
#include "dialogs/pinchange/rule_box_layout.h"
#include "framework/resource_icons_win.h"
#include "resource_ids.h"
#include "services/log.h"

namespace {

std::wstring LengthText(UINT id, int length) {
    std::wstring format = fw::LoadResString(id);
    wchar_t text[256];
    if (swprintf(text, 256, format.c_str(), length) < 0) return format;
    return text;
}

// The controls and text of each row, by pinrules::Row.
struct RowControls {
    int text;
    int icon;
    UINT string;
};
const RowControls kRows[pinrules::kRowCount] = {
    {IDC_RULE_MIN_TEXT, IDC_RULE_MIN_ICON, IDS_RULE_MIN_LENGTH},
    {IDC_RULE_MAX_TEXT, IDC_RULE_MAX_ICON, IDS_RULE_MAX_LENGTH},
    {IDC_RULE_WEAK_TEXT, IDC_RULE_WEAK_ICON, IDS_RULE_WEAK},
    {IDC_RULE_SAME_TEXT, IDC_RULE_SAME_ICON, IDS_RULE_SAME},
    {IDC_RULE_ALPHA_TEXT, IDC_RULE_ALPHA_ICON, IDS_RULE_ALPHA},
    {IDC_RULE_CONFIRM_TEXT, IDC_RULE_CONFIRM_ICON, IDS_RULE_CONFIRM},
};

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
    m_metIcon = fw::ResourceIcon(IDI_RULE_MET, 16, 16);
    m_unmetIcon = fw::ResourceIcon(IDI_RULE_UNMET, 16, 16);
}

CVPoliciesDlg::Impl::~Impl() { GUILOG(CVLOG_ENTRY, L"CVPoliciesDlg::~CVPoliciesDlg"); }

int CVPoliciesDlg::Impl::LocCreate(HWND parent) {
    LogScope log(L"CVPoliciesDlg::LocCreate");
    return CreateChild(parent) ? 1 : 0;
}

BOOL CVPoliciesDlg::Impl::OnInitDialog() {
    LogScope log(L"CVPoliciesDlg::OnInitDialog");
    BOOL result = CBaseDialog::Impl::OnInitDialog();
    // Looked up once: finding a child by id is a round trip to the window system, and the rows
    // are updated on every keystroke.
    for (int i = 0; i < pinrules::kRowCount; ++i) {
        m_rowText[i] = Item(kRows[i].text);
        m_rowIcon[i] = Item(kRows[i].icon);
        m_rowIconControl[i].Attach(m_rowIcon[i]);
    }
    m_box = Item(IDC_RULE_BOX);
    std::wstring title = fw::LoadResString(IDS_RULES_TITLE);
    if (!title.empty()) SetItemText(IDC_RULE_BOX, title.c_str());
    PutPoliciesInBox();
    return result;
}

bool CVPoliciesDlg::Impl::VerifyAndUpdatePolicies(CSecStr current, CSecStr candidate, CSecStr newPin, CSecStr confirm) {
    const bool met = VerifyAndUpdatePoliciesInPlace(current, candidate, newPin, confirm);
    for (CSecStr* s : {&current, &candidate, &newPin, &confirm}) HidePinFromMemory(*s);
    return met;
}

bool CVPoliciesDlg::Impl::VerifyAndUpdatePoliciesInPlace(const CSecStr& current, const CSecStr& candidate,
                                                   const CSecStr& newPin, const CSecStr& confirm) {
    LogScope log(L"CVPoliciesDlg::VerifyAndUpdatePolicies");
    const pinrules::Outcome out = pinrules::Evaluate(m_rules, current, candidate, newPin, confirm);
    for (pinrules::Row row : pinrules::kEvaluationOrder) ShowRow(row, out.rows[row]);
    if (m_hWnd) {
        if (m_box && !IsWindowEnabled(m_box)) EnableWindow(m_box, TRUE);
        ShowWindow(m_hWnd, SW_SHOW);
    }
    return out.allMet;
}

void CVPoliciesDlg::Impl::ShowRow(pinrules::Row row, pinrules::RowOutcome outcome) {
    std::wstring text;
    if (row == pinrules::kMinLength || row == pinrules::kMaxLength) {
        const uint32_t limit = row == pinrules::kMinLength ? m_rules.minLength : m_rules.maxLength;
        text = LengthText(kRows[row].string, outcome.visible ? static_cast<int>(limit) : -1);
    } else {
        text = fw::LoadResString(kRows[row].string);
    }
    if (HWND textControl = m_rowText[row]) {
        // Runs on every keystroke: a static repaints whenever its text is set, so only a
        // changed text is handed over and rows that keep their text do not flicker.
        wchar_t shown[256];
        const int length = GetWindowTextW(textControl, shown, 256);
        if (text.compare(0, std::wstring::npos, shown, static_cast<size_t>(length)) != 0)
            SetWindowTextW(textControl, text.c_str());
    }
    HWND iconControl = m_rowIcon[row];
    const int show = outcome.visible ? SW_SHOW : SW_HIDE;
    // ShowWindow with the state a window already has does nothing, so no repaint either.
    if (m_rowText[row]) ShowWindow(m_rowText[row], show);
    if (iconControl) ShowWindow(iconControl, show);
    if (outcome.visible) SetPolicyIcon(iconControl, outcome.met ? m_metIcon : m_unmetIcon);
}

void CVPoliciesDlg::Impl::SetPolicyIcon(HWND iconControl, HICON icon) {
    if (!iconControl) return;
    HICON current = reinterpret_cast<HICON>(SendMessageW(iconControl, STM_GETICON, 0, 0));
    if (current == icon) return;
    // The row's CRuleIcon only marks itself for repainting; the list is repainted at once, so
    // the user sees the outcome with the key that changed it.
    SendMessageW(iconControl, STM_SETICON, reinterpret_cast<WPARAM>(icon), 0);
    if (m_hWnd) UpdateWindow(m_hWnd);
}

void CVPoliciesDlg::Impl::PutPoliciesInBox() {
    LogScope log(L"CVPoliciesDlg::PutPoliciesInBox");
    using namespace pinrules;
    HWND box = m_box;
    if (!box) return;
    const HWND* texts = m_rowText;
    const HWND* icons = m_rowIcon;
    for (int i = 0; i < kRowCount; ++i)
        if (!texts[i] || !icons[i]) return;
    RowGeometry rows[kRowCount];
    for (int i = 0; i < kRowCount; ++i) {
        const RECT text = fw::ChildRect(m_hWnd, texts[i]);
        rows[i] = {IsRowShown(m_rules, static_cast<Row>(i)), text.left, text.bottom - text.top,
                   fw::ChildRect(m_hWnd, icons[i]).left};
    }
    const RECT boxRect = fw::ChildRect(m_hWnd, box);
    const BoxLayout layout =
        LayOutRuleBox(boxRect.top, boxRect.bottom - boxRect.top, rows, nTopMargin, nLeftShift, nRowSpacing);
    for (int i = 0; i < kRowCount; ++i) {
        const RowPlacement& p = layout.rows[i];
        if (!p.move) continue;
        const UINT flags = SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE;
        SetWindowPos(texts[i], nullptr, p.textX, p.textY, 0, 0, flags);
        SetWindowPos(icons[i], nullptr, p.iconX, p.iconY, 0, 0, flags);
    }
    ResizeDlg(0, 0, layout.shrinkBy);
    ResizeDlg(IDC_RULE_BOX, 0, layout.shrinkBy);
}
