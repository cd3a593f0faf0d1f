#include "engine/render.h"

#include "engine/effect_table.h"
#include "engine/render_state.h"
#include "host/exports.h"
#include "hostapi/host_context.h"
#include "hostapi/host_ops.h"
#include "platform/global_memory.h"
#include "platform/strings.h"
#include "resources/string_ids.h"

namespace {

// Publishes the record's values, fetches the source and runs the effect's filter.
HGLOBAL runRecordFilter(void* hostContext, const SettingsRecord& record, HGLOBAL& source,
                        const EffectRecord*& effect) {
    const std::uint16_t p1 = render::clampParam(record.param1);
    const std::uint16_t p2 = render::clampParam(record.param2);
    const std::uint16_t p3 = render::clampParam(record.param3);
    renderState().hostContext = hostContext;
    publishRenderValues(p1, p2, p3, record.colour);
    source = AnimKit_SourcePicture(hostContext, 0);
    effect = effectRecord(record.effect);
    if (!effect || !effect->filter || !source) return nullptr;
    return effect->filter(record.effect, source, render::clampProgress(record.progress), p1, p2, p3);
}

}  // namespace

extern "C" std::uint32_t FLR_STDCALL GenerateDIB(void* hostContext, HGLOBAL* resultOut, std::uint32_t) {
    const SettingsRecord* record = hostctx::currentRecord(hostContext);
    if (!record || !resultOut) return 0;
    HGLOBAL source = nullptr;
    const EffectRecord* effect = nullptr;
    HGLOBAL result = runRecordFilter(hostContext, *record, source, effect);
    if (!result) return 0;
    if (effect->flags & kFlagMix) {
        *resultOut = BaseKit_MixPictures(source, result, render::clampProgress(record->progress));
        plat::globalFree(result);
    } else {
        *resultOut = result;
    }
    return *resultOut ? 1 : 0;
}

namespace render {

HGLOBAL filterOnly(void* hostContext) {
    const SettingsRecord* record = hostctx::currentRecord(hostContext);
    if (!record) return nullptr;
    HGLOBAL source = nullptr;
    const EffectRecord* effect = nullptr;
    return runRecordFilter(hostContext, *record, source, effect);
}

}  // namespace render

extern "C" std::uint32_t FLR_STDCALL GenAnimation(std::uint32_t a, std::uint32_t b) {
    return AnimKit_GenAnimation(a, b);
}

namespace render {

std::uint32_t preview(std::uint16_t effectIndex, HGLOBAL source, const SettingsRecord& record,
                      std::uint16_t p1, std::uint16_t p2, std::uint16_t p3, HGLOBAL* resultOut,
                      HPALETTE* paletteOut) {
    BaseKit_BusyBegin();
    p1 = clampParam(p1);
    p2 = clampParam(p2);
    p3 = clampParam(p3);
    publishRenderValues(p1, p2, p3, record.colour);
    const EffectRecord* effect = effectRecord(effectIndex);
    const std::uint32_t progress = clampProgress(record.progress);
    HGLOBAL result = effect && effect->filter && source
                         ? effect->filter(effectIndex, source, progress, p1, p2, p3)
                         : nullptr;
    if (!result) {
        BaseKit_BusyEnd();
        return 0;
    }
    if (record.progress != 16384 && (effect->flags & kFlagMix)) {
        HGLOBAL mixed = BaseKit_MixPictures(source, result, progress);
        if (!mixed) {
            BaseKit_BusyEnd();
            plat::showStringMessage(ids::kPreviewNoMemory);
            *resultOut = result;
            return 1;
        }
        plat::globalFree(result);
        *resultOut = mixed;
    } else {
        *resultOut = result;
    }
    *paletteOut = BaseKit_Palette(*resultOut);
    BaseKit_BusyEnd();
    return 1;
}

}  // namespace render
