// Settings records: the render settings of one, and its 20-byte block.
#include "engine/flairize.h"

namespace flairize {

Settings settingsOf(const SettingsRecord& r) {
    Settings s;
    s.effect = r.effect;
    s.sliders[0] = r.param1;
    s.sliders[1] = r.param2;
    s.sliders[2] = r.param3;
    s.colour = r.colour;
    s.progress = r.progress;
    return s;
}

void encodeSettingsBlock(const SettingsRecord& r, std::uint8_t block[kSettingsBlockSize]) {
    std::uint32_t values[kSettingsFieldCount];
    settingsFieldValues(r, values);
    for (std::size_t f = 0, at = 0; f < kSettingsFieldCount; at += kSettingsFieldWidth[f++])
        for (std::size_t i = 0; i < kSettingsFieldWidth[f]; ++i) block[at + i] = static_cast<std::uint8_t>(values[f] >> (8 * i));
}

SettingsRecord decodeSettingsBlock(const std::uint8_t block[kSettingsBlockSize]) {
    std::uint32_t values[kSettingsFieldCount] = {};
    for (std::size_t f = 0, at = 0; f < kSettingsFieldCount; at += kSettingsFieldWidth[f++])
        for (std::size_t i = 0; i < kSettingsFieldWidth[f]; ++i) values[f] |= std::uint32_t(block[at + i]) << (8 * i);
    return settingsFromFieldValues(values);
}

}  // namespace flairize
