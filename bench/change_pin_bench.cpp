// What one keystroke in the new-PIN field of the PIN change window costs, from the key to the
// rule list updated, against a bare edit whose parent ignores EN_CHANGE; the paints that follow
// in the message loop, timed apart for both; and how often the rule list repaints its rows when
// a keystroke changes no rule's outcome.
//   change_pin_bench [keystrokes]     run from the folder of the library (build/win/bin)
#include <windows.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>
#include "cvpingui.h"
#include "driver_win.h"
#include "resource_ids.h"

namespace {

// Lengths 1..6 and back to 0: the confirmation row flips between 0 and 1 characters, the weak
// row between 2 and 3, the alphabetic row at the 'a', the minimum row between 5 and 6; the
// other keystrokes change nothing.
const wchar_t kTypingCycle[] = L"739a15\b\b\b\b\b\b";
const int kCycleLength = sizeof(kTypingCycle) / sizeof(kTypingCycle[0]) - 1;

double Microseconds(LARGE_INTEGER from, LARGE_INTEGER to) {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return 1e6 * double(to.QuadPart - from.QuadPart) / double(frequency.QuadPart);
}

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

// A user's message loop paints between two keystrokes; so does the bench, outside the clock.
void FlushPaints(HWND top) { RedrawWindow(top, nullptr, nullptr, RDW_UPDATENOW | RDW_ALLCHILDREN); }

void Type(HWND edit, wchar_t ch) { SendMessageW(edit, WM_CHAR, ch, 1); }

// The part of the current keystroke spent in the form's EN_CHANGE handling, when the form's
// procedure is wrapped by TimeFormChanges; what is left is the edit's own work.
double g_formPart = 0;
std::vector<double> g_formParts;
WNDPROC g_formProc = nullptr;

LRESULT CALLBACK TimingFormProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message != WM_COMMAND || HIWORD(wParam) != EN_CHANGE) return CallWindowProcW(g_formProc, hwnd, message, wParam, lParam);
    LARGE_INTEGER before, after;
    QueryPerformanceCounter(&before);
    const LRESULT result = CallWindowProcW(g_formProc, hwnd, message, wParam, lParam);
    QueryPerformanceCounter(&after);
    g_formPart += Microseconds(before, after);
    return result;
}

// paint receives the time of the paints that follow the keystroke, outside its clock.
double TimeKeystroke(HWND edit, wchar_t ch, HWND top, double* paint = nullptr) {
    LARGE_INTEGER before, after, painted;
    g_formPart = 0;
    QueryPerformanceCounter(&before);
    Type(edit, ch);
    QueryPerformanceCounter(&after);
    FlushPaints(top);
    QueryPerformanceCounter(&painted);
    g_formParts.push_back(g_formPart);
    if (paint) *paint = Microseconds(after, painted);
    return Microseconds(before, after);
}

void ClearField(HWND edit) {
    for (int i = 0; i < 256 && GetWindowTextLengthW(edit) > 0; ++i) Type(edit, L'\b');
}

std::vector<double> TimeTyping(HWND edit, HWND top, int keystrokes, std::vector<double>* paints = nullptr) {
    ClearField(edit);
    for (int i = 0; i < 2 * kCycleLength; ++i) TimeKeystroke(edit, kTypingCycle[i % kCycleLength], top);  // warm-up
    std::vector<double> times;
    for (int i = 0; i < keystrokes; ++i) {
        double paint = 0;
        times.push_back(TimeKeystroke(edit, kTypingCycle[i % kCycleLength], top, &paint));
        if (paints) paints->push_back(paint);
    }
    ClearField(edit);
    FlushPaints(top);
    return times;
}

// Under Wine a property lookup is one round trip to the wineserver, as is GetDlgItem (and a
// control subclassed through SetWindowSubclass pays it per message); on Windows it stays in the
// process. Printed to read the ratio by.
double PropertyLookupMedian(HWND window) {
    std::vector<double> times;
    for (int i = 0; i < 200; ++i) {
        LARGE_INTEGER before, after;
        QueryPerformanceCounter(&before);
        GetPropW(window, L"ChangePinBenchNoSuchProperty");
        QueryPerformanceCounter(&after);
        times.push_back(Microseconds(before, after));
    }
    return Median(times);
}

