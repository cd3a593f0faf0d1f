// Raw 32-bit frames (bytes blue, green, red, alpha; top row first; no row
// padding), as video tools write them, to and from 32-bit BMP files, for the
// frei0r host integration tests. Deliberately independent of the engine's own
// picture code.
//
//   bgra_frames tobmp   W H FRAMES.raw PREFIX       writes PREFIX<i>.bmp per frame
//   bgra_frames compare W H FRAMES.raw I PICTURE.bmp frame I against a 32-bit BMP
//   bgra_frames same    W H A.raw I B.raw J          frame I of A against frame J of B
//
// Exit status: 0 done / equal, 1 different, 2 bad arguments or files.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

void writeFile(const std::string& path, const Bytes& data) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
    if (!out) fail(path + ": cannot write");
}

unsigned long number(const char* text) {
    char* end = nullptr;
    const unsigned long v = std::strtoul(text, &end, 10);
    if (!*text || *end || v == 0 || v > 65535) fail(std::string("bad number \"") + text + "\"");
    return v;
}

std::uint32_t read32(const Bytes& b, std::size_t at) {
    return std::uint32_t(b[at]) | std::uint32_t(b[at + 1]) << 8 | std::uint32_t(b[at + 2]) << 16 |
           std::uint32_t(b[at + 3]) << 24;
}
void put16(Bytes& b, std::uint32_t v) {
    b.push_back(std::uint8_t(v));
    b.push_back(std::uint8_t(v >> 8));
}
void put32(Bytes& b, std::uint32_t v) {
    put16(b, v & 0xFFFF);
    put16(b, v >> 16);
}

struct Frames {
    std::size_t width, height;
    Bytes data;
    std::size_t count() const { return data.size() / (width * height * 4); }
    // Row r (0 = top) of frame i.
    const std::uint8_t* row(std::size_t i, std::size_t r) const {
        return data.data() + (i * height + r) * width * 4;
    }
};

Frames loadFrames(const char* w, const char* h, const std::string& path) {
    Frames f{number(w), number(h), readFile(path)};
    if (f.data.size() % (f.width * f.height * 4) != 0) fail(path + ": not a whole number of frames");
    return f;
}

std::size_t frameIndex(const Frames& f, const char* text, const std::string& path) {
    char* end = nullptr;
    const unsigned long i = std::strtoul(text, &end, 10);
    if (!*text || *end || i >= f.count()) fail(path + ": no frame " + text);
    return i;
}

// A 32-bit BMP: 14-byte file header, 40-byte info header, rows bottom-up.
Bytes bmpOf(const Frames& f, std::size_t i) {
    const std::uint32_t image = std::uint32_t(f.width * f.height * 4);
    Bytes b;
    b.push_back('B');
    b.push_back('M');
    put32(b, 54 + image);
    put32(b, 0);
    put32(b, 54);
    put32(b, 40);
    put32(b, std::uint32_t(f.width));
    put32(b, std::uint32_t(f.height));
    put16(b, 1);
    put16(b, 32);
    put32(b, 0);   // uncompressed
    put32(b, image);
    put32(b, 2835);
    put32(b, 2835);
    put32(b, 0);
    put32(b, 0);
    for (std::size_t r = f.height; r-- > 0;) b.insert(b.end(), f.row(i, r), f.row(i, r) + f.width * 4);
    return b;
}

// The rows of a 32-bit uncompressed BMP, top row first.
Bytes topDownPixels(const Bytes& bmp, const Frames& f, const std::string& path) {
    if (bmp.size() < 54 || bmp[0] != 'B' || bmp[1] != 'M') fail(path + ": not a BMP file");
    const std::uint32_t offset = read32(bmp, 10);
    const std::int32_t width = std::int32_t(read32(bmp, 18)), height = std::int32_t(read32(bmp, 22));
    const std::uint32_t bits = read32(bmp, 28) & 0xFFFF, compression = read32(bmp, 30);
    if (bits != 32 || compression != 0) fail(path + ": not an uncompressed 32-bit BMP");
    const std::size_t rows = std::size_t(height < 0 ? -std::int64_t(height) : height);
    if (std::size_t(width) != f.width || rows != f.height)
        fail(path + ": size " + std::to_string(width) + "x" + std::to_string(rows) + " differs from the frames");
    const std::size_t rowBytes = f.width * 4;
    if (offset > bmp.size() || bmp.size() - offset < rowBytes * rows) fail(path + ": pixels cut short");
    Bytes out;
    for (std::size_t r = 0; r < rows; ++r) {
        const std::size_t stored = height < 0 ? r : rows - 1 - r;
        const std::uint8_t* p = bmp.data() + offset + stored * rowBytes;
        out.insert(out.end(), p, p + rowBytes);
    }
    return out;
}

// 0 when equal; otherwise names the first differing pixel (x, y from the top).
int compareRows(const Frames& f, const std::uint8_t* a, const std::uint8_t* b, const std::string& what) {
    const std::size_t n = f.width * f.height * 4;
    for (std::size_t k = 0; k < n; ++k) {
        if (a[k] == b[k]) continue;
        const std::size_t pixel = k / 4, x = pixel % f.width, y = pixel / f.width;
        const std::uint8_t* p = a + pixel * 4;
        const std::uint8_t* q = b + pixel * 4;
        std::fprintf(stderr, "%s: first difference at x=%zu y=%zu (from the top): bgra %u,%u,%u,%u vs %u,%u,%u,%u\n",
                     what.c_str(), x, y, p[0], p[1], p[2], p[3], q[0], q[1], q[2], q[3]);
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "tobmp" && argc == 6) {
        const Frames f = loadFrames(argv[2], argv[3], argv[4]);
        for (std::size_t i = 0; i < f.count(); ++i) writeFile(argv[5] + std::to_string(i) + ".bmp", bmpOf(f, i));
        std::printf("%zu\n", f.count());
        return 0;
    }
    if (command == "compare" && argc == 7) {
        const Frames f = loadFrames(argv[2], argv[3], argv[4]);
        const std::size_t i = frameIndex(f, argv[5], argv[4]);
        const Bytes picture = topDownPixels(readFile(argv[6]), f, argv[6]);
        return compareRows(f, f.row(i, 0), picture.data(),
                           std::string(argv[4]) + " frame " + argv[5] + " vs " + argv[6]);
    }
    if (command == "same" && argc == 8) {
        const Frames a = loadFrames(argv[2], argv[3], argv[4]);
        const Frames b = loadFrames(argv[2], argv[3], argv[6]);
        const std::size_t i = frameIndex(a, argv[5], argv[4]), j = frameIndex(b, argv[7], argv[6]);
        return compareRows(a, a.row(i, 0), b.row(j, 0),
                           std::string(argv[4]) + " frame " + argv[5] + " vs " + argv[6] + " frame " + argv[7]);
    }
    std::fprintf(stderr,
                 "usage: bgra_frames tobmp W H FRAMES.raw PREFIX\n"
                 "       bgra_frames compare W H FRAMES.raw I PICTURE.bmp\n"
                 "       bgra_frames same W H A.raw I B.raw J\n");
    return 2;
}
