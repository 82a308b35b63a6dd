// The process-wide security-module controller, loaded on first use and kept for the life of the
// process. Never call GetMWController under the loader lock (from DllMain): it may load a DLL.
#pragma once
#include "smmw.h"

// The controller, or null when it cannot be loaded or initialised (a later call tries again).
NV::SMMW::IController* GetMWController();

// Makes controller the loaded one (not initialised here); null forgets it, so that the next
// GetMWController loads the real one. For tests, which bring a simulated module.
void SetMWControllerForTesting(NV::SMMW::IController* controller);

// True once a controller is loaded, without loading one.
bool IsMWControllerLoaded();

// Loads the controller library and returns its controller, uninitialised; null on failure
// (logged). Windows: mw_controller_win.cpp; elsewhere there is no library to load.
NV::SMMW::IController* LoadMWControllerLibrary();
