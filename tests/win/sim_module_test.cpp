// The simulated module as the card layer and the tests see it: loaded from the program's folder,
// with the real CNG cipher, answered by the help-desk tool.
#include <gtest/gtest.h>
#include <windows.h>

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
    DWORD exitCode = 0xFFFFFFFF;
    std::string output; // stdout and stderr
};

ToolResult RunHelpdesk(const std::string& arguments) {
    ToolResult result;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return result;
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = writeEnd;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    std::wstring command =
        L"\"" + ProgramFolder() + L"cvhelpdesk.exe\" " + std::wstring(arguments.begin(), arguments.end());
    PROCESS_INFORMATION process{};
    const BOOL started = CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                                        nullptr, nullptr, &startup, &process);
    CloseHandle(writeEnd);
    if (started) {
        char buffer[256];
        DWORD read = 0;
        while (ReadFile(readEnd, buffer, sizeof buffer, &read, nullptr) && read > 0)
            result.output.append(buffer, read);
        WaitForSingleObject(process.hProcess, 30000);
        GetExitCodeProcess(process.hProcess, &result.exitCode);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    CloseHandle(readEnd);
    return result;
}

std::string Hex(const std::vector<uint8_t>& bytes) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (uint8_t b : bytes) {
        text += kDigits[b >> 4];
        text += kDigits[b & 15];
    }
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

class SimModule : public ::testing::Test {
  protected:
    void SetUp() override {
        module = LoadLibraryW((ProgramFolder() + L"cv.smmw.mwctl.dll").c_str());
        ASSERT_NE(module, nullptr);
        auto get = Export<GetSMMWControllerFn>(module, "GetSMMWController");
        loadFile = Export<CvSimLoadProfileFileFn>(module, "CvSimLoadProfileFile");
        loadJson = Export<CvSimLoadProfileJsonFn>(module, "CvSimLoadProfileJson");
        loadDefault = Export<CvSimLoadDefaultProfileFn>(module, "CvSimLoadDefaultProfile");
        pinState = Export<CvSimGetPinStateFn>(module, "CvSimGetPinState");
        pinEquals = Export<CvSimPinEqualsFn>(module, "CvSimPinEquals");
        removeCard = Export<CvSimRemoveCardFn>(module, "CvSimRemoveCard");
        lastError = Export<CvSimGetLastErrorFn>(module, "CvSimGetLastError");
        ASSERT_TRUE(get && loadFile && loadJson && loadDefault && pinState && pinEquals && removeCard &&
                    lastError);
        controller = get();
        ASSERT_NE(controller, nullptr);
        controller->Initialize();
        ASSERT_EQ(loadFile((ProgramFolder() + L"profiles\\blocked-card.json").c_str()), CVSIM_OK);
    }
    void TearDown() override {
        if (loadDefault) loadDefault();
        if (module) FreeLibrary(module);
    }
    IPinCredential* UserPin(IContext* context) { return simtest::PrimaryPin(context); }
    IContext* Open(const wchar_t* reader) { return simtest::OpenContext(*controller, reader); }

    HMODULE module = nullptr;
    IController* controller = nullptr;
    CvSimLoadProfileFileFn loadFile = nullptr;
    CvSimLoadProfileJsonFn loadJson = nullptr;
    CvSimLoadDefaultProfileFn loadDefault = nullptr;
    CvSimGetPinStateFn pinState = nullptr;
    CvSimPinEqualsFn pinEquals = nullptr;
    CvSimRemoveCardFn removeCard = nullptr;
    CvSimGetLastErrorFn lastError = nullptr;
};

TEST(SimHelpdeskTool, MatchesPublishedTripleDesVectorsAndRefusesBadInput) {
    const struct {
        const char* arguments;
        DWORD exitCode;
        const char* output;
    } rows[] = {
        // NIST SP 800-67, three keys: the first block of its example.
        {"5468652071756663 0123456789ABCDEF23456789ABCDEF01456789ABCDEF0123", 0, "A826 FD8C E53B 855F\r\n"},
        // Two keys (K3 = K1), typed as a user reads the challenge out.
        {"01 23 45 67 89 AB CD E7 0123456789ABCDEFFEDCBA9876543210", 0, "7F1D 0A77 826B 8AFF\r\n"},
        {"0123-4567-89ab-cde7 0123456789abcdeffedcba9876543210", 0, "7F1D 0A77 826B 8AFF\r\n"},
        {"0123456789ABCDE7 0123456789ABCDEF", 2, "cvhelpdesk: administrator key: expected 16 or 24 bytes"},
        {"0123456789ABCDEZ 0123456789ABCDEFFEDCBA9876543210", 2, "cvhelpdesk: challenge: character 16"},
        {"0123456789ABCDE7", 2, "cvhelpdesk: expected a challenge and an administrator key"},
    };
    for (const auto& row : rows) {
        const ToolResult result = RunHelpdesk(row.arguments);
        EXPECT_EQ(result.exitCode, row.exitCode) << row.arguments;
        // Answers are the whole output (a text-mode line); errors start with the reason.
        if (row.exitCode == 0) {
            EXPECT_EQ(result.output, row.output) << row.arguments;
        } else {
            EXPECT_EQ(result.output.find(row.output), 0u) << row.arguments << " -> " << result.output;
        }
    }
}

