// What the unlock dialogs do with the texts a user reads out or types: challenges and codes shown
// in groups of four, the help desk's response checked as typed, the height of a message that must
// fit its notice, and what an unlock attempt's result means for the dialog. Portable.
#pragma once
#include <cstdint>

#include "services/secstr.h"

namespace unlock {

// "-" after every fourth character, never after the last: 10 characters show as 4-4-2.
CSecStr GroupByFour(const CSecStr& text);
// The reset form shows exactly four groups: the first 16 characters, however long the challenge.
CSecStr FirstFourGroups(const CSecStr& challenge);
// The response without its dashes (the card takes the bare digits).
CSecStr WithoutDashes(const CSecStr& code);
// A response the card can take: only 0-9, A-F (either case) and "-", and exactly 16 digits once
// the dashes are gone.
bool IsResponseWellFormed(const CSecStr& code);

// Height in pixels of a message control that must show the whole text: one line more than the
// text's width needs at the control's width (the text's last line rarely ends at the edge).
// A control of no width gets one line instead of a division by zero.
int MessageHeight(int textWidth, int textHeight, int controlWidth);

// What an unlock attempt's card result means for the dialog.
enum class Outcome { Unlocked, WrongCode, Failed };
Outcome OutcomeOf(uint32_t cardResult);

} // namespace unlock
