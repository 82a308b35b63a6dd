// The user-interface mode: the interactive desktop, another input desktop, or an app container.
#include "services/ui_mode_win.h"

#include <atomic>

namespace {

constexpr int kInteractiveDesktop = 1;
constexpr int kOtherDesktop = 2;
constexpr int kAppContainer = 3;

std::atomic<UiModeProvider> g_provider{nullptr};

// The desktop that receives the user's input is the interactive one ("Default"); the secure
// desktop and Winlogon's cannot be opened from the user's session at all.
bool InputDesktopIsDefault() {
    HDESK desktop = OpenInputDesktop(0, FALSE, DESKTOP_READOBJECTS);
    if (!desktop) return false;
    wchar_t name[64] = {};
    const bool named = GetUserObjectInformationW(desktop, UOI_NAME, name, sizeof name - sizeof name[0], nullptr);
    CloseDesktop(desktop);
    return named && lstrcmpiW(name, L"Default") == 0;
}

}  // namespace

int nvGetUIMode() {
    if (UiModeProvider provider = g_provider.load()) return provider();
    if (nvIsAppContainer()) return kAppContainer;
    return InputDesktopIsDefault() ? kInteractiveDesktop : kOtherDesktop;
}

void SetUiModeProvider(UiModeProvider provider) {
    g_provider.store(provider);
}
