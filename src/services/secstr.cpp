// The portable part of CSecStr. Every buffer is a secure block, wiped when it is given back, and
// text that is dropped from a buffer in use is wiped at once, so no copy of a secret outlives the
// moment it stops being needed. Loading resources is in secstr_win.cpp.
#include "services/secstr.h"

#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <functional>
#include <new>
#include <utility>

namespace {

const wchar_t kEmpty[1] = {0};
// Far beyond any PIN or message, and small enough that index arithmetic cannot overflow.
const int kMaxLength = 0x3fffffff;

int ClampInt(long long value, int low, int high) {
    return value < low ? low : (value > high ? high : static_cast<int>(value));
}

int TextLength(const wchar_t* text, int count) {
    if (!text) return 0;
    return count < 0 ? static_cast<int>(wcslen(text)) : count;
}

void WipeChars(wchar_t* data, int count) {
    if (data && count > 0) SecureWipe(data, static_cast<size_t>(count) * sizeof(wchar_t));
}

// Buffers hold capacity characters and a terminator.
size_t BufferBytes(int capacity) {
    return (static_cast<size_t>(capacity) + 1) * sizeof(wchar_t);
}

wchar_t* NewBuffer(int capacity) {
    return static_cast<wchar_t*>(SecureAlloc(BufferBytes(capacity)));
}

void FreeBuffer(wchar_t* data, int capacity) {
    SecureFree(data, BufferBytes(capacity));
}

bool IsTrimmed(wchar_t ch) {
    return ch == L' ' || ch == L'\t' || ch == L'\r' || ch == L'\n';
}

} // namespace

CSecStr::CSecStr() = default;

CSecStr::CSecStr(const wchar_t* text) : CSecStr(text, -1) {}

CSecStr::CSecStr(const wchar_t* text, int count) {
    Append(text, count);
}

CSecStr::CSecStr(const CSecStr& other) {
    Append(other.m_data, other.m_length);
}

CSecStr::CSecStr(CSecStr&& other) noexcept
    : m_data(other.m_data), m_length(other.m_length), m_capacity(other.m_capacity) {
    other.m_data = nullptr;
    other.m_length = other.m_capacity = 0;
}

CSecStr::~CSecStr() {
    FreeBuffer(m_data, m_capacity);
}

CSecStr& CSecStr::operator=(const CSecStr& other) {
    if (this != &other) *this = CSecStr(other);
    return *this;
}

CSecStr& CSecStr::operator=(CSecStr&& other) noexcept {
    if (this != &other) {
        FreeBuffer(m_data, m_capacity);
        m_data = other.m_data;
        m_length = other.m_length;
        m_capacity = other.m_capacity;
        other.m_data = nullptr;
        other.m_length = other.m_capacity = 0;
    }
    return *this;
}

CSecStr& CSecStr::operator=(const wchar_t* text) {
    // The text may point into this string's own buffer; copy it out before letting go.
    return *this = CSecStr(text);
}

void CSecStr::Reserve(int capacity) {
    if (capacity <= m_capacity) return;
    if (capacity > kMaxLength) throw std::bad_alloc();
    // Geometric growth keeps the number of abandoned (wiped) buffers small while typing.
    int newCapacity = ClampInt(2LL * m_capacity, capacity, kMaxLength);
    wchar_t* grown = NewBuffer(newCapacity);
    if (m_data) wmemcpy(grown, m_data, static_cast<size_t>(m_length));
    FreeBuffer(std::exchange(m_data, grown), m_capacity);
    m_capacity = newCapacity;
}

void CSecStr::Empty() {
    WipeChars(m_data, m_capacity + 1);
    m_length = 0;
}

wchar_t* CSecStr::GetBuffer(int minLength) {
    Reserve(minLength > m_length ? minLength : (m_length > 0 ? m_length : 1));
    return m_data;
}

void CSecStr::ReleaseBuffer(int newLength) {
    if (!m_data) return;
    if (newLength < 0) newLength = static_cast<int>(wcsnlen(m_data, static_cast<size_t>(m_capacity)));
    m_length = ClampInt(newLength, 0, m_capacity);
    // Whatever the caller left after the end may be part of a secret.
    WipeChars(m_data + m_length, m_capacity + 1 - m_length);
}

const wchar_t* CSecStr::GetString() const {
    return m_data ? m_data : kEmpty;
}

wchar_t CSecStr::operator[](int index) const {
    return index >= 0 && index < m_length ? m_data[index] : 0;
}

int CSecStr::Compare(const wchar_t* other) const {
    return wcscmp(GetString(), other ? other : kEmpty);
}

