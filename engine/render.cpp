// Rendering a picture with a table of effects: the effect's filter, then for
// effects that fade in the mix with the source by the progress.
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

// Filters that read and write pictures through views; the others hand whole
// pictures to the host's operations.
bool readsViews(FilterFunction filter) {
    return filter == rowDriver || filter == textureFilter || filter == meanMapFilter;
}

// Renders into a view through a picture of the engine's own, for filters that
// need whole pictures: the view copied in, the result copied out.
Result renderThroughPicture(const EffectTable& table, const HostServices& host, const dib::View& source,
                            const Settings& s, Mix mix, const dib::View& output) {
    HGLOBAL picture = dib::create(source.width, source.height, source.bitCount);
    if (!picture) return resultOutOfMemory();
    const std::size_t rowBytes = std::size_t(source.width) * (source.bitCount / 8);
    {
        dib::View in = dib::viewOf(static_cast<std::uint8_t*>(plat::globalLock(picture)));
        for (unsigned y = 0; y < source.height; ++y)
            std::memcpy(in.bottom + std::ptrdiff_t(y) * in.step, source.bottom + std::ptrdiff_t(y) * source.step,
                        rowBytes);
        plat::globalUnlock(picture);
    }
    Result r = renderWith(table, host, picture, s, mix);
    plat::globalFree(picture);
    if (!r.picture) return r;
    const dib::View result = dib::viewOf(static_cast<std::uint8_t*>(plat::globalLock(r.picture)));
    for (unsigned y = 0; y < output.height; ++y)
        std::memcpy(output.bottom + std::ptrdiff_t(y) * output.step, result.bottom + std::ptrdiff_t(y) * result.step,
                    rowBytes);
    plat::globalUnlock(r.picture);
    plat::globalFree(r.picture);
    r.picture = nullptr;
    return r;
}

Result renderViews(const EffectTable& table, const HostServices& host, HGLOBAL source, const dib::View* sourceView,
                   const Settings& s, Mix mix, const dib::View* outputView) {
    if (s.effect >= table.count || (!source && !sourceView)) return resultRefused();
    const EffectRecord& effect = table.records[s.effect];
    const std::uint32_t progress = s.progress > 16384 ? 16384 : s.progress;
    const bool mixes = (effect.flags & kFlagMix) && mix != Mix::None && !(mix == Mix::BelowFull && s.progress == 16384);
    if (sourceView && !readsViews(effect.filter))
        return renderThroughPicture(table, host, *sourceView, s, mix, *outputView);
    if (sourceView && mixes && !host.mixRow) return resultRefused();
    FilterCall call{host,
                    source,
                    table,
                    s.effect,
                    progress,
                    atMost(s.sliders[0], 255),
                    atMost(s.sliders[1], 255),
                    atMost(s.sliders[2], 255),
                    s.colour};
    call.sourceView = sourceView;
    call.outputView = outputView;
    call.mixRows = mixes && host.mixRow && effect.filter == rowDriver;
    Result result = effect.filter(call);
    if (result.status != Status::Ok || !mixes || call.mixRows) return result;
    if (host.mixRow) {   // one blend pass over the finished output, in place
        dib::Source src(source, &host, sourceView);
        if (outputView) {
            blendRows(host, src, *outputView, progress);
        } else {
            blendRows(host, src, dib::viewOf(static_cast<std::uint8_t*>(plat::globalLock(result.picture))), progress);
            plat::globalUnlock(result.picture);
        }
        return result;
    }
    HGLOBAL mixed = host.mix(host.user, source, result.picture, progress);
    if (!mixed) return {result.picture, Status::MixFailed, 0};
    plat::globalFree(result.picture);
    return resultOk(mixed);
}

}  // namespace

Result renderWith(const EffectTable& table, const HostServices& host, HGLOBAL source, const Settings& s, Mix mix) {
    return renderViews(table, host, source, nullptr, s, mix, nullptr);
}

Result renderIntoWith(const EffectTable& table, const HostServices& host, const PictureView& source, const Settings& settings, Mix mix,
                  const PictureView& output) {
    auto bottomFirst = [](const PictureView& v) {
        dib::View d;
        d.bottom = v.height ? v.top + std::ptrdiff_t(v.height - 1) * v.stride : v.top;
        d.step = -v.stride;
        d.width = v.width;
        d.height = v.height;
        d.bitCount = static_cast<std::uint16_t>(v.bytesPerPixel * 8u);
        return d;
    };
    const dib::View in = bottomFirst(source), out = bottomFirst(output);
    if (!source.top || !output.top || !dib::viewsFit(in, out)) return resultRefused();
    return renderViews(table, host, nullptr, &in, settings, mix, &out);
}

}  // namespace flairize
