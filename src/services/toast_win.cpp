// Toast notifications through a host's sink, or through Windows' own toasts (WinRT ABI).
#include "services/toast_win.h"

#include <inspectable.h>
#include <roapi.h>
#include <winstring.h>

#include <atomic>
#include <new>
#include <string>

namespace {

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

struct IToastNotificationFactory : IInspectable {
    // content is a Windows.Data.Xml.Dom.IXmlDocument.
    virtual HRESULT STDMETHODCALLTYPE CreateToastNotification(IInspectable* content, IToastNotification** toast) = 0;
};

struct IXmlDocumentIO : IInspectable {
    virtual HRESULT STDMETHODCALLTYPE LoadXml(HSTRING xml) = 0;
};

const IID kIidToastNotificationManagerStatics = {
    0x50ac103f, 0xd235, 0x4598, {0xbb, 0xef, 0x98, 0xfe, 0x4d, 0x1a, 0x3a, 0xd4}};
const IID kIidToastNotificationFactory = {
    0x04124b20, 0x82c6, 0x4229, {0xb1, 0x09, 0xfd, 0x9e, 0xd4, 0x66, 0x2b, 0x53}};
const IID kIidXmlDocument = {0xf7f3a506, 0x1e87, 0x42d6, {0xbc, 0xfb, 0xb8, 0xc8, 0x09, 0xfa, 0x54, 0x94}};
const IID kIidXmlDocumentIO = {0x6cd0e74e, 0xee65, 0x4489, {0x9e, 0xbf, 0xca, 0x43, 0xe8, 0x7b, 0xa6, 0x37}};

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

// An owned reference; released when it goes out of scope.
template <class T> class Ref {
public:
    Ref() = default;
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    ~Ref() {
        if (m_p) m_p->Release();
    }
    T* operator->() const { return m_p; }
    T* get() const { return m_p; }
    T** put() { return &m_p; }
    void** putVoid() { return reinterpret_cast<void**>(&m_p); }
    T* detach() {
        T* p = m_p;
        m_p = nullptr;
        return p;
    }

private:
    T* m_p = nullptr;
};

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

// The toast manager's factory answers only where the system has toasts for desktop programs.
// The process keeps a multithreaded apartment while it does, so that toasts work from threads
// that never initialised COM and their objects outlive whatever apartment the caller's thread has.
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
    Ref<IToastNotificationManagerStatics> statics;
    HString name(rt, kToastManagerClass);
    if (name.get() && SUCCEEDED(rt.getActivationFactory(name.get(), kIidToastNotificationManagerStatics,
                                                        statics.putVoid())))
        return true;
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
    CWinRTToast(IToastNotifier* notifier, IToastNotification* toast) : m_notifier(notifier), m_toast(toast) {}
    ~CWinRTToast() override {
        m_toast->Release();
        m_notifier->Release();
    }
    bool Show(int* shown) override {
        const HRESULT hr = m_notifier->Show(m_toast);
        if (shown) *shown = hr;
        m_raised = SUCCEEDED(hr);
        return m_raised;
    }
    void Hide() override {
        if (m_raised) m_notifier->Hide(m_toast);
        m_raised = false;
    }

private:
    IToastNotifier* m_notifier;
    IToastNotification* m_toast;
    bool m_raised = false;
};

CToastManager* CreateWinRTToast(const WinRT& rt, const wchar_t* title, const wchar_t* text) {
    Ref<IToastNotificationManagerStatics> statics;
    Ref<IToastNotifier> notifier;
    HString managerClass(rt, kToastManagerClass), applicationId(rt, kApplicationId);
    if (FAILED(rt.getActivationFactory(managerClass.get(), kIidToastNotificationManagerStatics, statics.putVoid())) ||
        FAILED(statics->CreateToastNotifierWithId(applicationId.get(), notifier.put())))
        return nullptr;

    Ref<IInspectable> instance;
    Ref<IXmlDocumentIO> loader;
    Ref<IInspectable> document;
    HString documentClass(rt, kXmlDocumentClass);
    HString xml(rt, L"<toast><visual><binding template=\"ToastGeneric\"><text>" + XmlEscaped(title) +
                        L"</text><text>" + XmlEscaped(text) + L"</text></binding></visual></toast>");
    if (!xml.get() || FAILED(rt.activateInstance(documentClass.get(), instance.put())) ||
        FAILED(instance->QueryInterface(kIidXmlDocumentIO, loader.putVoid())) || FAILED(loader->LoadXml(xml.get())) ||
        FAILED(instance->QueryInterface(kIidXmlDocument, document.putVoid())))
        return nullptr;

    Ref<IToastNotificationFactory> factory;
    Ref<IToastNotification> toast;
    HString toastClass(rt, kToastClass);
    if (FAILED(rt.getActivationFactory(toastClass.get(), kIidToastNotificationFactory, factory.putVoid())) ||
        FAILED(factory->CreateToastNotification(document.get(), toast.put())))
        return nullptr;

    auto* manager = new (std::nothrow) CWinRTToast(notifier.get(), toast.get());
    if (manager) {
        notifier.detach();
        toast.detach();
    }
    return manager;
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
