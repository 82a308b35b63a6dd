#include "dialogs/pinchange/rule_icon_win.h"

LRESULT CRuleIcon::WndProc(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case STM_SETIMAGE:
        if (wParam != IMAGE_ICON) break;
        wParam = static_cast<WPARAM>(lParam);
        [[fallthrough]];
    case STM_SETICON: {
        HICON previous = m_icon;
        HICON icon = reinterpret_cast<HICON>(wParam);
        // The first icon sizes the control as the static always did (the rows' icons share one
        // size); no icon leaves the static to draw nothing.
        if (!previous || !icon) DefaultProc(STM_SETICON, wParam, 0);
        else if (icon != previous) InvalidateRect(m_hWnd, nullptr, FALSE);
        m_icon = icon;
        return reinterpret_cast<LRESULT>(previous);
    }
    case STM_GETIMAGE:
        if (wParam != IMAGE_ICON) break;
        [[fallthrough]];
    case STM_GETICON:
        return reinterpret_cast<LRESULT>(m_icon);
    case WM_PAINT: {
        if (!m_icon) break;
        PAINTSTRUCT ps;
        if (HDC dc = BeginPaint(m_hWnd, &ps)) {
            Paint(dc);
            EndPaint(m_hWnd, &ps);
        }
        return 0;
    }
    case WM_PRINTCLIENT:
        if (!m_icon) break;
        Paint(reinterpret_cast<HDC>(wParam));
        return 0;
    default:
        break;
    }
    return DefaultProc(message, wParam, lParam);
}

void CRuleIcon::Paint(HDC dc) {
    RECT client;
    GetClientRect(m_hWnd, &client);
    // The parent chooses the background, as for any static.
    HWND parent = GetParent(m_hWnd);
    auto brush = reinterpret_cast<HBRUSH>(
        SendMessageW(parent, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(dc), reinterpret_cast<LPARAM>(m_hWnd)));
    if (!brush)
        brush = reinterpret_cast<HBRUSH>(
            DefWindowProcW(parent, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(dc), reinterpret_cast<LPARAM>(m_hWnd)));
    FillRect(dc, &client, brush);
    DrawIconEx(dc, 0, 0, m_icon, client.right, client.bottom, 0, nullptr, DI_NORMAL);
}
