// The simulated module as the card layer and the tests see it: loaded from the program's folder,
// with the real CNG cipher behind the help-desk tool. Unblocking with the tool's response is
// checked through the unlock dialog; the module's profile parsing and card state natively.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "smmw_sim.h"

namespace {

// The tests run in the program's folder, next to the module and the tool.
const wchar_t kModule[] = L"cv.smmw.mwctl.dll";

template <class F> F Export(HMODULE module, const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

// The tool's exit code and its output (stdout and stderr).
std::pair<int, std::string> RunHelpdesk(const std::string& arguments) {
    std::string output;
    FILE* pipe = _popen(("cvhelpdesk.exe " + arguments + " 2>&1").c_str(), "rb");
    if (!pipe) return {-1, output};
    char buffer[256];
    for (size_t read; (read = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, read);
    return {_pclose(pipe), output};
}

// The module starts with the profile named by CV_SIM_PROFILE: one nested beyond any stack is
// refused and the built-in profile kept (the parser's limit itself is checked natively).
TEST(SimModuleStart, ADeeplyNestedProfileInTheEnvironmentIsRefused) {
    const auto path = std::filesystem::temp_directory_path() / "cvpin-deep-profile.json";
    std::ofstream(path, std::ios::binary) << R"({"readers":[{"name":"R","description":)"
                                          << std::string(200000, '[') << std::string(200000, ']') << "}]}";
    SetEnvironmentVariableW(L"CV_SIM_PROFILE", path.c_str());
    HMODULE module = LoadLibraryW(kModule);
    ASSERT_NE(module, nullptr);
    auto pinState = Export<CvSimGetPinStateFn>(module, "CvSimGetPinState");
    EXPECT_EQ(pinState(L"Corvana Simulated Reader 0", nullptr, nullptr, nullptr), CVSIM_OK); // starts the module
    wchar_t text[1024] = {};
    Export<CvSimGetLastErrorFn>(module, "CvSimGetLastError")(text, 1024, nullptr);
    EXPECT_NE(wcsstr(text, L"nested more than"), nullptr) << text;
    FreeLibrary(module);
    SetEnvironmentVariableW(L"CV_SIM_PROFILE", nullptr);
    std::filesystem::remove(path);
}

// The cipher is CNG's: its answers are checked against published vectors (the native tests use
// a stand-in, and check how the tool reads what the user typed and refuses bad input).
TEST(SimHelpdeskTool, MatchesPublishedTripleDesVectors) {
    const std::pair<const char*, const char*> rows[] = {
        // NIST SP 800-67, three keys: the first block of its example.
        {"5468652071756663 0123456789ABCDEF23456789ABCDEF01456789ABCDEF0123", "A826 FD8C E53B 855F\r\n"},
        // Two keys (K3 = K1), typed as a user reads the challenge out.
        {"0123-4567-89ab-cde7 0123456789abcdeffedcba9876543210", "7F1D 0A77 826B 8AFF\r\n"},
    };
    for (const auto& [arguments, answer] : rows)
        EXPECT_EQ(RunHelpdesk(arguments), std::make_pair(0, std::string(answer))) << arguments;
}

// What the other tests rely on when a profile they load is refused: the reason, within the
// caller's buffer, and the cards as they were.
TEST(SimModule, ARefusedProfileIsExplainedAndKeepsTheCards) {
    HMODULE module = LoadLibraryW(kModule);
    ASSERT_NE(module, nullptr);
    auto loadJson = Export<CvSimLoadProfileJsonFn>(module, "CvSimLoadProfileJson");
    auto lastError = Export<CvSimGetLastErrorFn>(module, "CvSimGetLastError");
    ASSERT_EQ(loadJson(R"({"readers":[{"name":"R","card":{"serial":"01","type":"piv"}}]})"), CVSIM_OK);
    EXPECT_EQ(loadJson(R"({"readers":[{"name":"R","card":{"serial":"01","type":"smart"}}]})"), CVSIM_E_PROFILE);
    wchar_t text[256];
    EXPECT_EQ(lastError(text, 256, nullptr), CVSIM_OK);
    EXPECT_NE(std::wstring(text).find(L"readers[0].card.type"), std::wstring::npos) << text;
    EXPECT_EQ(lastError(text, 4, nullptr), CVSIM_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(wcslen(text), 3u);
    EXPECT_EQ(Export<CvSimRemoveCardFn>(module, "CvSimRemoveCard")(L"R"), CVSIM_OK);
    FreeLibrary(module);
}

} // namespace
