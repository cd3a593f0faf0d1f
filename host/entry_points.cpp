// Registration and the life of settings records.
#include <cstdlib>
#include <cstring>

#include "engine/flairize.h"
#include "host/exports.h"
#include "host/host_imports.h"
#include "platform/module.h"
#include "platform/strings.h"
#include "resources/string_ids.h"

namespace {
SettingsRecord* newRecord() {
    auto* r = static_cast<SettingsRecord*>(std::malloc(sizeof(SettingsRecord)));
    if (r) std::memset(r, 0, sizeof *r);
    return r;
}
}  // namespace

extern "C" std::uint32_t FLR_STDCALL InitData(std::uint32_t, std::uint32_t* sizeOut,
                                              SettingsRecord** recordOut) {
    *sizeOut = sizeof(SettingsRecord);
    SettingsRecord* r = newRecord();
    if (!r) return 0;
    *r = flairize::newSettingsRecord();
    *recordOut = r;
    return 1;
}

extern "C" std::uint32_t FLR_STDCALL CopyData(const SettingsRecord* source, SettingsRecord** copyOut) {
    SettingsRecord* r = newRecord();
    if (!r) return 0;
    std::memcpy(r, source, sizeof *r);
    *copyOut = r;
    return 1;
}

extern "C" std::uint32_t FLR_STDCALL FreeData(std::uint32_t, SettingsRecord* record) {
    std::free(record);
    return 0;
}

extern "C" std::uint32_t FLR_STDCALL InitFilter(char* nameOut, std::uint16_t* kindOut) {
    plat::loadString(ids::kDisplayName, nameOut, 128);
    *kindOut = kFilterKind;
    PixKit_RegisterIcon(plat::loadModuleIcon(), nameOut);
    return 1;
}

extern "C" std::uint32_t FLR_STDCALL GEN_GeneratorID(std::uint32_t* idOut) {
    std::memcpy(idOut, &kGeneratorId, sizeof kGeneratorId);
    return 1;
}

extern "C" std::uint32_t FLR_STDCALL ChangeImage(std::uint32_t, std::uint32_t) { return 1; }
extern "C" std::uint32_t FLR_STDCALL ChangeQuality(std::uint32_t, std::uint32_t) { return 1; }
extern "C" std::uint32_t FLR_STDCALL SwapData(std::uint32_t, std::uint32_t) { return 1; }
extern "C" void FLR_STDCALL WEP(int) {}
