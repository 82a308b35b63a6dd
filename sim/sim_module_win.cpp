// The module's exports: the controller that the card layer loads, and the control functions of
// smmw_sim.h. One controller per process, created on first use with the CNG cipher.
#include <windows.h>

#include <mutex>
#include <string>

#include "cng_crypto_win.h"
#include "services/secstr.h"
#include "services/settings.h"
#include "sim_controller.h"
#include "smmw_sim.h"

namespace {

const wchar_t kProfileVariable[] = L"CV_SIM_PROFILE";
const wchar_t kProfileSetting[] = L"Corvana.Simulator.Profile";
// Profiles are a few kilobytes; a bigger file is surely the wrong one.
const LONGLONG kMaxProfileBytes = 4 << 20;

std::mutex g_errorMutex;
std::wstring g_lastError;

void SetLastErrorText(std::wstring text) {
    std::lock_guard<std::mutex> lock(g_errorMutex);
    g_lastError.swap(text);
}

std::wstring FromUtf8(const std::string& text) {
    if (text.empty()) return std::wstring();
    const int length =
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(length > 0 ? length : 0, L'\0');
    if (length > 0)
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &wide[0], length);
    return wide;
}

// The profile text may hold PINs and keys: wiped once parsed.
struct WipedText {
    std::string text;
    ~WipedText() {
        if (!text.empty()) SecureWipe(&text[0], text.size());
    }
};

bool ReadFileText(const std::wstring& path, WipedText& out, std::wstring& error) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        error = L"cannot open the file (error " + std::to_wstring(GetLastError()) + L")";
        return false;
    }
    LARGE_INTEGER size{};
    bool ok = GetFileSizeEx(file, &size) && size.QuadPart <= kMaxProfileBytes;
    if (!ok) {
        error = L"the file is too big for a profile";
    } else {
        out.text.resize(static_cast<size_t>(size.QuadPart));
        DWORD read = 0;
        ok = out.text.empty() ||
             (ReadFile(file, &out.text[0], static_cast<DWORD>(out.text.size()), &read, nullptr) &&
              read == out.text.size());
        if (!ok) error = L"cannot read the file (error " + std::to_wstring(GetLastError()) + L")";
    }
    CloseHandle(file);
    return ok;
}

int LoadText(sim::SimController& controller, const std::string& json, const std::wstring& origin) {
    std::string error;
    if (!controller.LoadProfile(json, &error)) {
        SetLastErrorText(origin + L": " + FromUtf8(error));
        return CVSIM_E_PROFILE;
    }
    SetLastErrorText(std::wstring());
    return CVSIM_OK;
}

int LoadFile(sim::SimController& controller, const std::wstring& path) {
    WipedText text;
    std::wstring error;
    if (!ReadFileText(path, text, error)) {
        SetLastErrorText(path + L": " + error);
        return CVSIM_E_PROFILE;
    }
    return LoadText(controller, text.text, path);
}

std::wstring EnvironmentVariable(const wchar_t* name) {
    const DWORD needed = GetEnvironmentVariableW(name, nullptr, 0);
    if (needed == 0) return std::wstring();
    std::wstring value(needed, L'\0');
    const DWORD length = GetEnvironmentVariableW(name, &value[0], needed);
    value.resize(length < needed ? length : 0);
    return value;
}

// A profile that cannot be used leaves the built-in one in place; the reason stays readable
// through CvSimGetLastError (and the debugger's output), never with a secret in it.
void LoadStartupProfile(sim::SimController& controller) {
    std::wstring path = EnvironmentVariable(kProfileVariable);
    std::wstring origin = kProfileVariable;
    if (path.empty()) {
        if (!ReadStringSetting(kProfileSetting, path) || path.empty()) return;
        origin = kProfileSetting;
    }
    if (LoadFile(controller, path) == CVSIM_OK) return;
    std::wstring message;
    {
        std::lock_guard<std::mutex> lock(g_errorMutex);
        g_lastError = L"Profile from " + origin + L" refused, using the built-in one: " + g_lastError;
        message = L"cv.smmw.mwctl: " + g_lastError + L"\n";
    }
    OutputDebugStringW(message.c_str());
}

sim::SimController* CreateController() {
    // Never deleted: the card layer keeps the controller until the process ends, and may still
    // release contexts while libraries are being unloaded.
    auto* crypto = new sim::CngCrypto();
    auto* controller = new sim::SimController(*crypto);
    LoadStartupProfile(*controller);
    return controller;
}

