// CBaseDialog::Impl: the base of the policy and PIN-change dialogs: placement at a given corner,
// optional window-coloured background, resizing, and wiping of PIN strings. The exported
// CBaseDialog is its handle.
#pragma once
#include "cvpingui_base_dialog.h"
#include "framework/gdi_win.h"
#include "framework/secure_dialog_win.h"

class CBaseDialog::Impl : public CSecureDialog {
public:
    // position: when not null, its left/top is where the dialog opens (0,0 otherwise).
    Impl(UINT templateId, int colored, const RECT* position, HWND parent);
    ~Impl() override;

    // Shrinks control controlId (the dialog itself for 0) by dx, dy pixels; negative grows.
    void ResizeDlg(int controlId, int dx, int dy);

protected:
    BOOL OnInitDialog() override;
    bool OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) override;
    // Overwrites every character of s with zeros in place.
    void HidePinFromMemory(CSecStr& s);

    int m_x = 0;
    int m_y = 0;
    int m_colored;
    fw::Brush m_background;
};
