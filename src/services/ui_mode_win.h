// Where the user is: can a dialog on the interactive desktop be seen?
#pragma once
#include <windows.h>

#include "services/registry_win.h"  // nvIsAppContainer

// 1 on the interactive desktop; 2 when the input desktop is another one (secure desktop,
// Winlogon) or cannot be opened; 3 in an app container. A host's provider replaces the answer.
int nvGetUIMode();

// Null restores the built-in answer.
typedef int(WINAPI* UiModeProvider)(void);
void SetUiModeProvider(UiModeProvider provider);
