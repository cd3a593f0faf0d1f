// The 20-byte settings record the host keeps for every use of the effect.
#pragma once

#include <cstdint>

#pragma pack(push, 1)
struct SettingsRecord {
    std::uint16_t effect;      // index into the effect table
    std::uint32_t progress;    // 0..16384, written by SetupFrame
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
