// Loads the library's companions (the resource DLL) from its own folder, never from the
// host's search path.
#include "services/load_library_win.h"

#include <atomic>
#include <string>
#include <vector>

namespace {

std::atomic<HMODULE> g_thisModule{nullptr};

// The exception carries the error: the runtime's unwinder may change the thread's last error
// (measured with mingw-w64 under Wine) before the caller's catch runs.
[[noreturn]] void Fail(DWORD error) {
    if (error == ERROR_SUCCESS) error = ERROR_MOD_NOT_FOUND;
    SetLastError(error);
    throw NV::Middleware::CMWException(error);
}

} // namespace

std::wstring ModulePath(HMODULE module) {
    // Long enough for paths beyond MAX_PATH: grow until the name fits.
    std::vector<wchar_t> name(MAX_PATH);
    for (;;) {
        DWORD length = GetModuleFileNameW(module, name.data(), static_cast<DWORD>(name.size()));
        if (length == 0) return std::wstring();
        if (length < name.size()) return std::wstring(name.data(), length);
        if (name.size() >= 32768) {
            SetLastError(ERROR_FILENAME_EXCED_RANGE);
            return std::wstring();
        }
        name.resize(name.size() * 2);
    }
}

HMODULE ThisModule() {
    HMODULE module = g_thisModule.load();
    if (module) return module;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(reinterpret_cast<void*>(&ThisModule)), &module);
    return module;
}

void SetThisModule(HMODULE module) {
    g_thisModule.store(module);
}

// Code is loaded with LOAD_WITH_ALTERED_SEARCH_PATH added, so that the loaded DLL's own imports
// resolve from its folder too; a library loaded as resources has no imports to resolve.
void LoadLibrarySync(const wchar_t* relativePath, HMODULE* module, DWORD flags) {
    if (!relativePath || !*relativePath || !module) Fail(ERROR_INVALID_PARAMETER);
    *module = nullptr;
    std::wstring path = ModulePath(ThisModule());
    size_t slash = path.find_last_of(L"\\/");
    if (slash == std::wstring::npos) Fail(GetLastError());
    path = path.substr(0, slash + 1) + relativePath;
    if ((flags & kLoadAsResources) == 0) flags |= LOAD_WITH_ALTERED_SEARCH_PATH;
    HMODULE loaded = LoadLibraryExW(path.c_str(), nullptr, flags);
    if (!loaded) Fail(GetLastError());
    *module = loaded;
}
