// GDI objects owned by a C++ object: deleted with it, never leaked.
#pragma once
#include <windows.h>
#include <utility>

namespace fw {

template <class Handle>
class GdiObject {
public:
    GdiObject() = default;
    explicit GdiObject(Handle h) : m_handle(h) {}
    ~GdiObject() { Reset(); }
    GdiObject(GdiObject&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    GdiObject& operator=(GdiObject&& other) noexcept {
        if (this != &other) Reset(std::exchange(other.m_handle, nullptr));
        return *this;
    }
    GdiObject(const GdiObject&) = delete;
    GdiObject& operator=(const GdiObject&) = delete;

    void Reset(Handle h = nullptr) {
        if (m_handle) DeleteObject(m_handle);
        m_handle = h;
    }
    Handle Get() const { return m_handle; }
    explicit operator bool() const { return m_handle != nullptr; }

private:
    Handle m_handle = nullptr;
};

using Bitmap = GdiObject<HBITMAP>;
using Brush = GdiObject<HBRUSH>;
using Font = GdiObject<HFONT>;

}  // namespace fw
