// Hexadecimal text of byte strings, as profiles and the help-desk tool write them.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

enum class HexSeparators { Refuse, Allow };

// Two digits a byte, either case. With HexSeparators::Allow, blanks and dashes between digits
// are skipped (a challenge read aloud and typed in groups). On failure *error says what is
// wrong by position, never quoting the text (it may be a key).
bool ParseHex(const std::string& text, HexSeparators separators, std::vector<uint8_t>& out,
              std::string* error);

// Upper-case digits; with group > 0 a blank after every `group` bytes ("1A2B 3C4D").
std::string FormatHex(const uint8_t* data, size_t count, size_t group = 0);

} // namespace sim
