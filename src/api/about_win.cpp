// The About box: product name and version from this library's own version resource.
#include <string>
#include <vector>
#include "api/guard.h"
#include "cvpingui.h"
#include "framework/resource_icons_win.h"
#include "framework/secure_dialog_win.h"
#include "framework/ui_scope_win.h"
#include "resource_ids.h"
#include "services/load_library_win.h"

namespace {

std::wstring VersionString(const wchar_t* name) {
    std::wstring path = ModulePath(ThisModule());
    DWORD ignored = 0;
    DWORD size = path.empty() ? 0 : GetFileVersionInfoSizeW(path.c_str(), &ignored);
    if (size == 0) return L"";
    std::vector<BYTE> block(size);
    if (!GetFileVersionInfoW(path.c_str(), 0, size, block.data())) return L"";
    struct Translation {
        WORD language, codePage;
    }* translations = nullptr;
    UINT bytes = 0;
    if (!VerQueryValueW(block.data(), L"\\VarFileInfo\\Translation", reinterpret_cast<void**>(&translations),
                        &bytes) ||
        bytes < sizeof(Translation))
        return L"";
    wchar_t query[128];
    swprintf(query, 128, L"\\StringFileInfo\\%04x%04x\\%ls", translations[0].language, translations[0].codePage,
             name);
    wchar_t* value = nullptr;
    UINT chars = 0;
    if (!VerQueryValueW(block.data(), query, reinterpret_cast<void**>(&value), &chars) || !value) return L"";
    return value;
}

class CAboutDlg : public CSecureDialog {
public:
    CAboutDlg(HWND parent, const wchar_t* text) : CSecureDialog(IDD_ABOUT, parent), m_text(text ? text : L"") {}

protected:
    BOOL OnInitDialog() override {
        OnInitDialogSecure();
        fw::SetItemIcon(m_hWnd, IDC_ABOUT_ICON, IDI_CARD);
        std::wstring product = VersionString(L"ProductName");
        if (product.empty()) product = fw::LoadResString(IDS_PRODUCT_NAME, L"Corvana Smart Card Middleware");
        SetItemText(IDC_ABOUT_PRODUCT, product.c_str());
        SetItemText(IDC_ABOUT_VERSION, (L"Version " + VersionString(L"ProductVersion")).c_str());
        SetItemText(IDC_ABOUT_TEXT, m_text.c_str());
        return TRUE;
    }

private:
    std::wstring m_text;
};

}  // namespace

extern "C" INT_PTR WINAPI ShowAbout(unsigned, const wchar_t* text) {
    return Guarded(L"ShowAbout", static_cast<INT_PTR>(-1), [&] {
        LogScope log(L"ShowAbout");
        fw::UiScope ui;
        CAboutDlg dlg(GetActiveWindow(), text);
        return dlg.DoModal();
    });
}
