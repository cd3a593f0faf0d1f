// SetupFrame: the slot's position, bent by its speed curve and mapped through the
// record's direction, becomes the progress the record renders with.
#include "engine/flairize.h"
#include "host/exports.h"
#include "host/host_context.h"

extern "C" std::uint32_t FLR_STDCALL SetupFrame(void* hostContext, std::uint32_t) {
    const std::uint16_t slot = hostctx::slot(hostContext);
    SettingsRecord* record = hostctx::record(hostContext, slot);
    const std::int32_t position = hostctx::slotPosition(hostContext, slot);
    const std::uint32_t p = position == -1 ? hostctx::currentPosition(hostContext) : std::uint32_t(position);
    record->progress = p;
    record->progress = flairize::frameProgress(p, hostctx::speed(hostContext, slot), record->direction);
    return 1;
}
