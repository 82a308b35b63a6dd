// Saves what the screen shows of a thread's windows as a PNG (WIC).
#pragma once
#include <windows.h>

// Captures the union of the thread's visible top-level windows (a dialog and its balloon).
bool SaveThreadWindowsPng(DWORD threadId, const wchar_t* path);
