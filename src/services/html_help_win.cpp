// HtmlHelpW without an import library: hhctrl.ocx is loaded when help is first asked for,
// so that a process that never opens help never maps it.
#include "services/html_help_win.h"

#include <string>

namespace {

typedef HWND(WINAPI* HtmlHelpProc)(HWND, LPCWSTR, UINT, DWORD_PTR);

HtmlHelpProc LoadHtmlHelp() {
    // The full system path: a hhctrl.ocx planted next to the host must not be picked up.
    wchar_t system[MAX_PATH];
    UINT length = GetSystemDirectoryW(system, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return nullptr;
    std::wstring path = std::wstring(system, length) + L"\\hhctrl.ocx";
    HMODULE module = LoadLibraryW(path.c_str());
    if (!module) return nullptr;
    return reinterpret_cast<HtmlHelpProc>(reinterpret_cast<void*>(GetProcAddress(module, "HtmlHelpW")));
}

} // namespace

HWND HtmlHelpW(HWND caller, const wchar_t* file, UINT command, DWORD_PTR data) {
    static const HtmlHelpProc proc = LoadHtmlHelp(); // once per process; kept loaded
    if (!proc) return nullptr;
    return proc(caller, file, command, data);
}
