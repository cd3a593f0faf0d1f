// The catalogue of effects for C: the engine's answers, with the texts it
// makes as strings kept in a table made once, so that their pointers stay valid.
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "engine/flairize.h"
#include "libflairize/boundary.h"

namespace {

struct EffectTexts {
    std::string name, slug;
    std::string labels[3];
};

std::vector<EffectTexts> makeTexts() {
    std::vector<EffectTexts> texts(flairize::effectCount());
    for (unsigned e = 0; e < texts.size(); ++e) {
        texts[e].name = flairize::effectName(e);
        texts[e].slug = flairize::effectSlug(e);
        for (int k = 0; k < 3; ++k) texts[e].labels[k] = flairize::sliderLabel(e, k);
    }
    return texts;
}

// The table, or null while memory for it cannot be had (it is tried again on the next call).
const std::vector<EffectTexts>* catalogueTexts() noexcept {
    try {
        static const std::vector<EffectTexts> texts = makeTexts();
        return &texts;
    } catch (...) {
        return nullptr;
    }
}

const EffectTexts* textsOf(unsigned effect) {
    const std::vector<EffectTexts>* texts = catalogueTexts();
    return texts && effect < texts->size() ? &(*texts)[effect] : nullptr;
}

bool sameIgnoringCase(const std::string& a, const char* b) {
    const std::size_t n = std::strlen(b);
    if (a.size() != n) return false;
    for (std::size_t i = 0; i < n; ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

bool isSlider(unsigned slider) { return slider < 3; }

}  // namespace

extern "C" {

unsigned flairize_effect_count(void) { return flairize::effectCount(); }

const char* flairize_effect_name(unsigned effect) {
    const EffectTexts* t = textsOf(effect);
    return t ? t->name.c_str() : "";
}

const char* flairize_effect_slug(unsigned effect) {
    const EffectTexts* t = textsOf(effect);
    return t ? t->slug.c_str() : "";
}

const char* flairize_effect_description(unsigned effect) { return flairize::effectDescription(effect); }

const char* flairize_effect_category(unsigned effect) { return flairize::effectCategory(effect); }

int flairize_effect_offered(unsigned effect) {
    return libflairize::guardedValue(0, [&] { return flairize::effectOffered(effect) ? 1 : 0; });
}

int flairize_effect_fades_in(unsigned effect) { return flairize::effectFadesIn(effect) ? 1 : 0; }

int flairize_effect_uses_colour(unsigned effect) { return flairize::effectUsesColour(effect) ? 1 : 0; }

flairize_status flairize_effect_find(const char* name, unsigned* effect) {
    if (!name || !effect) return FLAIRIZE_ERROR_NULL;
    return libflairize::guarded([&] {
        const std::vector<EffectTexts>* texts = catalogueTexts();
        if (!texts) return FLAIRIZE_ERROR_OUT_OF_MEMORY;
        for (unsigned e = 0; e < texts->size(); ++e)
            if (sameIgnoringCase((*texts)[e].slug, name) || sameIgnoringCase((*texts)[e].name, name)) {
                *effect = e;
                return FLAIRIZE_OK;
            }
        return FLAIRIZE_ERROR_EFFECT;
    });
}

int flairize_slider_shown(unsigned effect, unsigned slider) {
    return isSlider(slider) && flairize::sliderLabelId(effect, int(slider)) ? 1 : 0;
}

const char* flairize_slider_label(unsigned effect, unsigned slider) {
    const EffectTexts* t = textsOf(effect);
    return t && isSlider(slider) ? t->labels[slider].c_str() : "";
}

const char* flairize_slider_option(unsigned effect, unsigned slider) {
    return isSlider(slider) ? flairize::sliderOption(effect, int(slider)) : "";
}

const char* flairize_slider_meaning(unsigned effect, unsigned slider) {
    return isSlider(slider) ? flairize::sliderMeaning(effect, int(slider)) : "";
}

const char* flairize_slider_unit(unsigned effect, unsigned slider) {
    return isSlider(slider) ? flairize::sliderUnit(effect, int(slider)) : "";
}

unsigned flairize_slider_default(unsigned effect, unsigned slider) {
    return flairize_slider_shown(effect, slider) ? flairize::sliderDefault(effect, int(slider)) : 0;
}

unsigned flairize_slider_minimum(unsigned effect, unsigned slider) {
    return isSlider(slider) ? flairize::sliderMinimum(effect, int(slider)) : 0;
}

unsigned flairize_slider_maximum(unsigned effect, unsigned slider) {
    return isSlider(slider) ? flairize::sliderMaximum(effect, int(slider)) : 0;
}

}  // extern "C"
