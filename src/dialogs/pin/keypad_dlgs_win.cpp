#include "dialogs/pin/keypad_dlgs_win.h"
#include <atomic>
#include "resource_ids.h"
#include "services/log.h"

namespace {
// Published when the prompt's window exists and withdrawn before it goes, so a cancel from
// another thread either reaches a live window or is kept for the window to come.
std::atomic<HWND> g_pinPadWindow{nullptr};
std::atomic<bool> g_cancelPending{false};
}  // namespace

void CancelPinPadPrompt() {
    g_cancelPending.store(true);
    // Sent, not posted: the caller goes on only once the prompt has taken the cancel.
    if (HWND prompt = g_pinPadWindow.load()) SendMessageW(prompt, WM_COMMAND, IDCANCEL, 0);
}

void ForgetPinPadCancel() { g_cancelPending.store(false); }

CKeyPadDlg::CKeyPadDlg(HWND parent, const wchar_t* readerName, const wchar_t* prompt, TimerCallback callback,
                       void* context, unsigned periodMs)
    : CKeyPadDlg(L"CKeyPadDlg", IDD_KEYPAD_PROMPT, parent, readerName, prompt, callback, context, periodMs) {}

CKeyPadDlg::CKeyPadDlg(const wchar_t* className, UINT templateId, HWND parent, const wchar_t* readerName,
                       const wchar_t* prompt, TimerCallback callback, void* context, unsigned periodMs)
    : CPromptDlg(className, templateId, IDI_KEYPAD, parent, readerName),
      m_prompt(prompt),
      m_callback(callback),
      m_callbackContext(context),
      m_periodMs(periodMs) {}

int CKeyPadDlg::PromptControl() const { return IDC_KP_PROMPT; }

CSecStr CKeyPadDlg::DefaultPrompt() const { return CSecStr(); }

BOOL CKeyPadDlg::OnInitDialog() {
    GUILOG(CVLOG_ENTRY, L"%s::OnInitDialog", m_className);
    CPromptDlg::OnInitDialog();
    // Only the caller closes this prompt; the title bar must not.
    EnableMenuItem(GetSystemMenu(m_hWnd, FALSE), SC_CLOSE, MF_BYCOMMAND | MF_GRAYED | MF_DISABLED);
    CSecStr text = m_prompt.IsEmpty() ? DefaultPrompt() : m_prompt;
    if (!text.IsEmpty()) SetItemText(PromptControl(), text.GetString());
    TryToInsertBitmap();
    BringToFront();
    // The pad prompts have no timer handler: their life is governed by the cancel functions,
    // so the ticks go to the default handling and the callback is not called.
    if (m_callback && m_periodMs != 0) SetTimer(m_hWnd, 1, m_periodMs, nullptr);
    g_pinPadWindow.store(m_hWnd);
    if (g_cancelPending.load()) EndDialog(IDCANCEL);
    return TRUE;
}

void CKeyPadDlg::OnDestroy() {
    HWND self = m_hWnd;
    g_pinPadWindow.compare_exchange_strong(self, nullptr);
    CPromptDlg::OnDestroy();
}

CKeyPadChangePinDlg::CKeyPadChangePinDlg(HWND parent, const wchar_t* readerName, const wchar_t* prompt,
                                         bool secondStep, TimerCallback callback, void* context, unsigned periodMs)
    : CKeyPadDlg(L"CKeyPadChangePinDlg", IDD_KEYPAD_CHANGE_PIN, parent, readerName, prompt, callback, context,
                 periodMs),
      m_secondStep(secondStep) {}

int CKeyPadChangePinDlg::PromptControl() const { return IDC_KP_CHANGE_PROMPT; }

CSecStr CKeyPadChangePinDlg::DefaultPrompt() const {
    std::wstring text = m_secondStep
        ? fw::LoadResString(IDS_KEYPAD_CHANGE_NEW, L"Enter your new PIN on the reader's PIN pad.")
        : fw::LoadResString(IDS_KEYPAD_CHANGE_CURRENT, L"Enter your current PIN on the reader's PIN pad.");
    return CSecStr(text.c_str());
}

CPINAlwaysPromptDlg::CPINAlwaysPromptDlg(HWND parent, const wchar_t* readerName)
    : CPromptDlg(L"CPINAlwaysPromptDlg", IDD_PIN_ALWAYS, IDI_CARD, parent, readerName) {}

BOOL CPINAlwaysPromptDlg::OnInitDialog() {
    GUILOG(CVLOG_ENTRY, L"CPINAlwaysPromptDlg::OnInitDialog");
    CPromptDlg::OnInitDialog();
    TryToInsertBitmap();
    BringToFront();
    return TRUE;
}
