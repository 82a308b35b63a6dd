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

// A library that holds only resources: mapped for its resources and never run, so that loading
// it from DllMain runs no code of it under the loader lock. Such a handle has its low bits set;
// FindResource and LoadString accept it, GetProcAddress and GetModuleFileName do not. Under
// Wine 8 an icon loaded from it with LR_SHARED is not shared (every dialog would leak the GDI
// objects of its icons): take icons through fw::ResourceIcon instead.
constexpr DWORD kLoadAsResources = LOAD_LIBRARY_AS_IMAGE_RESOURCE | LOAD_LIBRARY_AS_DATAFILE;

// Loads relativePath (for example L"Resources\\cv.corvana.gui.pinrc.dll") from the folder of
// the module that contains this code. Throws NV::Middleware::CMWException on failure; its
// GetError() is the reason (the thread's last error may not survive the unwinding).
void LoadLibrarySync(const wchar_t* relativePath, HMODULE* module, DWORD flags);

// The full path of module, whatever its length; empty on failure (GetLastError says why).
std::wstring ModulePath(HMODULE module);

// The module handle of the PIN library itself (set at process attach).
HMODULE ThisModule();
void SetThisModule(HMODULE module);
