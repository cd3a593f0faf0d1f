// The host context: a structure owned by the host. The plug-in reads a few fields
// at fixed byte offsets and writes none; these accessors are the only readers.
#pragma once

#include <cstdint>
#include <cstring>

#include "engine/settings_record.h"

namespace hostctx {

constexpr std::size_t kSlotOffset = 36;          // u16 current slot
constexpr std::size_t kRecordTableOffset = 50;   // record pointer, 16 bytes per slot
constexpr std::size_t kRecordStride = 16;
constexpr std::size_t kCurrentPositionOffset = 86;  // u32
constexpr std::size_t kSpeedOffset = 97;         // i8 per slot
constexpr std::size_t kSlotPositionOffset = 100; // i32 per slot, -1 = none
constexpr std::size_t kInputRecordOffset = 8;    // pointer to slot 0's input record
constexpr std::size_t kInputFlagsOffset = 44;    // flag byte in that input record

template <typename T>
inline T readAt(const void* ctx, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const unsigned char*>(ctx) + offset, sizeof value);
    return value;
}

inline std::uint16_t slot(const void* ctx) { return readAt<std::uint16_t>(ctx, kSlotOffset); }

inline SettingsRecord* record(const void* ctx, std::uint16_t slotIndex) {
    return readAt<SettingsRecord*>(ctx, kRecordTableOffset + kRecordStride * slotIndex);
}
inline SettingsRecord* currentRecord(const void* ctx) { return record(ctx, slot(ctx)); }

inline std::uint32_t currentPosition(const void* ctx) {
    return readAt<std::uint32_t>(ctx, kCurrentPositionOffset);
}
inline std::int8_t speed(const void* ctx, std::uint16_t slotIndex) {
    return readAt<std::int8_t>(ctx, kSpeedOffset + slotIndex);
}
inline std::int32_t slotPosition(const void* ctx, std::uint16_t slotIndex) {
    return readAt<std::int32_t>(ctx, kSlotPositionOffset + 4u * slotIndex);
}
// Bit 3 of slot 0's input flags: the source picture changes with the position.
inline bool inputFollowsPosition(const void* ctx) {
    const auto* input = readAt<const unsigned char*>(ctx, kInputRecordOffset);
    return input && (input[kInputFlagsOffset] & 8) != 0;
}

}  // namespace hostctx
