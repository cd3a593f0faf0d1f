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
    std::uint32_t values[kSettingsFieldCount];
    settingsFieldValues(*r, values);
    for (std::size_t f = 0; f < kSettingsFieldCount; ++f) {
        if (kSettingsFieldWidth[f] == 2)
            WriteU16(file, static_cast<std::uint16_t>(values[f]));
        else
            WriteU32(file, values[f]);
    }
    return 1;
}

// A block that ends early is damaged: no record is made and the result is 0.
extern "C" std::uint32_t FLR_STDCALL LoadData(plat::FileHandle file, SettingsRecord** recordOut,
                                              std::uint32_t, std::uint32_t, std::uint32_t) {
    auto* r = static_cast<SettingsRecord*>(std::malloc(sizeof(SettingsRecord)));
    if (!r) return 0;
    std::memset(r, 0, sizeof *r);
    std::uint32_t values[kSettingsFieldCount] = {};
    for (std::size_t f = 0; f < kSettingsFieldCount; ++f) {
        std::uint16_t half = 0;
        const bool read = kSettingsFieldWidth[f] == 2 ? ReadU16(file, half) : ReadU32(file, values[f]);
        if (!read) {
            std::free(r);
            return 0;
        }
        if (kSettingsFieldWidth[f] == 2) values[f] = half;
    }
    *r = settingsFromFieldValues(values);
    *recordOut = r;
    return 1;
}
