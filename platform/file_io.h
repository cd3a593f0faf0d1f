// File transfer on a file the host opened and positioned: HFILE with
// _lread/_lwrite on Windows, a file descriptor elsewhere.
#pragma once

#include <cstddef>

#ifdef _WIN32
#include "platform/win_types.h"
#endif

namespace plat {

#ifdef _WIN32
using FileHandle = HFILE;
#else
using FileHandle = int;
#endif

// Each returns the number of bytes moved; fewer than asked means end of file or error.
std::size_t fileRead(FileHandle file, void* buffer, std::size_t size);
std::size_t fileWrite(FileHandle file, const void* buffer, std::size_t size);

}  // namespace plat
