// HtmlHelpW from hhctrl.ocx, loaded on first use (no import library needed).
#pragma once
#include <windows.h>

#ifndef HH_HELP_CONTEXT
#define HH_HELP_CONTEXT 0x000F
#endif

// Returns the help window, or null when hhctrl.ocx is not available or the topic cannot open.
HWND HtmlHelpW(HWND caller, const wchar_t* file, UINT command, DWORD_PTR data);
