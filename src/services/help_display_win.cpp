// The Help button of the dialogs and message boxes.
#include "services/help_display_win.h"

#include "services/html_help_win.h"
#include "services/log.h"
#include "services/registry_win.h"

namespace {

const wchar_t kHelpKey[] = L"SOFTWARE\\Lumetra\\Corvana";
const wchar_t kHelpValue[] = L"HelpPath";
constexpr DWORD kPathBufferChars = 261;
constexpr DWORD kMaxPathChars = 256;

// Reads the help file's path into path (kPathBufferChars); false when it is not configured.
bool ReadHelpPath(wchar_t* path) {
    DWORD chars = 0;
    return nvRegReadStringValueEx(HKEY_LOCAL_MACHINE, kHelpKey, kHelpValue, path, kMaxPathChars + 1,
                                  &chars) == ERROR_SUCCESS &&
           chars > 0;
}

} // namespace

void DoDisplayTopic(int topicId) {
    LogScope scope(L"DoDisplayTopic");
    GUILOG(CVLOG_INFO, L"Displaying topic %d", topicId);
    wchar_t path[kPathBufferChars] = {};
    if (!ReadHelpPath(path)) return;
    GUILOG(CVLOG_INFO, L"DoDisplayTopic: nvRegReadStringValueEx(%s, %s) returned %s", kHelpKey, kHelpValue,
           path);
    HtmlHelpW(GetActiveWindow(), path, HH_HELP_CONTEXT, static_cast<DWORD_PTR>(topicId));
}

int GetDisplayHelpValue() {
    GUILOG(CVLOG_ENTRY, L"GetDisplayHelpValue");
    int available = 0;
    wchar_t path[kPathBufferChars] = {};
    if (ReadHelpPath(path)) {
        GUILOG(CVLOG_INFO, L"GetDisplayHelpValue: nvRegReadStringValueEx(%s, %s) returned %s", kHelpKey,
               kHelpValue, path);
        available = 1;
    }
    GUILOG(CVLOG_EXIT, L"GetDisplayHelpValue (%d)", available);
    return available;
}
