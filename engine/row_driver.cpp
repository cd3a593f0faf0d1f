// The row driver: runs a row effect over a picture, one output row at a time,
// between the effect's optional init and done functions. Rows that depend on
// the rows below them run from the bottom up; independent rows run in bands on
// the host's threads where it offers them, each band writing only its own rows,
// and so do carrying rows whose effect can start its carry at any row.
// A row that is blended with the source is blended as soon as it is written,
// while it is still in cache. The rows are read from the source view and
// written into the output view.
#include <atomic>
#include <cstring>

#include "engine/dib.h"
#include "engine/effect_table.h"
#include "platform/global_memory.h"

flairize::Result rowDriver(const FilterCall& call) {
    const EffectRecord& effect = call.table.records[call.effect];
    if (!effect.line1 || !effect.line2) return resultRefused();
    const dib::View& in = call.source;
    const unsigned bytesPerPixel = in.bitCount / 8u;

    Frame frame{};
    frame.colourTable = bytesPerPixel == 1 ? in.colourTable : nullptr;
    frame.width = in.width;
    frame.height = in.height;
    frame.hasAlpha = in.bitCount == 32;
    frame.progress = call.progress;
    frame.p1 = call.p1, frame.p2 = call.p2, frame.p3 = call.p3;
    frame.colour = call.colour;
    Carry carry{};
    if (effect.init && !effect.init(frame, carry)) return resultOutOfMemory();
    HGLOBAL tableBlock = plat::globalAlloc(std::size_t(in.height) * sizeof(const std::uint8_t*));
    if (!tableBlock) {
        if (effect.done) effect.done(carry);
        return resultOutOfMemory();
    }
    auto* rows = static_cast<const std::uint8_t**>(plat::globalLock(tableBlock));
    for (std::uint32_t i = 0; i < in.height; ++i) rows[i] = in.row(i);
    frame.rows = rows;

    // An output that is not known to be clear is cleared row by row as the
    // rows are written, unless the effect writes whole rows itself.
    struct Band {
        const FilterCall& call;
        const EffectRecord& effect;
        RowFunction line;
        const Frame& frame;
        Carry& carry;
        const dib::View& out;
        unsigned sourceBytes, outputBytes;
        bool clearRows;
        std::atomic<bool> outOfMemory{false};
        // Rows begin .. end - 1 with the given frame and carry.
        void run(const Frame& f, Carry& c, unsigned begin, unsigned end) const {
            const flairize::HostServices& host = call.host;
            for (unsigned y = begin; y < end; ++y) {
                if (host.rowTick) host.rowTick(host.user);
                std::uint8_t* row = out.row(y);
                if (clearRows) std::memset(row, 0, out.rowBytes());
                line(f, c, static_cast<std::uint16_t>(y), row);
                if (call.mixRows)
                    host.mixRow(host.user, f.rows[y], sourceBytes, f.colourTable, row, f.width, outputBytes,
                                f.progress);
            }
        }
    } band{call, effect, bytesPerPixel == 1 ? effect.line1 : effect.line2, frame, carry, call.output, bytesPerPixel,
           in.bitCount == 32 ? 4u : 3u, !call.outputCleared && !(effect.writesWholeRows && bytesPerPixel != 1)};
    if (effect.independentRows && call.host.parallel) {
        call.host.parallel(call.host.user, in.height, [](void* context, unsigned begin, unsigned end) {
            const Band& b = *static_cast<const Band*>(context);
            b.run(b.frame, b.carry, begin, end);
        }, &band);
    } else if (effect.bandStart && call.host.parallel) {
        // Each band takes a carry of its own and starts it where the rows below would leave it.
        call.host.parallel(call.host.user, in.height, [](void* context, unsigned begin, unsigned end) {
            Band& b = *static_cast<Band*>(context);
            Frame bandFrame = b.frame;
            Carry own{};
            if (b.effect.init && !b.effect.init(bandFrame, own)) {
                b.outOfMemory = true;
                return;
            }
            b.effect.bandStart(bandFrame, own, static_cast<std::uint16_t>(begin));
            b.run(bandFrame, own, begin, end);
            if (b.effect.done) b.effect.done(own);
        }, &band);
    } else {
        band.run(frame, carry, 0, in.height);
    }
    if (effect.done) effect.done(carry);
    plat::globalUnlock(tableBlock);
    plat::globalFree(tableBlock);
    if (band.outOfMemory) return resultOutOfMemory();
    return resultOk(nullptr);
}
