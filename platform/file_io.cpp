#include "platform/file_io.h"

#ifndef _WIN32
#include <cerrno>
#include <unistd.h>
#endif

namespace plat {

#ifdef _WIN32

std::size_t fileRead(FileHandle file, void* buffer, std::size_t size) {
    UINT n = _lread(file, buffer, static_cast<UINT>(size));
    return n == static_cast<UINT>(HFILE_ERROR) ? 0 : n;
}

std::size_t fileWrite(FileHandle file, const void* buffer, std::size_t size) {
    UINT n = _lwrite(file, static_cast<LPCCH>(buffer), static_cast<UINT>(size));
    return n == static_cast<UINT>(HFILE_ERROR) ? 0 : n;
}

#else

std::size_t fileRead(FileHandle file, void* buffer, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t n = ::read(file, static_cast<char*>(buffer) + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
    }
    return done;
}

std::size_t fileWrite(FileHandle file, const void* buffer, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t n = ::write(file, static_cast<const char*>(buffer) + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
    }
    return done;
}

#endif

}  // namespace plat
