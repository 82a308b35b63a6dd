// Registry string reads for the dialogs, and the app-container check.
#include "services/registry_win.h"

#include <cwchar>
#include <vector>

namespace {

// The whole value, expanded when it is REG_EXPAND_SZ, without its terminator.
LONG ReadWholeString(HKEY key, const wchar_t* valueName, std::vector<wchar_t>& text) {
    // RegGetValueW refuses to expand into a REG_SZ answer when both types are allowed, so the
    // expansion is ours.
    const DWORD flags = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND;
    DWORD type = REG_NONE;
    DWORD bytes = 0;
    LONG rc = ERROR_MORE_DATA;
    for (int attempt = 0; attempt < 4 && rc == ERROR_MORE_DATA; ++attempt) {
        rc = RegGetValueW(key, nullptr, valueName, flags, &type, nullptr, &bytes);
        if (rc != ERROR_SUCCESS) return rc;
        text.assign(bytes / sizeof(wchar_t) + 2, L'\0'); // room for a missing terminator
        bytes = static_cast<DWORD>(text.size() * sizeof(wchar_t));
        rc = RegGetValueW(key, nullptr, valueName, flags, &type, text.data(), &bytes);
    }
    if (rc != ERROR_SUCCESS) return rc;
    text.resize(wcsnlen(text.data(), text.size()));

    if (type == REG_EXPAND_SZ) {
        text.push_back(L'\0');
        DWORD needed = ExpandEnvironmentStringsW(text.data(), nullptr, 0);
        if (needed == 0) return static_cast<LONG>(GetLastError());
        std::vector<wchar_t> expanded(needed + 1, L'\0');
        if (ExpandEnvironmentStringsW(text.data(), expanded.data(), needed) == 0)
            return static_cast<LONG>(GetLastError());
        expanded.resize(wcsnlen(expanded.data(), expanded.size()));
        text.swap(expanded);
    }
    return ERROR_SUCCESS;
}

} // namespace

LONG nvRegReadStringValueEx(HKEY root, const wchar_t* subKey, const wchar_t* valueName, wchar_t* buffer,
                            DWORD capacity, DWORD* chars) {
    if (chars) *chars = 0;
    if (buffer && capacity > 0) buffer[0] = L'\0';
    if (!root || !subKey || !valueName || !buffer || capacity == 0 || !chars) return ERROR_INVALID_PARAMETER;

    HKEY key = nullptr;
    LONG rc = RegOpenKeyExW(root, subKey, 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &key);
    if (rc != ERROR_SUCCESS) return rc;
    std::vector<wchar_t> text;
    try {
        rc = ReadWholeString(key, valueName, text);
    } catch (...) {
        rc = ERROR_NOT_ENOUGH_MEMORY;
    }
    RegCloseKey(key);
    if (rc != ERROR_SUCCESS) return rc;

    // A value longer than the buffer is cut and reported as ERROR_MORE_DATA, so a caller that
    // needs the whole path does not use a cut one by mistake.
    DWORD length = static_cast<DWORD>(text.size());
    DWORD copied = length < capacity ? length : capacity - 1;
    wmemcpy(buffer, text.data(), copied);
    buffer[copied] = L'\0';
    *chars = copied;
    return copied == length ? ERROR_SUCCESS : ERROR_MORE_DATA;
}

bool nvIsAppContainer() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
    DWORD isAppContainer = 0;
    DWORD returned = 0;
    BOOL ok =
        GetTokenInformation(token, TokenIsAppContainer, &isAppContainer, sizeof isAppContainer, &returned);
    CloseHandle(token);
    return ok && returned == sizeof isAppContainer && isAppContainer != 0;
}
