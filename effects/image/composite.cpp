// Composite effects: WaterColor, Glass and Color Pencil chain whole-picture
// operations (the host's colour operations, another effect, the picture mix).
// Each intermediate picture is freed as soon as the next one exists; a step
// that fails ends the chain with nothing left behind.
#include <cstring>

#include "effects/effects.h"
#include "engine/dib.h"
#include "platform/global_memory.h"

namespace {

using ColourOperation = HGLOBAL (*)(void* user, HGLOBAL picture);

// The host's colour operations and picture mix take whole pictures, not views.
// A view that is a picture's own pixels is handed on as that picture; any
// other (24- or 32-bit) view becomes a new picture of its size and depth, its
// pixels copied where they are to be read. A result the host hands back
// becomes the filter's output (see intoOutput).
class AsPicture {
public:
    AsPicture(const dib::View& view, bool copyPixels) : handle_(view.picture), view_(view) {
        if (handle_ || view.bitCount == 8) return;   // 8-bit views are only ever pictures' own
        made_ = dib::create(view.width, view.height, view.bitCount);
        if (!made_) return;
        view_ = dib::viewOf(static_cast<std::uint8_t*>(plat::globalLock(made_)));
        view_.picture = made_;
        if (copyPixels)
            for (std::uint32_t y = 0; y < view.height; ++y) std::memcpy(view_.row(y), view.row(y), view.rowBytes());
        handle_ = made_;
    }
    ~AsPicture() {
        plat::globalUnlock(made_);
        plat::globalFree(made_);
    }
    AsPicture(const AsPicture&) = delete;
    AsPicture& operator=(const AsPicture&) = delete;

    HGLOBAL handle() const { return handle_; }     // null when a new picture could not be had
    const dib::View& view() const { return view_; }   // its pixels
    bool isNew() const { return made_ != nullptr; }   // a new picture, cleared unless its pixels were copied

private:
    HGLOBAL handle_;
    HGLOBAL made_ = nullptr;
    dib::View view_;
};

// A colour operation of the host that fails reports no message of its own.
flairize::Result hostFailed() { return {nullptr, flairize::Status::OutOfMemory, 0}; }

// The host's result as the filter's output: where the output view is a
// picture's own pixels, the result takes that picture's place as the host
// made it; otherwise its pixels are copied into the output view.
flairize::Result intoOutput(const FilterCall& call, HGLOBAL result) {
    if (!result) return hostFailed();
    if (call.output.picture) return resultOk(result);
    bool fits;
    {
        const dib::Source picture(result, &call.host);
        const dib::Layout& l = picture.layout();
        fits = picture.ok() && l.width == call.output.width && l.height == call.output.height &&
               l.bitCount == call.output.bitCount;
        if (fits)
            for (std::uint32_t y = 0; y < l.height; ++y)
                std::memcpy(call.output.row(y), picture.row(y), call.output.rowBytes());
    }
    plat::globalFree(result);
    return fits ? resultOk(nullptr) : resultRefused();
}

// next = operation(current), then current is freed.
HGLOBAL replaceWith(const FilterCall& call, HGLOBAL current, ColourOperation operation) {
    HGLOBAL next = operation(call.host.user, current);
    plat::globalFree(current);
    return next;
}

// The inner effect's filter at its fixed progress, with this render's values,
// into `output`.
flairize::Result runInner(const FilterCall& call, const dib::View& output, bool outputCleared) {
    const auto& inner = *static_cast<const InnerEffect*>(call.table.records[call.effect].data);
    const FilterCall innerCall{call.host, call.source, output,  outputCleared, call.table, inner.effect,
                               inner.progress, call.p1, call.p2, call.p3,      call.colour};
    return call.table.records[inner.effect].filter(innerCall);
}

}  // namespace

// A host that chains its colour operations from view to view renders
// WaterColor straight from the source into the output.
flairize::Result waterColorFilter(const FilterCall& call) {
    using flairize::ColourOp;
    static constexpr ColourOp kChain[] = {ColourOp::Smooth, ColourOp::Simplify, ColourOp::Smooth, ColourOp::Simplify};
    if (call.host.colourChain)
        return call.host.colourChain(call.host.user, kChain, 4, call.source, call.output) ? resultOk(nullptr)
                                                                                          : hostFailed();
    const AsPicture source(call.source, true);
    if (!source.handle()) return resultOutOfMemory();
    HGLOBAL picture = call.host.smooth(call.host.user, source.handle());
    if (picture) picture = replaceWith(call, picture, call.host.simplify);
    if (picture) picture = replaceWith(call, picture, call.host.smooth);
    if (picture) picture = replaceWith(call, picture, call.host.simplify);
    return intoOutput(call, picture);
}

// Frazzle is rendered into the picture that Soften then reads; a host that
// chains its colour operations from view to view softens it into the output.
flairize::Result glassFilter(const FilterCall& call) {
    if (call.host.colourChain) {
        const dib::View& out = call.output;
        const std::size_t rowBytes = out.rowBytes();
        HGLOBAL block = plat::globalAlloc(rowBytes * out.height);   // zero-filled
        if (!block) return resultOutOfMemory();
        dib::View frazzled = out;
        frazzled.bottom = static_cast<std::uint8_t*>(plat::globalLock(block));
        frazzled.step = std::ptrdiff_t(rowBytes);
        frazzled.picture = nullptr;
        flairize::Result result = runInner(call, frazzled, true);
        if (result.status == flairize::Status::Ok) {
            static constexpr flairize::ColourOp kSoften = flairize::ColourOp::Soften;
            if (!call.host.colourChain(call.host.user, &kSoften, 1, frazzled, out)) result = hostFailed();
        }
        plat::globalUnlock(block);
        plat::globalFree(block);
        return result;
    }
    const AsPicture frazzled(call.output, false);
    if (!frazzled.handle()) return resultOutOfMemory();
    const flairize::Result inner = runInner(call, frazzled.view(), frazzled.isNew() || call.outputCleared);
    if (inner.status != flairize::Status::Ok) return inner;
    return intoOutput(call, call.host.soften(call.host.user, frazzled.handle()));
}

flairize::Result colorPencilFilter(const FilterCall& call) {
    if (call.host.mixRow) {
        // Charcoal into the output, each row blended half and half with the
        // source as soon as it is written (Charcoal itself reads no progress).
        const auto& inner = *static_cast<const InnerEffect*>(call.table.records[call.effect].data);
        FilterCall charcoal{call.host, call.source, call.output, call.outputCleared, call.table, inner.effect,
                            8192,      call.p1,     call.p2,     call.p3,           call.colour};
        charcoal.mixRows = true;
        return call.table.records[inner.effect].filter(charcoal);
    }
    const AsPicture charcoal(call.output, false);
    if (!charcoal.handle()) return resultOutOfMemory();
    const flairize::Result inner = runInner(call, charcoal.view(), charcoal.isNew() || call.outputCleared);
    if (inner.status != flairize::Status::Ok) return inner;
    const AsPicture source(call.source, true);
    if (!source.handle()) return resultOutOfMemory();
    return intoOutput(call, call.host.mix(call.host.user, source.handle(), charcoal.handle(), 8192));   // half and half
}
