// An edit control that never holds the secret typed into it. The characters go into a CSecStr;
// the platform edit only ever receives mask characters, so neither its text buffer nor its undo
// buffer can keep a copy. Typing, Backspace, Delete, selection, paste and the text limit behave
// as in a plain password edit; undo, cut and copy are refused.
#pragma once
#include "framework/control_win.h"
#include "services/secstr.h"

namespace fw {

class SecureEdit : public Control {
public:
    SecureEdit() = default;
    ~SecureEdit() override;  // wipes

    const CSecStr& Text() const { return m_text; }
    void SetText(const CSecStr& text);  // replaces the whole text (caret at the end)
    void Clear();                       // wipes and empties

protected:
    LRESULT WndProc(UINT message, WPARAM wParam, LPARAM lParam) override;
    void OnDetached() override;

private:
    // Replaces the selection by count characters of text (null: delete); keeps the edit's mask
    // in step. Respects the edit's text limit. Returns false when nothing changed.
    bool ReplaceSelection(const wchar_t* text, int count);
    void Paste();
    // Deletes the selection, or else the character after (forward) or before the caret.
    void DeleteNextTo(bool forward);
    void NotifyParent(WORD code);

    CSecStr m_text;
};

}  // namespace fw
