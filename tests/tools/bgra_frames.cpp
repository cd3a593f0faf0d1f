// Raw 32-bit frames (bytes blue, green, red, alpha; top row first; no row
// padding), as video tools write them, to and from 32-bit BMP files, for the
// frei0r host integration tests. Deliberately independent of the engine's own
// picture code.
//
//   bgra_frames tobmp   W H FRAMES.raw PREFIX       writes PREFIX<i>.bmp per frame
//   bgra_frames compare W H FRAMES.raw I PICTURE.bmp frame I against a 32-bit BMP
//
// Exit status: 0 done / equal, 1 different, 2 bad arguments or files.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

[[noreturn]] void fail(const std::string& message) {
    std::fprintf(stderr, "bgra_frames: %s\n", message.c_str());
    std::exit(2);
}

Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail(path + ": cannot open");
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A decimal number below `limit`.
std::size_t number(const std::string& text, std::size_t limit) {
    char* end = nullptr;
    const unsigned long v = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end || v >= limit) fail("bad number \"" + text + "\"");
    return v;
}

std::size_t width, height, frameBytes;   // from W and H

// All frames of a raw file, and frame `index` (a decimal string) of it.
Bytes frames(const std::string& path) {
    Bytes data = readFile(path);
    if (data.size() % frameBytes) fail(path + ": not a whole number of frames");
    return data;
}
Bytes frame(const std::string& path, const std::string& index) {
    const Bytes all = frames(path);
    const std::size_t i = number(index, all.size() / frameBytes);
    return Bytes(all.begin() + long(i * frameBytes), all.begin() + long((i + 1) * frameBytes));
}

std::uint32_t read32(const Bytes& b, std::size_t at) {
    return std::uint32_t(b[at]) | std::uint32_t(b[at + 1]) << 8 | std::uint32_t(b[at + 2]) << 16 |
           std::uint32_t(b[at + 3]) << 24;
}

// A 32-bit BMP: 14-byte file header, 40-byte info header, rows bottom-up.
Bytes bmpOf(const std::uint8_t* pixels) {
    Bytes b{'B', 'M'};
    auto put = [&b](std::uint32_t v, int bytes) {
        for (int k = 0; k < bytes; ++k) b.push_back(std::uint8_t(v >> (8 * k)));
    };
    put(54 + std::uint32_t(frameBytes), 4), put(0, 4), put(54, 4), put(40, 4);
    put(std::uint32_t(width), 4), put(std::uint32_t(height), 4), put(1, 2), put(32, 2);
    put(0, 4), put(std::uint32_t(frameBytes), 4), put(2835, 4), put(2835, 4), put(0, 4), put(0, 4);
    for (std::size_t r = height; r-- > 0;) b.insert(b.end(), pixels + r * width * 4, pixels + (r + 1) * width * 4);
    return b;
}

// The pixels of an uncompressed 32-bit BMP of W x H, top row first.
Bytes bmpPixels(const std::string& path) {
    const Bytes bmp = readFile(path);
    if (bmp.size() < 54 || bmp[0] != 'B' || bmp[1] != 'M') fail(path + ": not a BMP file");
    const std::uint32_t offset = read32(bmp, 10);
    if ((read32(bmp, 28) & 0xFFFF) != 32 || read32(bmp, 30) != 0) fail(path + ": not an uncompressed 32-bit BMP");
    if (read32(bmp, 18) != width || read32(bmp, 22) != height)
        fail(path + ": not a bottom-up picture of the frames' size");
    if (offset > bmp.size() || bmp.size() - offset < frameBytes) fail(path + ": pixels cut short");
    Bytes out;
    for (std::size_t r = height; r-- > 0;) {
        const auto row = bmp.begin() + long(offset + r * width * 4);
        out.insert(out.end(), row, row + long(width * 4));
    }
    return out;
}

// 0 when equal; otherwise names the first differing pixel (x, y from the top).
int compare(const Bytes& a, const Bytes& b, const std::string& what) {
    for (std::size_t k = 0; k < frameBytes; ++k) {
        if (a[k] == b[k]) continue;
        const std::size_t at = k / 4 * 4;
        std::fprintf(stderr, "%s: first difference at x=%zu y=%zu (from the top): bgra %u,%u,%u,%u vs %u,%u,%u,%u\n",
                     what.c_str(), at / 4 % width, at / 4 / width, a[at], a[at + 1], a[at + 2], a[at + 3], b[at],
                     b[at + 1], b[at + 2], b[at + 3]);
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arg(argv + 1, argv + argc);
    if (arg.size() >= 5) width = number(arg[1], 65536), height = number(arg[2], 65536), frameBytes = width * height * 4;
    if (!frameBytes) {
    } else if (arg[0] == "tobmp" && arg.size() == 5) {
        const Bytes all = frames(arg[3]);
        for (std::size_t i = 0; i < all.size() / frameBytes; ++i) {
            const Bytes bmp = bmpOf(all.data() + i * frameBytes);
            std::ofstream out(arg[4] + std::to_string(i) + ".bmp", std::ios::binary);
            if (!out.write(reinterpret_cast<const char*>(bmp.data()), std::streamsize(bmp.size())))
                fail(arg[4] + ": cannot write");
        }
        return 0;
    } else if (arg[0] == "compare" && arg.size() == 6) {
        return compare(frame(arg[3], arg[4]), bmpPixels(arg[5]), arg[3] + " frame " + arg[4] + " vs " + arg[5]);
    }
    std::fprintf(stderr, "usage: bgra_frames tobmp W H FRAMES.raw PREFIX\n"
                         "       bgra_frames compare W H FRAMES.raw I PICTURE.bmp\n");
    return 2;
}
