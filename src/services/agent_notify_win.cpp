#include "services/agent_notify_win.h"
#include <cwchar>
#include "services/log.h"

namespace {
const ULONG_PTR kReaderEventData = 0x13462;
const UINT kAgentTimeoutMs = 1000;

// WM_COPYDATA cannot be posted (ERROR_MESSAGE_SYNC_ONLY): it is sent, and an agent that hangs
// costs us at most the time-out.
void Deliver(HWND agent, WPARAM wParam, COPYDATASTRUCT* data) {
    DWORD_PTR ignored = 0;
    SendMessageTimeoutW(agent, WM_COPYDATA, wParam, reinterpret_cast<LPARAM>(data), SMTO_ABORTIFHUNG,
                        kAgentTimeoutMs, &ignored);
}
}  // namespace

void NotifyEvent(void*, const wchar_t* readerName, WPARAM wParam) {
    if (!readerName) return;
    // The system copies cbData bytes into the agent's process: a count of characters would give
    // it only the first half of the reader name, without its terminator.
    COPYDATASTRUCT data = {kReaderEventData, static_cast<DWORD>((wcslen(readerName) + 1) * sizeof(wchar_t)),
                           const_cast<wchar_t*>(readerName)};
    if (HWND agent = FindWindowW(L"CvTrayHandlerClass", nullptr)) {
        GUILOG(CVLOG_DETAIL, L"NotifyEvent: Posting registered window message: %d, on reader %s to the Smart Card Agent",
               (int)kReaderEventData, readerName);
        Deliver(agent, wParam, &data);
    }
    HWND console = FindWindowW(L"CVUserConsoleCL", nullptr);
    if (console && IsWindow(console)) {
        GUILOG(CVLOG_DETAIL, L"NotifyEvent: Posting registered window message: %d, on reader %s to the User Console",
               (int)kReaderEventData, readerName);
        Deliver(console, wParam, &data);
    }
}