// --- The bare edit ------------------------------------------------------------------------

LRESULT CALLBACK BareParentProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    return DefWindowProcW(hwnd, message, wParam, lParam);  // EN_CHANGE arrives and is ignored
}

double g_propertyLookup = 0;
std::vector<double> g_barePaints;

double BareEditMedian(int keystrokes) {
    WNDCLASSW wc = {};
    wc.lpfnWndProc = BareParentProc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    wc.lpszClassName = L"ChangePinBenchBareParent";
    RegisterClassW(&wc);
    HWND parent = CreateWindowExW(0, wc.lpszClassName, L"bare edit", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 100, 100, 400,
                                  200, nullptr, nullptr, wc.hInstance, nullptr);
    // The style of the new-PIN field in the library's template.
    HWND edit = CreateWindowExW(WS_EX_CLIENTEDGE, L"EDIT", L"", WS_CHILD | WS_VISIBLE | ES_PASSWORD | ES_AUTOHSCROLL,
                                10, 10, 220, 24, parent, reinterpret_cast<HMENU>(IDC_NEW_PIN_EDIT), wc.hInstance,
                                nullptr);
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
    const double median = edit ? Median(TimeTyping(edit, parent, keystrokes, &g_barePaints)) : -1.0;
    g_propertyLookup = PropertyLookupMedian(parent);
    DestroyWindow(parent);
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
    return median;
}

// --- Counting what the rule list paints ------------------------------------------------------

const int kRuleControls[] = {IDC_RULE_MIN_TEXT,  IDC_RULE_MAX_TEXT,     IDC_RULE_WEAK_TEXT, IDC_RULE_SAME_TEXT,
                             IDC_RULE_ALPHA_TEXT, IDC_RULE_CONFIRM_TEXT, IDC_RULE_MIN_ICON,  IDC_RULE_MAX_ICON,
                             IDC_RULE_WEAK_ICON, IDC_RULE_SAME_ICON,    IDC_RULE_ALPHA_ICON, IDC_RULE_CONFIRM_ICON,
                             IDC_RULE_BOX};
const int kControlSlots = sizeof(kRuleControls) / sizeof(kRuleControls[0]);
const int kListSlot = kControlSlots;  // the rule list's own client area

struct Counts {
    unsigned paint, ncpaint, erase, sets;
};
Counts g_counts[kControlSlots + 1];
HWND g_ruleList = nullptr;
HWND g_window = nullptr;
unsigned g_paintsAnywhere = 0;  // proves that the hooks see paints at all
HHOOK g_sentHook = nullptr, g_queuedHook = nullptr;

int SlotOf(HWND hwnd) {
    if (!g_ruleList || !hwnd) return -1;
    if (hwnd == g_ruleList) return kListSlot;
    if (GetParent(hwnd) != g_ruleList) return -1;
    const int id = GetDlgCtrlID(hwnd);
    for (int i = 0; i < kControlSlots; ++i)
        if (kRuleControls[i] == id) return i;
    return -1;
}

void Count(HWND hwnd, UINT message) {
    if (message == WM_PAINT && hwnd && GetAncestor(hwnd, GA_ROOT) == g_window) ++g_paintsAnywhere;
    const int slot = SlotOf(hwnd);
    if (slot < 0) return;
    Counts& c = g_counts[slot];
    switch (message) {
    case WM_PAINT: ++c.paint; break;
    case WM_NCPAINT: ++c.ncpaint; break;
    case WM_ERASEBKGND: ++c.erase; break;
    // A static may draw straight away when its text or icon is set, without a WM_PAINT.
    case WM_SETTEXT:
    case STM_SETICON:
    case STM_SETIMAGE: ++c.sets; break;
    default: break;
    }
}

