// Runs every prompt of the PIN library on the simulated reader; the PIN change applies the rules
// of the simulated card, read through the card layer. Then the story of a blocked card: wrong
// PINs until the card blocks, the unlock with the help desk, and the unlock's notices.
//   cvpindemo --interactive        a person answers the prompts
//   cvpindemo --scripted [--shots DIR]  a scripted user answers them; each dialog is saved as
//                                  DIR\<name>.png as shown on the screen
#include <windows.h>
#include <objbase.h>
#include <cstdio>
#include <functional>
#include <string>
#include "card/cv_card_management.h"
#include "cvpingui.h"
#include "cvpingui_reset_card_dlg.h"
#include "driver_win.h"
#include "resource_ids.h"
#include "screenshot_win.h"
#include "smmw_sim.h"

namespace {

// The reader of the simulated security module's built-in profile.
const wchar_t kReader[] = L"Corvana Simulated Reader 0";
const wchar_t kDefaultAdminKey[] = L"010203040506070801020304050607080102030405060708";
bool g_scripted = false;
std::wstring g_shots;

void Print(const char* what, int result) { printf("%-44s -> %d\n", what, result); fflush(stdout); }

// Lets the dialog paint, then saves it.
void Shot(DWORD threadId, HWND dialog, const wchar_t* name) {
    if (g_shots.empty()) return;
    RedrawWindow(dialog, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN);
    Sleep(300);  // the X server draws asynchronously
    std::wstring path = g_shots + L"\\" + name + L".png";
    if (!SaveThreadWindowsPng(threadId, path.c_str())) printf("  (could not save %ls)\n", path.c_str());
}

// Runs call on a caller thread; the scripted user acts on each dialog it opens.
int Run(const std::function<int()>& call, const std::function<void(drv::Caller&, HWND)>& user) {
    if (!g_scripted) return call();
    drv::Caller caller(call);
    HWND dialog = drv::WaitForDialog(caller);
    if (dialog) user(caller, dialog);
    caller.Wait(60000);
    return caller.Result();
}

char* g_pin = nullptr;
unsigned g_pinLength = 0;

int AskPin(int lastTry, unsigned minLen, unsigned maxLen) {
    return GetPINFromUser(nullptr, kReader, lastTry, minLen, maxLen, &g_pin, &g_pinLength, nullptr, nullptr, 0);
}

void ReportPin(const char* what, int result) {
    Print(what, result);
    if (result == CVPIN_OK) printf("  PIN received: %u characters (not shown)\n", g_pinLength);
    FreeGetPinBuffer(g_pin, g_pinLength);
    g_pin = nullptr;
    g_pinLength = 0;
}

void WINAPI CapsLockOn(void*) {
    // Runs on the dialog's thread: Caps Lock reads as toggled there, as after a key press.
    BYTE keys[256];
    GetKeyboardState(keys);
    keys[VK_CAPITAL] |= 1;
    SetKeyboardState(keys);
}

// The rules of the card in kReader, as the security module reports them.
PwdRuleArgs CardRules() {
    CVReader reader(kReader);
    CVCardManagement card(reader);
    PwdRuleArgs rules{0, 1, 0, CVPIN_NO_LENGTH_RULE, CVPIN_NO_LENGTH_RULE, 0};
    card.GetMinPINLen(&rules.dwMinPINLen);
    card.GetMaxPINLen(&rules.dwMaxPINLen);
    rules.bPreventAlphaPIN = card.IsAlphaPINCheckActivated();
    rules.bAllowWeakPIN = !card.IsWeakPINCheckActivated();
    printf("Card rules: %u to %u characters, digits only: %s, weak PINs refused: %s\n", rules.dwMinPINLen,
           rules.dwMaxPINLen, rules.bPreventAlphaPIN ? "yes" : "no", rules.bAllowWeakPIN ? "no" : "yes");
    return rules;
}

void RunChangePin() {
    static const PwdRuleArgs rules = CardRules();
    static wchar_t current[64], next[64];
    static unsigned currentLength, nextLength;
    int result = Run(
        [] {
            return (int)GetChangePINInfoFromUser_s(rules.bPreventAlphaPIN, rules.bAllowWeakPIN, rules.dwMinPINLen,
                                                   rules.dwMaxPINLen, 0, 0, next, 64, &nextLength, current, 64,
                                                   &currentLength, kReader, nullptr, 1, nullptr, nullptr, 0);
        },
        [](drv::Caller& c, HWND dlg) {
            auto field = [dlg](int id) { return drv::FindDescendant(dlg, id); };
            drv::TypeText(field(IDC_CURRENT_PIN_EDIT), L"123456");
            drv::TypeText(field(IDC_NEW_PIN_EDIT), L"1234");
            drv::TypeText(field(IDC_CONFIRM_PIN_EDIT), L"12");
            Shot(c.ThreadId(), dlg, L"change-pin-rules-unmet");
            drv::TypeText(field(IDC_NEW_PIN_EDIT), L"8059");  // 12348059: long enough, no sequence
            drv::TypeText(field(IDC_CONFIRM_PIN_EDIT), L"348059");
            Shot(c.ThreadId(), dlg, L"change-pin-rules-met");
            drv::Click(dlg, IDOK);
        });
    Print("GetChangePINInfoFromUser_s (card's rules)", result);
    if (result == 0) printf("  current PIN: %u characters, new PIN: %u characters (not shown)\n", currentLength, nextLength);
    SecureZeroMemory(current, sizeof(current));
    SecureZeroMemory(next, sizeof(next));
}

template <class Fn> Fn Sim(const char* name) {
    static HMODULE sim = LoadLibraryW(L"cv.smmw.mwctl.dll");
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(sim, name)));
}

