// The caller error codes with a text, and the resource strings that hold them.
#include "dialogs/base/error_strings.h"

#include <cwchar>

unsigned ErrorStringId(int code) {
    // 11 and 12 point at each other's neighbour on purpose: callers have always seen these texts.
    static const struct {
        int code;
        unsigned id;
    } kTable[] = {{1, 3059}, {2, 3060}, {3, 3061},  {4, 3062},  {5, 3063},  {6, 3064},  {7, 3065},
                  {8, 3066}, {9, 3067}, {10, 3068}, {11, 3071}, {12, 3069}, {14, 3070}, {23, 3172}};
    for (const auto& row : kTable)
        if (row.code == code) return row.id;
    return 0;
}

const wchar_t* ErrorTextBuffer::Get(int code, Loader load) {
    unsigned id = ErrorStringId(code);
    if (id == 0) return m_text;
    m_raw[0] = 0;
    if (!load || load(id, m_raw, kCapacity) <= 0) m_raw[0] = 0;
    m_raw[kCapacity - 1] = 0;
    wcscpy(m_text, m_raw);
    return m_text;
}
