// GetErrorString, the host-integration functions and the record for MFC hosts.
#include "api/guard.h"
#include "cvpingui.h"
#include "dialogs/base/error_text_win.h"
#include "framework/dialog_win.h"
#include "services/event_bus.h"
#include "services/load_library_win.h"
#include "services/session_state.h"

extern "C" const wchar_t* WINAPI GetErrorString(int code) {
    return Guarded(L"GetErrorString", static_cast<const wchar_t*>(L""), [&] { return ErrorText(code); });
}

extern "C" int WINAPI CVPinGuiPublishEvent(int eventId, const GUID* source, int code, const wchar_t* readerName) {
    static_assert(sizeof(GUID) == sizeof(CVGuid), "GUID layouts differ");
    return Guarded(L"CVPinGuiPublishEvent", -1, [&] {
        return PublishEvent(eventId, reinterpret_cast<const CVGuid*>(source), code, readerName);
    });
}

extern "C" void WINAPI CVPinGuiSetSessionStateProvider(CVPinGuiSessionStateProvider provider) {
    SetSessionStateProvider(provider);
}

namespace {
// What an MFC host keeps for an extension library: this module and where its resources are.
struct ExtensionLibraryRecord {
    HMODULE module;
    HINSTANCE resources;
    void* reserved[6];
};
}  // namespace

extern "C" void* WINAPI InitGUIDll(void) {
    return Guarded(L"InitGUIDll", static_cast<void*>(nullptr), [] {
        auto* record = new ExtensionLibraryRecord();
        record->module = ThisModule();
        record->resources = fw::ResourceModule();
        return static_cast<void*>(record);
    });
}
