#include "editor/editor_logic.h"

#include "engine/flairize.h"

namespace editor {

std::vector<ListItem> offeredEffects() {
    std::vector<ListItem> items;
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i)) items.push_back({flairize::effectName(i), std::uint16_t(i)});
    return items;
}

std::vector<ListItem> effectList() {
    std::vector<ListItem> items;
    for (unsigned effect : flairize::dialogOrder())
        items.push_back({flairize::effectName(effect), std::uint16_t(effect)});
    return items;
}

SliderView sliders(std::uint16_t effect) {
    SliderView v;
    for (int k = 0; k < 3; ++k) v.label[std::size_t(k)] = flairize::sliderLabel(effect, k);
    return v;
}

bool colourButtonEnabled(std::uint16_t effect) { return flairize::effectUsesColour(effect); }

void WorkingParameters::loadDefaults(std::uint16_t effect) {
    if (effect >= flairize::effectCount()) return;
    for (int k = 0; k < 3; ++k) p[std::size_t(k)] = flairize::sliderDefault(effect, k);
}

}  // namespace editor
