// Every exported function that shows a window runs inside a UiScope: it activates the
// library's own activation context (common controls v6 from the manifest embedded in the DLL,
// whatever the host's manifest says) and makes the thread per-monitor DPI aware where the
// system offers it. Both are restored when the scope ends.
#pragma once
#include <windows.h>

namespace fw {

// Called at process attach and detach with the PIN library's module.
void InitActivationContext(HMODULE module);
void ReleaseActivationContext();

class UiScope {
public:
    UiScope();
    ~UiScope();
    UiScope(const UiScope&) = delete;
    UiScope& operator=(const UiScope&) = delete;

private:
    ULONG_PTR m_cookie = 0;
    bool m_activated = false;
    void* m_oldDpiContext = nullptr;
};

}  // namespace fw
