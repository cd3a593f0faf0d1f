// The editor dialog "Flairize Editor" and the preview's render callback.
// Windows only: the dialog procedure, its helpers and GenEdit.
#include <windows.h>
#include <commdlg.h>

#include <cstring>
#include <vector>

#include "editor/editor_logic.h"
#include "engine/flairize.h"
#include "host/exports.h"
#include "host/host_context.h"
#include "host/host_imports.h"
#include "platform/module.h"
#include "platform/strings.h"

extern "C" INT_PTR CALLBACK FLR_EditProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
extern "C" std::uint32_t FLR_STDCALL FLR_DisplayFilter(HGLOBAL source, HGLOBAL* resultOut, HPALETTE* paletteOut);
extern "C" std::uint32_t FLR_STDCALL GenEdit(void* hostContext);

namespace {

constexpr int kTemplate = 6300;
constexpr int kEffectList = 200, kPreview = 201, kPositionBar = 209, kHelp = 210, kDirectionList = 211,
              kColourButton = 212;
constexpr int kFirstLabel = 202, kFirstSlider = 205;   // slider k (0..2): label 202 + k, scroll bar 205 + k

// Editor state: one editor is open at a time, on the host's interface thread.
struct EditorState {
    HWND dialog = nullptr;
    editor::WorkingParameters working;
    std::vector<std::uint16_t> listPosition;   // each listed effect's place in the sorted list
    HPALETTE palette = nullptr;
    HBRUSH staticBrush = nullptr;
    CHOOSECOLORA chooser{};
    COLORREF customColours[16];
    EditorState() {
        for (COLORREF& c : customColours) c = 0x00FFFFFF;
    }
};
EditorState g_editor;

void* hostContext() { return plugin::published().hostContext; }
SettingsRecord* currentRecord() { return hostctx::currentRecord(hostContext()); }

std::uint16_t selectedEffect(HWND dialog) {
    const LRESULT pos = SendDlgItemMessageA(dialog, kEffectList, CB_GETCURSEL, 0, 0);
    return static_cast<std::uint16_t>(SendDlgItemMessageA(dialog, kEffectList, CB_GETITEMDATA, WPARAM(pos), 0));
}

void deletePalette() {
    if (g_editor.palette) DeleteObject(g_editor.palette);
    g_editor.palette = nullptr;
}

// Gives the preview control the source picture of the host's current position.
void refreshPreviewSource(HWND dialog) {
    HGLOBAL source = AnimKit_SourcePicture(hostContext(), 0);
    deletePalette();
    g_editor.palette = BaseKit_Palette(source);
    BaseKit_PreviewSource(GetDlgItem(dialog, kPreview), source, g_editor.palette);
}

void ApplyEffectSelection(HWND dialog, bool reset) {
    const std::uint16_t effect = selectedEffect(dialog);
    if (reset) g_editor.working.loadDefaults(effect);
    for (int k = 0; k < 3; ++k) {
        HWND slider = GetDlgItem(dialog, kFirstSlider + k);
        SetScrollRange(slider, SB_CTL, 0, 255, FALSE);
        SetScrollPos(slider, SB_CTL, g_editor.working.p[std::size_t(k)], TRUE);
    }
    EnableWindow(GetDlgItem(dialog, kColourButton), editor::colourButtonEnabled(effect));
}

void RefreshEffectControls(HWND dialog, bool reloadLabels) {
    if (reloadLabels) {
        const editor::SliderView view = editor::sliders(selectedEffect(dialog));
        for (int k = 0; k < 3; ++k) {
            SetDlgItemTextA(dialog, kFirstLabel + k, view.label[std::size_t(k)].c_str());
            const int show = view.visible(k) ? SW_SHOWNORMAL : SW_HIDE;
            ShowWindow(GetDlgItem(dialog, kFirstLabel + k), show);
            ShowWindow(GetDlgItem(dialog, kFirstSlider + k), show);
        }
        UpdateWindow(dialog);
    }
    HWND preview = GetDlgItem(dialog, kPreview);
    RECT area;
    GetClientRect(preview, &area);
    InvalidateRect(preview, &area, FALSE);
}

int ChooseEffectColor(HWND dialog, SettingsRecord* record) {
    CHOOSECOLORA& c = g_editor.chooser;
    std::memset(&c, 0, sizeof c);
    c.lStructSize = sizeof c;
    c.hwndOwner = dialog;
    c.rgbResult = record->colour;
    c.lpCustColors = g_editor.customColours;
    c.Flags = CC_RGBINIT | CC_FULLOPEN;
    if (!ChooseColorA(&c)) return 0;
    record->colour = c.rgbResult;
    return 1;
}

void OnParameterScroll(HWND dialog, WPARAM wParam, LPARAM lParam) {
    if (BaseKit_Scroll(dialog, wParam, lParam, 0) == -1) return;
    for (int k = 0; k < 3; ++k)
        g_editor.working.p[std::size_t(k)] =
            static_cast<std::uint16_t>(GetScrollPos(GetDlgItem(dialog, kFirstSlider + k), SB_CTL));
    RefreshEffectControls(dialog, false);
}

void OnPreviewScroll(HWND dialog, WPARAM wParam, LPARAM lParam) {
    const std::int32_t position = BaseKit_Scroll(dialog, wParam, lParam, 0);
    if (position == -1) return;
    AnimKit_MoveTo(hostContext(), std::uint32_t(position));
    if (hostctx::slot(hostContext()) == 0 && !hostctx::inputFollowsPosition(hostContext()))
        RefreshEffectControls(dialog, false);
    else
        refreshPreviewSource(dialog);
}

BOOL OnEditorCommand(HWND dialog, WPARAM wParam, LPARAM) {
    const int id = LOWORD(wParam), code = HIWORD(wParam);
    SettingsRecord* record = currentRecord();
    switch (id) {
    case IDOK: {
        const std::uint16_t effect = selectedEffect(dialog);
        deletePalette();
        record->param1 = static_cast<std::uint16_t>(GetScrollPos(GetDlgItem(dialog, kFirstSlider), SB_CTL));
        record->param2 = static_cast<std::uint16_t>(GetScrollPos(GetDlgItem(dialog, kFirstSlider + 1), SB_CTL));
        record->param3 = static_cast<std::uint16_t>(GetScrollPos(GetDlgItem(dialog, kFirstSlider + 2), SB_CTL));
        EndDialog(dialog, effect);
        return TRUE;
    }
    case IDCANCEL:
        deletePalette();
        EndDialog(dialog, editor::kCancelled);
        return TRUE;
    case kEffectList:
        if (code == CBN_SELCHANGE) {
            ApplyEffectSelection(dialog, true);
            RefreshEffectControls(dialog, true);
        }
        return TRUE;
    case kHelp:
        PixKit_BeforeHelp();
        WinHelpA(dialog, "FLAIR.HLP", HELP_CONTENTS, 0);
        return TRUE;
    case kDirectionList:
        if (code == CBN_SELCHANGE) {
            const LRESULT pos = SendDlgItemMessageA(dialog, kDirectionList, CB_GETCURSEL, 0, 0);
            editor::applyDirection(*record, unsigned(pos));
            AnimKit_MoveTo(hostContext(), hostctx::currentPosition(hostContext()));
            RefreshEffectControls(dialog, true);
        }
        return TRUE;
    case kColourButton:
        if (ChooseEffectColor(dialog, record)) RefreshEffectControls(dialog, true);
        return TRUE;
    default:
        return FALSE;
    }
}

void OnInitDialog(HWND dialog) {
    SetWindowLongPtrA(dialog, GWLP_USERDATA, kTemplate);
    g_editor.dialog = dialog;
    g_editor.palette = nullptr;
    const SettingsRecord* record = currentRecord();

    // The list sorts itself; each item carries its effect's index.
    const std::vector<editor::ListItem> offered = editor::offeredEffects();
    for (const editor::ListItem& item : offered) {
        const LRESULT pos = SendDlgItemMessageA(dialog, kEffectList, CB_ADDSTRING, 0, LPARAM(item.name.c_str()));
        SendDlgItemMessageA(dialog, kEffectList, CB_SETITEMDATA, WPARAM(pos), item.effect);
    }
    g_editor.listPosition.resize(flairize::effectCount(), 0);
    for (std::size_t j = 0; j < offered.size(); ++j) {
        const LRESULT index = SendDlgItemMessageA(dialog, kEffectList, CB_GETITEMDATA, WPARAM(j), 0);
        if (std::size_t(index) < g_editor.listPosition.size())
            g_editor.listPosition[std::size_t(index)] = static_cast<std::uint16_t>(j);
    }
    const std::uint16_t opening = record->effect < g_editor.listPosition.size() ? g_editor.listPosition[record->effect] : 0;
    SendDlgItemMessageA(dialog, kEffectList, CB_SETCURSEL, opening, 0);

    for (unsigned d = 0; d < 4; ++d) {
        char text[128];
        plat::loadString(8192 + d, text, sizeof text);
        SendDlgItemMessageA(dialog, kDirectionList, CB_ADDSTRING, 0, LPARAM(text));
    }
    SendDlgItemMessageA(dialog, kDirectionList, CB_SETCURSEL, record->direction & 3, 0);

    HWND preview = GetDlgItem(dialog, kPreview);
    BaseKit_PreviewSetupB(preview, 0);
    BaseKit_PreviewSetupA(preview, 0);
    BaseKit_PreviewCallback(preview, FLR_DisplayFilter);

    ApplyEffectSelection(dialog, false);

    HWND bar = GetDlgItem(dialog, kPositionBar);
    SetScrollRange(bar, SB_CTL, 0, 16384, FALSE);
    SetScrollPos(bar, SB_CTL, 16384, TRUE);
    AnimKit_MoveTo(hostContext(), 16384);
    refreshPreviewSource(dialog);

    RefreshEffectControls(dialog, true);
}

}  // namespace