sim::SimController* Controller() {
    try {
        static sim::SimController* controller = CreateController();
        return controller;
    } catch (...) {
        return nullptr;
    }
}

// Runs a control function: a controller, no escaping exception.
template <class F> int Control(F&& function) {
    try {
        sim::SimController* controller = Controller();
        return controller ? function(*controller) : CVSIM_E_INTERNAL;
    } catch (...) {
        return CVSIM_E_INTERNAL;
    }
}

bool HasCard(sim::SimController& controller, const wchar_t* reader) {
    sim::SimPinState state{};
    return controller.GetPinState(reader, &state);
}

} // namespace

extern "C" NV::SMMW::IController* GetSMMWController() {
    return Controller();
}

extern "C" int CvSimLoadProfileFile(const wchar_t* path) {
    if (!path || !*path) return CVSIM_E_INVALID_ARGUMENT;
    return Control([&](sim::SimController& c) { return LoadFile(c, path); });
}

extern "C" int CvSimLoadProfileJson(const char* utf8Json) {
    if (!utf8Json) return CVSIM_E_INVALID_ARGUMENT;
    return Control([&](sim::SimController& c) { return LoadText(c, utf8Json, L"profile text"); });
}

extern "C" int CvSimLoadDefaultProfile(void) {
    return Control(
        [&](sim::SimController& c) { return LoadText(c, sim::DefaultProfileJson(), L"built-in profile"); });
}

extern "C" int CvSimRemoveCard(const wchar_t* readerName) {
    if (!readerName) return CVSIM_E_INVALID_ARGUMENT;
    return Control([&](sim::SimController& c) {
        if (!HasCard(c, readerName)) return CVSIM_E_NOT_FOUND;
        return c.RemoveCard(readerName) ? CVSIM_OK : CVSIM_E_UNCHANGED;
    });
}

extern "C" int CvSimInsertCard(const wchar_t* readerName) {
    if (!readerName) return CVSIM_E_INVALID_ARGUMENT;
    return Control([&](sim::SimController& c) {
        if (!HasCard(c, readerName)) return CVSIM_E_NOT_FOUND;
        return c.InsertCard(readerName) ? CVSIM_OK : CVSIM_E_UNCHANGED;
    });
}

extern "C" int CvSimGetPinState(const wchar_t* readerName, unsigned* triesLeft, unsigned* maxTries,
                                int* blocked) {
    if (!readerName) return CVSIM_E_INVALID_ARGUMENT;
    return Control([&](sim::SimController& c) {
        sim::SimPinState state{};
        if (!c.GetPinState(readerName, &state)) return CVSIM_E_NOT_FOUND;
        if (triesLeft) *triesLeft = state.triesLeft;
        if (maxTries) *maxTries = state.maxTries;
        if (blocked) *blocked = state.blocked ? 1 : 0;
        return CVSIM_OK;
    });
}

extern "C" int CvSimPinEquals(const wchar_t* readerName, const wchar_t* pin) {
    if (!readerName || !pin) return CVSIM_E_INVALID_ARGUMENT;
    return Control([&](sim::SimController& c) {
        if (!HasCard(c, readerName)) return CVSIM_E_NOT_FOUND;
        return c.PinEquals(readerName, pin) ? CVSIM_OK : CVSIM_E_NO_MATCH;
    });
}

extern "C" int CvSimVerifyPin(const wchar_t* readerName, const wchar_t* pin, unsigned* triesLeft) {
    if (!readerName || !pin) return CVSIM_E_INVALID_ARGUMENT;
    return Control([&](sim::SimController& c) { return c.VerifyPin(readerName, pin, triesLeft); });
}

extern "C" int CvSimGetLastError(wchar_t* buffer, unsigned capacity, unsigned* needed) {
    try {
        std::lock_guard<std::mutex> lock(g_errorMutex);
        if (needed) *needed = static_cast<unsigned>(g_lastError.size() + 1);
        if (!buffer || capacity == 0) return CVSIM_E_INVALID_ARGUMENT;
        const size_t copied = g_lastError.size() < capacity ? g_lastError.size() : capacity - 1;
        g_lastError.copy(buffer, copied);
        buffer[copied] = L'\0';
        return copied == g_lastError.size() ? CVSIM_OK : CVSIM_E_BUFFER_TOO_SMALL;
    } catch (...) {
        return CVSIM_E_INTERNAL;
    }
}
