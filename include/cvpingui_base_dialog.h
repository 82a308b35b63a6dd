/*
 * cvpingui_base_dialog.h - CBaseDialog, the base of the dialog classes that
 * cv.corvana.gui.pin.dll exports for C++ callers built with mingw-w64 (callers built with another
 * compiler use the C functions of cvpingui.h instead).
 *
 * An object of an exported class is a handle: the dialog itself lives inside the library, which
 * builds it from its own templates. The caller creates and deletes the handle (with new and
 * delete, or as a member or a local); its memory comes from the library, none of its functions
 * throws, and no type of a C++ standard library crosses between the two. When the library
 * cannot make the dialog (out of memory), the handle is empty: creating the window fails and
 * every other call does nothing.
 */
#ifndef CVPINGUI_BASE_DIALOG_H
#define CVPINGUI_BASE_DIALOG_H

#include <stddef.h>
#include <windows.h>
#include "cvpingui_export.h"

class CVPINGUI_CLASS CBaseDialog {
public:
    class Impl; /* the dialog inside the library */

    /* A dialog on template templateId of the library's resources. colored: non-zero paints the
     * controls on the window colour. position: when not null, its left/top is where the dialog
     * opens (0,0 otherwise). */
    CBaseDialog(UINT templateId, int colored, const RECT* position, HWND parent);
    virtual ~CBaseDialog(); /* destroys the window if it is still there */

    /* Runs the dialog modally on the calling thread: the result it ended with, or -1 when it
     * could not be created. */
    INT_PTR DoModal();
    /* The dialog's window: null before it is created and after it is destroyed. */
    HWND GetSafeHwnd() const;
    /* Shrinks control controlId (the dialog itself for 0) by dx, dy pixels; negative values grow. */
    void ResizeDlg(int controlId, int dx, int dy);

    /* Null instead of an exception when memory runs out. */
    static void* operator new(size_t size) noexcept;
    static void operator delete(void* p) noexcept;

protected:
    explicit CBaseDialog(Impl* impl);
    Impl* m_impl; /* null when the library could not make the dialog */

private:
    CBaseDialog(const CBaseDialog&) = delete;
    CBaseDialog& operator=(const CBaseDialog&) = delete;
};

#endif /* CVPINGUI_BASE_DIALOG_H */