int CSecStr::Find(wchar_t ch, int start) const {
    for (int i = start < 0 ? 0 : start; i < m_length; ++i)
        if (m_data[i] == ch) return i;
    return -1;
}

int CSecStr::Find(const wchar_t* text, int start) const {
    if (!text) return -1;
    if (start < 0) start = 0;
    if (start > m_length) return -1;
    const wchar_t* hit = wcsstr(GetString() + start, text);
    return hit ? static_cast<int>(hit - GetString()) : -1;
}

CSecStr CSecStr::Mid(int first, int count) const {
    first = ClampInt(first, 0, m_length);
    int available = m_length - first;
    count = count < 0 ? available : ClampInt(count, 0, available);
    return CSecStr(GetString() + first, count);
}

CSecStr CSecStr::Left(int count) const {
    return Mid(0, ClampInt(count, 0, m_length));
}

CSecStr CSecStr::Right(int count) const {
    count = ClampInt(count, 0, m_length);
    return Mid(m_length - count, count);
}

int CSecStr::Replace(const wchar_t* oldText, const wchar_t* newText) {
    int oldLength = TextLength(oldText, -1);
    if (oldLength == 0 || m_length == 0) return 0;
    // Copy the replacement first: it may point into this string.
    CSecStr replacement(newText);
    CSecStr result;
    int replaced = 0;
    int from = 0;
    for (int hit = Find(oldText, 0); hit >= 0; hit = Find(oldText, from)) {
        result.Append(m_data + from, hit - from);
        result.Append(replacement.m_data, replacement.m_length);
        from = hit + oldLength;
        ++replaced;
    }
    if (replaced == 0) return 0;
    result.Append(m_data + from, m_length - from);
    *this = std::move(result);
    return replaced;
}

void CSecStr::MakeUpper() {
    for (int i = 0; i < m_length; ++i) {
        wchar_t ch = m_data[i];
        if ((ch >= L'a' && ch <= L'z') || (ch >= 0xE0 && ch <= 0xFE && ch != 0xF7))
            m_data[i] = static_cast<wchar_t>(ch - 0x20);
    }
}

void CSecStr::TrimLeft() {
    int count = 0;
    while (count < m_length && IsTrimmed(m_data[count]))
        ++count;
    Delete(0, count);
}

void CSecStr::TrimRight() {
    int end = m_length;
    while (end > 0 && IsTrimmed(m_data[end - 1]))
        --end;
    Delete(end, m_length - end);
}

void CSecStr::Insert(int index, const wchar_t* text, int count) {
    count = TextLength(text, count);
    if (count <= 0 || count > kMaxLength - m_length) return;
    std::less<const wchar_t*> before;
    if (m_data && !before(text, m_data) && before(text, m_data + m_capacity + 1)) {
        // Growing would free the text being inserted.
        CSecStr copy(text, count);
        Insert(index, copy.m_data, count);
        return;
    }
    index = ClampInt(index, 0, m_length);
    Reserve(m_length + count);
    wmemmove(m_data + index + count, m_data + index, static_cast<size_t>(m_length - index));
    wmemcpy(m_data + index, text, static_cast<size_t>(count));
    m_length += count;
    m_data[m_length] = 0;
}

void CSecStr::Delete(int index, int count) {
    index = ClampInt(index, 0, m_length);
    count = ClampInt(count, 0, m_length - index);
    if (count == 0) return;
    wmemmove(m_data + index, m_data + index + count, static_cast<size_t>(m_length - index - count));
    WipeChars(m_data + m_length - count, count);
    m_length -= count;
}

void CSecStr::Append(const wchar_t* text, int count) {
    Insert(m_length, text, count);
}

void CSecStr::Format(const wchar_t* format, ...) {
    if (!format) {
        Empty();
        return;
    }
    // Formatted text may contain a secret, so the scratch buffers are secure blocks like our own.
    for (int capacity = 256; capacity <= (1 << 20); capacity *= 2) {
        wchar_t* scratch = NewBuffer(capacity);
        va_list args;
        va_start(args, format);
#ifdef _WIN32
        int written = _vsnwprintf(scratch, static_cast<size_t>(capacity - 1), format, args);
#else
        int written = vswprintf(scratch, static_cast<size_t>(capacity), format, args);
#endif
        va_end(args);
        bool fits = written >= 0 && written < capacity;
        if (fits) {
            Empty();
            Append(scratch, written);
        }
        FreeBuffer(scratch, capacity);
        if (fits) return;
    }
    Empty(); // a format that cannot be rendered (bad conversion) leaves nothing half-written
}
