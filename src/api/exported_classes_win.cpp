// The exported dialog classes are handles: each holds the library's own dialog (its nested Impl),
// which does the work. The caller's C++ runtime is not ours, so nothing escapes a handle: a
// failure leaves the handle empty or the call without effect, and its memory is ours to give
// and to take back.
#include <cwchar>
#include <new>
#include <utility>
#include "api/guard.h"
#include "framework/ui_scope_win.h"
#include "dialogs/base/base_dialog_win.h"
#include "dialogs/base/capslock_edit_win.h"
#include "dialogs/pinchange/change_pin_dlg_win.h"
#include "dialogs/pinchange/policies_dlg_win.h"
#include "dialogs/unlock/reset_card_dlg_win.h"

namespace {

template <class T, class... Args>
T* MakeImpl(const wchar_t* constructor, Args&&... args) noexcept {
    return Guarded(constructor, static_cast<T*>(nullptr), [&] { return new T(std::forward<Args>(args)...); });
}

// Runs body(impl) unless the handle is empty.
template <class Impl, class Result, class Body>
Result Call(Impl* impl, const wchar_t* function, Result failure, Body&& body) noexcept {
    if (!impl) return failure;
    return Guarded(function, failure, [&] { return body(*impl); });
}

}  // namespace

CBaseDialog::CBaseDialog(UINT templateId, int colored, const RECT* position, HWND parent)
    : m_impl(MakeImpl<Impl>(L"CBaseDialog::CBaseDialog", templateId, colored, position, parent)) {}

CBaseDialog::CBaseDialog(Impl* impl) : m_impl(impl) {}

CBaseDialog::~CBaseDialog() { delete m_impl; }

INT_PTR CBaseDialog::DoModal() {
    return Call(m_impl, L"CBaseDialog::DoModal", INT_PTR(-1), [](Impl& dlg) { return dlg.DoModal(); });
}

HWND CBaseDialog::GetSafeHwnd() const { return m_impl ? m_impl->GetSafeHwnd() : nullptr; }

void CBaseDialog::ResizeDlg(int controlId, int dx, int dy) {
    Call(m_impl, L"CBaseDialog::ResizeDlg", 0, [&](Impl& dlg) {
        dlg.ResizeDlg(controlId, dx, dy);
        return 0;
    });
}

void* CBaseDialog::operator new(size_t size) noexcept { return ::operator new(size, std::nothrow); }
void CBaseDialog::operator delete(void* p) noexcept { ::operator delete(p); }

CVPoliciesDlg::CVPoliciesDlg(const PwdRuleArgs* rules, int mode, const RECT* position, HWND parent, int topMargin,
                             int leftShift, int rowSpacing)
    : CBaseDialog(MakeImpl<Impl>(L"CVPoliciesDlg::CVPoliciesDlg", rules, mode, position, parent, topMargin, leftShift,
                                 rowSpacing)) {}

int CVPoliciesDlg::LocCreate(HWND parent) {
    return Call(static_cast<Impl*>(m_impl), L"CVPoliciesDlg::LocCreate", 0,
                [&](Impl& list) { return list.LocCreate(parent); });
}

bool CVPoliciesDlg::VerifyAndUpdatePolicies(const wchar_t* current, const wchar_t* candidate, const wchar_t* newPin,
                                            const wchar_t* confirm) {
    return Call(static_cast<Impl*>(m_impl), L"CVPoliciesDlg::VerifyAndUpdatePolicies", false, [&](Impl& list) {
        return list.VerifyAndUpdatePolicies(CSecStr(current), CSecStr(candidate), CSecStr(newPin), CSecStr(confirm));
    });
}

CChangePINDialog::CChangePINDialog(int unused, int mode, bool requireCurrentPin, const RECT* position,
                                   const PwdRuleArgs* rules, HWND okButton, HWND parent, int topMargin,
                                   int leftShift, int rowSpacing, TimerCallback callback, void* context,
                                   int periodMs)
    : CBaseDialog(MakeImpl<Impl>(L"CChangePINDialog::CChangePINDialog", unused, mode, requireCurrentPin, position,
                                 rules, okButton, parent, topMargin, leftShift, rowSpacing, callback, context,
                                 periodMs)) {}

int CChangePINDialog::LocCreate(HWND parent) {
    return Call(static_cast<Impl*>(m_impl), L"CChangePINDialog::LocCreate", 0,
                [&](Impl& form) { return form.LocCreate(parent); });
}

void CChangePINDialog::EraseAllPinBuffers() {
    if (m_impl) static_cast<Impl*>(m_impl)->EraseAllPinBuffers();
}

// Copies value, terminated, into a caller's buffer: its length, or -1 when it does not fit.
static int CopyToCaller(CSecStr value, wchar_t* buffer, unsigned capacity) {
    const int length = value.GetLength();
    if (!buffer || static_cast<unsigned>(length) >= capacity) return -1;
    wmemcpy(buffer, value.GetString(), static_cast<size_t>(length) + 1);
    return length;
}

