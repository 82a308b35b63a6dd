// Dialogs from templates of the resource library: modal (with our own modal loop) or modeless
// child forms. One thunk routes the dialog procedure to virtual handlers of the C++ object;
// exceptions stop there (the dialog then ends with -1).
#pragma once
#include <windows.h>
#include <string>

class CSecStr;

namespace fw {

class Control;

// Handle of the resource library that holds every template and string (null when missing).
HINSTANCE ResourceModule();
void SetResourceModule(HINSTANCE module);
// A string of the resource library, or fallback when it cannot be loaded.
std::wstring LoadResString(UINT id, const wchar_t* fallback = L"");

class Dialog;

// The rectangle of child in the client coordinates of parent; empty when child is null.
RECT ChildRect(HWND parent, HWND child);

// Passed to DoDataExchange: save == true copies controls into members, false the reverse.
struct DataExchange {
    Dialog* dialog;
    bool save;
};

class Dialog {
public:
    Dialog(UINT templateId, HWND parent);
    virtual ~Dialog();  // destroys the window if still there

    Dialog(const Dialog&) = delete;
    Dialog& operator=(const Dialog&) = delete;

    // Runs the dialog modally: CreateFromTemplate, RunModalLoop, then the clean-up.
    // Returns the EndDialog result, or -1 when the template is missing or creation failed.
    virtual INT_PTR DoModal();

    // Creates the dialog as a modeless child (WS_CHILD template) of parent. False on failure.
    bool CreateChild(HWND parent);

    // Ends a modal dialog with result (the window stays until DoModal cleans up).
    void EndDialog(INT_PTR result);

    HWND GetSafeHwnd() const { return m_hWnd; }
    HWND Item(int id) const { return m_hWnd ? GetDlgItem(m_hWnd, id) : nullptr; }
    UINT TemplateId() const { return m_templateId; }
    HWND ParentHwnd() const { return m_hWndParent; }
    bool IsModalRunning() const { return m_continueModal; }

    void SetItemText(int id, const wchar_t* text);
    void ShowItem(int id, bool show);
    void EnableItem(int id, bool enable);
    // Control id's rectangle in this dialog's client coordinates; empty when there is no such control.
    RECT ItemRect(int id) const { return ChildRect(m_hWnd, Item(id)); }

    // Copies between controls and members through DoDataExchange.
    bool UpdateData(bool save = true);

    HWND m_hWnd = nullptr;

protected:
    // --- Steps of DoModal, for dialogs that replace it (and log between the steps).
    // Finds the template in the resource library; null when missing.
    const DLGTEMPLATE* FindTemplate() const;
    // Disables the parent's top-level window (remembered for ModalCleanup) and settles the owner:
    // that window, or none when the user could not see a dialog it owns.
    void PreModal();
    // Creates the window from the template with the given parent (may be null).
    bool CreateFromTemplate(const DLGTEMPLATE* tmpl, HWND parent);
    // Runs the message loop until EndDialog; shows the window when the queue first goes idle.
    // Returns the result.
    INT_PTR RunModalLoop();
    // Hides and destroys the window, re-enables and re-activates the parent.
    void ModalCleanup();

    // Destroys the window without running any handler of this object. A destructor whose
    // controls notify the dialog as they go (secure edits clearing themselves) calls it first,
    // while its members are still whole.
    void DestroyUnhooked();

    // --- Handlers. Return true when the message was handled.
    virtual BOOL OnInitDialog();  // binds controls (UpdateData(false)); TRUE: default focus
    virtual bool OnCommand(WORD id, WORD code, HWND control);
    virtual void OnOK();      // UpdateData(true) then EndDialog(IDOK)
    virtual void OnCancel();  // EndDialog(IDCANCEL)
    virtual void OnDestroy() {}
    virtual bool OnNotify(NMHDR* header, LRESULT& result) { return false; }
    virtual void OnTimer(UINT_PTR id) {}
    virtual void OnMove(int x, int y) {}
    virtual void OnHelp() {}  // F1 (WM_HELP)
    // Sees every message of the modal loop before the dialog does; true when it was handled.
    virtual bool PreTranslateMessage(const MSG& msg) { return false; }
    // Every other message; return true and set result when handled.
    virtual bool OnMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result) { return false; }
    virtual void DoDataExchange(DataExchange& dx) {}

    // Binds a control wrapper to a child control once (subclassing it); used in DoDataExchange.
    void BindControl(DataExchange& dx, int id, Control& control);

    UINT m_templateId;
    HWND m_hWndParent;

private:
    static INT_PTR CALLBACK StaticDialogProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    INT_PTR DialogProc(UINT message, WPARAM wParam, LPARAM lParam);

    bool m_continueModal = false;
    INT_PTR m_modalResult = -1;
    HWND m_disabledParent = nullptr;
    bool m_modal = false;  // between PreModal and ModalCleanup
    bool m_ended = false;  // EndDialog came, possibly before the loop started
};

// Exchanges a CSecStr with an edit control without ever holding the text in an ordinary
// string: a SecureEdit bound to that control gives its secure text; any other edit is read
// into the CSecStr's own buffer.
void DDX_Text(DataExchange& dx, int id, CSecStr& value);

}  // namespace fw
