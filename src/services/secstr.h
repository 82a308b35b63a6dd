// CSecStr: the secure wide string that holds every PIN, unlock code and challenge.
// Its buffers are secure blocks (services/secure_memory.h): every buffer it lets go (on growth,
// assignment and destruction) is overwritten with zeros first, and so is the text on Empty.
// Portable: no Windows headers, built and tested natively too.
#pragma once
#include <cstddef>

#include "services/secure_memory.h"

class CSecStr {
public:
    CSecStr();
    CSecStr(const wchar_t* text);  // NOLINT: implicit on purpose, as a string type
    CSecStr(const wchar_t* text, int count);
    CSecStr(const CSecStr& other);
    CSecStr(CSecStr&& other) noexcept;
    ~CSecStr();

    CSecStr& operator=(const CSecStr& other);
    CSecStr& operator=(CSecStr&& other) noexcept;
    CSecStr& operator=(const wchar_t* text);

    // Wipes the characters and makes the string empty.
    void Empty();
    bool IsEmpty() const { return m_length == 0; }
    int GetLength() const { return m_length; }

    // Writable buffer of at least minLength characters plus a terminator; the current text is
    // kept. ReleaseBuffer(-1) takes the length up to the first zero character.
    wchar_t* GetBuffer(int minLength);
    void ReleaseBuffer(int newLength = -1);

    // Never null; always terminated.
    const wchar_t* GetString() const;
    wchar_t operator[](int index) const;

    int Compare(const wchar_t* other) const;  // <0, 0, >0 like wcscmp; null compares as ""
    int Compare(const CSecStr& other) const { return Compare(other.GetString()); }
    bool operator==(const CSecStr& other) const { return Compare(other) == 0; }
    bool operator!=(const CSecStr& other) const { return Compare(other) != 0; }

    int Find(wchar_t ch, int start = 0) const;
    int Find(const wchar_t* text, int start = 0) const;  // -1 when absent
    CSecStr Mid(int first, int count = -1) const;
    CSecStr Left(int count) const;
    CSecStr Right(int count) const;
    int Replace(const wchar_t* oldText, const wchar_t* newText);  // number of replacements
    void MakeUpper();  // ASCII and Latin-1 letters
    void TrimLeft();
    void TrimRight();

    // Editing in place, used by the secure edit control. Indexes are clamped to the text.
    void Insert(int index, const wchar_t* text, int count);
    void Delete(int index, int count);
    void Append(const wchar_t* text, int count);
    void AppendChar(wchar_t ch) { Append(&ch, 1); }

    // Formats like swprintf into the string (resource formats such as L"%d characters").
    void Format(const wchar_t* format, ...);

    // Loads a string resource of the given module (Windows only); false when missing.
    bool LoadStringW(void* module, unsigned id);

private:
    void Reserve(int capacity);
    wchar_t* m_data = nullptr;
    int m_length = 0;
    int m_capacity = 0;  // characters, terminator excluded
};
