// The edge between the C interface and the C++ engine: nothing thrown inside
// crosses it; every exception becomes a status.
#pragma once

#include <flairize/flairize.h>

#include <cstdint>
#include <cstring>
#include <new>

namespace libflairize {

// Runs body() (which returns a flairize_status) and turns what it throws into
// FLAIRIZE_ERROR_OUT_OF_MEMORY or FLAIRIZE_ERROR_INTERNAL.
template <class Body>
flairize_status guarded(const Body& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return FLAIRIZE_ERROR_OUT_OF_MEMORY;
    } catch (...) {
        return FLAIRIZE_ERROR_INTERNAL;
    }
}

// The same for functions that give a value: `failed` when body() throws.
template <class Value, class Body>
Value guardedValue(Value failed, const Body& body) noexcept {
    try {
        return body();
    } catch (...) {
        return failed;
    }
}

// The value a C caller passed for an enumeration. C takes any int there, but in
// C++ a value outside the enumeration's range may not be read as the
// enumeration itself: its bytes are read as an int instead.
template <class Enum>
int passedValue(const Enum& value) {
    static_assert(sizeof(Enum) == sizeof(int), "the header's enumerations are as wide as an int");
    int raw;
    std::memcpy(&raw, &value, sizeof raw);
    return raw;
}

// 0xRRGGBB to the engine's COLORREF (red in the lowest byte) and back: the
// first and third bytes exchanged, the top byte kept.
constexpr std::uint32_t swapRedBlue(std::uint32_t c) {
    return (c & 0xFF00FF00u) | ((c >> 16) & 0xFFu) | ((c & 0xFFu) << 16);
}

}  // namespace libflairize
