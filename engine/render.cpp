// Rendering a picture with a table of effects: the effect's filter, then for
// effects that fade in the mix with the source by the progress. Filters work on
// views only: renderWith() views the source picture and the output picture it
// makes, renderIntoWith() the caller's frames.
#include <cstring>

#include "engine/dib.h"
#include "engine/effect_table.h"
#include "engine/flairize.h"
#include "platform/global_memory.h"
#include "resources/string_ids.h"

flairize::Result resultOutOfMemory() { return {nullptr, flairize::Status::OutOfMemory, ids::kNoMemory}; }

void blendRows(const flairize::HostServices& host, const dib::Source& src, const dib::View& out,
               std::uint32_t progress) {
    struct Pass {
        const flairize::HostServices& host;
        const dib::Source& src;
        const dib::View& out;
        std::uint32_t progress;
    } pass{host, src, out, progress};
    auto run = [](void* context, unsigned begin, unsigned end) {
        const Pass& p = *static_cast<const Pass*>(context);
        for (unsigned y = begin; y < end; ++y)
            p.host.mixRow(p.host.user, p.src.row(y), p.src.layout().bytesPerPixel, p.src.colourTable(),
                          p.out.bottom + std::ptrdiff_t(y) * p.out.step, p.out.width, p.out.bitCount / 8u,
                          p.progress);
    };
    if (host.parallel)
        host.parallel(host.user, out.height, run, &pass);
    else
        run(&pass, 0, out.height);
}

namespace flairize {
namespace {

std::uint16_t atMost(std::uint32_t v, std::uint16_t top) { return v > top ? top : static_cast<std::uint16_t>(v); }

// One render of a table's effect: whether its result is mixed with the source.
struct Plan {
    const EffectTable& table;
    const HostServices& host;
    const Settings& settings;
    std::uint32_t progress;
    bool mixes;
    bool rowsMixed;   // the row driver blends each row as it writes it

    Plan(const EffectTable& t, const HostServices& h, const Settings& s, Mix mix)
        : table(t), host(h), settings(s), progress(s.progress > 16384 ? 16384 : s.progress) {
        const EffectRecord& effect = t.records[s.effect];
        mixes = (effect.flags & kFlagMix) && mix != Mix::None && !(mix == Mix::BelowFull && s.progress == 16384);
        rowsMixed = mixes && h.mixRow && effect.filter == rowDriver;
    }

    // The effect's filter from `source` into `output`.
    Result filter(const dib::View& source, const dib::View& output, bool outputCleared) const {
        FilterCall call{host,
                        source,
                        output,
                        outputCleared,
                        table,
                        settings.effect,
                        progress,
                        atMost(settings.sliders[0], 255),
                        atMost(settings.sliders[1], 255),
                        atMost(settings.sliders[2], 255),
                        settings.colour};
        call.mixRows = rowsMixed;
        return table.records[settings.effect].filter(call);
    }
};

dib::View bottomFirst(const PictureView& v) {
    dib::View d;
    d.bottom = v.height ? v.top + std::ptrdiff_t(v.height - 1) * v.stride : v.top;
    d.step = -v.stride;
    d.width = v.width;
    d.height = v.height;
    d.bitCount = static_cast<std::uint16_t>(v.bytesPerPixel * 8u);
    return d;
}

}  // namespace

// The source picture and a new output picture, viewed; a picture the filter
// hands back takes the output's place. Without the host's mixRow the result
// is mixed through its picture mix, as the plug-in's host does.
Result renderWith(const EffectTable& table, const HostServices& host, HGLOBAL source, const Settings& s, Mix mix) {
    if (s.effect >= table.count) return resultRefused();
    const dib::Source src(source, &host);
    if (!src.ok()) return resultRefused();
    dib::Output out(src);
    if (!out.ok()) return resultOutOfMemory();
    const Plan plan(table, host, s, mix);
    const Result result = plan.filter(src.view(), out.view(), true);
    if (result.status != Status::Ok) return result;   // the output is freed with `out`
    HGLOBAL picture = result.picture ? result.picture : out.release();
    if (!plan.mixes || plan.rowsMixed) return resultOk(picture);
    if (host.mixRow) {   // one blend pass over the finished picture, in place
        blendRows(host, src, dib::viewOf(static_cast<std::uint8_t*>(plat::globalLock(picture))), plan.progress);
        plat::globalUnlock(picture);
        return resultOk(picture);
    }
    HGLOBAL mixed = host.mix(host.user, source, picture, plan.progress);
    if (!mixed) return {picture, Status::MixFailed, 0};
    plat::globalFree(picture);
    return resultOk(mixed);
}

Result renderIntoWith(const EffectTable& table, const HostServices& host, const PictureView& source,
                      const Settings& settings, Mix mix, const PictureView& output) {
    const dib::View in = bottomFirst(source), out = bottomFirst(output);
    if (!source.top || !output.top || !dib::viewsFit(in, out) || settings.effect >= table.count)
        return resultRefused();
    const Plan plan(table, host, settings, mix);
    if (plan.mixes && !host.mixRow) return resultRefused();
    const Result result = plan.filter(in, out, false);
    if (result.status != Status::Ok || !plan.mixes || plan.rowsMixed) return result;
    blendRows(host, dib::Source(in), out, plan.progress);   // one blend pass over the output, in place
    return result;
}

}  // namespace flairize
