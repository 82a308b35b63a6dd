// A host without a common-controls manifest still gets dialogs with the version 6 controls
// (visual styles, the balloon of the PIN field): the library brings its own activation context.
#include <gtest/gtest.h>
#include "cvpingui.h"
#include "driver_win.h"
#include "resource_ids.h"

using namespace drv;

namespace {
// Whether the control's class procedure is that of a common-controls library.
bool FromCommonControls(HWND control) {
    HMODULE module = nullptr;
    wchar_t path[MAX_PATH] = {};
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(GetClassLongPtrW(control, GCLP_WNDPROC)), &module);
    GetModuleFileNameW(module, path, MAX_PATH);
    const wchar_t* name = wcsrchr(path, L'\\');
    return name && _wcsicmp(name + 1, L"comctl32.dll") == 0;
}
}  // namespace

TEST(ManifestlessHost, PromptUsesCommonControlsSix) {
    // The host itself gets the system's default controls.
    HWND plain = CreateWindowExW(0, L"BUTTON", L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(plain, nullptr);
    EXPECT_FALSE(FromCommonControls(plain));
    DestroyWindow(plain);

    char* pin = nullptr;
    unsigned length = 0;
    Caller caller([&] {
        return GetPINFromUser(nullptr, L"Simulated Reader 0", 0, 4, 8, &pin, &length, nullptr, nullptr, 0);
    });
    HWND dlg = WaitForDialog(caller);
    ASSERT_NE(dlg, nullptr);
    EXPECT_TRUE(FromCommonControls(GetDlgItem(dlg, IDOK)));
    EXPECT_TRUE(FromCommonControls(GetDlgItem(dlg, IDC_PIN_EDIT)));
    Click(dlg, IDCANCEL);
    ASSERT_TRUE(caller.Wait());
}
