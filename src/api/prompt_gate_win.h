// The entry pattern that every prompting function follows before it shows anything: the
// last-try warning, the workstation-lock check, and the one-prompt-at-a-time rule.
#pragma once
#include <windows.h>
#include <atomic>

struct PromptTexts {
    const wchar_t* function;    // "GetPINFromUser"
    const wchar_t* notAllowed;  // "Enter PIN action NOT allowed"
    const wchar_t* allowed;     // "Enter PIN action allowed"
};

// The busy flag taken by Enter is given back when the gate goes out of scope, whichever way the
// prompt ends (an exception included): a prompt that failed must not refuse every later one.
class PromptGate {
public:
    PromptGate(const PromptTexts& texts, std::atomic<bool>& busy) : m_texts(texts), m_busy(busy) {}
    ~PromptGate() {
        if (m_holding) m_busy.store(false);
    }
    PromptGate(const PromptGate&) = delete;
    PromptGate& operator=(const PromptGate&) = delete;

    // Logs the call; shows the last-try warning when asked; refuses while the session is locked
    // or a prompt of the same kind is open. true: go on, the busy flag is now set. false: return
    // Refused() at once.
    bool Enter(HWND parent, const wchar_t* readerName, bool lastTry);
    int Refused() { return m_lastTryDeclined ? m_refusal : Return(m_refusal); }
    // Leaves the flag set for the rest of the process: every later prompt of this kind is refused.
    void KeepBusy() { m_holding = false; }
    // Logs "<function>: returns: %d" at the level that fits the result.
    int Return(int result);

private:
    const PromptTexts& m_texts;
    std::atomic<bool>& m_busy;
    bool m_holding = false;
    int m_refusal = -1;
    bool m_lastTryDeclined = false;
};
