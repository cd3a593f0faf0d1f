// The functions the host calls, exported by the plug-in under these names.
#pragma once

#include <cstdint>

#include "host/settings_record.h"
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

constexpr std::uint32_t kGeneratorId = 0x4B57455A;   // 'KWEZ'
constexpr std::uint16_t kFilterKind = 14;
