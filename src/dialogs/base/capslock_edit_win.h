// CCapsLockSensitiveEdit::Impl: the PIN edit box (the exported CCapsLockSensitiveEdit is its
// handle). It keeps the PIN out of the platform edit (see fw::SecureEdit) and warns with a
// balloon while Caps Lock is on. Where the system edit shows its own caps-lock balloon, only that
// balloon's text is replaced by ours; where it has none (Windows 2000, Wine), the edit draws its
// own.
#pragma once
#include "cvpingui_capslock_edit.h"
#include "framework/secure_edit_win.h"

class CCapsLockSensitiveEdit::Impl : public fw::SecureEdit {
public:
    Impl();
    ~Impl() override;

    // true: wording about a PIN (the default); false: about a password.
    void SetMode(bool pinMode) { m_pinMode = pinMode; }
    // Hides our own balloon, if shown.
    void ResetToolTip();
    // Our own balloon window, null until the first warning (for the dialog and tests).
    HWND BalloonWindow() const { return m_tooltip; }
    bool DrawsOwnBalloon() const { return m_ownBalloon; }

protected:
    LRESULT WndProc(UINT message, WPARAM wParam, LPARAM lParam) override;
    void OnDetached() override;
    void CheckCapsLockMessage();

private:
    void CreateBalloon();
    bool OnNotify(NMHDR* header, LRESULT& result);
    static LRESULT CALLBACK BalloonProc(HWND, UINT, WPARAM, LPARAM, UINT_PTR, DWORD_PTR);

    bool m_ownBalloon;
    HWND m_tooltip = nullptr;
    bool m_hasFocus = false;
    HWND m_systemTip = nullptr;
    wchar_t m_title[261];
    wchar_t m_pinMessage[261];
    wchar_t m_passwordMessage[261];
    bool m_pinMode = true;
};
