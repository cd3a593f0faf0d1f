// The row driver: runs a row effect over a picture, one output row at a time
// from the bottom up, between the effect's optional init and done functions.
#include "engine/dib.h"
#include "engine/effect_table.h"
#include "platform/global_memory.h"

flairize::Result rowDriver(const FilterCall& call) {
    const EffectRecord& effect = call.table.records[call.effect];
    if (!effect.line1 || !effect.line2) return resultRefused();
    dib::Source src(call.source, &call.host);
    if (!src.ok()) return resultRefused();
    const dib::Layout& in = src.layout();

    Frame frame{};
    frame.colourTable = in.bytesPerPixel == 1 ? src.colourTable() : nullptr;
    frame.width = in.width;
    frame.height = in.height;
    frame.hasAlpha = src.hasAlpha();
    frame.progress = call.progress;
    frame.p1 = call.p1, frame.p2 = call.p2, frame.p3 = call.p3;
    frame.colour = call.colour;
    Carry carry{};
    if (effect.init && !effect.init(frame, carry)) return resultOutOfMemory();
    auto fail = [&] {
        if (effect.done) effect.done(carry);
        return resultOutOfMemory();
    };
    dib::Output out(src);
    if (!out.ok()) return fail();
    HGLOBAL tableBlock = plat::globalAlloc(std::size_t(in.height) * sizeof(const std::uint8_t*));
    if (!tableBlock) return fail();
    auto* rows = static_cast<const std::uint8_t**>(plat::globalLock(tableBlock));
    for (std::uint32_t i = 0; i < in.height; ++i) rows[i] = src.row(i);
    frame.rows = rows;

    const RowFunction line = in.bytesPerPixel == 1 ? effect.line1 : effect.line2;
    std::uint8_t* outRow = out.pixels();
    for (std::uint16_t y = 0; y < in.height; ++y, outRow += out.stride()) {
        if (call.host.rowTick) call.host.rowTick(call.host.user);
        line(frame, carry, y, outRow);
    }
    if (effect.done) effect.done(carry);
    plat::globalUnlock(tableBlock);
    plat::globalFree(tableBlock);
    return resultOk(out.release());
}
