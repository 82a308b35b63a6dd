// Owners from outside the library that once hung its caller: windows the user cannot see, or that
// are gone. Each case runs in a child process of this program under a watchdog, so that a prompt
// that never shows (and never returns) fails its test instead of holding up the run.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <functional>
#include <string>

#include "cvpingui.h"
#include "driver_win.h"
#include "self_child_win.h"

using namespace drv;

namespace {

const wchar_t kCaseVariable[] = L"CVPIN_BAD_INPUT_CASE";
const wchar_t kReader[] = L"Corvana Simulated Reader 0";
constexpr DWORD kWatchdogMs = 45000;

HWND Window(DWORD style, HWND parent = nullptr) {
    return CreateWindowExW(0, L"STATIC", L"Caller's window", style, 100, 100, 300, 200, parent, nullptr, nullptr,
                           nullptr);
}

// A test of the child suite cannot end cleanly while a prompt hangs on another of its threads.
[[noreturn]] void ChildFails(const char* what, const wchar_t* prompt) {
    fprintf(stderr, "%s: %ls\n", what, prompt);
    fflush(stderr);
    TerminateProcess(GetCurrentProcess(), 3);
    for (;;) Sleep(INFINITE);
}

struct Prompt {
    const wchar_t* name;
    std::function<int(HWND owner)> open;
};

const Prompt kPrompts[] = {
    {L"GetPINFromUser",
     [](HWND owner) {
         char* pin = nullptr;
         unsigned length = 0;
         return GetPINFromUser(owner, kReader, 0, 4, 8, &pin, &length, nullptr, nullptr, 0);
     }},
    {L"ShowKeyPadPrompt", [](HWND owner) { return ShowKeyPadPrompt(owner, kReader, nullptr, 0, nullptr, nullptr, 0); }},
    {L"ShowKeyPadChgPinPrompt",
     [](HWND owner) { return ShowKeyPadChgPinPrompt(owner, kReader, nullptr, FALSE, 0, nullptr, nullptr, 0); }},
    {L"ShowPINAlwaysPrompt", [](HWND owner) { return ShowPINAlwaysPrompt(owner, kReader); }},
    {L"GetChangePINInfoFromUser_s",
     [](HWND owner) {
         wchar_t next[64], current[64];
         unsigned nextLength = 0, currentLength = 0;
         return static_cast<int>(GetChangePINInfoFromUser_s(0, 1, 4, 8, 0, 0, next, 64, &nextLength, current, 64,
                                                            &currentLength, kReader, owner, 1, nullptr, nullptr, 0));
     }},
};

// The owner named by the case, made on the calling thread as a caller would: the window given to
// the prompts, the one that should own them and the one disabled meanwhile (null: none), and the
// one to destroy at the end.
struct Owner {
    HWND given = nullptr, expected = nullptr, disabled = nullptr, made = nullptr;
};

Owner MakeOwner(const std::wstring& kind) {
    const DWORD top = WS_OVERLAPPEDWINDOW, child = WS_CHILD | WS_VISIBLE;
    Owner o;
    if (kind == L"message-only" || kind == L"visible-message-only") {
        o.made = o.given = Window(kind[0] == L'v' ? WS_VISIBLE : 0, HWND_MESSAGE);
    } else if (kind == L"child-of-message-only") {
        o.given = Window(child, o.made = Window(0, HWND_MESSAGE));
    } else if (kind == L"HWND_MESSAGE") {
        o.given = HWND_MESSAGE;
    } else if (kind == L"hidden" || kind == L"minimized") {
        o.made = o.given = o.disabled = Window(kind == L"hidden" ? top : top | WS_VISIBLE | WS_MINIMIZE);
    } else if (kind == L"destroyed") {
        DestroyWindow(o.given = Window(top | WS_VISIBLE));
    } else if (kind == L"child-of-visible") {
        o.given = Window(child, o.made = o.expected = o.disabled = Window(top | WS_VISIBLE));
    } else if (kind.rfind(L"other-process:", 0) == 0) {
        o.given = o.expected = o.disabled = reinterpret_cast<HWND>(static_cast<INT_PTR>(std::stoll(kind.substr(14))));
    }
    return o;
}

// In the child: every prompt with the case's owner shows on the desktop, owned as expected, keeps
// the caller's window disabled while it runs, and ends when cancelled.
TEST(BadInputChild, DISABLED_EveryPromptShowsWithTheOwner) {
    wchar_t kind[64] = {};
    GetEnvironmentVariableW(kCaseVariable, kind, 64);
    const Owner owner = MakeOwner(kind);
    for (const Prompt& prompt : kPrompts) {
        Caller caller([&] { return prompt.open(owner.given); });
        HWND dialog = WaitForDialog(caller, 20000);
        if (!dialog) ChildFails("no visible prompt", prompt.name);
        if (GetAncestor(dialog, GA_PARENT) != GetDesktopWindow()) ChildFails("not on the desktop", prompt.name);
        EXPECT_EQ(GetWindow(dialog, GW_OWNER), owner.expected) << prompt.name;
        EXPECT_TRUE(!owner.disabled || !IsWindowEnabled(owner.disabled)) << prompt.name;
        PostMessageW(dialog, WM_CLOSE, 0, 0);
        if (!caller.Wait()) ChildFails("the prompt did not end", prompt.name);
        EXPECT_EQ(caller.Result(), CVPIN_FAILED) << prompt.name;
        EXPECT_TRUE(!owner.disabled || IsWindowEnabled(owner.disabled)) << prompt.name;
    }
    if (owner.made) DestroyWindow(owner.made);
}

// A visible window of this process stands for one of another process: the prompt's owner.
TEST(BadInput, PromptsShowAndEndWhateverTheOwner) {
    HWND other = Window(WS_OVERLAPPEDWINDOW | WS_VISIBLE);
    ASSERT_NE(other, nullptr);
    const std::wstring kinds[] = {L"message-only", L"visible-message-only", L"child-of-message-only",
                                  L"HWND_MESSAGE", L"hidden",               L"minimized",
                                  L"destroyed",    L"child-of-visible",
                                  L"other-process:" + std::to_wstring(reinterpret_cast<INT_PTR>(other))};
    for (const std::wstring& kind : kinds) {
        SetEnvironmentVariableW(kCaseVariable, kind.c_str());
        EXPECT_EQ(RunSelfChild(L"BadInputChild.DISABLED_EveryPromptShowsWithTheOwner", kWatchdogMs), 0) << kind;
    }
    SetEnvironmentVariableW(kCaseVariable, nullptr);
    DestroyWindow(other);
}

}  // namespace
