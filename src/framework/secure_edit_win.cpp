#include "framework/secure_edit_win.h"

#include <exception>
#include <string>

#include "services/log.h"

namespace fw {

namespace {

// What the platform edit holds in place of each real character. Not a secret, so an
// ordinary string may carry it.
constexpr wchar_t kMaskChar = L'\x25CF';

std::wstring Mask(int count) { return std::wstring(count > 0 ? count : 0, kMaskChar); }

// Asks the edit, through this window's own procedure, to show a mask matching the secure
// text. A private message keeps the real text away from every hook that watches WM_SETTEXT.
UINT SyncMaskMessage() {
    static const UINT message = RegisterWindowMessageW(L"fw.SecureEdit.SyncMask");
    return message;
}

LONG_PTR Style(HWND hwnd) { return GetWindowLongPtrW(hwnd, GWL_STYLE); }

// Releases the clipboard on every path, also when an insertion throws.
class ClipboardText {
public:
    explicit ClipboardText(HWND owner) : m_open(OpenClipboard(owner) != FALSE) {
        if (!m_open) return;
        m_data = GetClipboardData(CF_UNICODETEXT);
        if (m_data) m_text = static_cast<const wchar_t*>(GlobalLock(m_data));
    }
    ~ClipboardText() {
        if (m_text) GlobalUnlock(m_data);
        if (m_open) CloseClipboard();
    }
    ClipboardText(const ClipboardText&) = delete;
    ClipboardText& operator=(const ClipboardText&) = delete;

    // Characters of the first line: a single-line edit takes nothing after a line break.
    int FirstLineLength() const {
        if (!m_text) return 0;
        SIZE_T capacity = GlobalSize(m_data) / sizeof(wchar_t);
        if (capacity > 0x7FFFFFFF) capacity = 0x7FFFFFFF;
        SIZE_T n = 0;
        while (n < capacity && m_text[n] && m_text[n] != L'\r' && m_text[n] != L'\n') ++n;
        return static_cast<int>(n);
    }
    const wchar_t* Text() const { return m_text; }

private:
    bool m_open;
    HANDLE m_data = nullptr;
    const wchar_t* m_text = nullptr;
};

}  // namespace

SecureEdit::~SecureEdit() {
    m_text.Empty();
    HWND hwnd = m_hWnd;
    Detach();
    // The window outlives its guard: leave no mask behind and let nobody type a secret into
    // what is now an ordinary edit.
    if (hwnd && IsWindow(hwnd)) {
        SendMessageW(hwnd, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L""));
        SendMessageW(hwnd, EM_EMPTYUNDOBUFFER, 0, 0);
        SendMessageW(hwnd, EM_SETREADONLY, TRUE, 0);
    }
}

void SecureEdit::SetText(const CSecStr& text) {
    if (&text != &m_text) m_text = text;
    if (m_hWnd) SendMessageW(m_hWnd, SyncMaskMessage(), 0, 0);
}

void SecureEdit::Clear() {
    m_text.Empty();
    if (m_hWnd) SendMessageW(m_hWnd, SyncMaskMessage(), 0, 0);
}

void SecureEdit::OnDetached() {
    const int length = m_text.GetLength();
    m_text.Empty();
    // The edit only ever saw masks; overwrite its buffer anyway before it is freed.
    std::wstring mask = Mask(length);
    DefaultProc(WM_SETTEXT, 0, reinterpret_cast<LPARAM>(mask.c_str()));
    DefaultProc(WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L""));
    DefaultProc(EM_EMPTYUNDOBUFFER, 0, 0);
}

