// The row driver: runs a row effect over a picture, one output row at a time,
// between the effect's optional init and done functions. Rows that depend on
// the rows below them run from the bottom up; independent rows run in bands on
// the host's threads where it offers them, each band writing only its own rows.
// A row that is blended with the source is blended as soon as it is written,
// while it is still in cache.
#include <cstring>

#include "engine/dib.h"
#include "engine/effect_table.h"
#include "platform/global_memory.h"

flairize::Result rowDriver(const FilterCall& call) {
    const EffectRecord& effect = call.table.records[call.effect];
    if (!effect.line1 || !effect.line2) return resultRefused();
    dib::Source src(call.source, &call.host, call.sourceView);
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
    // A view is cleared row by row as the rows are written, unless the effect
    // writes whole rows itself; a new picture starts cleared.
    dib::Output out(src, call.outputView, false);
    if (!out.ok()) return fail();
    HGLOBAL tableBlock = plat::globalAlloc(std::size_t(in.height) * sizeof(const std::uint8_t*));
    if (!tableBlock) return fail();
    auto* rows = static_cast<const std::uint8_t**>(plat::globalLock(tableBlock));
    for (std::uint32_t i = 0; i < in.height; ++i) rows[i] = src.row(i);
    frame.rows = rows;

    struct Band {
        const FilterCall& call;
        RowFunction line;
        const Frame& frame;
        Carry& carry;
        const dib::Output& out;
        unsigned sourceBytes, outputBytes;
        bool clearRows;
    } band{call, in.bytesPerPixel == 1 ? effect.line1 : effect.line2, frame, carry, out, in.bytesPerPixel,
           in.bitCount == 32 ? 4u : 3u, call.outputView && !effect.writesWholeRows};
    auto runRows = [](void* context, unsigned begin, unsigned end) {
        const Band& b = *static_cast<const Band*>(context);
        const flairize::HostServices& host = b.call.host;
        for (unsigned y = begin; y < end; ++y) {
            if (host.rowTick) host.rowTick(host.user);
            std::uint8_t* row = b.out.row(y);
            if (b.clearRows) std::memset(row, 0, b.out.rowBytes());
            b.line(b.frame, b.carry, static_cast<std::uint16_t>(y), row);
            if (b.call.mixRows)
                host.mixRow(host.user, b.frame.rows[y], b.sourceBytes, b.frame.colourTable, row, b.frame.width,
                            b.outputBytes, b.frame.progress);
        }
    };
    if (effect.independentRows && call.host.parallel)
        call.host.parallel(call.host.user, in.height, runRows, &band);
    else
        runRows(&band, 0, in.height);
    if (effect.done) effect.done(carry);
    plat::globalUnlock(tableBlock);
    plat::globalFree(tableBlock);
    return resultOk(out.release());
}
