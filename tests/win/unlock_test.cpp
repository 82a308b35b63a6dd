// The card unlock as a caller and a user see it: a blocked card on the simulated module, the
// help desk's response computed by its own tool from the challenge read off the screen.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "cvpingui.h"
#include "driver_win.h"
#include "resource_ids.h"
#include "smmw_sim.h"

using namespace drv;

namespace {

const wchar_t kHelpDeskReader[] = L"Unlock Reader";
const wchar_t kStaticReader[] = L"Static Reader";
const wchar_t kFailingReader[] = L"Failing Reader";
const wchar_t kAdminKey[] = L"00112233445566778899AABBCCDDEEFF";

// One blocked PIV card per way of unlocking it.
const char kProfile[] = R"({"readers": [
  {"name": "Unlock Reader", "card": {"serial": "0102030405060708", "type": "piv", "transactionTimeout": 1,
    "pin": {"value": "246810", "min": 6, "max": 8, "weakCheck": true, "triesLeft": 0, "maxTries": 3},
    "unblock": {"adminKey": "00112233445566778899AABBCCDDEEFF", "authenticable": true}}},
  {"name": "Static Reader", "card": {"serial": "0102030405060709", "type": "piv",
    "pin": {"value": "246810", "min": 6, "max": 8, "triesLeft": 0, "maxTries": 3},
    "unblock": {"staticCode": "8D3F6A1C0E5B7294"}}},
  {"name": "Failing Reader", "card": {"serial": "010203040506070B", "type": "piv",
    "pin": {"value": "246810", "min": 6, "max": 8, "triesLeft": 0, "maxTries": 3},
    "unblock": {"adminKey": "00112233445566778899AABBCCDDEEFF", "authenticable": true},
    "failures": [{"operation": "Unblock", "code": 3012}]}}
]})";

template <class Fn> Fn SimFunction(const char* name) {
    static HMODULE sim = LoadLibraryW(L"cv.smmw.mwctl.dll");
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(sim, name)));
}

// The smart-card agent: a window of class "CvTrayHandlerClass" on a thread of its own, keeping
// what the library tells it (dwData and the text).
class Agent {
  public:
    Agent() : m_thread([this] { Run(); }) {
        WaitUntil([&] { return m_threadId.load() != 0; });
    }
    ~Agent() {
        PostThreadMessageW(m_threadId, WM_QUIT, 0, 0);
        m_thread.join();
    }
    std::wstring Received() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_received;
    }

  private:
    static LRESULT CALLBACK Proc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
        auto* self = reinterpret_cast<Agent*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
        if (message != WM_COPYDATA || !self) return DefWindowProcW(hwnd, message, wParam, lParam);
        const auto* data = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
        std::lock_guard<std::mutex> lock(self->m_mutex);
        self->m_received =
            std::to_wstring(data->dwData) + L" " +
            std::wstring(static_cast<const wchar_t*>(data->lpData), data->cbData / sizeof(wchar_t));
        return TRUE;
    }
    void Run() {
        WNDCLASSW wc{0,       Proc,    0,       0,       GetModuleHandleW(nullptr),
                     nullptr, nullptr, nullptr, nullptr, L"CvTrayHandlerClass"};
        RegisterClassW(&wc);
        HWND window = CreateWindowW(wc.lpszClassName, L"agent", WS_POPUP, 0, 0, 9, 9, nullptr, nullptr,
                                    nullptr, nullptr);
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        m_threadId = GetCurrentThreadId();
        MSG msg;
        while (GetMessageW(&msg, nullptr, 0, 0) > 0)
            DispatchMessageW(&msg);
        DestroyWindow(window);
    }

    std::mutex m_mutex;
    std::wstring m_received;
    std::atomic<DWORD> m_threadId{0};
    std::thread m_thread;
};

