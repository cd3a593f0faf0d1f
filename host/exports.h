// The functions the host calls, exported by the plug-in under these names
// (ordinals in host/flair.def).
#pragma once

#include <cstdint>

#include "engine/settings_record.h"
#include "platform/file_io.h"
#include "platform/win_types.h"

#define FLR_EXPORT extern "C"

FLR_EXPORT std::uint32_t FLR_STDCALL InitData(std::uint32_t ignored, std::uint32_t* sizeOut,
                                              SettingsRecord** recordOut);
FLR_EXPORT std::uint32_t FLR_STDCALL CopyData(const SettingsRecord* source, SettingsRecord** copyOut);
FLR_EXPORT std::uint32_t FLR_STDCALL FreeData(std::uint32_t ignored, SettingsRecord* record);
FLR_EXPORT std::uint32_t FLR_STDCALL LoadData(plat::FileHandle file, SettingsRecord** recordOut,
                                              std::uint32_t, std::uint32_t, std::uint32_t);
FLR_EXPORT std::uint32_t FLR_STDCALL SaveData(plat::FileHandle file, const SettingsRecord* record,
                                              std::uint32_t ignored);
FLR_EXPORT std::uint32_t FLR_STDCALL ChangeImage(std::uint32_t, std::uint32_t);
FLR_EXPORT std::uint32_t FLR_STDCALL GenAnimation(std::uint32_t a, std::uint32_t b);
FLR_EXPORT std::uint32_t FLR_STDCALL GenerateDIB(void* hostContext, HGLOBAL* resultOut,
                                                 std::uint32_t ignored);
FLR_EXPORT std::uint32_t FLR_STDCALL SetupFrame(void* hostContext, std::uint32_t ignored);
FLR_EXPORT std::uint32_t FLR_STDCALL InitFilter(char* nameOut, std::uint16_t* kindOut);
FLR_EXPORT std::uint32_t FLR_STDCALL ChangeQuality(std::uint32_t, std::uint32_t);
FLR_EXPORT std::uint32_t FLR_STDCALL SwapData(std::uint32_t, std::uint32_t);
FLR_EXPORT std::uint32_t FLR_STDCALL GEN_GeneratorID(std::uint32_t* idOut);
FLR_EXPORT void FLR_STDCALL WEP(int);

// The filters the plug-in exports: (effect, source, progress, P1, P2, P3) -> new picture or 0.
#define FLR_FILTER_EXPORT(name)                                                                        \
    FLR_EXPORT HGLOBAL FLR_STDCALL name(std::uint16_t effect, HGLOBAL source, std::uint32_t progress, \
                                        std::uint16_t p1, std::uint16_t p2, std::uint16_t p3)
FLR_FILTER_EXPORT(FLR_LineFilter);
FLR_FILTER_EXPORT(FLR_MeanMapFilter);
FLR_FILTER_EXPORT(FLR_TextureFilter);
FLR_FILTER_EXPORT(FLR_WaterColor);
FLR_FILTER_EXPORT(FLR_Glass);

constexpr std::uint32_t kGeneratorId = 0x4B57455A;   // 'KWEZ'
constexpr std::uint16_t kFilterKind = 14;

namespace plugin {

// The values the last render published: the host context of the call, the
// sliders and the colour. The exported row driver renders with them, as the
// row functions of a plug-in render read them.
struct Published {
    void* hostContext = nullptr;
    std::uint16_t sliders[3] = {0, 0, 0};
    std::uint32_t colour = 0;
};
Published& published();

// The preview's render, the work of FLR_DisplayFilter once the editor has
// named the effect and its working sliders: the record's colour and progress,
// mixed below full progress, inside the host's busy bracket.
std::uint32_t previewRender(std::uint16_t effect, HGLOBAL source, const SettingsRecord& record,
                            const std::uint16_t sliders[3], HGLOBAL* resultOut, HPALETTE* paletteOut);

}  // namespace plugin
