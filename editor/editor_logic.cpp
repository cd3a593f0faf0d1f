#include "editor/editor_logic.h"

#include <algorithm>
#include <cctype>

#include "engine/flairize.h"

namespace editor {
namespace {

bool lessIgnoringCase(const std::string& a, const std::string& b) {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) < std::tolower(static_cast<unsigned char>(y));
    });
}

}  // namespace

std::vector<ListItem> offeredEffects() {
    std::vector<ListItem> items;
    for (unsigned i = 0; i < flairize::effectCount(); ++i)
        if (flairize::effectOffered(i)) items.push_back({flairize::effectName(i), std::uint16_t(i)});
    return items;
}

std::vector<ListItem> effectList() {
    std::vector<ListItem> items = offeredEffects();
    std::stable_sort(items.begin(), items.end(),
                     [](const ListItem& a, const ListItem& b) { return lessIgnoringCase(a.name, b.name); });
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
