// The settings record in project files: 20 bytes, field by field, little-endian.
#include <cstdlib>
#include <cstring>

#include "host/exports.h"

namespace {

// Each transfer reports whether all of its bytes moved.
bool ReadU16(plat::FileHandle f, std::uint16_t& v) {
    unsigned char b[2];
    if (plat::fileRead(f, b, 2) != 2) return false;
    v = static_cast<std::uint16_t>(b[0] | (b[1] << 8));
    return true;
}
bool ReadU32(plat::FileHandle f, std::uint32_t& v) {
    unsigned char b[4];
    if (plat::fileRead(f, b, 4) != 4) return false;
    v = std::uint32_t(b[0]) | (std::uint32_t(b[1]) << 8) | (std::uint32_t(b[2]) << 16) |
        (std::uint32_t(b[3]) << 24);
    return true;
}
void WriteU16(plat::FileHandle f, std::uint16_t v) {
    const unsigned char b[2] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8)};
    plat::fileWrite(f, b, 2);
}
void WriteU32(plat::FileHandle f, std::uint32_t v) {
    const unsigned char b[4] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
                                static_cast<unsigned char>(v >> 16), static_cast<unsigned char>(v >> 24)};
    plat::fileWrite(f, b, 4);
}

}  // namespace

extern "C" std::uint32_t FLR_STDCALL SaveData(plat::FileHandle file, const SettingsRecord* r, std::uint32_t) {
    WriteU16(file, r->effect);
    WriteU32(file, r->progress);
    WriteU16(file, r->param1);
    WriteU16(file, r->param2);
    WriteU16(file, r->param3);
    WriteU32(file, r->direction);
    WriteU32(file, r->colour);
    return 1;
}

// A block that ends early is damaged: no record is made and the result is 0.
extern "C" std::uint32_t FLR_STDCALL LoadData(plat::FileHandle file, SettingsRecord** recordOut,
                                              std::uint32_t, std::uint32_t, std::uint32_t) {
    auto* r = static_cast<SettingsRecord*>(std::malloc(sizeof(SettingsRecord)));
    if (!r) return 0;
    std::memset(r, 0, sizeof *r);
    std::uint16_t effect = 0, param1 = 0, param2 = 0, param3 = 0;
    std::uint32_t progress = 0, direction = 0, colour = 0;
    const bool complete = ReadU16(file, effect) && ReadU32(file, progress) && ReadU16(file, param1) &&
                          ReadU16(file, param2) && ReadU16(file, param3) && ReadU32(file, direction) &&
                          ReadU32(file, colour);
    if (!complete) {
        std::free(r);
        return 0;
    }
    const SettingsRecord v{effect, progress, param1, param2, param3, direction, colour};
    std::memcpy(r, &v, sizeof v);
    *recordOut = r;
    return 1;
}
