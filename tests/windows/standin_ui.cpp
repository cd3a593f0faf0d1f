// The window parts of the stand-in host libraries under Wine: BASEKIT's scroll
// requests and preview control (it paints its source through the plug-in's
// render callback), and the host's group-box frames.
#include <windows.h>

#include "host/host_imports.h"
#include "tests/standin_host.h"

// Carries out a scroll request on the scroll bar that sent it.
extern "C" std::int32_t FLR_STDCALL BaseKit_Scroll(HWND, std::uintptr_t wParam, std::intptr_t lParam,
                                                   std::uint32_t) {
    HWND bar = reinterpret_cast<HWND>(lParam);
    int lo = 0, hi = 0;
    GetScrollRange(bar, SB_CTL, &lo, &hi);
    const int old = GetScrollPos(bar, SB_CTL);
    const int page = (hi - lo) / 16 > 1 ? (hi - lo) / 16 : 1;
    int pos = old;
    switch (LOWORD(wParam)) {
    case SB_LINELEFT: pos -= 1; break;
    case SB_LINERIGHT: pos += 1; break;
    case SB_PAGELEFT: pos -= page; break;
    case SB_PAGERIGHT: pos += page; break;
    case SB_LEFT: pos = lo; break;
    case SB_RIGHT: pos = hi; break;
    case SB_THUMBPOSITION:
    case SB_THUMBTRACK: pos = HIWORD(wParam); break;
    default: return -1;
    }
    pos = pos < lo ? lo : (pos > hi ? hi : pos);
    if (pos == old) return -1;
    SetScrollPos(bar, SB_CTL, pos, TRUE);
    return pos;
}

// The preview control: paints its source through the registered render callback.
struct PreviewState {
    HGLOBAL source = nullptr;
    HPALETTE palette = nullptr;
    PreviewCallback callback = nullptr;
};
PreviewState* previewOf(HWND w) { return reinterpret_cast<PreviewState*>(GetWindowLongPtrA(w, 0)); }

extern "C" void FLR_STDCALL BaseKit_PreviewSetupA(HWND, std::uint32_t) { ++StandIn_Log()->previewSetupA; }
extern "C" void FLR_STDCALL BaseKit_PreviewSetupB(HWND, std::uint32_t) { ++StandIn_Log()->previewSetupB; }
extern "C" void FLR_STDCALL BaseKit_PreviewSource(HWND preview, HGLOBAL source, HPALETTE palette) {
    if (PreviewState* s = previewOf(preview)) {
        s->source = source;
        s->palette = palette;
        InvalidateRect(preview, nullptr, FALSE);
    }
}
extern "C" void FLR_STDCALL BaseKit_PreviewCallback(HWND preview, PreviewCallback callback) {
    if (PreviewState* s = previewOf(preview)) s->callback = callback;
}

namespace {

void paintPreview(HWND w, HDC dc) {
    RECT area;
    GetClientRect(w, &area);
    FillRect(dc, &area, static_cast<HBRUSH>(GetStockObject(GRAY_BRUSH)));
    PreviewState* s = previewOf(w);
    if (!s || !s->source || !s->callback) return;
    HGLOBAL result = nullptr;
    HPALETTE palette = s->palette;
    ++StandIn_Log()->previewRenders;
    if (!s->callback(s->source, &result, &palette) || !result) return;
    const auto* info = static_cast<const BITMAPINFO*>(GlobalLock(result));
    const auto* pixels = reinterpret_cast<const BYTE*>(info) + info->bmiHeader.biSize;
    const int pw = info->bmiHeader.biWidth, ph = info->bmiHeader.biHeight;
    const int aw = area.right, ah = area.bottom;
    // Fit the picture into the control, keeping its proportions.
    int dw = aw, dh = ph * aw / (pw ? pw : 1);
    if (dh > ah) dh = ah, dw = pw * ah / (ph ? ph : 1);
    SetStretchBltMode(dc, HALFTONE);
    StretchDIBits(dc, (aw - dw) / 2, (ah - dh) / 2, dw, dh, 0, 0, pw, ph, pixels, info, DIB_RGB_COLORS, SRCCOPY);
    GlobalUnlock(result);
    GlobalFree(result);
    if (palette && palette != s->palette) DeleteObject(palette);
}

LRESULT CALLBACK previewProc(HWND w, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_CREATE:
        SetWindowLongPtrA(w, 0, reinterpret_cast<LONG_PTR>(new PreviewState));
        return 0;
    case WM_DESTROY:
        delete previewOf(w);
        SetWindowLongPtrA(w, 0, 0);
        return 0;
    case WM_PAINT: {
        PAINTSTRUCT ps;
        HDC dc = BeginPaint(w, &ps);
        paintPreview(w, dc);
        EndPaint(w, &ps);
        return 0;
    }
    default:
        return DefWindowProcA(w, message, wParam, lParam);
    }
}

// A frame with its caption, as the host draws its group boxes; its inside is
// left alone, so the controls it frames show through.
LRESULT CALLBACK groupBoxProc(HWND w, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_ERASEBKGND) return 1;
    if (message != WM_PAINT) return DefWindowProcA(w, message, wParam, lParam);
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(w, &ps);
    RECT r;
    GetClientRect(w, &r);
    char text[64];
    const int n = GetWindowTextA(w, text, sizeof text);
    r.top += n ? 6 : 0;
    DrawEdge(dc, &r, EDGE_ETCHED, BF_RECT);
    if (n) {
        SetBkColor(dc, GetSysColor(COLOR_BTNFACE));
        HGDIOBJ old = SelectObject(dc, reinterpret_cast<HGDIOBJ>(SendMessageA(GetParent(w), WM_GETFONT, 0, 0)));
        TextOutA(dc, 6, 0, text, n);
        SelectObject(dc, old);
    }
    EndPaint(w, &ps);
    return 0;
}

[[maybe_unused]] void registerClasses(HINSTANCE instance) {
    WNDCLASSA c{};
    c.hInstance = instance;
    c.hCursor = LoadCursor(nullptr, IDC_ARROW);
    c.style = CS_GLOBALCLASS;
    c.lpfnWndProc = previewProc;
    c.cbWndExtra = sizeof(void*);
    c.lpszClassName = "EditDispClass";
    RegisterClassA(&c);
    c.lpfnWndProc = groupBoxProc;
    c.cbWndExtra = 0;
    c.lpszClassName = "DLLGroupBox";
    RegisterClassA(&c);
}

}  // namespace

extern "C" BOOL WINAPI DllMain([[maybe_unused]] HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
#ifdef STANDIN_BASEKIT
        registerClasses(instance);
#endif
    }
    return TRUE;
}
