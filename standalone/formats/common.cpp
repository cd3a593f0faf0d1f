#include "standalone/formats/common.h"

#include <cerrno>

#include <unistd.h>

namespace pictures {

bool writeAll(int fd, const void* data, std::size_t size, std::string& error) {
    const auto* p = static_cast<const unsigned char*>(data);
    while (size) {
        ssize_t n = ::write(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            error = std::strerror(errno ? errno : EIO);
            return false;
        }
        p += n;
        size -= std::size_t(n);
    }
    return true;
}

Rows rowsOf(const dib::Source& pic) {
    const dib::Layout& l = pic.layout();
    Rows r;
    if (l.bitCount != 8) {
        r.top = pic.row(l.height - 1u);
        r.down = -pic.step();
        r.channels = l.bitCount / 8;
        return r;
    }
    const std::size_t stride = std::size_t(l.width) * 3;
    r.expanded.resize(stride * l.height);
    for (std::uint32_t y = 0; y < l.height; ++y) {
        const unsigned char* in = pic.row(l.height - 1 - y);
        unsigned char* o = r.expanded.data() + y * stride;
        for (std::uint32_t x = 0; x < l.width; ++x) std::memcpy(o + 3 * x, pic.colourTable() + 4 * in[x], 3);
    }
    r.top = r.expanded.data();
    r.down = std::ptrdiff_t(stride);
    return r;
}

}  // namespace pictures
