// SHA-256 of a byte range as 64 lower-case hex digits: Nettle on Linux, the
// system's BCrypt on Windows.
#pragma once

#include <cstddef>
#include <string>

namespace conformance {

std::string sha256Hex(const void* data, std::size_t size);

}  // namespace conformance
