// A host without a common-controls manifest still gets dialogs with the version 6 controls
// (visual styles, the balloon of the PIN field): the library brings its own activation context.
#include <gtest/gtest.h>
#include <string>
#include "cvpingui.h"
#include "driver_win.h"
#include "resource_ids.h"

using namespace drv;

namespace {
std::wstring ModuleOfClassProcedure(HWND control) {
    auto proc = reinterpret_cast<LPCWSTR>(GetClassLongPtrW(control, GCLP_WNDPROC));
    HMODULE module = nullptr;
    wchar_t path[MAX_PATH] = {};
    if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           proc, &module))
        GetModuleFileNameW(module, path, MAX_PATH);
    std::wstring name(path);
    name = name.substr(name.find_last_of(L"\\/") + 1);
    for (auto& c : name) c = static_cast<wchar_t>(towlower(c));
    return name;
}
}  // namespace

TEST(ManifestlessHost, PromptUsesCommonControlsSix) {
    // The host itself gets the system's default controls.
    HWND plain = CreateWindowExW(0, L"BUTTON", L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(plain, nullptr);
    EXPECT_NE(ModuleOfClassProcedure(plain), L"comctl32.dll");
    DestroyWindow(plain);

    char* pin = nullptr;
    unsigned length = 0;
    Caller caller([&] {
        return GetPINFromUser(nullptr, L"Simulated Reader 0", 0, 4, 8, &pin, &length, nullptr, nullptr, 0);
    });
    HWND dlg = WaitForDialog(caller);
    ASSERT_NE(dlg, nullptr);
    EXPECT_EQ(ModuleOfClassProcedure(GetDlgItem(dlg, IDOK)), L"comctl32.dll");
    EXPECT_EQ(ModuleOfClassProcedure(GetDlgItem(dlg, IDC_PIN_EDIT)), L"comctl32.dll");
    Click(dlg, IDCANCEL);
    ASSERT_TRUE(caller.Wait());
}
