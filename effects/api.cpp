// The engine's entry points over the catalogue: rendering with its effects,
// and what the front ends read of its records.
#include <algorithm>
#include <cctype>

#include "effects/catalogue.h"
#include "engine/flairize.h"
#include "platform/strings.h"

namespace flairize {
namespace {

const EffectRecord* recordOf(unsigned effect) {
    return effect < kEffectTable.count ? &kEffectTable.records[effect] : nullptr;
}

}  // namespace

Result render(const HostServices& host, HGLOBAL source, const Settings& settings, Mix mix) {
    return renderWith(kEffectTable, host, source, settings, mix);
}

Result renderInto(const HostServices& host, const PictureView& source, const Settings& settings, Mix mix,
                  const PictureView& output) {
    return renderIntoWith(kEffectTable, host, source, settings, mix, output);
}

const EffectRecord* recordWithFilter(FilterFunction filter) {
    for (unsigned i = 0; i < kEffectTable.count; ++i)
        if (kEffectTable.records[i].filter == filter) return &kEffectTable.records[i];
    return nullptr;
}

unsigned effectCount() { return kEffectTable.count; }

std::string effectName(unsigned effect) {
    const EffectRecord* e = recordOf(effect);
    return e ? plat::loadString(e->nameId) : std::string();
}

std::string effectSlug(unsigned effect) {
    const EffectRecord* e = recordOf(effect);
    return e ? e->slug : "";
}

bool effectOffered(unsigned effect) {
    const EffectRecord* e = recordOf(effect);
    return e && e->offered;
}

unsigned offeredCount() {
    unsigned n = 0;
    for (unsigned i = 0; i < effectCount(); ++i) n += effectOffered(i);
    return n;
}

bool effectFadesIn(unsigned effect) {
    const EffectRecord* e = recordOf(effect);
    return e && (e->flags & kFlagMix);
}

bool effectUsesColour(unsigned effect) {
    const EffectRecord* e = recordOf(effect);
    return e && (e->flags & kFlagColour);
}

const char* effectDescription(unsigned effect) {
    const EffectRecord* e = recordOf(effect);
    return e ? e->description : "";
}

const char* effectCategory(unsigned effect) {
    const EffectRecord* e = recordOf(effect);
    if (!e) return "";
    switch (e->category) {
    case EffectCategory::Artistic: return "Artistic";
    case EffectCategory::Blur: return "Blur";
    case EffectCategory::Distort: return "Distort";
    case EffectCategory::Stylize: return "Stylize";
    case EffectCategory::Texture: return "Texture";
    }
    return "";
}

std::vector<unsigned> dialogOrder() {
    struct Item {
        std::string name;
        unsigned effect;
    };
    std::vector<Item> items;
    for (unsigned i = 0; i < effectCount(); ++i)
        if (effectOffered(i)) items.push_back({effectName(i), i});
    auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    std::stable_sort(items.begin(), items.end(), [&](const Item& a, const Item& b) {
        return std::lexicographical_compare(a.name.begin(), a.name.end(), b.name.begin(), b.name.end(),
                                            [&](char x, char y) { return lower(x) < lower(y); });
    });
    std::vector<unsigned> order;
    for (const Item& item : items) order.push_back(item.effect);
    return order;
}

namespace {

// The record of a shown slider, or null.
const SliderRecord* shownSlider(unsigned effect, int slider) {
    const EffectRecord* e = recordOf(effect);
    return e && slider >= 0 && slider < 3 && e->sliders[slider].labelId ? &e->sliders[slider] : nullptr;
}

}  // namespace

std::uint16_t sliderLabelId(unsigned effect, int slider) {
    const SliderRecord* s = shownSlider(effect, slider);
    return s ? s->labelId : 0;
}

std::string sliderLabel(unsigned effect, int slider) {
    const std::uint16_t id = sliderLabelId(effect, slider);
    return id ? plat::loadString(id) : std::string();
}

std::uint16_t sliderDefault(unsigned effect, int slider) {
    const EffectRecord* e = recordOf(effect);
    return e && slider >= 0 && slider < 3 ? e->sliders[slider].defaultValue : 0;
}

const char* sliderOption(unsigned effect, int slider) {
    const SliderRecord* s = shownSlider(effect, slider);
    return s ? s->option : "";
}

const char* sliderUnit(unsigned effect, int slider) {
    const SliderRecord* s = shownSlider(effect, slider);
    return s ? s->unit : "";
}

const char* sliderMeaning(unsigned effect, int slider) {
    const SliderRecord* s = shownSlider(effect, slider);
    return s ? s->meaning : "";
}

std::uint16_t sliderMinimum(unsigned effect, int slider) {
    const SliderRecord* s = shownSlider(effect, slider);
    return s ? s->minimum : 0;
}

std::uint16_t sliderMaximum(unsigned effect, int slider) {
    const SliderRecord* s = shownSlider(effect, slider);
    return s ? s->maximum : 0;
}

SettingsRecord newSettingsRecord() {
    SettingsRecord r{};
    chooseEffect(r, kDefaultEffect);
    r.direction = kDirectionForward;
    r.colour = 0;
    return r;
}

void chooseEffect(SettingsRecord& r, std::uint16_t effect) {
    r.effect = effect;
    r.param1 = sliderDefault(effect, 0);
    r.param2 = sliderDefault(effect, 1);
    r.param3 = sliderDefault(effect, 2);
}

}  // namespace flairize
