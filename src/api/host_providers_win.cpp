// The host's replacements of the platform's toasts and user-interface mode.
#include "cvpingui.h"
#include "services/toast_win.h"
#include "services/ui_mode_win.h"

extern "C" void WINAPI CVPinGuiSetToastProvider(CVPinGuiToastProvider raise) {
    SetToastSink(raise);
}

extern "C" void WINAPI CVPinGuiSetUiModeProvider(CVPinGuiUiModeProvider mode) {
    SetUiModeProvider(mode);
}
