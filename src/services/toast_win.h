// Toast notifications: a host's toast sink when one is installed, else Windows' own toasts
// (WinRT) where the system has them.
#pragma once
#include <windows.h>

class CToastManager {
public:
    virtual ~CToastManager() = default;
    // Raises the toast. False when it could not be raised; *shown (optional) gets the show
    // operation's result (the sink's, or the HRESULT of Windows' Show).
    virtual bool Show(int* shown) = 0;
    // Takes a raised toast off the screen (nothing when none was raised).
    virtual void Hide() = 0;
};

// True when the toast manager's WinRT activation factory can be obtained (probed once per
// process, never decided by the Windows version).
bool nvIsWinRTSupported();

// A toast with this title and text, or null when no toast can be raised here (no host toast sink
// and no WinRT toasts). `flag` is kept for the callers that pass true; it changes nothing here.
CToastManager* nvCreateToastManager(const wchar_t* title, const wchar_t* text, bool flag);
void nvDeleteToastManager(CToastManager* manager);  // null is fine

// A host's own toasts: returns nonzero when it raised the toast and may write its show result to
// *shown (never null). Null restores the built-in toasts.
typedef int(WINAPI* ToastSink)(const wchar_t* title, const wchar_t* text, int* shown);
void SetToastSink(ToastSink sink);
