// The settings front end: every read goes to the current store, so a change made by an
// administrator (or a test) applies at the next use.
#include "services/settings.h"

#include <atomic>
#include <utility>

// The platform's own store (the registry on Windows).
ISettingsStore* BuiltInSettingsStore();

namespace {

// Swapped by hosts and tests while dialogs may be reading on other threads.
std::atomic<ISettingsStore*> g_store{nullptr};

ISettingsStore* CurrentStore() {
    ISettingsStore* store = g_store.load(std::memory_order_acquire);
    return store ? store : BuiltInSettingsStore();
}

} // namespace

#ifndef _WIN32
// Portable builds have no configuration source: every setting is missing.
ISettingsStore* BuiltInSettingsStore() {
    class EmptyStore : public ISettingsStore {
      public:
        bool Read(const wchar_t*, CVData&) override { return false; }
    };
    static EmptyStore store;
    return &store;
}
#endif

void SetSettingsStore(ISettingsStore* store) {
    g_store.store(store, std::memory_order_release);
}

int GetSettingValue(const wchar_t* key, CVData& value, int* notFound) {
    if (notFound) *notFound = 0;
    if (key && *key) {
        try {
            CVData found;
            ISettingsStore* store = CurrentStore();
            if (store && store->Read(key, found) && found.GetType() != CVData::Type::None) {
                value = std::move(found);
                return 0;
            }
        } catch (...) {
            // A host's store that throws counts as one that has nothing to say.
        }
    }
    if (notFound) *notFound = 1;
    return 1;
}

bool IsSettingOn(const wchar_t* key) {
    CVData value;
    int notFound = 0;
    return GetSettingValue(key, value, &notFound) == 0 && value.IsNumber() && value.AsInteger() == 1;
}

bool ReadStringSetting(const wchar_t* key, std::wstring& value) {
    CVData data;
    int notFound = 0;
    if (GetSettingValue(key, data, &notFound) != 0 || data.GetType() != CVData::Type::String) return false;
    value = data.AsString();
    return true;
}

long long ReadIntegerSetting(const wchar_t* key, long long fallback) {
    CVData data;
    int notFound = 0;
    if (GetSettingValue(key, data, &notFound) != 0 || !data.IsNumber()) return fallback;
    return data.AsInteger();
}
