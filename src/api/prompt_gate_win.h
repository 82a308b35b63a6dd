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

class PromptGate {
public:
    PromptGate(const PromptTexts& texts, std::atomic<bool>& busy) : m_texts(texts), m_busy(busy) {}

    // Logs the call; shows the last-try warning when asked; refuses while the session is locked
    // or a prompt of the same kind is open. true: go on, the busy flag is now set. false: return
    // Refused() at once.
    bool Enter(HWND parent, const wchar_t* readerName, bool lastTry);
    int Refused() { return m_lastTryDeclined ? m_refusal : Return(m_refusal); }
    void Leave() { m_busy.store(false); }
    // Logs "<function>: returns: %d" at the level that fits the result.
    int Return(int result);

private:
    const PromptTexts& m_texts;
    std::atomic<bool>& m_busy;
    int m_refusal = -1;
    bool m_lastTryDeclined = false;
};
