#include "screenshot_win.h"
#include <wincodec.h>

namespace {

BOOL CALLBACK UniteVisible(HWND hwnd, LPARAM lParam) {
    auto* area = reinterpret_cast<RECT*>(lParam);
    RECT r;
    if (IsWindowVisible(hwnd) && GetWindowRect(hwnd, &r)) {
        if (IsRectEmpty(area))
            *area = r;
        else
            UnionRect(area, area, &r);
    }
    return TRUE;
}

template <class T>
void Release(T*& p) {
    if (p) p->Release();
    p = nullptr;
}

bool WritePng(HBITMAP bitmap, const wchar_t* path) {
    IWICImagingFactory* factory = nullptr;
    IWICBitmap* image = nullptr;
    IWICStream* stream = nullptr;
    IWICBitmapEncoder* encoder = nullptr;
    IWICBitmapFrameEncode* frame = nullptr;
    bool ok = SUCCEEDED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                         IID_IWICImagingFactory, reinterpret_cast<void**>(&factory))) &&
              SUCCEEDED(factory->CreateBitmapFromHBITMAP(bitmap, nullptr, WICBitmapIgnoreAlpha, &image)) &&
              SUCCEEDED(factory->CreateStream(&stream)) &&
              SUCCEEDED(stream->InitializeFromFilename(path, GENERIC_WRITE)) &&
              SUCCEEDED(factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, &encoder)) &&
              SUCCEEDED(encoder->Initialize(stream, WICBitmapEncoderNoCache)) &&
              SUCCEEDED(encoder->CreateNewFrame(&frame, nullptr)) && SUCCEEDED(frame->Initialize(nullptr)) &&
              SUCCEEDED(frame->WriteSource(image, nullptr)) && SUCCEEDED(frame->Commit()) &&
              SUCCEEDED(encoder->Commit());
    Release(frame);
    Release(encoder);
    Release(stream);
    Release(image);
    Release(factory);
    return ok;
}

}  // namespace

bool SaveThreadWindowsPng(DWORD threadId, const wchar_t* path) {
    RECT area = {};
    EnumThreadWindows(threadId, UniteVisible, reinterpret_cast<LPARAM>(&area));
    if (IsRectEmpty(&area)) return false;
    InflateRect(&area, 8, 8);  // a little of the desktop around, as a person sees it
    int width = area.right - area.left, height = area.bottom - area.top;
    HDC screen = GetDC(nullptr);
    HDC memory = CreateCompatibleDC(screen);
    HBITMAP bitmap = CreateCompatibleBitmap(screen, width, height);
    HGDIOBJ old = SelectObject(memory, bitmap);
    BitBlt(memory, 0, 0, width, height, screen, area.left, area.top, SRCCOPY | CAPTUREBLT);
    SelectObject(memory, old);
    bool ok = WritePng(bitmap, path);
    DeleteObject(bitmap);
    DeleteDC(memory);
    ReleaseDC(nullptr, screen);
    return ok;
}
