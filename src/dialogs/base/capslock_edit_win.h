// CCapsLockSensitiveEdit::Impl: the PIN edit box (the exported CCapsLockSensitiveEdit is its
// handle). It keeps the PIN out of the platform edit (see fw::SecureEdit) and warns with a
// balloon while Caps Lock is on. Once the system edit is seen showing its own caps-lock balloon,
// only that balloon's text is replaced by ours; until then (and where it has none) the edit draws
// its own.
#pragma once
#include <memory>
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
    void TakeOverSystemBalloon(HWND balloon);
    class BalloonHook;

    bool m_ownBalloon = true;  // until the system's own balloon shows up
    HWND m_tooltip = nullptr;
    std::unique_ptr<BalloonHook> m_balloonHook;
    bool m_hasFocus = false;
    HWND m_systemTip = nullptr;
    wchar_t m_title[261];
    wchar_t m_pinMessage[261];
    wchar_t m_passwordMessage[261];
    bool m_pinMode = true;
};