// UpdateWindow and RDW_UPDATENOW send WM_PAINT.
LRESULT CALLBACK WatchSent(int code, WPARAM wParam, LPARAM lParam) {
    if (code == HC_ACTION) {
        const auto* sent = reinterpret_cast<const CWPSTRUCT*>(lParam);
        Count(sent->hwnd, sent->message);
    }
    return CallNextHookEx(g_sentHook, code, wParam, lParam);
}

// A message loop dispatches WM_PAINT from the queue.
LRESULT CALLBACK WatchQueued(int code, WPARAM wParam, LPARAM lParam) {
    if (code == HC_ACTION && wParam == PM_REMOVE) {
        const auto* queued = reinterpret_cast<const MSG*>(lParam);
        Count(queued->hwnd, queued->message);
    }
    return CallNextHookEx(g_queuedHook, code, wParam, lParam);
}

struct PerKeystroke {
    double paint, ncpaint, erase, sets, paintsAnywhere;
    Counts perControl[kControlSlots + 1];
};

// Types `typed` onto `start` and takes it back again, `rounds` times, and counts what the rule
// list paints meanwhile.
PerKeystroke CountRepaints(HWND edit, HWND top, const wchar_t* start, wchar_t typed, int rounds) {
    ClearField(edit);
    for (const wchar_t* p = start; *p; ++p) Type(edit, *p);
    FlushPaints(top);
    for (Counts& c : g_counts) c = Counts{};
    g_paintsAnywhere = 0;
    g_window = top;
    const DWORD thread = GetCurrentThreadId();
    g_sentHook = SetWindowsHookExW(WH_CALLWNDPROC, WatchSent, nullptr, thread);
    g_queuedHook = SetWindowsHookExW(WH_GETMESSAGE, WatchQueued, nullptr, thread);
    for (int i = 0; i < rounds; ++i) {
        Type(edit, typed);
        FlushPaints(top);
        Type(edit, L'\b');
        FlushPaints(top);
    }
    UnhookWindowsHookEx(g_queuedHook);
    UnhookWindowsHookEx(g_sentHook);
    PerKeystroke result = {};
    const double keystrokes = 2.0 * rounds;
    result.paintsAnywhere = g_paintsAnywhere / keystrokes;
    for (int i = 0; i <= kControlSlots; ++i) {
        const Counts& c = g_counts[i];
        result.perControl[i] = c;
        result.paint += c.paint / keystrokes;
        result.ncpaint += c.ncpaint / keystrokes;
        result.erase += c.erase / keystrokes;
        result.sets += c.sets / keystrokes;
    }
    ClearField(edit);
    FlushPaints(top);
    return result;
}

// The form's EN_CHANGE handling alone, without the edit's own work: splits a keystroke's cost.
std::vector<double> TimeRuleUpdates(HWND edit, HWND top, int rounds) {
    ClearField(edit);
    for (const wchar_t* p = L"739"; *p; ++p) Type(edit, *p);
    HWND form = GetParent(edit);
    const WPARAM changed = MAKEWPARAM(IDC_NEW_PIN_EDIT, EN_CHANGE);
    std::vector<double> times;
    for (int i = 0; i < rounds; ++i) {
        LARGE_INTEGER before, after;
        QueryPerformanceCounter(&before);
        SendMessageW(form, WM_COMMAND, changed, reinterpret_cast<LPARAM>(edit));
        QueryPerformanceCounter(&after);
        FlushPaints(top);
        times.push_back(Microseconds(before, after));
    }
    ClearField(edit);
    FlushPaints(top);
    return times;
}

// --- Driving the PIN change window ---------------------------------------------------------------

int g_keystrokes = 204;
const int kRepaintRounds = 50;
HWND g_top = nullptr;
HHOOK g_watchHook = nullptr;
bool g_found = false;
std::vector<double> g_typingTimes, g_typingPaints, g_ruleUpdateTimes, g_editParts;
PerKeystroke g_unchanged = {}, g_flipping = {};

