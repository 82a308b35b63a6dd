// Process attach and detach of the PIN library.
#include <windows.h>
#include "api/event_sources_win.h"
#include "card/cob_api.h"
#include "framework/dialog_win.h"
#include "framework/ui_scope_win.h"
#include "services/load_library_win.h"
#include "services/log.h"

namespace {

const wchar_t kResourceLibrary[] = L"Resources\\cv.corvana.gui.pinrc.dll";
const wchar_t kProgressBarClass[] = L"CvProgressBar";

void RegisterProgressBarClass(HINSTANCE module) {
    WNDCLASSEXW wc = {sizeof(wc)};
    wc.style = CS_HREDRAW | CS_VREDRAW | CS_GLOBALCLASS;
    wc.lpfnWndProc = DefWindowProcW;
    wc.hInstance = module;
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.lpszClassName = kProgressBarClass;
    RegisterClassExW(&wc);
}

void LoadResourceLibrary() {
    HMODULE resources = nullptr;
    try {
        LoadLibrarySync(kResourceLibrary, &resources, kLoadAsResources);
        GUILOG(CVLOG_INFO, L"DllMain: LoadLibrarySync(%s) succeeded", kResourceLibrary);
    } catch (const NV::Middleware::CMWException& e) {
        // Without it every prompt fails at once, but the library still loads: its callers
        // must get an answer, not a load failure.
        GUILOG(CVLOG_ERROR, L"DllMain: LoadLibrarySync(%s) failed with error code 0x%x", kResourceLibrary,
               (unsigned)e.GetError());
        resources = nullptr;
    }
    fw::SetResourceModule(resources);
}

void Attach(HINSTANCE module) {
    SetThisModule(module);
    RegisterProgressBarClass(module);
    cvCobAPI_Initialize();
    LoadResourceLibrary();
    fw::InitActivationContext(module);
    InstallBuiltInEventSources();
}

void Detach(bool processEnding) {
    // At process exit the system drops the notifications and windows itself; touching them under
    // the loader lock then only risks a hang.
    if (!processEnding) RemoveBuiltInEventSources();
    // At process exit the loader unmaps everything and the system frees the icons itself.
    HINSTANCE resources = fw::ResourceModule();
    if (resources && !processEnding) {
        fw::SetResourceModule(nullptr);  // also destroys the icons taken from it
        FreeLibrary(resources);
    }
    fw::ReleaseActivationContext();
    // At process exit the security module's library may already be detached: leave it alone.
    if (!processEnding) cvCobAPI_Finalize();
    UnregisterClassW(kProgressBarClass, ThisModule());
}

}  // namespace

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved) {
    try {
        if (reason == DLL_PROCESS_ATTACH) {
            DisableThreadLibraryCalls(module);
            Attach(module);
        } else if (reason == DLL_PROCESS_DETACH) {
            Detach(reserved != nullptr);
        }
    } catch (...) {
        // Nothing may leave DllMain; a failed attach step leaves the library without that piece.
    }
    return TRUE;
}
