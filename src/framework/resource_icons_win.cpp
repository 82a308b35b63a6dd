#include "framework/resource_icons_win.h"

#include <map>
#include <mutex>
#include <tuple>
#include "framework/dialog_win.h"

namespace fw {
namespace {

using IconKey = std::tuple<UINT, int, int>;

std::mutex g_iconsLock;
std::map<IconKey, HICON>& Icons() {
    static std::map<IconKey, HICON> icons;
    return icons;
}

}  // namespace

HICON ResourceIcon(UINT id, int cx, int cy) {
    HINSTANCE module = ResourceModule();
    if (!module) return nullptr;
    std::lock_guard<std::mutex> lock(g_iconsLock);
    HICON& icon = Icons()[IconKey(id, cx, cy)];
    if (!icon) {
        const UINT flags = (cx == 0 && cy == 0) ? LR_DEFAULTSIZE : 0;
        icon = static_cast<HICON>(LoadImageW(module, MAKEINTRESOURCEW(id), IMAGE_ICON, cx, cy, flags));
    }
    return icon;
}

void SetItemIcon(HWND dialog, int controlId, UINT id) {
    HWND control = dialog ? GetDlgItem(dialog, controlId) : nullptr;
    HICON icon = control ? ResourceIcon(id) : nullptr;
    if (icon) SendMessageW(control, STM_SETICON, reinterpret_cast<WPARAM>(icon), 0);
}

void ReleaseResourceIcons() {
    std::lock_guard<std::mutex> lock(g_iconsLock);
    for (auto& entry : Icons())
        if (entry.second) DestroyIcon(entry.second);
    Icons().clear();
}

void SetSmallIcon(HWND window, UINT id) {
    if (HICON icon = ResourceIcon(id, GetSystemMetrics(SM_CXSMICON), GetSystemMetrics(SM_CYSMICON)))
        SendMessageW(window, WM_SETICON, ICON_SMALL, reinterpret_cast<LPARAM>(icon));
}

}  // namespace fw
