// Toast notifications through a host's sink, or through Windows' own toasts (WinRT ABI).
#include "services/toast_win.h"

#include <inspectable.h>
#include <roapi.h>
#include <winstring.h>
#include <wrl/client.h>

#include <atomic>
#include <string>
#include <utility>

using Microsoft::WRL::ComPtr;

// The few WinRT interfaces a toast needs; mingw-w64 has no header for them. Each declares its
// methods in the order of the system's IDL, up to the last one called here.
struct IToastNotification : IInspectable {};

struct IToastNotifier : IInspectable {
    virtual HRESULT STDMETHODCALLTYPE Show(IToastNotification* notification) = 0;
    virtual HRESULT STDMETHODCALLTYPE Hide(IToastNotification* notification) = 0;
};

struct IToastNotificationManagerStatics : IInspectable {
    virtual HRESULT STDMETHODCALLTYPE CreateToastNotifier(IToastNotifier** notifier) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateToastNotifierWithId(HSTRING applicationId, IToastNotifier** notifier) = 0;
};

struct IXmlDocument : IInspectable {};  // Windows.Data.Xml.Dom; only passed on

struct IToastNotificationFactory : IInspectable {
    virtual HRESULT STDMETHODCALLTYPE CreateToastNotification(IXmlDocument* content, IToastNotification** toast) = 0;
};

struct IXmlDocumentIO : IInspectable {
    virtual HRESULT STDMETHODCALLTYPE LoadXml(HSTRING xml) = 0;
};

__CRT_UUID_DECL(IToastNotificationManagerStatics, 0x50ac103f, 0xd235, 0x4598, 0xbb, 0xef, 0x98, 0xfe, 0x4d, 0x1a,
                0x3a, 0xd4)
__CRT_UUID_DECL(IToastNotificationFactory, 0x04124b20, 0x82c6, 0x4229, 0xb1, 0x09, 0xfd, 0x9e, 0xd4, 0x66, 0x2b, 0x53)
__CRT_UUID_DECL(IXmlDocument, 0xf7f3a506, 0x1e87, 0x42d6, 0xbc, 0xfb, 0xb8, 0xc8, 0x09, 0xfa, 0x54, 0x94)
__CRT_UUID_DECL(IXmlDocumentIO, 0x6cd0e74e, 0xee65, 0x4489, 0x9e, 0xbf, 0xca, 0x43, 0xe8, 0x7b, 0xa6, 0x37)

