// Rendering a picture: the effect's filter, then for effects that fade in the
// mix with the source by the progress. Also what front ends read of the table.
#include <cctype>

#include "engine/effect_table.h"
#include "engine/flairize.h"
#include "platform/global_memory.h"
#include "platform/strings.h"
#include "resources/string_ids.h"

flairize::Result resultOutOfMemory() { return {nullptr, flairize::Status::OutOfMemory, ids::kNoMemory}; }

namespace flairize {
namespace {

const EffectRecord* recordOf(unsigned effect) {
    return effect < kEffectTable.count ? &kEffectTable.records[effect] : nullptr;
}

std::uint16_t atMost(std::uint32_t v, std::uint16_t top) { return v > top ? top : static_cast<std::uint16_t>(v); }

}  // namespace

Result renderWith(const EffectTable& table, const HostServices& host, HGLOBAL source, const Settings& s, Mix mix) {
    if (s.effect >= table.count || !source) return resultRefused();
    const EffectRecord& effect = table.records[s.effect];
    const std::uint32_t progress = s.progress > 16384 ? 16384 : s.progress;
    const FilterCall call{host,
                          source,
                          table,
                          s.effect,
                          progress,
                          atMost(s.sliders[0], 255),
                          atMost(s.sliders[1], 255),
                          atMost(s.sliders[2], 255),
                          s.colour};
    Result result = effect.filter(call);
    if (result.status != Status::Ok || !(effect.flags & kFlagMix) || mix == Mix::None ||
        (mix == Mix::BelowFull && s.progress == 16384))
        return result;
    HGLOBAL mixed = host.mix(host.user, source, result.picture, progress);
    if (!mixed) return {result.picture, Status::MixFailed, 0};
    plat::globalFree(result.picture);
    return resultOk(mixed);
}

Result render(const HostServices& host, HGLOBAL source, const Settings& settings, Mix mix) {
    return renderWith(kEffectTable, host, source, settings, mix);
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
    std::string slug;
    for (char c : effectName(effect)) {
        if (c == '[') break;
        if (c == '*') continue;
        slug.push_back(c == ' ' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    }
    while (!slug.empty() && slug.back() == '-') slug.pop_back();
    return slug;
}

bool effectOffered(unsigned effect) {
    const std::string name = effectName(effect);
    return !name.empty() && name[0] != '*';
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

std::uint16_t sliderLabelId(unsigned effect, int slider) {
    const EffectRecord* e = recordOf(effect);
    return e && slider >= 0 && slider < 3 ? e->labelIds[slider] : 0;
}

std::string sliderLabel(unsigned effect, int slider) {
    const std::uint16_t id = sliderLabelId(effect, slider);
    return id ? plat::loadString(id) : std::string();
}

std::uint16_t sliderDefault(unsigned effect, int slider) {
    const EffectRecord* e = recordOf(effect);
    return e && slider >= 0 && slider < 3 ? e->defaults[slider] : 0;
}

}  // namespace flairize
