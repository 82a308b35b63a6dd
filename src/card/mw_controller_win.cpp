// Loads the security module's controller library from the PIN library's folder.
#include "card/mw_controller.h"

#include "card/card_log.h"
#include "card/card_result.h"
#include "services/load_library_win.h"

#include <windows.h>

namespace {

const wchar_t kControllerLibrary[] = L"cv.smmw.mwctl.dll";

} // namespace

NV::SMMW::IController* LoadMWControllerLibrary() {
    HMODULE library = nullptr;
    try {
        LoadLibrarySync(kControllerLibrary, &library, 0);
    } catch (const NV::Middleware::CMWException& e) {
        wchar_t reason[128];
        _snwprintf(reason, 127, L"%ls could not be loaded (error %lu)", kControllerLibrary, e.GetError());
        reason[127] = 0;
        COBLOG(CVLOG_ERROR, L"GetMWController : Error while trying to load Middleware: %ls.", reason);
        return nullptr;
    }
    // Kept loaded for the life of the process: the controller and the objects it handed out
    // live in it.
    auto entry = reinterpret_cast<GetSMMWControllerFn>(
        reinterpret_cast<void*>(GetProcAddress(library, "GetSMMWController")));
    if (!entry) {
        COBLOG(CVLOG_ERROR, L"GetMWController: Unable to retrieve GetSMMWController function (0x%x) !",
               (unsigned)GetLastError());
        return nullptr;
    }
    NV::SMMW::IController* controller = nullptr;
    if (CallModule(CVLOG_ERROR, L"GetMWController : GetSMMWController failed: %ls.",
                   [&] { controller = entry(); }))
        controller = nullptr;
    if (!controller)
        COBLOG(CVLOG_ERROR, L"GetMWController: Unable to retrieve SMMWController (0x%x) !",
               (unsigned)GetLastError());
    return controller;
}
