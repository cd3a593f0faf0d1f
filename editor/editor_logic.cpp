#include "editor/editor_logic.h"

#include <algorithm>
#include <cctype>

#include "engine/effect_table.h"
#include "platform/strings.h"

namespace editor {
namespace {

bool lessIgnoringCase(const std::string& a, const std::string& b) {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) < std::tolower(static_cast<unsigned char>(y));
    });
}

}  // namespace

std::vector<ListItem> effectList() {
    std::vector<ListItem> items;
    for (const EffectRecord* e = g_effectTable; e->nameId != 0; ++e) {
        char name[64];
        plat::loadString(e->nameId, name, sizeof name);
        if (name[0] == '*') continue;
        items.push_back({name, e->index});
    }
    std::stable_sort(items.begin(), items.end(),
                     [](const ListItem& a, const ListItem& b) { return lessIgnoringCase(a.name, b.name); });
    return items;
}

std::uint16_t openingPosition(std::uint16_t effect) {
    const auto items = effectList();
    for (std::size_t i = 0; i < items.size(); ++i)
        if (items[i].effect == effect) return static_cast<std::uint16_t>(i);
    return 0;
}

SliderView sliders(std::uint16_t effect) {
    SliderView v;
    const EffectRecord* e = effectRecord(effect);
    if (!e) return v;
    for (std::size_t k = 0; k < 3; ++k)
        if (e->labelIds[k]) v.label[k] = plat::loadString(e->labelIds[k]);
    return v;
}

bool colourButtonEnabled(std::uint16_t effect) {
    const EffectRecord* e = effectRecord(effect);
    return e && (e->flags & kFlagColour);
}

void WorkingParameters::loadDefaults(std::uint16_t effect) {
    const EffectRecord* e = effectRecord(effect);
    if (!e) return;
    for (std::size_t k = 0; k < 3; ++k) p[k] = e->defaults[k];
}

}  // namespace editor
