// The row driver: runs a row effect over a picture, one output row at a time,
// between the effect's optional init and done functions. Rows that depend on
// the rows below them run from the bottom up; independent rows run in bands on
// the host's threads where it offers them, each band writing only its own rows,
// and so do carrying rows whose effect can start its carry at any row.
// Rows that carry values from row to row but can be written in parts run, on
// the host's threads, in tiles of rows and columns (see runTiles).
// A row that is blended with the source is blended as soon as it is written,
// while it is still in cache. The rows are read from the source view and
// written into the output view.
#include <atomic>
#include <chrono>
#include <cstring>
#include <new>
#include <thread>

#include "engine/dib.h"
#include "engine/effect_table.h"
#include "platform/global_memory.h"

namespace {

// An output that is not known to be clear is cleared row by row as the rows
// are written, unless the effect writes whole rows itself.
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
                host.mixRow(host.user, f.rows[y], sourceBytes, f.colourTable, row, f.width, outputBytes, f.progress);
        }
    }
};

// Tiles of rows and columns for an effect with row parts. A tile waits for the
// tile below it and the one before it in its own band of rows (left of it, or
// right of it for PartOrder::RightFirst, which also covers the two columns
// right of it that the row below is read in); strips are numbered in that
// order, so a band's tiles run one after another, and tile (b, k) is ready
// once band b has finished k strips and band b - 1 k + 1. Each worker takes
// the lowest band's ready tile it finds and waits only where no tile is
// ready, which means another worker is running one: the host's bands need not
// all run at once, and a worker that starts late finds the work done. Two
// strips per thread keep every thread busy once the wave is under way; strips
// narrower than kMinStrip columns cost more in short rows than they give.
// The carried values live in a ring of band-sized slots (and a row of 255s
// below row 0): band b takes the slot band b - slots left, so its tile k also
// waits until band b - slots + 1, the last to read that band, has finished
// strip k + 1, which reads two columns into strip k.
constexpr unsigned kTileRows = 8, kMinStrip = 64;
constexpr unsigned kMaxThreads = 64;       // the most threads the tiles are cut for
constexpr unsigned kWorkers = 256;         // bands asked of the host: at least as many as it has threads
constexpr unsigned kProgressStride = 16;   // counters per band, a cache line

struct Tiles {
    const Band& band;
    unsigned width, height, stripColumns, strips, bands, slots;
    std::size_t stride;                  // bytes per row of values
    std::uint8_t* values;                // the row below row 0, then the slots of kTileRows rows
    std::atomic<unsigned>* progress;     // per band (every kProgressStride): strips taken, then strips finished
    std::atomic<unsigned> lowest{0};     // every band below it is finished

    std::atomic<unsigned>& taken(unsigned b) const { return progress[std::size_t(b) * kProgressStride]; }
    std::atomic<unsigned>& finished(unsigned b) const { return progress[std::size_t(b) * kProgressStride + 1]; }

    // The values of row y of band b.
    std::uint8_t* valuesOf(unsigned b, unsigned y) const {
        return values + (1 + std::size_t(b % slots) * kTileRows + (y - b * kTileRows)) * stride;
    }
    std::uint8_t* valuesBelow(unsigned b, unsigned y) const {
        if (y == 0) return values;
        return y == b * kTileRows ? valuesOf(b - 1, y - 1) : valuesOf(b, y - 1);
    }

    // Columns of strip k.
    void columns(unsigned k, unsigned& x0, unsigned& x1) const {
        if (band.effect.partOrder == PartOrder::RightFirst) {
            x1 = width - k * stripColumns;
            x0 = x1 > stripColumns ? x1 - stripColumns : 0;
        } else {
            x0 = k * stripColumns;
            x1 = width - x0 > stripColumns ? x0 + stripColumns : width;
        }
    }

    void runTile(unsigned b, unsigned k) const {
        const FilterCall& call = band.call;
        const flairize::HostServices& host = call.host;
        const Frame& f = band.frame;
        unsigned x0, x1;
        columns(k, x0, x1);
        const unsigned y1 = height - b * kTileRows > kTileRows ? (b + 1) * kTileRows : height;
        const std::size_t clearFrom = std::size_t(x0) * band.outputBytes, clearTo = std::size_t(x1) * band.outputBytes;
        for (unsigned y = b * kTileRows; y < y1; ++y) {
            if (k == 0 && host.rowTick) host.rowTick(host.user);   // once per row, before any of it is written
            std::uint8_t* row = band.out.row(y);
            if (band.clearRows) std::memset(row + clearFrom, 0, clearTo - clearFrom);
            std::uint8_t* own = valuesOf(b, y);
            if (x1 == width) own[width] = 255;
            band.effect.rowPart(f, static_cast<std::uint16_t>(y), x0, x1, valuesBelow(b, y), own, row);
            if (call.mixRows)
                host.mixRow(host.user, f.rows[y] + std::size_t(x0) * band.sourceBytes, band.sourceBytes,
                            f.colourTable, row + std::size_t(x0) * band.outputBytes, x1 - x0, band.outputBytes,
                            f.progress);
        }
    }

