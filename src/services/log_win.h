// The file sink behind the logging service on Windows (log_win.cpp).
#pragma once
#include <windows.h>

class ILogSink;

// Appends each line to the file named by "Corvana.Logging.File" when its level is enabled in
// "Corvana.Logging.Levels". Never null.
ILogSink* DefaultLogSink();

// Makes the next line re-read the two settings now instead of at the next periodic refresh.
void ReloadLogSettings();

// Opens the log file for appending, creating the folders above it when they are missing;
// INVALID_HANDLE_VALUE on failure. A path that fails is tried again only after a pause (a few
// seconds), or at once when the setting names another file.
using LogFileOpener = HANDLE (*)(const wchar_t* path);
HANDLE OpenLogFile(const wchar_t* path);
// Replaces the opener (tests count the attempts through it); nullptr restores OpenLogFile.
void SetLogFileOpener(LogFileOpener opener);
