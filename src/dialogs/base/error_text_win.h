// The text of a caller error code, from the resource library (what GetErrorString returns).
#pragma once

// Never null. The text lives in one process-wide buffer, valid until the next call.
const wchar_t* ErrorText(int code);
