// Start and stop of the card layer, from the PIN library's process attach and detach.
#pragma once
#include <cstdint>

// Loads the layer's resource libraries (once per process). The controller is not loaded here:
// that happens on first use, outside the loader lock.
uint32_t cvCobAPI_Initialize();
// Stops card-removal events and frees the resource libraries. Call it only when the library is
// unloaded before process exit: at exit the controller library may already be gone.
uint32_t cvCobAPI_Finalize();
