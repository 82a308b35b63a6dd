/*
 * cvpingui_capslock_edit.h - CCapsLockSensitiveEdit, the PIN edit box of cv.corvana.gui.pin.dll
 * for C++ callers built with mingw-w64 (see cvpingui_base_dialog.h for how the exported classes
 * behave).
 *
 * Attached to an edit control of the caller's, it keeps what is typed inside the library (the
 * control itself shows only masks) and warns with a balloon while Caps Lock is on.
 */
#ifndef CVPINGUI_CAPSLOCK_EDIT_H
#define CVPINGUI_CAPSLOCK_EDIT_H

#include <stddef.h>
#include <windows.h>
#include "cvpingui_export.h"

class CVPINGUI_CLASS CCapsLockSensitiveEdit {
public:
    class Impl; /* the edit inside the library */

    CCapsLockSensitiveEdit();
    virtual ~CCapsLockSensitiveEdit(); /* detaches and wipes what was typed */

    /* Takes over the edit control edit; false when edit is null or the object is attached. */
    bool Attach(HWND edit);
    void Detach();
    /* The attached edit control, or null. */
    HWND GetSafeHwnd() const;
    /* true: the warning speaks of a PIN (the default); false: of a password. */
    void SetMode(bool pinMode);
    /* Hides the library's own balloon, if shown. */
    void ResetToolTip();

    /* Null instead of an exception when memory runs out. */
    static void* operator new(size_t size) noexcept;
    static void operator delete(void* p) noexcept;

private:
    CCapsLockSensitiveEdit(const CCapsLockSensitiveEdit&) = delete;
    CCapsLockSensitiveEdit& operator=(const CCapsLockSensitiveEdit&) = delete;

    Impl* m_impl; /* null when the library could not make the edit */
};

#endif /* CVPINGUI_CAPSLOCK_EDIT_H */