LRESULT SecureEdit::WndProc(UINT message, WPARAM wParam, LPARAM lParam) {
    // A failure here must not fall back to the plain edit, which would then receive the real
    // characters: whatever goes wrong, the message is dropped.
    try {
        if (message == SyncMaskMessage()) {
            // Binding an empty field to an empty edit changes nothing; the parent need not hear of it.
            if (m_text.IsEmpty() && GetWindowTextLengthW(m_hWnd) == 0) return 0;
            std::wstring mask = Mask(m_text.GetLength());
            DefaultProc(WM_SETTEXT, 0, reinterpret_cast<LPARAM>(mask.c_str()));
            DefaultProc(EM_SETSEL, mask.size(), mask.size());
            return 0;
        }
        switch (message) {
        case WM_CHAR:
        case WM_IME_CHAR: {
            const wchar_t ch = static_cast<wchar_t>(wParam);
            if (ch == L'\t' || ch == L'\r' || ch == L'\n' || ch == 0x1B) break;  // dialog navigation
            if (ch == VK_BACK) {
                DeleteNextTo(false);
            } else if (ch == 0x16) {  // Ctrl+V
                Paste();
            } else if (ch == 0x01) {  // Ctrl+A
                DefaultProc(EM_SETSEL, 0, -1);
            } else if (ch >= 0x20 && ch != 0x7F) {
                if ((Style(m_hWnd) & ES_NUMBER) && (ch < L'0' || ch > L'9')) {
                    MessageBeep(MB_OK);
                } else {
                    ReplaceSelection(&ch, 1);
                }
            }
            return 0;  // every other control character (copy, cut, undo...) is dropped
        }
        case WM_KEYDOWN:
            // The edit handles these keys internally, without a message we could intercept.
            if (wParam == VK_DELETE) {
                DeleteNextTo(true);
                return 0;
            }
            if (wParam == VK_INSERT) {
                if (GetKeyState(VK_SHIFT) < 0) Paste();
                return 0;  // Ctrl+Insert would copy
            }
            break;
        case WM_SYSKEYDOWN:
            if (wParam == VK_BACK) return 0;  // Alt+Backspace is undo
            break;
        case WM_IME_STARTCOMPOSITION:
        case WM_IME_COMPOSITION:
        case WM_IME_ENDCOMPOSITION:
            // The edit would insert a composed string itself; the default window procedure
            // turns it into WM_IME_CHAR messages, which arrive here.
            return DefWindowProcW(m_hWnd, message, wParam, lParam);
        case WM_PASTE:
            Paste();
            return 0;
        case WM_CUT:
        case WM_COPY:
        case WM_UNDO:
        case EM_UNDO:
        case EM_CANUNDO:
            return FALSE;
        case WM_CLEAR:
            ReplaceSelection(nullptr, 0);
            return 0;
        case WM_SETTEXT: {
            const auto* text = reinterpret_cast<const wchar_t*>(lParam);
            if (!text) m_text.Empty();
            else if (text != m_text.GetString()) m_text = text;
            std::wstring mask = Mask(m_text.GetLength());
            return DefaultProc(WM_SETTEXT, 0, reinterpret_cast<LPARAM>(mask.c_str()));
        }
        case EM_REPLACESEL: {
            const auto* text = reinterpret_cast<const wchar_t*>(lParam);
            ReplaceSelection(text, text ? static_cast<int>(wcsnlen(text, 0x7FFFFFFF)) : 0);
            return 0;
        }
        default:
            break;
        }
        return DefaultProc(message, wParam, lParam);
    } catch (...) {
        GUILOG(CVLOG_ERROR, L"SecureEdit: exception in the handler of message 0x%04x; dropped", message);
    }
    return 0;
}

void SecureEdit::DeleteNextTo(bool forward) {
    DWORD start = 0, end = 0;
    DefaultProc(EM_GETSEL, reinterpret_cast<WPARAM>(&start), reinterpret_cast<LPARAM>(&end));
    if (start == end) {
        const DWORD length = static_cast<DWORD>(GetWindowTextLengthW(m_hWnd));
        if (forward ? end >= length : start == 0) return;
        if (forward) ++end; else --start;
        DefaultProc(EM_SETSEL, start, end);
    }
    ReplaceSelection(nullptr, 0);
}

bool SecureEdit::ReplaceSelection(const wchar_t* text, int count) {
    if (!m_hWnd || (Style(m_hWnd) & ES_READONLY)) return false;
    if (!text || count < 0) count = 0;

    DWORD selStart = 0, selEnd = 0;
    DefaultProc(EM_GETSEL, reinterpret_cast<WPARAM>(&selStart), reinterpret_cast<LPARAM>(&selEnd));
    const int length = GetWindowTextLengthW(m_hWnd);
    const int limit = static_cast<int>(DefaultProc(EM_GETLIMITTEXT, 0, 0));
    const int start = static_cast<int>(selStart < static_cast<DWORD>(length) ? selStart : length);
    const int end = static_cast<int>(selEnd < static_cast<DWORD>(length) ? selEnd : length);
    const int selected = end > start ? end - start : 0;
    int room = limit - (length - selected);
    if (room < 0) room = 0;
    const int allowed = count < room ? count : room;
    if (selected == 0 && allowed == 0) {
        if (count > 0) NotifyParent(EN_MAXTEXT);
        return false;
    }

    // The mask is built before the secure text changes, so a failed allocation cannot leave
    // the two out of step.
    std::wstring mask = Mask(allowed);
    m_text.Delete(start, selected);
    if (allowed > 0) m_text.Insert(start, text, allowed);
    // The parent's EN_CHANGE handler runs inside this call and must see the new text.
    DefaultProc(EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(mask.c_str()));
    if (allowed < count) NotifyParent(EN_MAXTEXT);
    return true;
}

void SecureEdit::NotifyParent(WORD code) {
    HWND parent = GetParent(m_hWnd);
    if (parent) {
        SendMessageW(parent, WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(m_hWnd), code),
                     reinterpret_cast<LPARAM>(m_hWnd));
    }
}

void SecureEdit::Paste() {
    if (!m_hWnd || (Style(m_hWnd) & ES_READONLY) || !IsClipboardFormatAvailable(CF_UNICODETEXT)) return;
    // Straight from the clipboard's memory into the secure text: no copy in between.
    ClipboardText clipboard(m_hWnd);
    const int count = clipboard.FirstLineLength();
    if (count > 0) ReplaceSelection(clipboard.Text(), count);
}

}  // namespace fw
