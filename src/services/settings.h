// The settings service. A setting is read at every use and never cached: an administrator's
// change applies to the next dialog, or the next keystroke of an open one.
#pragma once
#include <string>
#include "services/cvdata.h"

// Where settings come from. The built-in store reads the registry value named like the key
// under, first found wins: HKLM\SOFTWARE\Policies\Lumetra\Corvana, HKCU\Software\Lumetra\Corvana,
// HKLM\SOFTWARE\Lumetra\Corvana. REG_DWORD and REG_QWORD are integers, REG_SZ and
// REG_EXPAND_SZ strings; any other type counts as not found.
class ISettingsStore {
public:
    virtual ~ISettingsStore() = default;
    virtual bool Read(const wchar_t* key, CVData& value) = 0;
};

// Replaces the store (a host's own, or a test's); nullptr restores the built-in one.
void SetSettingsStore(ISettingsStore* store);

// Reads one setting. Returns 0 when found; otherwise non-zero, with *notFound set to 1.
int GetSettingValue(const wchar_t* key, CVData& value, int* notFound);

// A boolean setting is on only when its integer value is exactly 1; missing means off.
bool IsSettingOn(const wchar_t* key);
// True when the setting exists and is a string (which may be empty).
bool ReadStringSetting(const wchar_t* key, std::wstring& value);
// The integer value, or fallback when missing or not a number.
long long ReadIntegerSetting(const wchar_t* key, long long fallback);
