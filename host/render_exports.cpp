// The plug-in's render calls: the host's frame render, the preview's render and
// the filters it exports, each a thin adaptor over the engine that turns the
// engine's outcome into the plug-in's result and message.
#include "effects/catalogue.h"
#include "engine/flairize.h"
#include "host/exports.h"
#include "host/host_context.h"
#include "host/plugin_services.h"
#include "hostapi/host_imports.h"
#include "platform/global_memory.h"
#include "platform/strings.h"
#include "resources/string_ids.h"

namespace plugin {

Published& published() {
    static Published values;
    return values;
}

}  // namespace plugin

namespace {

using flairize::Status;

void publish(const std::uint16_t sliders[3], std::uint32_t colour) {
    plugin::Published& p = plugin::published();
    for (int k = 0; k < 3; ++k) p.sliders[k] = sliders[k];
    p.colour = colour;
}

// A failed render shows the engine's message, task-modal, as every failure does.
HGLOBAL pictureOrReport(const flairize::Result& r) {
    if (r.status == Status::Ok) return r.picture;
    plat::globalFree(r.picture);
    if (r.messageId) plat::showStringMessage(r.messageId);
    return nullptr;
}

// An exported filter serves the effects whose filter it is.
HGLOBAL exportedFilter(FilterFunction filter, std::uint16_t effect, HGLOBAL source, std::uint32_t progress,
                       const std::uint16_t sliders[3]) {
    if (effect >= kEffectTable.count || kEffectTable.records[effect].filter != filter) return nullptr;
    flairize::Settings s;
    s.effect = effect;
    for (int k = 0; k < 3; ++k) s.sliders[k] = sliders[k];
    s.colour = plugin::published().colour;
    s.progress = progress;
    return pictureOrReport(flairize::render(plugin::services(), source, s, flairize::Mix::None));
}

// WaterColor and Glass read only their source.
HGLOBAL exportedComposite(FilterFunction filter, HGLOBAL source) {
    const EffectRecord* record = flairize::recordWithFilter(filter);
    const std::uint16_t none[3] = {0, 0, 0};
    return record ? exportedFilter(filter, record->index, source, 16384, none) : nullptr;
}

}  // namespace

extern "C" std::uint32_t FLR_STDCALL GenerateDIB(void* hostContext, HGLOBAL* resultOut, std::uint32_t) {
    const SettingsRecord* record = hostctx::currentRecord(hostContext);
    if (!record || !resultOut) return 0;
    plugin::published().hostContext = hostContext;
    const flairize::Settings settings = flairize::settingsOf(*record);
    publish(settings.sliders, settings.colour);
    HGLOBAL source = AnimKit_SourcePicture(hostContext, 0);
    const flairize::Result r = flairize::render(plugin::services(), source, settings, flairize::Mix::Always);
    if (r.status == Status::MixFailed) {   // the filter's result goes, and no message
        plat::globalFree(r.picture);
        *resultOut = nullptr;
        return 0;
    }
    HGLOBAL picture = pictureOrReport(r);
    if (!picture) return 0;
    *resultOut = picture;
    return 1;
}

extern "C" std::uint32_t FLR_STDCALL GenAnimation(std::uint32_t a, std::uint32_t b) {
    return AnimKit_GenAnimation(a, b);
}

namespace plugin {

std::uint32_t previewRender(std::uint16_t effect, HGLOBAL source, const SettingsRecord& record,
                            const std::uint16_t sliders[3], HGLOBAL* resultOut, HPALETTE* paletteOut) {
    BaseKit_BusyBegin();
    publish(sliders, record.colour);
    flairize::Settings s = flairize::settingsOf(record);
    s.effect = effect;
    for (int k = 0; k < 3; ++k) s.sliders[k] = sliders[k];
    const flairize::Result r = flairize::render(services(), source, s, flairize::Mix::BelowFull);
    if (r.status == Status::MixFailed) {   // the unmixed picture is shown, with the preview's message
        BaseKit_BusyEnd();
        plat::showStringMessage(ids::kPreviewNoMemory);
        *resultOut = r.picture;
        return 1;
    }
    HGLOBAL picture = pictureOrReport(r);
    if (!picture) {
        BaseKit_BusyEnd();
        return 0;
    }
    *resultOut = picture;
    *paletteOut = BaseKit_Palette(picture);
    BaseKit_BusyEnd();
    return 1;
}

}  // namespace plugin

// The row driver renders with the published sliders: its own P1..P3 are not read.
FLR_FILTER_EXPORT(FLR_LineFilter) {
    (void)p1, (void)p2, (void)p3;
    return exportedFilter(rowDriver, effect, source, progress, plugin::published().sliders);
}

FLR_FILTER_EXPORT(FLR_MeanMapFilter) {
    const std::uint16_t sliders[3] = {p1, p2, p3};
    return exportedFilter(meanMapFilter, effect, source, progress, sliders);
}

FLR_FILTER_EXPORT(FLR_TextureFilter) {
    const std::uint16_t sliders[3] = {p1, p2, p3};
    return exportedFilter(textureFilter, effect, source, progress, sliders);
}

FLR_FILTER_EXPORT(FLR_WaterColor) {
    (void)effect, (void)progress, (void)p1, (void)p2, (void)p3;
    return exportedComposite(waterColorFilter, source);
}

FLR_FILTER_EXPORT(FLR_Glass) {
    (void)effect, (void)progress, (void)p1, (void)p2, (void)p3;
    return exportedComposite(glassFilter, source);
}