TEST_F(SimModule, HelpdeskResponseUnblocksAndAWrongOneCostsATry) {
    IContext* context = Open(kUnblockable);
    IPinCredential* pin = UserPin(context);
    ASSERT_NE(pin, nullptr);
    CSMMWAccessControlRight* right = pin->GetAccessRight(L"ActionUnblock");
    ASSERT_TRUE(right && right->IsAuthenticable());

    std::vector<uint8_t> challenge = pin->GetUnblockChallenge();
    ASSERT_EQ(challenge.size(), 8u);
    // A response for the wrong key.
    ToolResult wrong = RunHelpdesk(Hex(challenge) + " 0123456789ABCDEFFEDCBA9876543210");
    ASSERT_EQ(wrong.exitCode, 0u);
    EXPECT_EQ(CodeOf([&] { pin->Unblock(Bytes(wrong.output), L"2718281", 0); }), SMMW_E_WRONG_CODE);
    unsigned triesLeft = 99, maxTries = 0;
    int blocked = 0;
    ASSERT_EQ(pinState(kUnblockable, &triesLeft, &maxTries, &blocked), CVSIM_OK);
    EXPECT_EQ(triesLeft, 0u);
    EXPECT_EQ(blocked, 1);

    challenge = pin->GetUnblockChallenge();
    const ToolResult answer = RunHelpdesk(Hex(challenge) + " " + kAdminKey);
    ASSERT_EQ(answer.exitCode, 0u) << answer.output;
    EXPECT_EQ(CodeOf([&] { pin->Unblock(Bytes(answer.output), L"2718281", 0); }), 0u);
    EXPECT_EQ(pinEquals(kUnblockable, L"2718281"), CVSIM_OK);
    EXPECT_EQ(pinEquals(kUnblockable, L"246810"), CVSIM_E_NO_MATCH);
    ASSERT_EQ(pinState(kUnblockable, &triesLeft, &maxTries, &blocked), CVSIM_OK);
    EXPECT_EQ(triesLeft, 3u);
    EXPECT_EQ(blocked, 0);
    controller->ReleaseContext(context);
}

class CountingSink : public IReaderEventSink {
  public:
    void OnReaderEvent(ReaderEventKind kind, const wchar_t* reader) override {
        if (kind == READER_EVENT_CARD_REMOVED && std::wstring(reader) == kUnblockable) ++removals;
        thread = GetCurrentThreadId();
    }
    int removals = 0;
    DWORD thread = 0;
};

TEST_F(SimModule, ControlFunctionsAreNullSafeAndRemovalReachesSinksAndContexts) {
    EXPECT_EQ(removeCard(nullptr), CVSIM_E_INVALID_ARGUMENT);
    EXPECT_EQ(pinEquals(kUnblockable, nullptr), CVSIM_E_INVALID_ARGUMENT);
    EXPECT_EQ(pinState(nullptr, nullptr, nullptr, nullptr), CVSIM_E_INVALID_ARGUMENT);
    EXPECT_EQ(pinState(L"no such reader", nullptr, nullptr, nullptr), CVSIM_E_NOT_FOUND);
    EXPECT_EQ(loadJson(nullptr), CVSIM_E_INVALID_ARGUMENT);
    EXPECT_EQ(loadFile(nullptr), CVSIM_E_INVALID_ARGUMENT);

    // A refused profile keeps the cards and says why.
    EXPECT_EQ(loadJson(R"({"readers":[{"name":"R","card":{"serial":"01","type":"smart"}}]})"),
              CVSIM_E_PROFILE);
    unsigned needed = 0;
    wchar_t text[256];
    EXPECT_EQ(lastError(text, 256, &needed), CVSIM_OK);
    EXPECT_NE(std::wstring(text).find(L"readers[0].card.type"), std::wstring::npos) << text;
    EXPECT_EQ(lastError(text, 4, nullptr), CVSIM_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(wcslen(text), 3u);
    EXPECT_EQ(pinState(kUnblockable, nullptr, nullptr, nullptr), CVSIM_OK);

    CountingSink sink;
    controller->Subscribe(&sink);
    IContext* context = Open(kUnblockable);
    ASSERT_EQ(removeCard(kUnblockable), CVSIM_OK);
    EXPECT_EQ(removeCard(kUnblockable), CVSIM_E_UNCHANGED);
    controller->Unsubscribe(&sink);
    EXPECT_EQ(sink.removals, 1);
    EXPECT_EQ(sink.thread, GetCurrentThreadId());
    CVData serial;
    EXPECT_EQ(CodeOf([&] { context->GetCard()->GetProperty(0, serial); }), SMMW_E_CARD_REMOVED);
    controller->ReleaseContext(context);
}

} // namespace
