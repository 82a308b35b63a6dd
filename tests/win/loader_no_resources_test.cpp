// The PIN library without its resource library: it still loads, and every prompt fails at once
// instead of showing a broken dialog or hanging its caller.
#include <gtest/gtest.h>
#include <windows.h>
#include <string>
#include "cvpingui.h"

namespace {

std::wstring ExeFolder() {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring s(path);
    return s.substr(0, s.find_last_of(L"\\/"));
}

class WithoutResources : public testing::Test {
protected:
    void SetUp() override {
        wchar_t temp[MAX_PATH];
        GetTempPathW(MAX_PATH, temp);
        m_folder = std::wstring(temp) + L"cvpin-no-resources-" + std::to_wstring(GetCurrentProcessId());
        CreateDirectoryW(m_folder.c_str(), nullptr);
        m_dll = m_folder + L"\\cv.corvana.gui.pin.dll";
        ASSERT_TRUE(CopyFileW((ExeFolder() + L"\\cv.corvana.gui.pin.dll").c_str(), m_dll.c_str(), FALSE));
        m_module = LoadLibraryW(m_dll.c_str());
        ASSERT_NE(m_module, nullptr);
    }
    void TearDown() override {
        if (m_module) FreeLibrary(m_module);
        DeleteFileW(m_dll.c_str());
        RemoveDirectoryW(m_folder.c_str());
    }
    template <class F>
    F Get(const char* name) {
        return reinterpret_cast<F>(GetProcAddress(m_module, name));
    }
    std::wstring m_folder, m_dll;
    HMODULE m_module = nullptr;
};

}  // namespace

TEST_F(WithoutResources, EveryPromptFailsAtOnce) {
    auto getPin = Get<decltype(&GetPINFromUser)>("GetPINFromUser");
    auto keyPad = Get<decltype(&ShowKeyPadPrompt)>("ShowKeyPadPrompt");
    auto keyPadChange = Get<decltype(&ShowKeyPadChgPinPrompt)>("ShowKeyPadChgPinPrompt");
    auto pinAlways = Get<decltype(&ShowPINAlwaysPrompt)>("ShowPINAlwaysPrompt");
    auto errorString = Get<decltype(&GetErrorString)>("GetErrorString");
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
}
