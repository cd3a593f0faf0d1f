// The 20-byte settings record kept for every use of the effect, and its block
// form in project files and .flr files: the same fields in the same order,
// little-endian, no padding.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)
struct SettingsRecord {
    std::uint16_t effect;      // index into the effect table
    std::uint32_t progress;    // 0..16384, written by the frame timing
    std::uint16_t param1;
    std::uint16_t param2;
    std::uint16_t param3;
    std::uint32_t direction;   // low two bits: Backward, Cycle, Forward, Reverse Cycle
    std::uint32_t colour;      // COLORREF, red in the lowest byte
};
#pragma pack(pop)
static_assert(sizeof(SettingsRecord) == 20, "settings record must be 20 bytes");

constexpr std::uint16_t kDefaultEffect = 25;   // "Weave"
constexpr std::uint32_t kDirectionForward = 2;

// The block: the fields in record order, each little-endian, 2 or 4 bytes wide.
constexpr std::size_t kSettingsBlockSize = sizeof(SettingsRecord);
constexpr std::size_t kSettingsFieldCount = 7;
constexpr std::size_t kSettingsFieldWidth[kSettingsFieldCount] = {2, 4, 2, 2, 2, 4, 4};

inline void settingsFieldValues(const SettingsRecord& r, std::uint32_t v[kSettingsFieldCount]) {
    const std::uint32_t values[kSettingsFieldCount] = {r.effect, r.progress, r.param1, r.param2,
                                                       r.param3, r.direction, r.colour};
    for (std::size_t f = 0; f < kSettingsFieldCount; ++f) v[f] = values[f];
}
inline SettingsRecord settingsFromFieldValues(const std::uint32_t v[kSettingsFieldCount]) {
    return SettingsRecord{static_cast<std::uint16_t>(v[0]), v[1], static_cast<std::uint16_t>(v[2]),
                          static_cast<std::uint16_t>(v[3]), static_cast<std::uint16_t>(v[4]), v[5], v[6]};
}