class Unlock : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(SimFunction<CvSimLoadProfileJsonFn>("CvSimLoadProfileJson")(kProfile), CVSIM_OK);
    }
    void TearDown() override { SimFunction<CvSimLoadDefaultProfileFn>("CvSimLoadDefaultProfile")(); }

    // Opens the unlock of reader; the dialog must appear.
    HWND Open(const wchar_t* reader, HWND parent = nullptr) {
        m_caller = std::make_unique<Caller>([=] { return (int)ShowUnlockDialog(parent, reader, nullptr); });
        m_dialog = WaitForDialog(*m_caller);
        EXPECT_NE(m_dialog, nullptr);
        // The rule list arrives with the first message round; the dialog is complete with it.
        WaitUntil([&] { return FindDescendant(m_dialog, IDC_RULE_BOX) != nullptr; });
        return m_dialog;
    }
    void Type(int id, const wchar_t* text) {
        HWND edit = FindDescendant(m_dialog, id);
        SetWindowTextW(edit, L"");
        TypeText(edit, text);
    }
    void TypeAll(const wchar_t* response, const wchar_t* pin, const wchar_t* confirm) {
        Type(IDC_UL_RESPONSE_EDIT, response);
        Type(IDC_UL_NEW_PIN_EDIT, pin);
        Type(IDC_UL_CONFIRM_EDIT, confirm);
    }
    bool OkEnabled() { return IsItemEnabled(m_dialog, IDOK); }
    // OK, then OK in the success dialog it opens: the call's result.
    int ConfirmUnlock() {
        ClickAway(m_dialog, IDOK);
        HWND success = WaitForDialogOver(m_caller->ThreadId(), m_dialog);
        EXPECT_NE(success, nullptr) << "no success dialog";
        if (success) Click(success, IDOK);
        return Finish();
    }
    int Finish() {
        EXPECT_TRUE(m_caller->Wait());
        return m_caller->Result();
    }
    void TearDownDialog() {
        if (m_caller && !m_caller->Finished()) Click(m_dialog, IDCANCEL);
    }

    std::unique_ptr<Caller> m_caller;
    HWND m_dialog = nullptr;
};

TEST_F(Unlock, TheResponseMustBeSixteenHexDigitsAndThePinsMustMeetTheRules) {
    Open(kHelpDeskReader);
    const std::wstring challenge = ItemText(m_dialog, IDC_UL_CHALLENGE);
    EXPECT_EQ(challenge.size(), 19u) << "four groups of four";
    EXPECT_EQ(std::count(challenge.begin(), challenge.end(), L'-'), 3);
    GUITHREADINFO gui{sizeof gui};
    ASSERT_TRUE(GetGUIThreadInfo(m_caller->ThreadId(), &gui));
    EXPECT_EQ(gui.hwndFocus, FindDescendant(m_dialog, IDC_UL_RESPONSE_EDIT))
        << "the user types the code first";
    EXPECT_EQ(GetForegroundWindow(), m_dialog);
    const struct {
        const wchar_t *response, *pin, *confirm;
        bool ok;
    } cases[] = {
        {L"0123456789abcdef", L"135790", L"135790", true},
        {L"0123-4567-89AB-CDEF", L"135790", L"135790", true},
        {L"0123456789ABCDE", L"135790", L"135790", false},   // 15 digits
        {L"0123456789ABCDEF0", L"135790", L"135790", false}, // 17
        {L"0123456789ABCDEG", L"135790", L"135790", false},
        {L"0123456789ABCDEF", L"135790", L"135791", false}, // confirmation differs
        {L"0123456789ABCDEF", L"123456", L"123456", false}, // weak
        {L"0123456789ABCDEF", L"13579a", L"13579a", false}, // digits only on a PIV card
        {L"0123456789ABCDEF", L"13579", L"13579", false},   // too short
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.response);
        TypeAll(c.response, c.pin, c.confirm);
        EXPECT_EQ(OkEnabled(), c.ok) << c.pin << " / " << c.confirm;
    }
    Click(m_dialog, IDCANCEL);
    EXPECT_EQ(Finish(), IDCANCEL);
}

TEST_F(Unlock, AWrongResponseKeepsTheDialogOpenAndTheNextOneUnlocksTheCard) {
    Agent agent;
    Open(kHelpDeskReader);
    const std::wstring first = ItemText(m_dialog, IDC_UL_CHALLENGE);
    TypeAll(L"0000-0000-0000-0000", L"135790", L"135790");
    ClickAway(m_dialog, IDOK);
    HWND failed = WaitForDialogOver(m_caller->ThreadId(), m_dialog);
    ASSERT_NE(failed, nullptr);
    EXPECT_NE(ItemText(failed, IDC_OUTCOME_MESSAGE).find(L"not correct"), std::wstring::npos);
    Click(failed, IDOK);
    EXPECT_TRUE(WaitUntil([&] { return !IsWindowVisible(failed); }));
    EXPECT_FALSE(m_caller->Finished());
    // A challenge answers one attempt: the card's next one is shown for the corrected code.
    EXPECT_TRUE(WaitUntil([&] { return ItemText(m_dialog, IDC_UL_CHALLENGE) != first; }));
    EXPECT_EQ(ItemText(m_dialog, IDC_UL_RESPONSE_EDIT), L"0000-0000-0000-0000");

    const std::wstring response = HelpDeskResponse(ItemText(m_dialog, IDC_UL_CHALLENGE), kAdminKey);
    ASSERT_EQ(response.size(), 19u);
    Type(IDC_UL_RESPONSE_EDIT, response.c_str());
    EXPECT_EQ(ConfirmUnlock(), IDOK);
    EXPECT_EQ(SimFunction<CvSimPinEqualsFn>("CvSimPinEquals")(kHelpDeskReader, L"135790"), CVSIM_OK);
    EXPECT_EQ(agent.Received(), std::wstring(L"78946 Unlock Reader", 20))
        << "the agent is told, terminator included";
}