namespace {

const wchar_t kToastManagerClass[] = L"Windows.UI.Notifications.ToastNotificationManager";
const wchar_t kToastClass[] = L"Windows.UI.Notifications.ToastNotification";
const wchar_t kXmlDocumentClass[] = L"Windows.Data.Xml.Dom.XmlDocument";
const wchar_t kApplicationId[] = L"Lumetra.Corvana";

// Taken from combase at run time: the library must load on systems without WinRT.
struct WinRT {
    decltype(&RoGetActivationFactory) getActivationFactory = nullptr;
    decltype(&RoActivateInstance) activateInstance = nullptr;
    decltype(&WindowsCreateString) createString = nullptr;
    decltype(&WindowsDeleteString) deleteString = nullptr;
};

template <class Function> bool Bind(HMODULE module, const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    return function != nullptr;
}

// An owned HSTRING; null (the empty string) when it could not be made.
class HString {
public:
    HString(const WinRT& rt, const std::wstring& text) : m_rt(rt) {
        if (FAILED(rt.createString(text.c_str(), static_cast<UINT32>(text.size()), &m_h))) m_h = nullptr;
    }
    HString(const HString&) = delete;
    HString& operator=(const HString&) = delete;
    ~HString() {
        if (m_h) m_rt.deleteString(m_h);
    }
    HSTRING get() const { return m_h; }

private:
    const WinRT& m_rt;
    HSTRING m_h = nullptr;
};

// The toast manager's factory answers only where the system has toasts for desktop programs. Where
// it does, the process keeps a multithreaded apartment for good, so that a toast can be raised
// from a thread that never initialised COM (this library initialises it nowhere).
bool Probe(WinRT& rt) {
    HMODULE combase = LoadLibraryExW(L"combase.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    decltype(&CoIncrementMTAUsage) incrementMta = nullptr;
    decltype(&CoDecrementMTAUsage) decrementMta = nullptr;
    if (!combase || !Bind(combase, "RoGetActivationFactory", rt.getActivationFactory) ||
        !Bind(combase, "RoActivateInstance", rt.activateInstance) ||
        !Bind(combase, "WindowsCreateString", rt.createString) ||
        !Bind(combase, "WindowsDeleteString", rt.deleteString) ||
        !Bind(combase, "CoIncrementMTAUsage", incrementMta) || !Bind(combase, "CoDecrementMTAUsage", decrementMta))
        return false;
    CO_MTA_USAGE_COOKIE mta = nullptr;
    if (FAILED(incrementMta(&mta))) return false;
    ComPtr<IToastNotificationManagerStatics> statics;
    HString name(rt, kToastManagerClass);
    if (name.get() && SUCCEEDED(rt.getActivationFactory(name.get(), IID_PPV_ARGS(&statics)))) return true;
    decrementMta(mta);
    return false;
}

// Null where the system has no WinRT toasts.
const WinRT* Toasts() {
    static WinRT rt;
    static const bool supported = Probe(rt);
    return supported ? &rt : nullptr;
}

std::wstring XmlEscaped(const wchar_t* text) {
    std::wstring out;
    for (const wchar_t* c = text ? text : L""; *c; ++c) {
        switch (*c) {
            case L'&': out += L"&amp;"; break;
            case L'<': out += L"&lt;"; break;
            case L'>': out += L"&gt;"; break;
            case L'"': out += L"&quot;"; break;
            case L'\'': out += L"&apos;"; break;
            default: out += *c;
        }
    }
    return out;
}

class CWinRTToast : public CToastManager {
public:
    CWinRTToast(ComPtr<IToastNotifier> notifier, ComPtr<IToastNotification> toast)
        : m_notifier(std::move(notifier)), m_toast(std::move(toast)) {}
    bool Show(int* shown) override {
        const HRESULT hr = m_notifier->Show(m_toast.Get());
        if (shown) *shown = hr;
        m_raised = SUCCEEDED(hr);
        return m_raised;
    }
    void Hide() override {
        if (m_raised) m_notifier->Hide(m_toast.Get());
        m_raised = false;
    }

private:
    ComPtr<IToastNotifier> m_notifier;
    ComPtr<IToastNotification> m_toast;
    bool m_raised = false;
};

CToastManager* CreateWinRTToast(const WinRT& rt, const wchar_t* title, const wchar_t* text) {
    ComPtr<IToastNotificationManagerStatics> statics;
    ComPtr<IToastNotifier> notifier;
    HString managerClass(rt, kToastManagerClass), applicationId(rt, kApplicationId);
    if (FAILED(rt.getActivationFactory(managerClass.get(), IID_PPV_ARGS(&statics))) ||
        FAILED(statics->CreateToastNotifierWithId(applicationId.get(), &notifier)))
        return nullptr;

    ComPtr<IInspectable> instance;
    ComPtr<IXmlDocumentIO> loader;
    ComPtr<IXmlDocument> document;
    HString documentClass(rt, kXmlDocumentClass);
    HString xml(rt, L"<toast><visual><binding template=\"ToastGeneric\"><text>" + XmlEscaped(title) +
                        L"</text><text>" + XmlEscaped(text) + L"</text></binding></visual></toast>");
    if (!xml.get() || FAILED(rt.activateInstance(documentClass.get(), &instance)) || FAILED(instance.As(&loader)) ||
        FAILED(loader->LoadXml(xml.get())) || FAILED(instance.As(&document)))
        return nullptr;

    ComPtr<IToastNotificationFactory> factory;
    ComPtr<IToastNotification> toast;
    HString toastClass(rt, kToastClass);
    if (FAILED(rt.getActivationFactory(toastClass.get(), IID_PPV_ARGS(&factory))) ||
        FAILED(factory->CreateToastNotification(document.Get(), &toast)))
        return nullptr;
    return new CWinRTToast(std::move(notifier), std::move(toast));
}

std::atomic<ToastSink> g_sink{nullptr};

class CSinkToast : public CToastManager {
public:
    CSinkToast(ToastSink sink, const wchar_t* title, const wchar_t* text)
        : m_sink(sink), m_title(title ? title : L""), m_text(text ? text : L"") {}
    bool Show(int* shown) override {
        int result = 0;  // for sinks that write it whatever the caller asked
        const bool raised = m_sink(m_title.c_str(), m_text.c_str(), &result) != 0;
        if (shown) *shown = result;
        return raised;
    }
    void Hide() override {}

private:
    ToastSink m_sink;
    std::wstring m_title;
    std::wstring m_text;
};

}  // namespace

bool nvIsWinRTSupported() {
    return Toasts() != nullptr;
}

CToastManager* nvCreateToastManager(const wchar_t* title, const wchar_t* text, bool) {
    try {
        if (ToastSink sink = g_sink.load()) return new CSinkToast(sink, title, text);
        const WinRT* rt = Toasts();
        return rt ? CreateWinRTToast(*rt, title, text) : nullptr;
    } catch (...) {  // out of memory: no toast
        return nullptr;
    }
}

void nvDeleteToastManager(CToastManager* manager) {
    delete manager;
}

void SetToastSink(ToastSink sink) {
    g_sink.store(sink);
}
