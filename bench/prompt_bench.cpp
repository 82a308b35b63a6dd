// How long a caller waits for the PIN prompt and the unlock dialog, each against a bare dialog of
// the same template, and whether 200 prompts leave GDI or USER objects behind.
//   prompt_bench [rounds]     run from the folder of the library (build/win/bin)
#include <windows.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>
#include "cvpingui.h"
#include "resource_ids.h"

namespace {

LARGE_INTEGER g_start, g_shown;
bool g_measured = false;
unsigned g_windowsWhileShown = 0;
unsigned UserObjects();
HHOOK g_hook = nullptr;
int g_focusId = IDC_PIN_EDIT;  // where the user types first in the dialog measured

// Stops the clock at the first moment the dialog is visible with the focus where the user types
// first, then closes the dialog.
LRESULT CALLBACK WatchForPrompt(int code, WPARAM wParam, LPARAM lParam) {
    if (code == HC_ACTION && !g_measured) {
        HWND focus = GetFocus();
        if (focus && GetDlgCtrlID(focus) == g_focusId) {
            HWND dialog = GetParent(focus);
            if (IsWindowVisible(dialog)) {
                QueryPerformanceCounter(&g_shown);
                g_measured = true;
                if (!g_windowsWhileShown) g_windowsWhileShown = UserObjects();
                PostMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
            }
        }
    }
    return CallNextHookEx(g_hook, code, wParam, lParam);
}

INT_PTR CALLBACK BareDialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM) {
    if (message == WM_INITDIALOG) return TRUE;
    if (message == WM_COMMAND && (LOWORD(wParam) == IDCANCEL || LOWORD(wParam) == IDOK)) {
        EndDialog(dialog, LOWORD(wParam));
        return TRUE;
    }
    return FALSE;
}

double Milliseconds(LARGE_INTEGER from, LARGE_INTEGER to) {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return 1000.0 * double(to.QuadPart - from.QuadPart) / double(frequency.QuadPart);
}

template <class Show>
double TimeOnce(Show show) {
    g_measured = false;
    g_hook = SetWindowsHookExW(WH_CALLWNDPROCRET, WatchForPrompt, nullptr, GetCurrentThreadId());
    QueryPerformanceCounter(&g_start);
    show();
    UnhookWindowsHookEx(g_hook);
    return g_measured ? Milliseconds(g_start, g_shown) : -1.0;
}

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

int ShowPrompt() {
    char* pin = nullptr;
    unsigned length = 0;
    int r = GetPINFromUser(nullptr, L"Simulated Reader 0", 0, 4, 8, &pin, &length, nullptr, nullptr, 0);
    FreeGetPinBuffer(pin, length);
    return r;
}

int ShowUnlock() { return (int)ShowUnlockDialog(nullptr, L"Corvana Simulated Reader 0", nullptr); }

// GetGuiResources is a stub under Wine: there, count the live handles by probing instead.
bool IsWine() { return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }

unsigned GdiObjects() {
    if (!IsWine()) return GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS);
    unsigned n = 0;
    for (ULONG_PTR h = 1; h < 0x10000; ++h) n += GetObjectType(reinterpret_cast<HGDIOBJ>(h)) != 0;
    return n;
}

BOOL CALLBACK CountOwnWindow(HWND hwnd, LPARAM count) {
    DWORD pid = 0;
    GetWindowThreadProcessId(hwnd, &pid);
    if (pid == GetCurrentProcessId()) {
        ++*reinterpret_cast<unsigned*>(count);
        EnumChildWindows(hwnd, CountOwnWindow, count);
    }
    return TRUE;
}

// Under Wine: the process's windows, top-level, child and message-only (USER handles of other
// kinds are not probed).
unsigned UserObjects() {
    if (!IsWine()) return GetGuiResources(GetCurrentProcess(), GR_USEROBJECTS);
    unsigned n = 0;
    EnumWindows(CountOwnWindow, reinterpret_cast<LPARAM>(&n));
    for (HWND w = FindWindowExW(HWND_MESSAGE, nullptr, nullptr, nullptr); w;
         w = FindWindowExW(HWND_MESSAGE, w, nullptr, nullptr))
        CountOwnWindow(w, reinterpret_cast<LPARAM>(&n));
    return n;
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = argc > 1 ? atoi(argv[1]) : 40;
    HMODULE resources = LoadLibraryExW(L"Resources\\cv.corvana.gui.pinrc.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    if (!resources) {
        printf("run from the library's folder: Resources\\cv.corvana.gui.pinrc.dll not found\n");
        return 1;
    }
    struct Case {
        const char *name, *field;
        int (*show)();
        UINT templateId;
        int focusId;
    } cases[] = {{"GetPINFromUser", "PIN field", ShowPrompt, IDD_ENTER_PIN, IDC_PIN_EDIT},
                 {"ShowUnlockDialog", "response field", ShowUnlock, IDD_UNLOCK, IDC_UL_RESPONSE_EDIT}};
    for (const Case& c : cases) {
        g_focusId = c.focusId;
        auto bare = [&] { DialogBoxParamW(resources, MAKEINTRESOURCEW(c.templateId), nullptr, BareDialogProc, 0); };
        for (int i = 0; i < 3; ++i) {  // warm caches of both paths
            TimeOnce(c.show);
            TimeOnce(bare);
        }
        std::vector<double> ours, theirs;
        for (int i = 0; i < rounds; ++i) {
            ours.push_back(TimeOnce(c.show));
            theirs.push_back(TimeOnce(bare));
        }
        double a = Median(ours), b = Median(theirs);
        printf("time to a shown dialog, focus in the %s (median of %d):\n", c.field, rounds);
        printf("  %-17s %8.2f ms\n  DialogBoxParamW   %8.2f ms\n  ratio             %8.2f (aim: at most 1.3)\n",
               c.name, a, b, b > 0 ? a / b : 0.0);
    }
    g_focusId = IDC_PIN_EDIT;

    unsigned gdiBefore = GdiObjects(), userBefore = UserObjects();
    for (int i = 0; i < 200; ++i) TimeOnce(ShowPrompt);
    unsigned gdiAfter = GdiObjects(), userAfter = UserObjects();
    printf("objects before and after 200 prompts%s:\n", IsWine() ? " (Wine: probed GDI handles, counted windows)" : "");
    printf("  GDI   %5u -> %5u\n  USER  %5u -> %5u   (%u while a prompt is shown)\n", gdiBefore, gdiAfter,
           userBefore, userAfter, g_windowsWhileShown);
    FreeLibrary(resources);
    return 0;
}
