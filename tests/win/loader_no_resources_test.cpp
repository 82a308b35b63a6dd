// The PIN library without its resource library: it still loads, and every prompt fails at once
// instead of showing a broken dialog or hanging its caller.
#include <gtest/gtest.h>
#include <windows.h>
#include <string>
#include "cvpingui.h"

TEST(WithoutResources, EveryPromptFailsAtOnce) {
    // A copy of the library in a folder of its own, without its Resources folder.
    wchar_t exe[MAX_PATH], temp[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    GetTempPathW(MAX_PATH, temp);
    std::wstring original(exe);
    original.replace(original.find_last_of(L"\\/") + 1, std::wstring::npos, L"cv.corvana.gui.pin.dll");
    const std::wstring folder = std::wstring(temp) + L"cvpin-no-resources-" + std::to_wstring(GetCurrentProcessId());
    const std::wstring dll = folder + L"\\cv.corvana.gui.pin.dll";
    CreateDirectoryW(folder.c_str(), nullptr);
    ASSERT_TRUE(CopyFileW(original.c_str(), dll.c_str(), FALSE));
    HMODULE module = LoadLibraryW(dll.c_str());
    ASSERT_NE(module, nullptr);
    auto get = [module](const char* name) { return reinterpret_cast<void*>(GetProcAddress(module, name)); };
    auto getPin = reinterpret_cast<decltype(&GetPINFromUser)>(get("GetPINFromUser"));
    auto keyPad = reinterpret_cast<decltype(&ShowKeyPadPrompt)>(get("ShowKeyPadPrompt"));
    auto keyPadChange = reinterpret_cast<decltype(&ShowKeyPadChgPinPrompt)>(get("ShowKeyPadChgPinPrompt"));
    auto pinAlways = reinterpret_cast<decltype(&ShowPINAlwaysPrompt)>(get("ShowPINAlwaysPrompt"));
    auto errorString = reinterpret_cast<decltype(&GetErrorString)>(get("GetErrorString"));
    ASSERT_TRUE(getPin && keyPad && keyPadChange && pinAlways && errorString);

    char* buffer = reinterpret_cast<char*>(1);
    unsigned length = 7;
    EXPECT_EQ(getPin(nullptr, L"Reader", 0, 4, 8, &buffer, &length, nullptr, nullptr, 0), CVPIN_FAILED);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(keyPad(nullptr, L"Reader", nullptr, 0, nullptr, nullptr, 0), CVPIN_FAILED);
    EXPECT_EQ(keyPadChange(nullptr, L"Reader", nullptr, FALSE, 0, nullptr, nullptr, 0), CVPIN_FAILED);
    EXPECT_EQ(pinAlways(nullptr, L"Reader"), CVPIN_FAILED);
    // The busy flags were released: the same calls fail again for the same reason, not a hang.
    EXPECT_EQ(getPin(nullptr, L"Reader", 0, 4, 8, &buffer, &length, nullptr, nullptr, 0), CVPIN_FAILED);
    ASSERT_NE(errorString(1), nullptr);
    EXPECT_STREQ(errorString(1), L"");

    FreeLibrary(module);
    DeleteFileW(dll.c_str());
    RemoveDirectoryW(folder.c_str());
}
