// The stand-alone host's context: the byte structure the engine reads, followed
// by what this host needs to answer the engine's requests.
#pragma once

#include <cstdint>

#include "host/settings_record.h"
#include "hostapi/host_context.h"
#include "platform/win_types.h"

namespace standalone {

struct Context {
    alignas(8) unsigned char bytes[160] = {};   // must stay first: the engine sees &bytes
    HGLOBAL source = nullptr;                     // the picture of the current frame

    // One slot (0) holding `record`, at host position `position`.
    Context(SettingsRecord* record, HGLOBAL picture, std::uint32_t position = 16384, std::int8_t speed = 0) {
        source = picture;
        hostctx::setSlot(bytes, 0);
        hostctx::setRecord(bytes, 0, record);
        hostctx::setCurrentPosition(bytes, position);
        hostctx::setSpeed(bytes, 0, speed);
        hostctx::setSlotPosition(bytes, 0, -1);
    }
    void* engineView() { return this; }
};
static_assert(offsetof(Context, bytes) == 0, "the context bytes come first");

// The row tick drives progress reporting on long renders; one handler per thread.
using RowTickHandler = void (*)(void* user);
void setRowTickHandler(RowTickHandler handler, void* user);

// Counters kept for tests and reporting.
struct OperationCounts {
    long rowTicks = 0;
    long busyBegin = 0;
    long busyEnd = 0;
    long mixes = 0;
};
OperationCounts& operationCounts();   // this thread's

}  // namespace standalone

namespace standalone {
// Keeps freed picture memory in the process heap, so rendering frame after
// frame does not fault fresh pages in for every picture.
void keepPictureMemory();
}  // namespace standalone
