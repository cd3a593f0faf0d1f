// A small host for FLAIR.dll under Wine (wine_host.exe WORKDIR [--editor]): drives its exports by
// ordinal as the compositing host does and prints "PASS name", "FAIL name: detail" and
// "effect row sha256" for the rows of the effects WORKDIR\effects.txt lists; writes the SetupFrame
// sweep to WORKDIR\timing.bin and, with --editor, a screenshot of the editor to WORKDIR\editor.bmp.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "engine/settings_record.h"
#include "tests/conformance/cases.h"
#include "tests/conformance/sha256.h"
#include "tests/standin_host.h"

namespace {

std::string g_dir;
int g_failures = 0;
int g_offered = 0;   // effects the editor lists, counted from effects.txt

void check(bool ok, const char* name, const std::string& detail = "") {
    std::printf("%s %s%s%s\n", ok ? "PASS" : "FAIL", name, ok || detail.empty() ? "" : ": ", ok ? "" : detail.c_str());
    if (!ok) ++g_failures;
}

HMODULE g_plugin;
FARPROC ordinal(int n) { return GetProcAddress(g_plugin, MAKEINTRESOURCEA(n)); }

// A function pointer of the right type for a looked-up export.
template <typename F>
F as(FARPROC p) {
    return reinterpret_cast<F>(reinterpret_cast<void (*)()>(p));
}

using Fn2 = std::uint32_t(WINAPI*)(std::uint32_t, std::uint32_t);
using InitDataFn = std::uint32_t(WINAPI*)(std::uint32_t, std::uint32_t*, SettingsRecord**);
using FreeDataFn = std::uint32_t(WINAPI*)(std::uint32_t, SettingsRecord*);
using LoadDataFn = std::uint32_t(WINAPI*)(HFILE, SettingsRecord**, std::uint32_t, std::uint32_t, std::uint32_t);
using SaveDataFn = std::uint32_t(WINAPI*)(HFILE, const SettingsRecord*, std::uint32_t);
using GenerateDibFn = std::uint32_t(WINAPI*)(void*, HGLOBAL*, std::uint32_t);
using ContextFn = std::uint32_t(WINAPI*)(void*, std::uint32_t);
using GenEditFn = std::uint32_t(WINAPI*)(void*);
using InitFilterFn = std::uint32_t(WINAPI*)(char*, std::uint16_t*);

StandInLog* standInLog(const char* library) {
    using LogFn = StandInLog*(*)();
    auto fn = as<LogFn>(GetProcAddress(GetModuleHandleA(library), "StandIn_Log"));
    return fn ? fn() : nullptr;
}

bool writeFile(const std::string& path, const void* data, std::size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

// A BMP file's packed DIB (all after its 14-byte file header) in a movable block.
HGLOBAL readBmp(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f || std::fseek(f, 0, SEEK_END) != 0) return nullptr;
    const long size = std::ftell(f) - 14;
    HGLOBAL h = size > 40 ? GlobalAlloc(GMEM_MOVEABLE, SIZE_T(size)) : nullptr;
    const bool ok = h && std::fseek(f, 14, SEEK_SET) == 0 && std::fread(GlobalLock(h), 1, size_t(size), f) == size_t(size);
    if (h) GlobalUnlock(h);
    std::fclose(f);
    return ok ? h : (h ? GlobalFree(h) : nullptr);
}

std::vector<unsigned char> bytesOf(const SettingsRecord* r) {
    const auto* p = reinterpret_cast<const unsigned char*>(r);
    return {p, p + sizeof *r};
}

// What only the Windows build does: the name and icon from the module's own
// resources, and the settings stream through a real HFILE. (The exports and
// ordinals are checked statically; the record functions on Linux.)
void checkResourcesAndStream() {
    char name[128];
    std::uint16_t kind[3] = {0xEEEE, 0xEEEE, 0xEEEE};   // only the middle one is written
    const std::uint32_t ok = as<InitFilterFn>(ordinal(12))(name, &kind[1]);
    StandInLog* pix = standInLog("PIXKIT.dll");
    check(ok == 1 && std::strcmp(name, "Flairize") == 0 && kind[0] == 0xEEEE && kind[1] == 14 && kind[2] == 0xEEEE &&
              pix && pix->icon != nullptr &&
              std::strcmp(pix->name, "Flairize") == 0,
          "InitFilter hands name, kind and icon to the host", name);

    std::uint32_t size = 0;
    SettingsRecord* r = nullptr;
    as<InitDataFn>(ordinal(2))(0, &size, &r);
    r->direction = 0x80000003;
    const std::string path = g_dir + "\\stream.flr";
    HFILE file = _lcreat(path.c_str(), 0);
    SettingsRecord other{37, 0x01020304, 255, 7, 65535, 0xFFFFFFFE, 0x00123456};
    as<SaveDataFn>(ordinal(6))(file, r, 0);
    as<SaveDataFn>(ordinal(6))(file, &other, 0);
    _llseek(file, 0, 0);
    SettingsRecord *a = nullptr, *b = nullptr;
    auto load = as<LoadDataFn>(ordinal(5));
    const bool loaded = load(file, &a, 0, 0, 0) == 1 && load(file, &b, 0, 0, 0) == 1;
    const LONG end = _llseek(file, 0, 2);
    _lclose(file);
    check(loaded && end == 40 && bytesOf(a) == bytesOf(r) && bytesOf(b) == bytesOf(&other),
          "SaveData and LoadData through an HFILE");
    for (SettingsRecord* record : {a, b, r}) as<FreeDataFn>(ordinal(4))(0, record);
    check(as<Fn2>(ordinal(8))(7, 5) == 26, "GenAnimation passes through to the host");
}

// SetupFrame for every speed -124..127 and position 0..16384, Forward.
void writeTiming() {
    auto setup = as<ContextFn>(ordinal(11));
    SettingsRecord r{};
    r.direction = 2;
    TestHostContext ctx(&r, nullptr);
    std::vector<std::uint32_t> values;
    values.reserve(252u * 16385u);
    for (int speed = -124; speed <= 127; ++speed) {
        ctx.setSpeed(0, static_cast<std::int8_t>(speed));
        for (std::uint32_t p = 0; p <= 16384; ++p) {
            ctx.setCurrentPosition(p);
            setup(&ctx, 0);
            values.push_back(r.progress);
        }
    }
    check(writeFile(g_dir + "\\timing.bin", values.data(), values.size() * 4), "SetupFrame sweep written");
}

// The conformance rows: for each effect listed (index, three slider defaults,
// the export that runs its filter alone or "-"), the full render through
// GenerateDIB and the filter through its export, which renders with the
// sliders and colour that GenerateDIB published just before.
using FilterFn = HGLOBAL(WINAPI*)(std::uint16_t, HGLOBAL, std::uint32_t, std::uint16_t, std::uint16_t, std::uint16_t);

std::string hashOf(HGLOBAL picture) {
    if (!picture) return "refused";
    const auto* block = static_cast<const std::uint8_t*>(GlobalLock(picture));
    const std::string h = conformance::sha256Hex(block, conformance::resultBytes(block));
    GlobalUnlock(picture);
    GlobalFree(picture);
    return h;
}

void renderConformanceRows() {
    auto generate = as<GenerateDibFn>(ordinal(9));
    std::FILE* list = std::fopen((g_dir + "\\effects.txt").c_str(), "r");
    unsigned effect, d[3], offered;
    char exportName[64];
    HGLOBAL source = nullptr;   // rows of one source and size follow each other
    std::string sourceKey;
    while (list && std::fscanf(list, "%u %u %u %u %63s %u", &effect, &d[0], &d[1], &d[2], exportName, &offered) == 6) {
        g_offered += offered;
        const std::uint16_t defaults[3] = {std::uint16_t(d[0]), std::uint16_t(d[1]), std::uint16_t(d[2])};
        const FilterFn filter = std::strcmp(exportName, "-") ? as<FilterFn>(GetProcAddress(g_plugin, exportName)) : nullptr;
        for (const conformance::Case& c : conformance::casesOf(effect)) {
            if (c.filterOnly && !filter) continue;
            const std::string key = conformance::sourceName(c.source) + std::to_string(c.size.width * 100000 + c.size.height);
            if (key != sourceKey) {
                if (source) GlobalFree(source);
                const std::vector<std::uint8_t> dib = conformance::sourcePicture(c.source, c.size);
                source = GlobalAlloc(GMEM_MOVEABLE, dib.size());
                std::memcpy(GlobalLock(source), dib.data(), dib.size());
                GlobalUnlock(source);
                sourceKey = key;
            }
            SettingsRecord r{std::uint16_t(effect), 0, 0, 0, 0, 2, conformance::kColours[c.colour]};
            std::uint16_t sliders[3];
            conformance::sliders(c.params, defaults, sliders);
            r.param1 = sliders[0], r.param2 = sliders[1], r.param3 = sliders[2];
            r.progress = c.progress;
            TestHostContext ctx(&r, source);
            HGLOBAL out = nullptr;
            if (!c.filterOnly)
                out = generate(&ctx, &out, 0) ? out : nullptr;
            else
                out = filter(std::uint16_t(effect), source, c.progress, sliders[0], sliders[1], sliders[2]);
            std::printf("%u %s %s\n", effect, conformance::key(c).c_str(), hashOf(out).c_str());
        }
    }
    if (list) std::fclose(list);
    if (source) GlobalFree(source);
}

// ---------------------------------------------------------------- the editor

struct EditorScript {
    SettingsRecord* record;
    int session;
};

HWND waitForWindow(const char* title, HWND notThis = nullptr) {
    for (int i = 0; i < 400; ++i) {
        HWND w = FindWindowA(nullptr, title);
        if (w && w != notThis && IsWindowVisible(w)) return w;
        Sleep(50);
    }
    return nullptr;
}

std::string itemText(HWND combo, int i) {
    char text[128] = "";
    SendMessageA(combo, CB_GETLBTEXT, WPARAM(i), LPARAM(text));
    return text;
}

void choose(HWND dialog, int control, int position) {
    HWND combo = GetDlgItem(dialog, control);
    SendMessageA(combo, CB_SETCURSEL, WPARAM(position), 0);
    SendMessageA(dialog, WM_COMMAND, MAKEWPARAM(control, CBN_SELCHANGE), LPARAM(combo));
}

void scrollTo(HWND dialog, int control, int position) {
    HWND bar = GetDlgItem(dialog, control);
    SendMessageA(dialog, WM_HSCROLL, MAKEWPARAM(SB_THUMBPOSITION, position), LPARAM(bar));
}

int findItem(HWND dialog, const char* name) {
    HWND combo = GetDlgItem(dialog, 200);
    const int n = int(SendMessageA(combo, CB_GETCOUNT, 0, 0));
    for (int i = 0; i < n; ++i)
        if (itemText(combo, i) == name) return i;
    return -1;
}

bool visible(HWND dialog, int id) { return IsWindowVisible(GetDlgItem(dialog, id)) != FALSE; }

// Saves the dialog as it shows on screen.
void screenshot(HWND dialog, const std::string& path) {
    RedrawWindow(dialog, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN);
    Sleep(300);
    RECT r;
    GetWindowRect(dialog, &r);
    const int w = r.right - r.left, h = r.bottom - r.top;
    HDC screen = GetDC(nullptr);
    HDC memory = CreateCompatibleDC(screen);
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = w;
    info.bmiHeader.biHeight = h;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 24;
    void* bits = nullptr;
    HBITMAP bitmap = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ old = SelectObject(memory, bitmap);
    BitBlt(memory, 0, 0, w, h, screen, r.left, r.top, SRCCOPY);
    GdiFlush();
    const DWORD image = ((DWORD(w) * 24 + 31) / 32) * 4 * DWORD(h), offset = 14 + sizeof info.bmiHeader;
    std::vector<unsigned char> file(offset + image);
    const DWORD total = DWORD(file.size());
    file[0] = 'B', file[1] = 'M';
    std::memcpy(&file[2], &total, 4);
    std::memcpy(&file[10], &offset, 4);
    std::memcpy(&file[14], &info.bmiHeader, sizeof info.bmiHeader);
    std::memcpy(&file[offset], bits, image);
    writeFile(path, file.data(), file.size());
    SelectObject(memory, old);
    DeleteObject(bitmap);
    DeleteDC(memory);
    ReleaseDC(nullptr, screen);
}

// Colour changes along the middle row of a window on screen: many where it shows a picture.
bool showsPicture(HWND window) {
    RECT r;
    GetWindowRect(window, &r);
    HDC screen = GetDC(nullptr);
    int changes = 0;
    COLORREF last = GetPixel(screen, r.left + 2, (r.top + r.bottom) / 2);
    for (int x = r.left + 3; x < r.right - 2; ++x) {
        const COLORREF c = GetPixel(screen, x, (r.top + r.bottom) / 2);
        changes += c != last;
        last = c;
    }
    ReleaseDC(nullptr, screen);
    return changes > 20;
}

DWORD WINAPI driveEditor(void* argument) {
    auto* script = static_cast<EditorScript*>(argument);
    SettingsRecord* r = script->record;
    HWND dialog = waitForWindow("Flairize Editor");
    check(dialog != nullptr, "editor opens");
    if (!dialog) return 0;
    Sleep(200);
    HWND list = GetDlgItem(dialog, 200);
    if (script->session == 1) {
        // Opened on index 8 (not listed): "Bricks" with no sliders.
        const int count = int(SendMessageA(list, CB_GETCOUNT, 0, 0));
        check(count == g_offered && itemText(list, 0) == "Bricks" && itemText(list, count - 1) == "Weave", "effect list",
              std::to_string(count) + " " + itemText(list, 0) + ".." + itemText(list, count - 1));
        check(SendMessageA(list, CB_GETCURSEL, 0, 0) == 0, "unlisted effect opens on Bricks");
        check(!visible(dialog, 205) && !visible(dialog, 206) && !visible(dialog, 207) && !visible(dialog, 202),
              "Bricks shows no sliders");
        HWND directions = GetDlgItem(dialog, 211);
        check(itemText(directions, 0) == "Backward" && itemText(directions, 1) == "Cycle" &&
                  itemText(directions, 2) == "Forward" && itemText(directions, 3) == "Reverse Cycle" &&
                  SendMessageA(directions, CB_GETCURSEL, 0, 0) == 2,
              "direction list");
        check(GetScrollPos(GetDlgItem(dialog, 209), SB_CTL) == 16384, "position bar opens at the end");
        PostMessageA(dialog, WM_COMMAND, IDOK, 0);
    } else if (script->session == 2) {
        // Which effects enable the Color button.
        std::string coloured;
        for (int i = 0; i < int(SendMessageA(list, CB_GETCOUNT, 0, 0)); ++i) {
            choose(dialog, 200, i);
            if (IsWindowEnabled(GetDlgItem(dialog, 212))) coloured += itemText(list, i) + ",";
        }
        check(coloured == "Contours,Crosshair,Find Edges,Pointillize,Rain,Sampler,Smudge,Stamp,Triangles,",
              "Color button for the nine colour effects", coloured);
        // Crosshair: one slider "Size" at its default.
        choose(dialog, 200, findItem(dialog, "Crosshair"));
        char label[64];
        GetDlgItemTextA(dialog, 202, label, sizeof label);
        check(visible(dialog, 205) && !visible(dialog, 206) && !visible(dialog, 207) &&
                  std::string(label) == "Size" && GetScrollPos(GetDlgItem(dialog, 205), SB_CTL) == 255,
              "Crosshair shows one slider, Size, at 255", label);
        scrollTo(dialog, 205, 100);
        check(r->param1 == 1, "a slider does not write the record before OK");
        choose(dialog, 211, 1);
        check(r->direction == 0x40000001, "direction written at once, two bits only");
        // The colour chooser: pick red 0x10, green 0x80, blue 0xF0.
        PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(212, BN_CLICKED), LPARAM(GetDlgItem(dialog, 212)));
        HWND chooser = waitForWindow("Color", dialog);
        if (!chooser) chooser = waitForWindow("Colour", dialog);
        check(chooser != nullptr, "colour chooser opens");
        if (chooser) {
            SetDlgItemInt(chooser, 706, 0x10, FALSE);
            SetDlgItemInt(chooser, 707, 0x80, FALSE);
            SetDlgItemInt(chooser, 708, 0xF0, FALSE);
            SendMessageA(chooser, WM_COMMAND, MAKEWPARAM(708, EN_KILLFOCUS), LPARAM(GetDlgItem(chooser, 708)));
            Sleep(100);
            SendMessageA(chooser, WM_COMMAND, IDOK, LPARAM(GetDlgItem(chooser, IDOK)));
            Sleep(300);
        }
        check(r->colour == 0x00F08010, "colour written at once", std::to_string(r->colour));
        scrollTo(dialog, 209, 4096);
        check(r->progress == 8192, "position bar moves the host (Cycle at 4096 gives 8192)",
              std::to_string(r->progress));
        screenshot(dialog, g_dir + "\\editor.bmp");
        check(showsPicture(GetDlgItem(dialog, 201)), "the preview shows the rendered picture");
        PostMessageA(dialog, WM_COMMAND, IDOK, 0);
    } else {
        // Cancel keeps effect and parameters, not direction and colour.
        choose(dialog, 200, findItem(dialog, "Mosaic"));
        choose(dialog, 211, 0);
        PostMessageA(dialog, WM_COMMAND, IDCANCEL, 0);
    }
    return 0;
}

