// Composite effects: WaterColor, Glass and Color Pencil chain whole-picture
// operations (the host's colour operations, a row effect, the picture mix).
// Each intermediate picture is freed as soon as the next one exists; a step
// that fails ends the chain with nothing left behind.
#include "engine/dib.h"
#include "engine/filters.h"
#include "hostapi/host_ops.h"
#include "platform/global_memory.h"

namespace {

constexpr std::uint16_t kFrazzle = 23;
constexpr std::uint16_t kCharcoal = 31;
constexpr std::uint32_t kGlassProgress = 1146;
constexpr std::uint32_t kFullProgress = 16384;
constexpr std::uint32_t kHalfWeight = 8192;

// The pictures every filter refuses, whichever operation runs first.
bool acceptable(HGLOBAL source) { return dib::Source(source).ok(); }

// next = operation(current), then current is freed.
HGLOBAL replaceWith(HGLOBAL current, HGLOBAL (FLR_STDCALL* operation)(HGLOBAL, std::uint32_t, std::uint32_t)) {
    HGLOBAL next = operation(current, 0, 0);
    plat::globalFree(current);
    return next;
}

}  // namespace

FLR_FILTER(FLR_WaterColor) {
    (void)effect, (void)progress, (void)p1, (void)p2, (void)p3;
    if (!acceptable(source)) return nullptr;
    HGLOBAL picture = HueKit_Smooth(source, 0, 0);
    if (picture) picture = replaceWith(picture, HueKit_Simplify);
    if (picture) picture = replaceWith(picture, HueKit_Smooth);
    if (picture) picture = replaceWith(picture, HueKit_Simplify);
    return picture;
}

FLR_FILTER(FLR_Glass) {
    (void)effect, (void)progress, (void)p1, (void)p2, (void)p3;
    if (!acceptable(source)) return nullptr;
    HGLOBAL frazzled = FLR_LineFilter(kFrazzle, source, kGlassProgress, 0, 0, 0);
    return frazzled ? replaceWith(frazzled, HueKit_Soften) : nullptr;
}

FLR_FILTER(ColorPencilFilter) {
    (void)effect, (void)progress, (void)p1, (void)p2, (void)p3;
    if (!acceptable(source)) return nullptr;
    HGLOBAL charcoal = FLR_LineFilter(kCharcoal, source, kFullProgress, 0, 0, 0);
    if (!charcoal) return nullptr;
    HGLOBAL mixed = BaseKit_MixPictures(source, charcoal, kHalfWeight);
    plat::globalFree(charcoal);
    return mixed;
}
