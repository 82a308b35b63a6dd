// The file sink behind the logging service on Windows (log_win.cpp).
#pragma once

class ILogSink;

// Appends each line to the file named by "Corvana.Logging.File" when its level is enabled in
// "Corvana.Logging.Levels". Never null.
ILogSink* DefaultLogSink();

// Makes the next line re-read the two settings now instead of at the next periodic refresh.
void ReloadLogSettings();
