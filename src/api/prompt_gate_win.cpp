#include "api/prompt_gate_win.h"
#include "cvpingui.h"
#include "services/log.h"
#include "services/session_state.h"

bool PromptGate::Enter(HWND parent, const wchar_t* readerName, bool lastTry) {
    const wchar_t* fn = m_texts.function;
    GUILOG(CVLOG_INFO, L"%s: hParent = %x, Reader = %s", fn, (unsigned)(UINT_PTR)parent, readerName);
    if (lastTry) {
        GUILOG(CVLOG_INFO, L"%s: DisplayLastPINTry", fn);
        int answer = DisplayLastPINTry(readerName);
        if (answer != 0) {
            // The caller's answer goes back as it is, without the usual result line.
            m_refusal = answer;
            m_lastTryDeclined = true;
            return false;
        }
    }
    GUILOG(CVLOG_INFO, L"%s: check if workstation is locked", fn);
    if (IsWorkstationLocked()) {
        GUILOG(CVLOG_INFO, L"%s: workstation is locked, %s aborted", fn, fn);
        return false;
    }
    if (m_busy.exchange(true)) {
        GUILOG(CVLOG_INFO, L"%s: %s", fn, m_texts.notAllowed);
        return false;
    }
    m_holding = true;
    GUILOG(CVLOG_INFO, L"%s: %s", fn, m_texts.allowed);
    return true;
}

int PromptGate::Return(int result) {
    GUILOG(result == CVPIN_FAILED ? CVLOG_ERROR : CVLOG_INFO, L"%s: returns: %d", m_texts.function, result);
    return result;
}
