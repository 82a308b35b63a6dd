// One prompt at a time: how a prompt's end gives the busy flag back.
#include <gtest/gtest.h>
#include <windows.h>

#include <stdexcept>

#include "api/module_state.h"
#include "api/prompt_gate_win.h"

namespace {

const PromptTexts kTexts = {L"GateTest", L"not allowed", L"allowed"};

bool NextPromptAllowed() {
    PromptGate next(kTexts, g_pinPromptBusy);
    return next.Enter(nullptr, L"", false);
}

}  // namespace

// While one is open, the next is refused (checked through the prompts themselves); one kept busy
// (it could not hand its PIN over) refuses every later one.
TEST(PromptGate, APromptThatThrowsLeavesTheNextOnePossibleAndOneKeptBusyRefusesIt) {
    try {
        PromptGate gate(kTexts, g_pinPromptBusy);
        ASSERT_TRUE(gate.Enter(nullptr, L"", false));
        throw std::runtime_error("failure inside the prompt");
    } catch (const std::runtime_error&) {
    }
    EXPECT_TRUE(NextPromptAllowed());
    {
        PromptGate gate(kTexts, g_pinPromptBusy);
        ASSERT_TRUE(gate.Enter(nullptr, L"", false));
        gate.KeepBusy();
    }
    EXPECT_FALSE(NextPromptAllowed());
    g_pinPromptBusy.store(false);
}
