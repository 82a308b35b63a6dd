#include "card/mw_controller.h"

#include "card/card_log.h"
#include "card/card_result.h"

#include <atomic>
#include <mutex>

namespace {

std::atomic<NV::SMMW::IController*> g_controller{nullptr};
// The dialogs and the event bus's hooks may ask for the controller on different threads; one
// of them loads it.
std::mutex g_loadLock;

} // namespace

#ifndef _WIN32
NV::SMMW::IController* LoadMWControllerLibrary() {
    return nullptr;
}
#endif

NV::SMMW::IController* GetMWController() {
    if (NV::SMMW::IController* controller = g_controller.load()) return controller;
    std::lock_guard<std::mutex> lock(g_loadLock);
    if (NV::SMMW::IController* controller = g_controller.load()) return controller;
    NV::SMMW::IController* controller = LoadMWControllerLibrary();
    if (!controller) return nullptr;
    const uint32_t rc =
        CallModule(CVLOG_ERROR, L"GetMWController : Error while trying to Initialize Middleware: %ls.",
                   [&] { controller->Initialize(); });
    if (rc != CV_OBJ_API_OK) return nullptr;
    g_controller.store(controller);
    return controller;
}

void SetMWControllerForTesting(NV::SMMW::IController* controller) {
    std::lock_guard<std::mutex> lock(g_loadLock);
    g_controller.store(controller);
}

bool IsMWControllerLoaded() {
    return g_controller.load() != nullptr;
}
