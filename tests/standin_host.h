// Stand-ins for the compositing host: a host context laid out as the host lays
// it out, and a log of the calls the plug-in makes into the host's libraries
// (tests/standin_host.cpp). The plug-in's Linux tests and the Wine test host use them.
#pragma once

#include <cstdint>
#include <cstring>

#include "engine/settings_record.h"
#include "host/host_context.h"
#include "platform/win_types.h"

struct StandInLog {
    long busyBegin, busyEnd, rowTicks, mixes, sourceRequests;
    long beforeEditor, afterEditor, beforeHelp, moves;
    long palettesMade, previewRenders, previewSetupA, previewSetupB;
    void* icon;
    char name[128];
};

#ifdef _WIN32
extern "C" __declspec(dllexport) StandInLog* StandIn_Log();
#else
extern "C" StandInLog* StandIn_Log();
#endif

// The host's context for one slot (0) holding `record`, followed by the
// picture the stand-in ANIMKIT hands out as the frame's source.
struct TestHostContext {
    alignas(8) unsigned char bytes[160] = {};   // first: the plug-in reads these
    HGLOBAL source = nullptr;

    TestHostContext(SettingsRecord* record, HGLOBAL picture, std::uint32_t position = 16384, std::int8_t speed = 0)
        : source(picture) {
        setRecord(0, record);
        setCurrentPosition(position);
        setSpeed(0, speed);
        setSlotPosition(0, -1);
    }
    template <typename T>
    void writeAt(std::size_t offset, T value) {
        std::memcpy(bytes + offset, &value, sizeof value);
    }
    void setSlot(std::uint16_t s) { writeAt(hostctx::kSlotOffset, s); }
    void setRecord(std::uint16_t s, SettingsRecord* r) { writeAt(hostctx::kRecordTableOffset + hostctx::kRecordStride * s, r); }
    void setCurrentPosition(std::uint32_t p) { writeAt(hostctx::kCurrentPositionOffset, p); }
    void setSpeed(std::uint16_t s, std::int8_t v) { writeAt(hostctx::kSpeedOffset + s, v); }
    void setSlotPosition(std::uint16_t s, std::int32_t p) { writeAt(hostctx::kSlotPositionOffset + 4u * s, p); }
};
