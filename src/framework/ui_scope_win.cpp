#include "framework/ui_scope_win.h"

#include "services/load_library_win.h"

namespace fw {

namespace {

HANDLE g_activationContext = INVALID_HANDLE_VALUE;

using SetThreadDpiFn = DPI_AWARENESS_CONTEXT(WINAPI*)(DPI_AWARENESS_CONTEXT);

// Windows 10 1607 and later; older systems (and Wine 8) may lack it.
SetThreadDpiFn SetThreadDpi() {
    static const SetThreadDpiFn fn = [] {
        HMODULE user32 = GetModuleHandleW(L"user32.dll");
        FARPROC proc = user32 ? GetProcAddress(user32, "SetThreadDpiAwarenessContext") : nullptr;
        return reinterpret_cast<SetThreadDpiFn>(reinterpret_cast<void*>(proc));
    }();
    return fn;
}

}  // namespace

void InitActivationContext(HMODULE module) {
    ReleaseActivationContext();
    if (!module) return;
    std::wstring path = ModulePath(module);
    if (path.empty()) return;
    ACTCTXW context = {};
    context.cbSize = sizeof(context);
    // The manifest that every DLL may carry for itself (ISOLATIONAWARE_MANIFEST_RESOURCE_ID).
    context.dwFlags = ACTCTX_FLAG_HMODULE_VALID | ACTCTX_FLAG_RESOURCE_NAME_VALID;
    context.hModule = module;
    context.lpResourceName = MAKEINTRESOURCEW(2);
    context.lpSource = path.c_str();
    g_activationContext = CreateActCtxW(&context);
}

void ReleaseActivationContext() {
    if (g_activationContext != INVALID_HANDLE_VALUE) ReleaseActCtx(g_activationContext);
    g_activationContext = INVALID_HANDLE_VALUE;
}

UiScope::UiScope() {
    if (g_activationContext != INVALID_HANDLE_VALUE) {
        m_activated = ActivateActCtx(g_activationContext, &m_cookie) != FALSE;
    }
    if (SetThreadDpiFn setDpi = SetThreadDpi()) {
        m_oldDpiContext = setDpi(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);
        // Systems before Windows 10 1703 (and Wine 8) know only the first per-monitor mode.
        if (!m_oldDpiContext) m_oldDpiContext = setDpi(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE);
    }
}

UiScope::~UiScope() {
    if (m_oldDpiContext) {
        if (SetThreadDpiFn setDpi = SetThreadDpi())
            setDpi(static_cast<DPI_AWARENESS_CONTEXT>(m_oldDpiContext));
    }
    if (m_activated) DeactivateActCtx(0, m_cookie);
}

}  // namespace fw