    // Takes and runs one ready tile; false when none is ready.
    bool runReadyTile() {
        for (unsigned b = lowest.load(std::memory_order_acquire); b < bands; ++b) {
            const unsigned k = finished(b).load(std::memory_order_acquire);
            if (k == strips) {
                unsigned low = b;
                lowest.compare_exchange_strong(low, b + 1, std::memory_order_acq_rel);
                continue;
            }
            const unsigned reader = b + 1 - slots, read = k + 2 < strips ? k + 2 : strips;
            if ((b == 0 || finished(b - 1).load(std::memory_order_acquire) > k) &&
                (b < slots || finished(reader).load(std::memory_order_acquire) >= read)) {
                unsigned expected = k;   // no other worker has taken tile k
                if (taken(b).compare_exchange_strong(expected, k + 1, std::memory_order_acq_rel)) {
                    runTile(b, k);
                    finished(b).store(k + 1, std::memory_order_release);
                    return true;
                }
            }
            if (k == 0) return false;   // no band above has a ready tile
        }
        return false;
    }

    void work() {
        unsigned idle = 0;
        while (lowest.load(std::memory_order_acquire) < bands) {
            if (runReadyTile()) {
                idle = 0;
            } else if (++idle > 256) {   // the tiles this one waits for run on threads that are not running
                std::this_thread::sleep_for(std::chrono::microseconds(20));
            } else if (idle > 16) {
                std::this_thread::yield();
            }
        }
    }
};

// Runs every row of an effect with row parts in tiles on the host's threads;
// false (nothing written) when the memory for the values cannot be had.
bool runTiles(const Band& band) {
    const unsigned width = band.frame.width, height = band.frame.height;
    if (!width || !height) return true;
    const unsigned hostThreads = band.call.host.threads ? band.call.host.threads : 4;
    const unsigned threads = hostThreads < kMaxThreads ? hostThreads : kMaxThreads;
    const unsigned wanted = (width + 2 * threads - 1) / (2 * threads);
    const unsigned stripColumns = wanted > kMinStrip ? wanted : kMinStrip;
    const unsigned strips = (width + stripColumns - 1) / stripColumns, bands = (height + kTileRows - 1) / kTileRows;
    const unsigned slots = bands < 2 * threads + 4 ? bands : 2 * threads + 4;
    const std::size_t stride = width + 2u;
    const std::size_t progressBytes = std::size_t(bands) * kProgressStride * sizeof(std::atomic<unsigned>);
    HGLOBAL block = plat::globalAlloc(progressBytes + (std::size_t(slots) * kTileRows + 1) * stride);
    if (!block) return false;
    auto* bytes = static_cast<std::uint8_t*>(plat::globalLock(block));
    auto* progress = reinterpret_cast<std::atomic<unsigned>*>(bytes);
    for (unsigned b = 0; b < bands; ++b)
        for (unsigned i = 0; i < 2; ++i) new (&progress[std::size_t(b) * kProgressStride + i]) std::atomic<unsigned>(0);
    std::uint8_t* values = bytes + progressBytes;
    std::memset(values, 255, stride);   // below row 0
    Tiles tiles{band, width, height, stripColumns, strips, bands, slots, stride, values, progress};
    band.call.host.parallel(band.call.host.user, kWorkers, [](void* context, unsigned, unsigned) {
        static_cast<Tiles*>(context)->work();
    }, &tiles);
    plat::globalUnlock(block);
    plat::globalFree(block);
    return true;
}

}  // namespace

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

    Band band{call,         effect,        bytesPerPixel == 1 ? effect.line1 : effect.line2,
              frame,        carry,         call.output,
              bytesPerPixel, in.bitCount == 32 ? 4u : 3u,
              !call.outputCleared && !(effect.writesWholeRows && bytesPerPixel != 1)};
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
    } else if (!(effect.rowPart && call.host.parallel && runTiles(band))) {
        band.run(frame, carry, 0, in.height);
    }
    if (effect.done) effect.done(carry);
    plat::globalUnlock(tableBlock);
    plat::globalFree(tableBlock);
    if (band.outOfMemory) return resultOutOfMemory();
    return resultOk(nullptr);
}