void CALLBACK MeasureInsideWindow(HWND, UINT, UINT_PTR timer, DWORD) {
    KillTimer(nullptr, timer);
    // The watch would otherwise run on every message of the measured keystrokes.
    UnhookWindowsHookEx(g_watchHook);
    g_watchHook = nullptr;
    HWND edit = drv::FindDescendant(g_top, IDC_NEW_PIN_EDIT);
    HWND box = drv::FindDescendant(g_top, IDC_RULE_BOX);
    if (edit && box) {
        g_found = true;
        g_ruleList = GetParent(box);
        g_typingTimes = TimeTyping(edit, g_top, g_keystrokes, &g_typingPaints);
        // Again, with the form's EN_CHANGE handling timed inside each keystroke.
        HWND form = GetParent(edit);
        g_formProc = reinterpret_cast<WNDPROC>(
            SetWindowLongPtrW(form, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(TimingFormProc)));
        std::vector<double> totals = TimeTyping(edit, g_top, g_keystrokes);
        SetWindowLongPtrW(form, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(g_formProc));
        // The warm-up keystrokes come first.
        g_formParts.erase(g_formParts.begin(), g_formParts.end() - static_cast<long>(totals.size()));
        for (size_t i = 0; i < totals.size(); ++i) g_editParts.push_back(totals[i] - g_formParts[i]);
        g_ruleUpdateTimes = TimeRuleUpdates(edit, g_top, g_keystrokes);
        // 7 -> 8 characters and back: min, max, weak, alpha met, confirmation unmet throughout.
        g_unchanged = CountRepaints(edit, g_top, L"1357924", L'6', kRepaintRounds);
        // 5 -> 6 characters and back: only the minimum row flips ("13572", "135724" are not weak).
        g_flipping = CountRepaints(edit, g_top, L"13572", L'4', kRepaintRounds);
        g_ruleList = nullptr;
    }
    SendMessageW(g_top, WM_COMMAND, IDCANCEL, 0);
}

// Starts the measurement from the window's own message loop once the window is visible.
LRESULT CALLBACK WatchForWindow(int code, WPARAM wParam, LPARAM lParam) {
    if (code == HC_ACTION && !g_top) {
        HWND root = GetAncestor(reinterpret_cast<const CWPRETSTRUCT*>(lParam)->hwnd, GA_ROOT);
        if (root && IsWindowVisible(root) && drv::FindDescendant(root, IDC_NEW_PIN_EDIT)) {
            g_top = root;
            SetTimer(nullptr, 0, USER_TIMER_MINIMUM, MeasureInsideWindow);
        }
    }
    return CallNextHookEx(g_watchHook, code, wParam, lParam);
}

void CALLBACK GiveUp(HWND, UINT, UINT_PTR, DWORD) {
    if (g_top) return;
    printf("the PIN change window did not become visible within 30 s\n");
    fflush(stdout);
    ExitProcess(2);
}

unsigned RunChangePinWindow() {
    wchar_t newPin[64] = {}, currentPin[64] = {};
    unsigned newLength = 0, currentLength = 0;
    g_watchHook = SetWindowsHookExW(WH_CALLWNDPROCRET, WatchForWindow, nullptr, GetCurrentThreadId());
    const UINT_PTR watchdog = SetTimer(nullptr, 0, 30000, GiveUp);
    const unsigned result =
        GetChangePINInfoFromUser_s(1, 0, 6, 8, 0, 0, newPin, 64, &newLength, currentPin, 64, &currentLength,
                                   L"Bench Reader", nullptr, 1, nullptr, nullptr, 0);
    KillTimer(nullptr, watchdog);
    if (g_watchHook) UnhookWindowsHookEx(g_watchHook);
    SecureZeroMemory(newPin, sizeof(newPin));
    SecureZeroMemory(currentPin, sizeof(currentPin));
    return result;
}

const wchar_t* ControlName(int slot) {
    static const wchar_t* const names[] = {L"min text",  L"max text",    L"weak text",  L"same text", L"alpha text",
                                           L"confirm text", L"min icon", L"max icon",   L"weak icon", L"same icon",
                                           L"alpha icon", L"confirm icon", L"rule box", L"rule list itself"};
    return names[slot];
}

