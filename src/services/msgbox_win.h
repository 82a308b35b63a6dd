// The message-box service: a warning with OK/Cancel and, when a help file is configured,
// a Help button that opens the given topic.
#pragma once
#include <windows.h>

// Shows text for the reader (reader may be null or empty); type is MB_* flags of the buttons
// and icon (MB_HELP is added by the service when help is available). Returns IDOK, IDCANCEL...
int CVErrMesDisplayExWithParentParamAndReaderAndHelp(HWND parent, const wchar_t* text,
                                                     const wchar_t* readerName, int helpTopic,
                                                     UINT type);

// The same without a reader or a help topic (the caption is the product's name).
int CVErrMesDisplayEx(HWND parent, const wchar_t* text, UINT type);

// A host or a test may route message boxes elsewhere; nullptr restores the built-in one.
typedef int (*MessageBoxHandler)(HWND parent, const wchar_t* text, const wchar_t* readerName,
                                 int helpTopic, UINT type);
void SetMessageBoxHandler(MessageBoxHandler handler);