void runEditor() {
    auto genEdit = as<GenEditFn>(ordinal(10));
    auto initData = as<InitDataFn>(ordinal(2));
    HGLOBAL source = readBmp(g_dir + "\\sample.bmp");
    std::uint32_t size;
    SettingsRecord* r = nullptr;
    initData(0, &size, &r);
    TestHostContext ctx(r, source);
    StandInLog* base = standInLog("BASEKIT.dll");
    StandInLog* anim = standInLog("ANIMKIT.dll");

    // Session n: GenEdit while a second thread drives the dialog.
    auto session = [&](int n) {
        EditorScript script{r, n};
        HANDLE t = CreateThread(nullptr, 0, driveEditor, &script, 0, nullptr);
        const std::uint32_t answer = genEdit(&ctx);
        WaitForSingleObject(t, INFINITE);
        CloseHandle(t);
        return answer;
    };
    *r = SettingsRecord{8, 0, 1, 2, 3, 0x40000002, 0};
    check(session(1) == 1, "GenEdit answers 1");
    check(r->effect == 15 && r->param1 == 1 && r->param2 == 2 && r->param3 == 3,
          "OK on an unlisted effect stores Bricks with the record's values");
    check(anim && anim->beforeEditor == 1 && anim->afterEditor == 1, "host told before and after the editor");
    check(base && base->previewRenders > 0 && base->busyBegin == base->busyEnd && base->busyBegin > 0,
          "preview rendered inside the busy bracket");

    session(2);
    check(r->effect == 34 && r->param1 == 100 && r->param2 == 0 && r->param3 == 0, "OK stores Crosshair and sliders",
          std::to_string(r->effect) + " " + std::to_string(r->param1));

    session(3);
    check(r->effect == 34 && r->param1 == 100 && r->direction == 0x40000000 && r->colour == 0x00F08010,
          "Cancel keeps effect and parameters, direction and colour stay changed");
    check(base && base->palettesMade > 0, "preview palettes made and handed over");
    as<FreeDataFn>(ordinal(4))(0, r);
    GlobalFree(source);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: wine_host WORKDIR [--editor]\n");
        return 2;
    }
    g_dir = argv[1];
    g_plugin = LoadLibraryA("FLAIR.dll");
    check(g_plugin != nullptr, "FLAIR.dll loads");
    if (!g_plugin) return 1;
    checkResourcesAndStream();
    writeTiming();
    renderConformanceRows();
    if (argc > 2 && std::strcmp(argv[2], "--editor") == 0) runEditor();
    std::printf("%d failed\n", g_failures);
    return g_failures ? 1 : 0;
}
