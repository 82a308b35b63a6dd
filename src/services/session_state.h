// The session-state service: is the user's session locked?
#pragma once

// Writes 0 to *state when the session is locked and leaves it alone otherwise (so a failing
// source counts as unlocked when the caller presets 1). Returns 0 on success.
int GetSessionState(unsigned* state);

// A host's own source; nullptr restores the built-in one (WTS session information).
typedef int(
#ifdef _WIN32
    __stdcall
#endif
        * SessionStateProvider)(unsigned* state);
void SetSessionStateProvider(SessionStateProvider provider);

// The workstation-lock check of the prompts: true when the session is locked.
bool IsWorkstationLocked();
