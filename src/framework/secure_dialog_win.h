// CSecureDialog: the base of every dialog of the library. Secret fields are exchanged only
// through CSecStr and SecureEdit, so no PIN ever sits in an ordinary string or in an edit
// control's own buffers.
#pragma once
#include "framework/dialog_win.h"
#include "services/secstr.h"

class CSecureDialog : public fw::Dialog {
public:
    CSecureDialog(UINT templateId, HWND parent) : fw::Dialog(templateId, parent) {}

protected:
    // The secure part of the initialisation: binds the controls (DoDataExchange).
    BOOL OnInitDialogSecure() { return fw::Dialog::OnInitDialog(); }
    static void DDX_Text(fw::DataExchange& dx, int id, CSecStr& value) { fw::DDX_Text(dx, id, value); }
};
