// The row driver: runs a row effect over a picture, one output row at a time
// from the bottom up, with the effect's optional init and done functions.
#include "engine/dib.h"
#include "engine/effect_table.h"
#include "engine/filters.h"
#include "hostapi/host_ops.h"
#include "platform/global_memory.h"
#include "platform/strings.h"
#include "resources/string_ids.h"

FLR_FILTER(FLR_LineFilter) {
    (void)p1;
    (void)p2;
    (void)p3;
    const EffectRecord* effectRec = effectRecord(effect);
    if (!effectRec || !effectRec->line1 || !effectRec->line2) return nullptr;
    dib::Source src(source);
    if (!src.ok()) return nullptr;
    const dib::Layout& in = src.layout();
    if (progress > 16384) progress = 16384;

    if (effectRec->init && !effectRec->init(in.width, in.height, in.bytesPerPixel)) {
        plat::showStringMessage(ids::kNoMemory);
        return nullptr;
    }
    auto fail = [&]() -> HGLOBAL {
        if (effectRec->done) effectRec->done();
        plat::showStringMessage(ids::kNoMemory);
        return nullptr;
    };
    dib::Output out(src);
    if (!out.ok()) return fail();
    HGLOBAL tableHandle = plat::globalAlloc(std::size_t(in.height) * sizeof(const std::uint8_t*));
    if (!tableHandle) return fail();
    auto* rows = static_cast<const std::uint8_t**>(plat::globalLock(tableHandle));
    for (std::uint32_t i = 0; i < in.height; ++i) rows[i] = src.row(i);

    std::uint8_t* outRow = out.pixels();
    const std::uint32_t hasAlpha = src.hasAlpha() ? 1 : 0;
    for (std::uint16_t y = 0; y < in.height; ++y) {
        BaseKit_RowTick();
        if (in.bytesPerPixel == 1)
            effectRec->line1(y, progress, in.width, in.height, rows, outRow, src.colourTable());
        else
            effectRec->line2(y, progress, in.width, in.height, rows, outRow, hasAlpha);
        outRow += out.stride();
    }
    if (effectRec->done) effectRec->done();

    plat::globalUnlock(tableHandle);
    plat::globalFree(tableHandle);
    return out.release();
}