void BlockTheCard() {
    unsigned tries = 0;
    for (const wchar_t* wrong : {L"111111", L"222222"}) {
        Sim<CvSimVerifyPinFn>("CvSimVerifyPin")(kReader, wrong, &tries);
        printf("PIN %ls refused by the card: %u tries left\n", wrong, tries);
    }
    Print("DisplayLastPINTry (the card's last try)", Run([] { return DisplayLastPINTry(kReader); },
                                                       [](drv::Caller&, HWND box) { drv::Click(box, IDOK); }));
    Sim<CvSimVerifyPinFn>("CvSimVerifyPin")(kReader, L"333333", &tries);
    printf("PIN 333333 refused by the card: %u tries left, the PIN is blocked\n", tries);
}

void RunUnlock() {
    Print("ShowUnlockDialog (wrong code, then the help desk's)", Run(
        [] { return (int)ShowUnlockDialog(nullptr, kReader, nullptr); },
        [](drv::Caller& c, HWND dlg) {
            auto field = [dlg](int id) { return drv::FindDescendant(dlg, id); };
            drv::TypeText(field(IDC_UL_RESPONSE_EDIT), L"0000-0000-0000-0000");
            drv::TypeText(field(IDC_UL_NEW_PIN_EDIT), L"24681357");
            drv::TypeText(field(IDC_UL_CONFIRM_EDIT), L"24681357");
            drv::ClickAway(dlg, IDOK);
            HWND failed = drv::WaitForDialogOver(c.ThreadId(), dlg);
            Shot(c.ThreadId(), failed, L"unlock-wrong-code");
            drv::Click(failed, IDOK);
            Sleep(500);  // the card's next challenge
            const std::wstring challenge = drv::ItemText(dlg, IDC_UL_CHALLENGE);
            const std::wstring response = drv::HelpDeskResponse(challenge, kDefaultAdminKey);
            printf("  the help desk reads out %ls\n", response.c_str());
            SetWindowTextW(field(IDC_UL_RESPONSE_EDIT), L"");
            drv::TypeText(field(IDC_UL_RESPONSE_EDIT), response.c_str());
            Shot(c.ThreadId(), dlg, L"unlock");
            drv::ClickAway(dlg, IDOK);
            HWND success = drv::WaitForDialogOver(c.ThreadId(), dlg);
            Shot(c.ThreadId(), success, L"unlock-success");
            drv::Click(success, IDOK);
        }));
    unsigned tries = 0;
    const int verified = Sim<CvSimVerifyPinFn>("CvSimVerifyPin")(kReader, L"24681357", &tries);
    printf("the card %s the new PIN (%u tries)\n", verified == CVSIM_OK ? "accepts" : "refuses", tries);
}

