// Frame timing: the sequence position becomes the effect's progress, bent by
// the slot's speed curve and mapped through the record's direction.
#include <cmath>

#include "host/exports.h"
#include "host/curve_pow.h"
#include "host/frame_timing.h"
#include "hostapi/host_context.h"

namespace timing {

std::uint32_t speedCurve(std::uint32_t p, std::int8_t speed) {
    if (speed == 0) return p;
    const double s = speed;
    const double e = speed < 0 ? 1.0 + s * 0.008 : 1.0 + (s * 0.01) * 4.0;
    const double v = curvePow(p * 6.103515625e-05, e) * 16384.0;
    // Speeds below -124 make position 0 infinite; such values saturate.
    if (!(v >= 0.0)) return 0;
    if (v >= 4294967295.0) return 0xFFFFFFFFu;
    return static_cast<std::uint32_t>(v);
}

std::uint32_t applyDirection(std::uint32_t p, std::uint32_t direction) {
    switch (direction & 3) {
    case 0: return 16384u - p;
    case 1: return p <= 8192u ? 2u * p : 2u * (16384u - p);
    case 2: return p;
    default: return p <= 8192u ? 2u * (8192u - p) : 2u * p - 16384u;
    }
}

}  // namespace timing

extern "C" std::uint32_t FLR_STDCALL SetupFrame(void* hostContext, std::uint32_t) {
    const std::uint16_t slot = hostctx::slot(hostContext);
    SettingsRecord* record = hostctx::record(hostContext, slot);
    const std::int32_t position = hostctx::slotPosition(hostContext, slot);
    std::uint32_t p = position == -1 ? hostctx::currentPosition(hostContext) : std::uint32_t(position);
    record->progress = p;
    p = timing::speedCurve(p, hostctx::speed(hostContext, slot));
    record->progress = timing::applyDirection(p, record->direction);
    return 1;
}
