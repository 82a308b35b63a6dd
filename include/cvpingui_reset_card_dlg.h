/*
 * cvpingui_reset_card_dlg.h - the reset form of cv.corvana.gui.pin.dll for C++ callers built
 * with mingw-w64 (see cvpingui_base_dialog.h for how the exported classes behave).
 *
 * CResetCardDialog lets the user either type the PIN or, when the PIN cannot be used, unlock
 * with a code: the help desk's response to the card's challenge, or the card's static unlock
 * code when there is no challenge. Two radio buttons choose the way; exactly one field is active,
 * and the caller's OK button is enabled only while that field is not empty. The caller reads
 * the value with GetPin and decides what it means. CResetCardDialogMain is a modal window around
 * the form, with OK, Cancel and card-removal detection.
 */
#ifndef CVPINGUI_RESET_CARD_DLG_H
#define CVPINGUI_RESET_CARD_DLG_H

#include "cvpingui.h"
#include "cvpingui_base_dialog.h"

class CVPINGUI_CLASS CResetCardDialog : public CBaseDialog {
public:
    class Impl; /* the form inside the library */

    /* mode: as CBaseDialog's colored. position: where the form goes in parent. okButton (may be
     * null) is enabled exactly while the active field holds something. */
    CResetCardDialog(int mode, const RECT* position, HWND okButton, HWND parent);

    /* Creates the form as a child window of parent; non-zero on success. */
    int LocCreate(HWND parent);
    /* The card's challenge (hexadecimal text; its first 16 characters are shown in four groups),
     * or null/empty for a card with a static unlock code. Clears the fields and selects the PIN. */
    void SetChallenge(const wchar_t* challenge);
    /* The PIN is blocked: only the unlock code remains. */
    void DisablePIN();
    /* Copies the active field's text, terminated, into buffer (capacity characters) and returns
     * its length; -1 when it does not fit (nothing copied). The caller wipes the buffer. */
    int GetPin(wchar_t* buffer, unsigned capacity);
    /* callback(context) runs every periodMs while the form is open (null or 0: never). */
    void StartTimer(TimerCallback callback, void* context, int periodMs);
    void StopTimer();
    /* Hides the Caps Lock balloons of the fields. */
    void ResetToolTip();
};

class CVPINGUI_CLASS CResetCardDialogMain {
public:
    class Impl; /* the window inside the library */

    /* The three integers are kept for callers that pass them; they change nothing. The window
     * closes with IDCANCEL when the card of readerName is removed. callback(context) runs every
     * periodMs while it is open (null or 0: never). */
    CResetCardDialogMain(int mode, HWND parent, int, int, int, const wchar_t* readerName, TimerCallback callback,
                         void* context, int periodMs);
    ~CResetCardDialogMain();

    /* Before DoModal: the challenge (as CResetCardDialog::SetChallenge) and whether the PIN is
     * blocked. */
    void SetChallenge(const wchar_t* challenge);
    void DisablePIN();
    /* IDOK or IDCANCEL, or -1 when the window could not be created. */
    INT_PTR DoModal();
    /* After IDOK: as CResetCardDialog::GetPin; the value stays until the handle is deleted. */
    int GetPin(wchar_t* buffer, unsigned capacity);
    /* The card's removal no longer closes the window. */
    void StopDetectingRemoveEvent();

    /* Null instead of an exception when memory runs out. */
    static void* operator new(size_t size) noexcept;
    static void operator delete(void* p) noexcept;

private:
    CResetCardDialogMain(const CResetCardDialogMain&) = delete;
    CResetCardDialogMain& operator=(const CResetCardDialogMain&) = delete;
    Impl* m_impl; /* null when the library could not make the window */
};

#endif /* CVPINGUI_RESET_CARD_DLG_H */