void RunUnlockNotices() {
    drv::ScopedSetting locked(L"Corvana.Notifications.CardLocked.Message", L"Your card is locked");
    drv::ScopedSetting manager(L"Corvana.Notifications.BlockedCardManager.BlockedCardManagerMessage",
                               L"Your card was blocked by your administrator. Please contact your help desk to have "
                               L"it replaced.");
    Print("ShowUnlockCode (box ticked: removed)", Run([] { return (int)ShowUnlockCode(nullptr, kReader); },
                                                     [](drv::Caller& c, HWND dlg) {
                                                         SendMessageW(drv::FindDescendant(dlg, IDC_UC_NEVER_DISPLAY),
                                                                      BM_SETCHECK, BST_CHECKED, 0);
                                                         Shot(c.ThreadId(), dlg, L"unlock-code");
                                                         drv::Click(dlg, IDOK);
                                                     }));
    Print("ShowCMLockedDlg (no toast here: the notice)", Run(
        [] {
            ShowCMLockedDlg(nullptr, kReader);
            return 0;
        },
        [](drv::Caller& c, HWND dlg) {
            Shot(c.ThreadId(), dlg, L"card-manager-blocked");
            drv::Click(dlg, IDOK);
        }));

    // A card that has no challenge (it takes a static code), and one whose unlock is not allowed.
    const auto loadFile = Sim<CvSimLoadProfileFileFn>("CvSimLoadProfileFile");
    if (loadFile(L"profiles\\blocked-card-variants.json") != CVSIM_OK) return;
    Print("ShowUnlockDialog (static code)", Run(
        [] { return (int)ShowUnlockDialog(nullptr, L"Corvana Simulated Reader 3", nullptr); },
        [](drv::Caller& c, HWND dlg) {
            auto field = [dlg](int id) { return drv::FindDescendant(dlg, id); };
            drv::TypeText(field(IDC_UL_RESPONSE_EDIT), L"8D3F-6A1C-0E5B-7294");
            drv::TypeText(field(IDC_UL_NEW_PIN_EDIT), L"20406080");
            drv::TypeText(field(IDC_UL_CONFIRM_EDIT), L"20406080");
            Shot(c.ThreadId(), dlg, L"unlock-static-code");
            drv::ClickAway(dlg, IDOK);
            drv::Click(drv::WaitForDialogOver(c.ThreadId(), dlg), IDOK);
        }));
    Print("ShowUnlockDialog (not allowed: the notice)",
          Run([] { return (int)ShowUnlockDialog(nullptr, L"Corvana Simulated Reader 4", nullptr); },
              [](drv::Caller& c, HWND dlg) {
                  Shot(c.ThreadId(), dlg, L"unlock-not-allowed");
                  drv::Click(dlg, IDOK);
              }));
    Print("CResetCardDialogMain (the reset form)", Run(
        [] {
            CResetCardDialogMain form(0, nullptr, 0, 0, 0, L"Corvana Simulated Reader 3", nullptr, nullptr, 0);
            form.SetChallenge(L"3F2A9C10B7E4D58A");
            return (int)form.DoModal();
        },
        [](drv::Caller& c, HWND dlg) {
            drv::Click(GetParent(drv::FindDescendant(dlg, IDC_RC_RADIO_CODE)), IDC_RC_RADIO_CODE);
            drv::TypeText(drv::FindDescendant(dlg, IDC_RC_RESPONSE_EDIT), L"12345678");
            Shot(c.ThreadId(), dlg, L"reset-card");
            drv::Click(dlg, IDCANCEL);
        }));
    Sim<CvSimLoadDefaultProfileFn>("CvSimLoadDefaultProfile")();
}

