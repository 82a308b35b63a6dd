// Plain edit controls that show a secret the user must read (an unlock code, the help desk's
// response) keep its text in their own buffers. Before such a control goes away its text is
// overwritten in place, so the freed buffers hold no copy.
#pragma once
#include <windows.h>

namespace fw {

// Overwrites the text of edit (and the copy its undo keeps) with filler of the same length,
// then empties it. Nothing happens for a null or non-edit window.
void WipeEditText(HWND edit);

} // namespace fw
