// Tells the desktop agents (smart-card agent, user console) that something happened on a reader.
#pragma once
#include <windows.h>

void NotifyEvent(void* ignored, const wchar_t* readerName, WPARAM wParam);
