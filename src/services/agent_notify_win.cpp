#include "services/agent_notify_win.h"
#include <cwchar>
#include "services/log.h"

namespace {
const ULONG_PTR kReaderEventData = 0x13462;
}

void NotifyEvent(void*, const wchar_t* readerName, WPARAM wParam) {
    if (!readerName) return;
    // The receivers read cbData as characters, terminator included; and the message is posted,
    // so only a receiver in this process can read the structure on our stack: kept as they expect.
    COPYDATASTRUCT data = {kReaderEventData, static_cast<DWORD>(wcslen(readerName) + 1),
                           const_cast<wchar_t*>(readerName)};
    if (HWND agent = FindWindowW(L"CvTrayHandlerClass", nullptr)) {
        GUILOG(CVLOG_DETAIL, L"NotifyEvent: Posting registered window message: %d, on reader %s to the Smart Card Agent",
               (int)kReaderEventData, readerName);
        PostMessageW(agent, WM_COPYDATA, wParam, reinterpret_cast<LPARAM>(&data));
    }
    HWND console = FindWindowW(L"CVUserConsoleCL", nullptr);
    if (console && IsWindow(console)) {
        GUILOG(CVLOG_DETAIL, L"NotifyEvent: Posting registered window message: %d, on reader %s to the User Console",
               (int)kReaderEventData, readerName);
        PostMessageW(console, WM_COPYDATA, wParam, reinterpret_cast<LPARAM>(&data));
    }
}
