// The warnings of the prompts. Hosts and tests may take them over; otherwise a topmost
// message box, with Help when a help file is installed.
#include "services/msgbox_win.h"

#include "services/help_display_win.h"

#include <atomic>
#include <string>

namespace {

std::atomic<MessageBoxHandler> g_handler{nullptr};

void CALLBACK OnMessageBoxHelp(LPHELPINFO info) {
    if (info) DoDisplayTopic(static_cast<int>(info->dwContextId));
}

int ShowMessageBox(HWND parent, const wchar_t* text, const wchar_t* readerName, int helpTopic, UINT type) {
    std::wstring caption = L"Corvana";
    if (readerName && *readerName) caption.append(L" - ").append(readerName);

    MSGBOXPARAMSW params = {};
    params.cbSize = sizeof params;
    params.hwndOwner = parent;
    params.lpszText = text ? text : L"";
    params.lpszCaption = caption.c_str();
    // The prompts run on behalf of a background operation: the warning must not open behind
    // the window the user is looking at.
    params.dwStyle = type | MB_SETFOREGROUND | MB_TOPMOST;
    if (GetDisplayHelpValue()) params.dwStyle |= MB_HELP;
    params.dwContextHelpId = static_cast<DWORD_PTR>(helpTopic);
    params.lpfnMsgBoxCallback = OnMessageBoxHelp;
    return MessageBoxIndirectW(&params);
}

} // namespace

void SetMessageBoxHandler(MessageBoxHandler handler) {
    g_handler.store(handler);
}

int CVErrMesDisplayExWithParentParamAndReaderAndHelp(HWND parent, const wchar_t* text,
                                                     const wchar_t* readerName, int helpTopic, UINT type) {
    if (MessageBoxHandler handler = g_handler.load())
        return handler(parent, text, readerName, helpTopic, type);
    try {
        return ShowMessageBox(parent, text, readerName, helpTopic, type);
    } catch (...) {
        return 0; // what MessageBox itself answers when it cannot show
    }
}

int CVErrMesDisplayEx(HWND parent, const wchar_t* text, UINT type) {
    return CVErrMesDisplayExWithParentParamAndReaderAndHelp(parent, text, nullptr, 0, type);
}
