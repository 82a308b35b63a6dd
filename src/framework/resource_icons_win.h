// Icons of the resource library, loaded once per size and kept until the library is let go.
// The resource library is mapped as an image resource, never run; from such a handle Wine does
// not share LR_SHARED icons, so a template's ICON control or a shared load would create new GDI
// objects with every dialog. Dialogs take their icons from here instead, and their templates
// carry empty SS_ICON statics.
#pragma once
#include <windows.h>

namespace fw {

// Icon id of the resource library at cx x cy pixels (0, 0: the system's large icon size); null
// when the library or the icon is missing. The cache owns it: never destroy it.
HICON ResourceIcon(UINT id, int cx = 0, int cy = 0);

// Shows icon id in the SS_ICON static control of dialog; does nothing when either is missing.
void SetItemIcon(HWND dialog, int controlId, UINT id);

// Icon id as the small icon of window (its caption and task button).
void SetSmallIcon(HWND window, UINT id);

// Destroys every cached icon (the resource library is being changed or let go).
void ReleaseResourceIcons();

}  // namespace fw