void CChangePINDialog::ResetToolTip() {
    if (m_impl) static_cast<Impl*>(m_impl)->ResetToolTip();
}

CCapsLockSensitiveEdit::CCapsLockSensitiveEdit()
    : m_impl(MakeImpl<Impl>(L"CCapsLockSensitiveEdit::CCapsLockSensitiveEdit")) {}

CCapsLockSensitiveEdit::~CCapsLockSensitiveEdit() { delete m_impl; }

bool CCapsLockSensitiveEdit::Attach(HWND edit) {
    return Call(m_impl, L"CCapsLockSensitiveEdit::Attach", false, [&](Impl& impl) { return impl.Attach(edit); });
}

void CCapsLockSensitiveEdit::Detach() {
    if (m_impl) m_impl->Detach();
}

HWND CCapsLockSensitiveEdit::GetSafeHwnd() const { return m_impl ? m_impl->Hwnd() : nullptr; }

void CCapsLockSensitiveEdit::SetMode(bool pinMode) {
    if (m_impl) m_impl->SetMode(pinMode);
}

void CCapsLockSensitiveEdit::ResetToolTip() {
    if (m_impl) m_impl->ResetToolTip();
}

void* CCapsLockSensitiveEdit::operator new(size_t size) noexcept { return ::operator new(size, std::nothrow); }
void CCapsLockSensitiveEdit::operator delete(void* p) noexcept { ::operator delete(p); }

CResetCardDialog::CResetCardDialog(int mode, const RECT* position, HWND okButton, HWND parent)
    : CBaseDialog(MakeImpl<Impl>(L"CResetCardDialog::CResetCardDialog", mode, position, okButton, parent)) {}

int CResetCardDialog::LocCreate(HWND parent) {
    return Call(static_cast<Impl*>(m_impl), L"CResetCardDialog::LocCreate", 0,
                [&](Impl& form) { return form.LocCreate(parent); });
}

void CResetCardDialog::SetChallenge(const wchar_t* challenge) {
    Call(static_cast<Impl*>(m_impl), L"CResetCardDialog::SetChallenge", 0, [&](Impl& form) {
        if (form.GetSafeHwnd()) form.SetChallenge(CSecStr(challenge));
        return 0;
    });
}

void CResetCardDialog::DisablePIN() {
    Call(static_cast<Impl*>(m_impl), L"CResetCardDialog::DisablePIN", 0, [&](Impl& form) {
        if (form.GetSafeHwnd()) form.DisablePIN();
        return 0;
    });
}

int CResetCardDialog::GetPin(wchar_t* buffer, unsigned capacity) {
    return Call(static_cast<Impl*>(m_impl), L"CResetCardDialog::GetPin", -1,
                [&](Impl& form) { return CopyToCaller(form.GetPin(), buffer, capacity); });
}

void CResetCardDialog::StartTimer(TimerCallback callback, void* context, int periodMs) {
    if (m_impl) static_cast<Impl*>(m_impl)->StartTimer(callback, context, periodMs);
}

void CResetCardDialog::StopTimer() {
    if (m_impl) static_cast<Impl*>(m_impl)->StopTimer();
}

void CResetCardDialog::ResetToolTip() {
    if (m_impl) static_cast<Impl*>(m_impl)->ResetToolTip();
}

CResetCardDialogMain::CResetCardDialogMain(int mode, HWND parent, int a, int b, int c, const wchar_t* readerName,
                                           TimerCallback callback, void* context, int periodMs)
    : m_impl(MakeImpl<Impl>(L"CResetCardDialogMain::CResetCardDialogMain", mode, parent, a, b, c,
                            readerName ? readerName : L"", callback, context, periodMs)) {}

CResetCardDialogMain::~CResetCardDialogMain() { delete m_impl; }

void CResetCardDialogMain::SetChallenge(const wchar_t* challenge) {
    Call(m_impl, L"CResetCardDialogMain::SetChallenge", 0, [&](Impl& dlg) {
        dlg.SetChallenge(challenge);
        return 0;
    });
}

void CResetCardDialogMain::DisablePIN() {
    if (m_impl) m_impl->DisablePIN();
}

INT_PTR CResetCardDialogMain::DoModal() {
    return Call(m_impl, L"CResetCardDialogMain::DoModal", INT_PTR(-1), [](Impl& dlg) {
        fw::UiScope ui;
        return dlg.DoModal();
    });
}

int CResetCardDialogMain::GetPin(wchar_t* buffer, unsigned capacity) {
    return Call(m_impl, L"CResetCardDialogMain::GetPin", -1,
                [&](Impl& dlg) { return CopyToCaller(dlg.GetPin(), buffer, capacity); });
}

void CResetCardDialogMain::StopDetectingRemoveEvent() {
    if (m_impl) m_impl->StopDetectingRemoveEvent();
}

void* CResetCardDialogMain::operator new(size_t size) noexcept { return ::operator new(size, std::nothrow); }
void CResetCardDialogMain::operator delete(void* p) noexcept { ::operator delete(p); }
