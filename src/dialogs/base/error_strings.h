// GetErrorString's table and buffers, kept apart from the resource loading so that the
// mapping (with its 11/12 crossing) is tested natively.
#pragma once

// Resource string id of a caller error code, or 0 when the code has no text.
unsigned ErrorStringId(int code);

class ErrorTextBuffer {
public:
    enum { kCapacity = 4096 };
    // Loads resource string id into buffer (capacity characters incl. terminator); returns the
    // characters loaded, 0 when missing.
    typedef int (*Loader)(unsigned id, wchar_t* buffer, int capacity);

    // The text of code. An unmapped code returns the text left by the last mapped call (empty at
    // start); a failed load yields an empty text. The pointer is this object's buffer.
    const wchar_t* Get(int code, Loader load);

private:
    wchar_t m_raw[kCapacity] = {};
    wchar_t m_text[kCapacity] = {};
};