void PrintRepaints(const char* label, const PerKeystroke& r) {
    printf("  %-22s %6.2f %9.2f %9.2f %9.2f\n", label, r.paint, r.ncpaint, r.erase, r.sets);
}

void PrintControls(const char* label, const PerKeystroke& r) {
    for (int i = 0; i <= kControlSlots; ++i) {
        const Counts& c = r.perControl[i];
        if (!c.paint && !c.ncpaint && !c.erase && !c.sets) continue;
        printf("    %s: %-16ls (id %4d)  WM_PAINT %u, WM_NCPAINT %u, WM_ERASEBKGND %u, sets %u\n", label,
               ControlName(i), i < kControlSlots ? kRuleControls[i] : 0, c.paint, c.ncpaint, c.erase, c.sets);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && atoi(argv[1]) > 0) g_keystrokes = atoi(argv[1]);
    HMODULE resources = LoadLibraryExW(L"Resources\\cv.corvana.gui.pinrc.dll", nullptr, LOAD_LIBRARY_AS_DATAFILE);
    if (!resources) {
        printf("run from the library's folder: Resources\\cv.corvana.gui.pinrc.dll not found\n");
        return 1;
    }
    FreeLibrary(resources);

    const double bare = BareEditMedian(g_keystrokes);
    const unsigned result = RunChangePinWindow();
    if (!g_found) {
        printf("the new-PIN field or the rule list was not found (GetChangePINInfoFromUser_s returned 0x%08x)\n",
               result);
        return 1;
    }
    const double ours = Median(g_typingTimes);
    const double ratio = bare > 0 ? ours / bare : 0.0;
    printf("one keystroke in the new-PIN field, key to rule list updated (median of %d):\n", g_keystrokes);
    printf("  GetChangePINInfoFromUser_s  %8.2f us\n  bare EDIT, EN_CHANGE ignored %7.2f us\n  ratio %29.2f\n", ours,
           bare, ratio);
    // Measured inside the same keystrokes (a second run, with the form's procedure wrapped).
    const double formPart = Median(g_formParts), editPart = Median(g_editParts);
    printf("  breakdown (medians of a second run): the edit, our wrapper included %8.2f us (%.2f times the bare edit)\n",
           editPart, bare > 0 ? editPart / bare : 0.0);
    printf("                                       the form's EN_CHANGE handling  %8.2f us\n", formPart);
    printf("  the form's EN_CHANGE handling sent alone, the text unchanged: %.2f us (median of %d)\n",
           Median(g_ruleUpdateTimes), g_keystrokes);
    // What the clock leaves out, for both alike: a row whose outcome changed is drawn here.
    printf("  the paints that follow, outside the clock (medians): ours %.2f us, bare edit %.2f us\n",
           Median(g_typingPaints), Median(g_barePaints));
    printf("  (one GetPropW, a wineserver round trip under Wine: %.2f us)\n", g_propertyLookup);
    printf("rule-list paints per keystroke (%d keystrokes each):\n", 2 * kRepaintRounds);
    printf("  %-22s %6s %9s %9s %9s\n", "", "PAINT", "NCPAINT", "ERASEBKG", "text/icon set");
    PrintRepaints("no outcome changes", g_unchanged);
    PrintRepaints("minimum row flips", g_flipping);
    printf("  (WM_PAINT seen anywhere in the window per keystroke: %.2f unchanged, %.2f flipping)\n",
           g_unchanged.paintsAnywhere, g_flipping.paintsAnywhere);
    PrintControls("unchanged", g_unchanged);
    PrintControls("flipping ", g_flipping);
    printf("keystroke: %.2f us (bare edit %.2f us), ratio %.2f; repaints per unchanged keystroke: %.2f (aim: 0)\n", ours,
           bare, ratio, g_unchanged.paint);
    printf("GetChangePINInfoFromUser_s returned 0x%08x after Cancel\n", result);
    return 0;
}
