// How the unlock dialogs are asked for help: F1 when the key is released (a held key repeats its
// press, never its release), and the caption's "?" button, which opens the topic at once instead
// of the system's pointer help mode.
#pragma once
#include <windows.h>

// msg is the release of F1 in dialog or one of its controls.
bool IsHelpKeyRelease(HWND dialog, const MSG& msg);
// A non-client click on the caption's help button.
bool IsCaptionHelpClick(UINT message, WPARAM wParam);
