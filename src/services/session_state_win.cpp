// Is the user's session locked? Asked by the prompts before they show a PIN field.
#include "services/session_state.h"

#include <windows.h>
#include <wtsapi32.h>

#include <atomic>

namespace {

// The extended session information of WTSQuerySessionInformationW, missing from mingw-w64's
// headers; the layout is that of the Windows SDK.
constexpr int kWtsSessionInfoEx = 25;
constexpr LONG kWtsSessionStateLock = 0;

struct WtsInfoExLevel1 {
    ULONG SessionId;
    WTS_CONNECTSTATE_CLASS SessionState;
    LONG SessionFlags;
    WCHAR WinStationName[WINSTATIONNAME_LENGTH + 1];
    WCHAR UserName[USERNAME_LENGTH + 1];
    WCHAR DomainName[DOMAIN_LENGTH + 1];
    LARGE_INTEGER LogonTime;
    LARGE_INTEGER ConnectTime;
    LARGE_INTEGER DisconnectTime;
    LARGE_INTEGER LastInputTime;
    LARGE_INTEGER CurrentTime;
    DWORD IncomingBytes;
    DWORD OutgoingBytes;
    DWORD IncomingFrames;
    DWORD OutgoingFrames;
    DWORD IncomingCompressedBytes;
    DWORD OutgoingCompressedBytes;
};

struct WtsInfoEx {
    DWORD Level;
    union {
        WtsInfoExLevel1 WTSInfoExLevel1;
    } Data;
};

std::atomic<SessionStateProvider> g_provider{nullptr};

int QueryWtsSessionState(unsigned* state) {
    LPWSTR buffer = nullptr;
    DWORD bytes = 0;
    if (!WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, WTS_CURRENT_SESSION,
                                     static_cast<WTS_INFO_CLASS>(kWtsSessionInfoEx), &buffer, &bytes) ||
        !buffer) {
        DWORD error = GetLastError();
        return error ? static_cast<int>(error) : ERROR_NOT_SUPPORTED;
    }
    int result = ERROR_INVALID_DATA;
    if (bytes >= sizeof(WtsInfoEx)) {
        const WtsInfoEx* info = reinterpret_cast<const WtsInfoEx*>(buffer);
        if (info->Level == 1) {
            if (info->Data.WTSInfoExLevel1.SessionFlags == kWtsSessionStateLock) *state = 0;
            result = 0;
        }
    }
    WTSFreeMemory(buffer);
    return result;
}

} // namespace

void SetSessionStateProvider(SessionStateProvider provider) {
    g_provider.store(provider);
}

int GetSessionState(unsigned* state) {
    if (!state) return ERROR_INVALID_PARAMETER;
    if (SessionStateProvider provider = g_provider.load()) return provider(state);
    return QueryWtsSessionState(state);
}

bool IsWorkstationLocked() {
    unsigned state = 1;
    GetSessionState(&state);
    return state == 0;
}