TEST_F(Unlock, TheTransactionOutlivesItsTimeOutWhileTheUserTypes) {
    // A lapsed transaction shows only as the error its end reports, in the log.
    wchar_t log[MAX_PATH];
    GetTempPathW(MAX_PATH, log);
    wcscat(log, L"cvpin-unlock-transaction.log");
    DeleteFileW(log);
    ScopedSetting logFile(L"Corvana.Logging.File", log);
    Open(kHelpDeskReader);
    // The card's transaction lapses after 1 s unless renewed; the dialog renews it every 0.5 s.
    Sleep(2500);
    const std::wstring response = HelpDeskResponse(ItemText(m_dialog, IDC_UL_CHALLENGE), kAdminKey);
    TypeAll(response.c_str(), L"97531086", L"97531086");
    EXPECT_EQ(ConfirmUnlock(), IDOK);
    std::string errors;
    if (FILE* f = _wfopen(log, L"rb")) {
        char buffer[4096];
        for (size_t n; (n = fread(buffer, 1, sizeof buffer, f)) > 0;)
            errors.append(buffer, n);
        fclose(f);
    }
    EXPECT_EQ(errors.find("transaction"), std::string::npos) << errors;
}

TEST_F(Unlock, ACardWithoutAChallengeTakesItsStaticCodeInAShorterDialog) {
    Open(kHelpDeskReader);
    RECT full;
    GetWindowRect(m_dialog, &full);
    Click(m_dialog, IDCANCEL);
    Finish();

    Open(kStaticReader);
    RECT shorter;
    GetWindowRect(m_dialog, &shorter);
    EXPECT_EQ((full.bottom - full.top) - (shorter.bottom - shorter.top), 100);
    for (int id : {IDC_UL_CHALLENGE, IDC_UL_CHALLENGE_LABEL, IDC_UL_INSTRUCTION, IDC_UL_CHALLENGE_NOTE})
        EXPECT_FALSE(IsItemVisible(m_dialog, id)) << id;
    TypeAll(L"8d3f-6a1c-0e5b-7294", L"20406080", L"20406080");
    EXPECT_EQ(ConfirmUnlock(), IDOK);
    EXPECT_EQ(SimFunction<CvSimPinEqualsFn>("CvSimPinEquals")(kStaticReader, L"20406080"), CVSIM_OK);

    Open(kStaticReader);
    RemoveCard(kStaticReader);
    EXPECT_EQ(Finish(), IDCANCEL) << "removing the card ends the dialog";
}

TEST_F(Unlock, AnotherCardErrorIsShownAndTheDialogStays) {
    ScopedSetting tel(L"Corvana.Notifications.ContactTel", L"+1 555 0100");
    Open(kFailingReader);
    EXPECT_NE(ItemText(m_dialog, IDC_UL_INSTRUCTION).find(L"+1 555 0100"), std::wstring::npos);
    RemoveCard(L"another reader"); // other readers' removals change nothing
    TypeAll(L"0123456789ABCDEF", L"13579024", L"13579024");
    ClickAway(m_dialog, IDOK);
    HWND failed = WaitForDialogOver(m_caller->ThreadId(), m_dialog);
    ASSERT_NE(failed, nullptr);
    const std::wstring message = ItemText(failed, IDC_OUTCOME_MESSAGE);
    EXPECT_EQ(message.find(L"not correct"), std::wstring::npos) << "only a wrong code says so";
    EXPECT_NE(message.find(L"could not be unlocked"), std::wstring::npos);
    Click(failed, IDOK);
    EXPECT_TRUE(WaitUntil([&] { return !IsWindowVisible(failed); }));
    EXPECT_FALSE(m_caller->Finished());
    Click(m_dialog, IDCANCEL);
    EXPECT_EQ(Finish(), IDCANCEL);
}

} // namespace