extern "C" INT_PTR CALLBACK FLR_EditProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG:
        OnInitDialog(dialog);
        return TRUE;
    case WM_COMMAND:
        return OnEditorCommand(dialog, wParam, lParam);
    case WM_HSCROLL:
        if (GetWindowLongPtrA(reinterpret_cast<HWND>(lParam), GWLP_ID) == kPositionBar)
            OnPreviewScroll(dialog, wParam, lParam);
        else
            OnParameterScroll(dialog, wParam, lParam);
        return TRUE;
    case WM_CTLCOLORSTATIC:
        // One button-face brush per dialog, deleted when the dialog goes.
        SetBkColor(reinterpret_cast<HDC>(wParam), GetSysColor(COLOR_BTNFACE));
        if (!g_editor.staticBrush) g_editor.staticBrush = CreateSolidBrush(GetSysColor(COLOR_BTNFACE));
        return reinterpret_cast<INT_PTR>(g_editor.staticBrush);
    case WM_DESTROY:
        if (g_editor.staticBrush) DeleteObject(g_editor.staticBrush);
        g_editor.staticBrush = nullptr;
        return FALSE;
    default:
        return FALSE;
    }
}

extern "C" std::uint32_t FLR_STDCALL FLR_DisplayFilter(HGLOBAL source, HGLOBAL* resultOut, HPALETTE* paletteOut) {
    const std::uint16_t effect = selectedEffect(g_editor.dialog);
    const SettingsRecord* record = currentRecord();
    return plugin::previewRender(effect, source, *record, g_editor.working.p.data(), resultOut, paletteOut);
}

extern "C" std::uint32_t FLR_STDCALL GenEdit(void* hostContext) {
    plugin::published().hostContext = hostContext;
    SettingsRecord* record = hostctx::currentRecord(hostContext);
    g_editor.working = editor::WorkingParameters::from(*record);
    AnimKit_BeforeEditor();
    HWND owner = AnimKit_OwnerWindow();
    const INT_PTR result = DialogBoxParamA(static_cast<HINSTANCE>(plat::moduleInstance()), MAKEINTRESOURCEA(kTemplate),
                                           owner, FLR_EditProc, 0);
    const std::uint16_t chosen = static_cast<std::uint16_t>(result & 0xFFFF);
    AnimKit_AfterEditor();
    if (chosen != editor::kCancelled) editor::commit(*record, chosen, g_editor.working);
    return 1;
}
