// The simulated module as the card layer and the tests see it: loaded from the program's folder,
// with the real CNG cipher, answered by the help-desk tool.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "smmw.h"
#include "smmw_sim.h"
#include "../native/smmw_test_support.h"

using namespace NV::SMMW;

namespace {

const wchar_t kUnblockable[] = L"Corvana Simulated Reader 1";
const char kAdminKey[] = "00112233445566778899AABBCCDDEEFF"; // sim/profiles/blocked-card.json

std::wstring ProgramFolder() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder(path);
    return folder.substr(0, folder.find_last_of(L'\\') + 1);
}

struct ToolResult {
    int exitCode = -1;
    std::string output; // stdout and stderr
};

ToolResult RunHelpdesk(const std::string& arguments) {
    ToolResult result;
    const std::wstring command = L"\"\"" + ProgramFolder() + L"cvhelpdesk.exe\" " +
                                 std::wstring(arguments.begin(), arguments.end()) + L" 2>&1\"";
    if (FILE* pipe = _wpopen(command.c_str(), L"rb")) {
        char buffer[256];
        for (size_t read; (read = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            result.output.append(buffer, read);
        result.exitCode = _pclose(pipe);
    }
    return result;
}

std::string Hex(const std::vector<uint8_t>& bytes) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (uint8_t b : bytes)
        text += {kDigits[b >> 4], kDigits[b & 15]};
    return text;
}

std::vector<uint8_t> Bytes(const std::string& groupedHex) {
    std::vector<uint8_t> bytes;
    std::string digits;
    for (char c : groupedHex)
        if (isxdigit(static_cast<unsigned char>(c))) digits += c;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

template <class F> F Export(HMODULE module, const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

using simtest::CodeOf;

// The module starts with the profile named by CV_SIM_PROFILE: one nested beyond any stack is
// refused and the built-in profile kept (the parser's limit itself is checked natively).
TEST(SimModuleStart, ADeeplyNestedProfileInTheEnvironmentIsRefused) {
    const auto path = std::filesystem::temp_directory_path() / "cvpin-deep-profile.json";
    std::ofstream(path, std::ios::binary) << R"({"readers":[{"name":"R","description":)"
                                          << std::string(200000, '[') << std::string(200000, ']') << "}]}";
    SetEnvironmentVariableW(L"CV_SIM_PROFILE", path.c_str());
    HMODULE module = LoadLibraryW((ProgramFolder() + L"cv.smmw.mwctl.dll").c_str());
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

class SimModule : public ::testing::Test {
  protected:
    void SetUp() override {
        module = LoadLibraryW((ProgramFolder() + L"cv.smmw.mwctl.dll").c_str());
        ASSERT_NE(module, nullptr);
        loadFile = Export<CvSimLoadProfileFileFn>(module, "CvSimLoadProfileFile");
        loadJson = Export<CvSimLoadProfileJsonFn>(module, "CvSimLoadProfileJson");
        pinState = Export<CvSimGetPinStateFn>(module, "CvSimGetPinState");
        pinEquals = Export<CvSimPinEqualsFn>(module, "CvSimPinEquals");
        removeCard = Export<CvSimRemoveCardFn>(module, "CvSimRemoveCard");
        lastError = Export<CvSimGetLastErrorFn>(module, "CvSimGetLastError");
        auto get = Export<GetSMMWControllerFn>(module, "GetSMMWController");
        ASSERT_TRUE(get && loadFile && loadJson && pinState && pinEquals && removeCard && lastError);
        controller = get();
        ASSERT_NE(controller, nullptr);
        controller->Initialize();
        ASSERT_EQ(loadFile((ProgramFolder() + L"profiles\\blocked-card.json").c_str()), CVSIM_OK);
    }
    void TearDown() override {
        if (auto loadDefault = Export<CvSimLoadDefaultProfileFn>(module, "CvSimLoadDefaultProfile")) loadDefault();
        FreeLibrary(module);
    }

    HMODULE module = nullptr;
    IController* controller = nullptr;
    CvSimLoadProfileFileFn loadFile = nullptr;
    CvSimLoadProfileJsonFn loadJson = nullptr;
    CvSimGetPinStateFn pinState = nullptr;
    CvSimPinEqualsFn pinEquals = nullptr;
    CvSimRemoveCardFn removeCard = nullptr;
    CvSimGetLastErrorFn lastError = nullptr;
};

// The cipher is CNG's: its answers are checked against published vectors (the native tests use
// a stand-in). The parsing of what the user typed is checked natively too.
TEST(SimHelpdeskTool, MatchesPublishedTripleDesVectorsAndRefusesBadInput) {
    const struct {
        const char* arguments;
        int exitCode;
        const char* output;
    } rows[] = {
        // NIST SP 800-67, three keys: the first block of its example.
        {"5468652071756663 0123456789ABCDEF23456789ABCDEF01456789ABCDEF0123", 0, "A826 FD8C E53B 855F\r\n"},
        // Two keys (K3 = K1), typed as a user reads the challenge out.
        {"0123-4567-89ab-cde7 0123456789abcdeffedcba9876543210", 0, "7F1D 0A77 826B 8AFF\r\n"},
        {"0123456789ABCDE7 0123456789ABCDEF", 2, "cvhelpdesk: administrator key: expected 16 or 24 bytes"},
        {"0123456789ABCDE7", 2, "cvhelpdesk: expected a challenge and an administrator key"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.arguments);
        const ToolResult result = RunHelpdesk(row.arguments);
        EXPECT_EQ(result.exitCode, row.exitCode);
        // Answers are the whole output (a text-mode line); errors start with the reason.
        EXPECT_EQ(result.output.find(row.output), 0u) << result.output;
        EXPECT_TRUE(row.exitCode || result.output == row.output) << result.output;
    }
}

TEST_F(SimModule, TheHelpdeskResponseUnblocksThePinWithTheNewOne) {
    IContext* context = simtest::OpenContext(*controller, kUnblockable);
    IPinCredential* pin = simtest::PrimaryPin(context);
    ASSERT_NE(pin, nullptr);
    const ToolResult answer = RunHelpdesk(Hex(pin->GetUnblockChallenge()) + " " + kAdminKey);
    ASSERT_EQ(answer.exitCode, 0) << answer.output;
    EXPECT_EQ(CodeOf([&] { pin->Unblock(Bytes(answer.output), L"2718281", 0); }), 0u);
    EXPECT_EQ(pinEquals(kUnblockable, L"2718281"), CVSIM_OK);
    EXPECT_EQ(pinEquals(kUnblockable, L"246810"), CVSIM_E_NO_MATCH);
    unsigned triesLeft = 99, maxTries = 0;
    int blocked = 1;
    ASSERT_EQ(pinState(kUnblockable, &triesLeft, &maxTries, &blocked), CVSIM_OK);
    EXPECT_EQ(triesLeft, 3u);
    EXPECT_EQ(blocked, 0);
    // A wrong response is refused across the module's boundary with its code.
    EXPECT_EQ(CodeOf([&] { pin->Unblock(Bytes(answer.output), L"2718281", 0); }), SMMW_E_WRONG_CODE);
    controller->ReleaseContext(context);
}

TEST_F(SimModule, ControlFunctionsAreNullSafeAndARefusedProfileKeepsTheCards) {
    EXPECT_EQ(removeCard(nullptr), CVSIM_E_INVALID_ARGUMENT);
    EXPECT_EQ(pinEquals(kUnblockable, nullptr), CVSIM_E_INVALID_ARGUMENT);
    EXPECT_EQ(pinState(nullptr, nullptr, nullptr, nullptr), CVSIM_E_INVALID_ARGUMENT);
    EXPECT_EQ(pinState(L"no such reader", nullptr, nullptr, nullptr), CVSIM_E_NOT_FOUND);
    EXPECT_EQ(loadJson(nullptr), CVSIM_E_INVALID_ARGUMENT);
    EXPECT_EQ(loadFile(nullptr), CVSIM_E_INVALID_ARGUMENT);

    EXPECT_EQ(loadJson(R"({"readers":[{"name":"R","card":{"serial":"01","type":"smart"}}]})"),
              CVSIM_E_PROFILE);
    unsigned needed = 0;
    wchar_t text[256];
    EXPECT_EQ(lastError(text, 256, &needed), CVSIM_OK);
    EXPECT_NE(std::wstring(text).find(L"readers[0].card.type"), std::wstring::npos) << text;
    EXPECT_EQ(lastError(text, 4, nullptr), CVSIM_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(wcslen(text), 3u);
    EXPECT_EQ(pinState(kUnblockable, nullptr, nullptr, nullptr), CVSIM_OK);
    EXPECT_EQ(removeCard(kUnblockable), CVSIM_OK);
    EXPECT_EQ(removeCard(kUnblockable), CVSIM_E_UNCHANGED);
}

} // namespace
