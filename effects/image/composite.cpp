// Composite effects: WaterColor, Glass and Color Pencil chain whole-picture
// operations (the host's colour operations, another effect, the picture mix).
// Each intermediate picture is freed as soon as the next one exists; a step
// that fails ends the chain with nothing left behind.
#include "effects/effects.h"
#include "engine/dib.h"
#include "platform/global_memory.h"

namespace {

using ColourOperation = HGLOBAL (*)(void* user, HGLOBAL picture);

// The pictures every filter refuses, whichever operation runs first.
bool acceptable(const FilterCall& call) { return dib::Source(call.source, &call.host).ok(); }

// next = operation(current), then current is freed.
HGLOBAL replaceWith(const FilterCall& call, HGLOBAL current, ColourOperation operation) {
    HGLOBAL next = operation(call.host.user, current);
    plat::globalFree(current);
    return next;
}

// A colour operation of the host that fails reports no message of its own.
flairize::Result fromHost(HGLOBAL picture) {
    return picture ? resultOk(picture) : flairize::Result{nullptr, flairize::Status::OutOfMemory, 0};
}

// The inner effect's filter at its fixed progress, with this render's values.
flairize::Result runInner(const FilterCall& call) {
    const auto& inner = *static_cast<const InnerEffect*>(call.table.records[call.effect].data);
    const FilterCall innerCall{call.host, call.source, call.table, inner.effect, inner.progress,
                               call.p1,   call.p2,     call.p3,    call.colour};
    return call.table.records[inner.effect].filter(innerCall);
}

}  // namespace

flairize::Result waterColorFilter(const FilterCall& call) {
    if (!acceptable(call)) return resultRefused();
    HGLOBAL picture = call.host.smooth(call.host.user, call.source);
    if (picture) picture = replaceWith(call, picture, call.host.simplify);
    if (picture) picture = replaceWith(call, picture, call.host.smooth);
    if (picture) picture = replaceWith(call, picture, call.host.simplify);
    return fromHost(picture);
}

flairize::Result glassFilter(const FilterCall& call) {
    if (!acceptable(call)) return resultRefused();
    const flairize::Result frazzled = runInner(call);
    if (frazzled.status != flairize::Status::Ok) return frazzled;
    return fromHost(replaceWith(call, frazzled.picture, call.host.soften));
}

flairize::Result colorPencilFilter(const FilterCall& call) {
    if (!acceptable(call)) return resultRefused();
    const flairize::Result charcoal = runInner(call);
    if (charcoal.status != flairize::Status::Ok) return charcoal;
    if (call.host.mixRow) {   // blended in place, row by row
        const dib::Source src(call.source, &call.host);
        blendRows(call.host, src, dib::viewOf(static_cast<std::uint8_t*>(plat::globalLock(charcoal.picture))), 8192);
        plat::globalUnlock(charcoal.picture);
        return charcoal;
    }
    HGLOBAL mixed = call.host.mix(call.host.user, call.source, charcoal.picture, 8192);   // half and half
    plat::globalFree(charcoal.picture);
    return fromHost(mixed);
}
