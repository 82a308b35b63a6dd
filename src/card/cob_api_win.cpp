#include "card/cob_api.h"

#include "card/card_log.h"
#include "card/card_removal_events.h"
#include "card/card_result.h"
#include "services/load_library_win.h"

#include <windows.h>

namespace {

const wchar_t* const kResourceLibraries[] = {L"resources\\cvCobAPIrc.dll", L"resources\\cvCobAPIlrc.dll"};

bool g_initialized = false;
HMODULE g_resources[2] = {};

} // namespace

uint32_t cvCobAPI_Initialize() {
    COBLOG(CVLOG_ENTRY, L"cvCobAPI_Initialize");
    if (g_initialized) {
        COBLOG(CVLOG_INFO, L"cvCobAPI_Initialize cvCobAPI already initialized!");
        return CV_OBJ_API_OK;
    }
    g_initialized = true;
    uint32_t ret = CV_OBJ_API_OK;
    for (size_t i = 0; i < 2; ++i) {
        try {
            LoadLibrarySync(kResourceLibraries[i], &g_resources[i], kLoadAsResources);
        } catch (const NV::Middleware::CMWException&) {
            COBLOG(CVLOG_ERROR, L"cvCobAPI_Initialize: Unable to load resources library");
            g_resources[i] = nullptr;
            ret = CV_OBJ_API_FAILED;
        }
    }
    COBLOG(CVLOG_EXIT, L"cvCobAPI_Initialize : ret=(%#x)", ret);
    return ret;
}

uint32_t cvCobAPI_Finalize() {
    COBLOG(CVLOG_ENTRY, L"cvCobAPI_Finalize");
    StopCardRemovalEvents();
    for (HMODULE& module : g_resources) {
        if (module) FreeLibrary(module);
        module = nullptr;
    }
    g_initialized = false;
    COBLOG(CVLOG_EXIT, L"cvCobAPI_Finalize : ret=(%#x)", CV_OBJ_API_OK);
    return CV_OBJ_API_OK;
}
