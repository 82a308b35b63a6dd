// The registry as the settings store. Policies (machine) override the user's own choice,
// which overrides the machine-wide default. Values are read at every use.
#include "services/settings.h"

#include <windows.h>

#include <cstring>
#include <cwchar>
#include <vector>

ISettingsStore* BuiltInSettingsStore();

namespace {

struct Location {
    HKEY root;
    const wchar_t* path;
};

const Location kLocations[] = {
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Policies\\Lumetra\\Corvana"},
    {HKEY_CURRENT_USER, L"Software\\Lumetra\\Corvana"},
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lumetra\\Corvana"},
};

bool ExpandEnvironment(std::wstring& text) {
    DWORD needed = ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
    if (needed == 0) return false;
    std::wstring expanded(needed, L'\0');
    DWORD written = ExpandEnvironmentStringsW(text.c_str(), &expanded[0], needed);
    if (written == 0 || written > needed) return false;
    expanded.resize(wcsnlen(expanded.c_str(), written));
    text.swap(expanded);
    return true;
}

// Reads one value; a type the settings do not know counts as absent, so that a lower
// location can still supply a usable value.
bool ReadValue(HKEY key, const wchar_t* name, CVData& value) {
    std::vector<BYTE> data(64);
    DWORD type = REG_NONE;
    LONG rc = ERROR_MORE_DATA;
    for (int attempt = 0; attempt < 4 && rc == ERROR_MORE_DATA; ++attempt) {
        DWORD bytes = static_cast<DWORD>(data.size());
        rc = RegQueryValueExW(key, name, nullptr, &type, data.data(), &bytes);
        if (rc == ERROR_MORE_DATA) {
            data.resize(bytes + sizeof(wchar_t)); // the value may grow between two reads
        } else if (rc == ERROR_SUCCESS) {
            data.resize(bytes);
        }
    }
    if (rc != ERROR_SUCCESS) return false;

    switch (type) {
    case REG_DWORD: {
        if (data.size() != sizeof(DWORD)) return false;
        DWORD d;
        memcpy(&d, data.data(), sizeof d);
        value = CVData::FromInteger(d);
        return true;
    }
    case REG_QWORD: {
        if (data.size() != sizeof(ULONGLONG)) return false;
        ULONGLONG q;
        memcpy(&q, data.data(), sizeof q);
        value = CVData::FromInteger(static_cast<int64_t>(q));
        return true;
    }
    case REG_SZ:
    case REG_EXPAND_SZ: {
        // Stored strings need not be terminated; stop at the first zero if there is one.
        const wchar_t* chars = reinterpret_cast<const wchar_t*>(data.data());
        std::wstring text(chars, wcsnlen(chars, data.size() / sizeof(wchar_t)));
        if (type == REG_EXPAND_SZ && !ExpandEnvironment(text)) return false;
        value = CVData::FromString(std::move(text));
        return true;
    }
    default:
        return false;
    }
}

class RegistrySettingsStore : public ISettingsStore {
  public:
    bool Read(const wchar_t* name, CVData& value) override {
        for (const Location& location : kLocations) {
            HKEY key = nullptr;
            if (RegOpenKeyExW(location.root, location.path, 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &key) !=
                ERROR_SUCCESS)
                continue;
            bool found = ReadValue(key, name, value);
            RegCloseKey(key);
            if (found) return true;
        }
        return false;
    }
};

} // namespace

ISettingsStore* BuiltInSettingsStore() {
    static RegistrySettingsStore store;
    return &store;
}