void RunAll() {
    ReportPin("GetPINFromUser (PIN typed, OK)", Run([] { return AskPin(0, 4, 8); }, [](drv::Caller& c, HWND dlg) {
                  drv::TypeText(GetDlgItem(dlg, IDC_PIN_EDIT), L"4711");
                  Shot(c.ThreadId(), dlg, L"pin-prompt");
                  drv::Click(dlg, IDOK);
              }));

    // Two views for the screenshots only: a person sees these states by typing.
    if (g_scripted) ReportPin("GetPINFromUser (too long: OK disabled)", Run([] { return AskPin(0, 4, 8); }, [](drv::Caller& c, HWND dlg) {
                  drv::TypeText(GetDlgItem(dlg, IDC_PIN_EDIT), L"123456789");
                  Shot(c.ThreadId(), dlg, L"pin-prompt-too-long");
                  drv::Click(dlg, IDOK);  // disabled: nothing happens
                  drv::Click(dlg, IDCANCEL);
              }));

    if (g_scripted) ReportPin("GetPINFromUser (Caps Lock on)", Run(
                  [] {
                      return GetPINFromUser(nullptr, kReader, 0, 4, 8, &g_pin, &g_pinLength, CapsLockOn, nullptr, 50);
                  },
                  [](drv::Caller& c, HWND dlg) {
                      HWND edit = GetDlgItem(dlg, IDC_PIN_EDIT);
                      Sleep(200);  // a few ticks of the callback
                      PostMessageW(edit, WM_KEYUP, VK_CAPITAL, 0xC0000001);
                      Sleep(500);
                      Shot(c.ThreadId(), dlg, L"pin-prompt-caps-lock");
                      drv::Click(dlg, IDCANCEL);
                  }));

    ReportPin("GetPINFromUser (last try warning, then card removed)",
              Run([] { return AskPin(1, 4, 8); }, [](drv::Caller& c, HWND box) {
                  Shot(c.ThreadId(), box, L"last-try-warning");
                  drv::Click(box, IDOK);
                  HWND dlg = nullptr;
                  drv::WaitUntil([&] {
                      dlg = drv::WaitForDialog(c, 100);
                      return dlg && GetDlgItem(dlg, IDC_PIN_EDIT);
                  });
                  drv::RemoveCard(kReader);
              }));

    RunChangePin();

    Print("ShowKeyPadPrompt (cancelled by the caller)",
          Run([] { return ShowKeyPadPrompt(nullptr, kReader, nullptr, 0, nullptr, nullptr, 0); },
              [](drv::Caller& c, HWND dlg) {
                  Shot(c.ThreadId(), dlg, L"keypad-prompt");
                  CancelKeyPadPrompt();
              }));

    Print("ShowKeyPadChgPinPrompt (new PIN step)",
          Run([] { return ShowKeyPadChgPinPrompt(nullptr, kReader, nullptr, TRUE, 0, nullptr, nullptr, 0); },
              [](drv::Caller& c, HWND dlg) {
                  Shot(c.ThreadId(), dlg, L"keypad-change-pin");
                  CancelKeyPadChgPinPrompt();
              }));

    Print("ShowPINAlwaysPrompt (OK)", Run([] { return ShowPINAlwaysPrompt(nullptr, kReader); },
                                          [](drv::Caller& c, HWND dlg) {
                                              Shot(c.ThreadId(), dlg, L"pin-always");
                                              drv::Click(dlg, IDOK);
                                          }));

    Print("ShowAbout", Run([] { return (int)ShowAbout(0, L"PIN user interface demo"); },
                           [](drv::Caller& c, HWND dlg) {
                               Shot(c.ThreadId(), dlg, L"about");
                               drv::Click(dlg, IDOK);
                           }));

    BlockTheCard();
    if (!g_scripted)
        printf("The help desk's response: cvhelpdesk.exe <challenge> %ls\n", kDefaultAdminKey);
    RunUnlock();
    RunUnlockNotices();

    for (int code : {1, 2, 5, 11, 12, 14, 23}) printf("GetErrorString(%2d) = \"%ls\"\n", code, GetErrorString(code));
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    for (int i = 1; i < argc; ++i) {
        std::wstring arg = argv[i];
        if (arg == L"--scripted") g_scripted = true;
        if (arg == L"--shots" && i + 1 < argc) g_shots = argv[++i];
    }
    if (!g_scripted) g_shots.clear();
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    printf("Corvana PIN user interface demo (%s user)\n", g_scripted ? "scripted" : "interactive");
    RunAll();
    CoUninitialize();
    return 0;
}
