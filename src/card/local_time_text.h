// A time as log lines show it: local time in the C run time's asctime form, without its newline
// ("Tue Mar  4 09:05:00 2025"); "(invalid time)" when it cannot be converted.
#pragma once
#include <cstdint>
#include <string>

std::wstring LocalTimeText(int64_t secondsSince1970);
