// Registry reads and process facts the dialogs need.
#pragma once
#include <windows.h>

// Reads a REG_SZ/REG_EXPAND_SZ value into buffer (capacity in characters, terminator included;
// *chars receives the length read). Returns ERROR_SUCCESS or a Win32 error.
LONG nvRegReadStringValueEx(HKEY root, const wchar_t* subKey, const wchar_t* valueName,
                            wchar_t* buffer, DWORD capacity, DWORD* chars);

// True when the process runs in an app container (a sandboxed Store app).
bool nvIsAppContainer();
