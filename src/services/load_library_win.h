// The middleware's library loader: loads a DLL by a path relative to this library's folder.
#pragma once
#include <windows.h>
#include <string>

namespace NV { namespace Middleware {
class CMWException {
public:
    explicit CMWException(DWORD error) : m_error(error) {}
    DWORD GetError() const { return m_error; }
private:
    DWORD m_error;
};
}}  // namespace NV::Middleware

// Loads relativePath (for example L"Resources\\cv.corvana.gui.pinrc.dll") from the folder of
// the module that contains this code. Throws NV::Middleware::CMWException on failure; its
// GetError() is the reason (the thread's last error may not survive the unwinding).
void LoadLibrarySync(const wchar_t* relativePath, HMODULE* module, DWORD flags);

// The full path of module, whatever its length; empty on failure (GetLastError says why).
std::wstring ModulePath(HMODULE module);

// The module handle of the PIN library itself (set at process attach).
HMODULE ThisModule();
void SetThisModule(HMODULE module);
