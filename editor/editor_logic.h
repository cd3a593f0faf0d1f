// The editor's decisions, kept apart from the dialog so they can be driven and
// tested without windows: what the effect list holds, which sliders show, what
// a new selection, a direction change, OK and Cancel do to the settings.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/settings_record.h"

namespace editor {

struct ListItem {
    std::string name;
    std::uint16_t effect;
};

// The offered effects (names without a leading "*"), in table order: what the
// dialog adds to its list, which sorts itself.
std::vector<ListItem> offeredEffects();

// The same in the order of the dialog's sorted list: alphabetical, without regard to case.
std::vector<ListItem> effectList();

struct SliderView {
    std::array<std::string, 3> label;   // empty: the slider and its label are hidden
    bool visible(int k) const { return !label[std::size_t(k)].empty(); }
};
SliderView sliders(std::uint16_t effect);

bool colourButtonEnabled(std::uint16_t effect);

// The values the sliders show while the dialog is open.
struct WorkingParameters {
    std::array<std::uint16_t, 3> p{};
    static WorkingParameters from(const SettingsRecord& record) {
        return {{record.param1, record.param2, record.param3}};
    }
    // A new selection in the effect list loads all three defaults of that effect.
    void loadDefaults(std::uint16_t effect);
};

// A direction chosen in the list changes only the two lowest bits.
inline void applyDirection(SettingsRecord& record, unsigned listPosition) {
    record.direction = (record.direction & ~3u) | (listPosition & 3u);
}

// OK stores the chosen effect and the working parameters; Cancel stores nothing
// (direction and colour were written when they were chosen).
inline void commit(SettingsRecord& record, std::uint16_t effect, const WorkingParameters& w) {
    record.effect = effect;
    record.param1 = w.p[0];
    record.param2 = w.p[1];
    record.param3 = w.p[2];
}

constexpr std::uint16_t kCancelled = 0xFFFF;   // the dialog's result for Cancel or failure

}  // namespace editor
