#include "api/module_state.h"

std::atomic<bool> g_pinPromptBusy{false};
std::atomic<bool> g_pinPadBusy{false};

CSecStr& CustomPinPrompt() {
    static CSecStr prompt;
    return prompt;
}
