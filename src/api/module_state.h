// Process-wide state of the PIN library.
#pragma once
#include <atomic>
#include "services/secstr.h"

// Set while a PIN prompt (GetPINFromUser or ShowPINAlwaysPrompt) is open.
extern std::atomic<bool> g_pinPromptBusy;
// Set while a PIN-pad prompt (ShowKeyPadPrompt or ShowKeyPadChgPinPrompt) is open.
extern std::atomic<bool> g_pinPadBusy;

// The prompt text set by SetPinPromptString; empty: the template's own.
CSecStr& CustomPinPrompt();
