// Renderers and the render: the C call's buffers checked, then handed to the
// engine as views. The engine works in BGR; an RGB source is copied with its
// red and blue bytes exchanged into a working picture, and the output's are
// exchanged back in place, both in bands of rows on the renderer's threads.
#include <cstdint>
#include <cstring>
#include <memory>

#include "engine/flairize.h"
#include "libflairize/boundary.h"
#include "hostops/host_ops.h"
#include "hostops/threads.h"

struct flairize_renderer {
    unsigned threads = 1;
    flairize::HostServices host;
};

namespace {

constexpr unsigned kMaxThreads = 1024;
constexpr std::uint32_t kMaxSide = 65535;

struct Outcome {
    flairize_status status;
    const char* message;
};

// Red and blue exchanged over a row of `width` pixels, from one row into
// another that does not overlap it, or in place. Pixels are taken as 32-bit
// words (4 pixels of 3 bytes are 3 words) so that the loops run in vector
// registers; a big-endian machine takes them byte by byte.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr bool kLittleEndian = true;
#else
constexpr bool kLittleEndian = false;
#endif

inline std::uint32_t load32(const std::uint8_t* p) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}
inline void store32(std::uint8_t* p, std::uint32_t v) { std::memcpy(p, &v, 4); }

// One pixel of 4 bytes (blue or red lowest) with the other of the two lowest.
inline std::uint32_t swapped4(std::uint32_t v) { return (v & 0xFF00FF00u) | ((v >> 16) & 0xFFu) | ((v & 0xFFu) << 16); }

// Four pixels of 3 bytes in three words: b0 g0 r0 b1 | g1 r1 b2 g2 | r2 b3 g3 r3
// (lowest byte first) become r0 g0 b0 r1 | g1 b1 r2 g2 | b2 r3 g3 b3.
inline void swapped3x4(std::uint32_t& w0, std::uint32_t& w1, std::uint32_t& w2) {
    const std::uint32_t a = w0, b = w1, c = w2;
    w0 = ((a >> 16) & 0xFFu) | (a & 0xFF00u) | ((a & 0xFFu) << 16) | ((b & 0xFF00u) << 16);
    w1 = (b & 0xFFu) | ((a >> 16) & 0xFF00u) | ((c & 0xFFu) << 16) | (b & 0xFF000000u);
    w2 = ((b >> 16) & 0xFFu) | ((c >> 16) & 0xFF00u) | (c & 0xFF0000u) | ((c & 0xFF00u) << 16);
}

template <unsigned kBytes>
void swapRowBytewise(const std::uint8_t* from, std::uint8_t* to, unsigned first, unsigned width) {
    for (unsigned x = first; x < width; ++x) {
        const std::uint8_t* f = from + std::size_t(x) * kBytes;
        std::uint8_t* t = to + std::size_t(x) * kBytes;
        const std::uint8_t b = f[0], g = f[1], r = f[2];
        t[0] = r, t[1] = g, t[2] = b;
        if (kBytes == 4) t[3] = f[3];
    }
}

template <unsigned kBytes>
void swapRowCopy(const std::uint8_t* __restrict from, std::uint8_t* __restrict to, unsigned width) {
    unsigned done = 0;
    if (kLittleEndian && kBytes == 4) {
        for (; done < width; ++done)
            store32(to + 4 * std::size_t(done), swapped4(load32(from + 4 * std::size_t(done))));
    } else if (kLittleEndian) {
        for (; done + 4 <= width; done += 4) {
            const std::uint8_t* f = from + 3 * std::size_t(done);
            std::uint32_t w0 = load32(f), w1 = load32(f + 4), w2 = load32(f + 8);
            swapped3x4(w0, w1, w2);
            std::uint8_t* t = to + 3 * std::size_t(done);
            store32(t, w0), store32(t + 4, w1), store32(t + 8, w2);
        }
    }
    swapRowBytewise<kBytes>(from, to, done, width);
}

template <unsigned kBytes>
void swapRowInPlace(std::uint8_t* row, unsigned width) {
    unsigned done = 0;
    if (kLittleEndian && kBytes == 4) {
        for (; done < width; ++done)
            store32(row + 4 * std::size_t(done), swapped4(load32(row + 4 * std::size_t(done))));
    } else if (kLittleEndian) {
        for (; done + 4 <= width; done += 4) {
            std::uint8_t* p = row + 3 * std::size_t(done);
            std::uint32_t w0 = load32(p), w1 = load32(p + 4), w2 = load32(p + 8);
            swapped3x4(w0, w1, w2);
            store32(p, w0), store32(p + 4, w1), store32(p + 8, w2);
        }
    }
    swapRowBytewise<kBytes>(row, row, done, width);
}

// One pass over a picture's rows: `from` rows swapped into `to` rows.
struct SwapPass {
    const std::uint8_t* from;
    std::ptrdiff_t fromStride;
    std::uint8_t* to;
    std::ptrdiff_t toStride;
    unsigned width, bytesPerPixel;
};

void swapBand(void* context, unsigned begin, unsigned end) {
    const SwapPass& p = *static_cast<const SwapPass*>(context);
    for (unsigned y = begin; y < end; ++y) {
        const std::uint8_t* from = p.from + std::ptrdiff_t(y) * p.fromStride;
        std::uint8_t* to = p.to + std::ptrdiff_t(y) * p.toStride;
        if (from == to)
            p.bytesPerPixel == 4 ? swapRowInPlace<4>(to, p.width) : swapRowInPlace<3>(to, p.width);
        else
            p.bytesPerPixel == 4 ? swapRowCopy<4>(from, to, p.width) : swapRowCopy<3>(from, to, p.width);
    }
}

// Runs the pass in bands on the renderer's threads, or in one on this one.
void runSwap(const flairize::HostServices& host, unsigned height, SwapPass pass) {
    if (host.parallel)
        host.parallel(host.user, height, swapBand, &pass);
    else
        swapBand(&pass, 0, height);
}

// The first and one-past-last address a buffer's rows cover; false when they do
// not fit the address space.
bool spanOf(const void* top, std::ptrdiff_t stride, std::uint32_t height, std::size_t rowBytes, std::uintptr_t& lo,
            std::uintptr_t& hi) {
    const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(top);
    const std::uintptr_t distance = stride < 0 ? std::uintptr_t(0) - std::uintptr_t(stride) : std::uintptr_t(stride);
    const std::uintptr_t rows = height - 1;
    const std::uintptr_t limit = ~std::uintptr_t(0);
    if (rows && distance > (limit - rowBytes) / rows) return false;
    const std::uintptr_t reach = rows * distance;
    if (stride < 0) {
        if (start < reach || start > limit - rowBytes) return false;
        lo = start - reach;
        hi = start + rowBytes;
    } else {
        if (start > limit - rowBytes - reach) return false;
        lo = start;
        hi = start + reach + rowBytes;
    }
    return true;
}

Outcome outcomeOf(const flairize::Result& r) {
    switch (r.status) {
        case flairize::Status::Ok:
            return {FLAIRIZE_OK, ""};
        case flairize::Status::Refused:
            return {FLAIRIZE_ERROR_REFUSED, "the engine refused the picture"};
        case flairize::Status::OutOfMemory:
            return {FLAIRIZE_ERROR_OUT_OF_MEMORY, "not enough memory for the effect's working pictures"};
        case flairize::Status::MixFailed:
            return {FLAIRIZE_ERROR_OUT_OF_MEMORY, "not enough memory to blend the effect with the source"};
    }
    return {FLAIRIZE_ERROR_INTERNAL, "the engine gave an unknown status"};
}

Outcome renderChecked(const flairize::HostServices& host, const flairize_settings* settings, const void* source,
                      std::ptrdiff_t sourceStride, void* output, std::ptrdiff_t outputStride, std::uint32_t width,
                      std::uint32_t height, std::uint32_t bytesPerPixel, int order) {
    if (!settings) return {FLAIRIZE_ERROR_NULL, "settings is null"};
    if (!source) return {FLAIRIZE_ERROR_NULL, "source is null"};
    if (!output) return {FLAIRIZE_ERROR_NULL, "output is null"};
    if (width == 0 || height == 0) return {FLAIRIZE_ERROR_SIZE, "the picture has no pixels (width or height 0)"};
    if (width > kMaxSide || height > kMaxSide) return {FLAIRIZE_ERROR_SIZE, "width or height is more than 65535"};
    if (bytesPerPixel != 3 && bytesPerPixel != 4) return {FLAIRIZE_ERROR_FORMAT, "bytes per pixel must be 3 or 4"};
    if (order != FLAIRIZE_ORDER_BGR && order != FLAIRIZE_ORDER_RGB)
        return {FLAIRIZE_ERROR_FORMAT, "unknown channel order (FLAIRIZE_ORDER_BGR or FLAIRIZE_ORDER_RGB)"};
    const std::size_t rowBytes = std::size_t(width) * bytesPerPixel;
    auto tooSmall = [&](std::ptrdiff_t stride) {
        return (stride < 0 ? std::size_t(0) - std::size_t(stride) : std::size_t(stride)) < rowBytes;
    };
    if (tooSmall(sourceStride)) return {FLAIRIZE_ERROR_STRIDE, "the source's stride is smaller than a row's bytes"};
    if (tooSmall(outputStride)) return {FLAIRIZE_ERROR_STRIDE, "the output's stride is smaller than a row's bytes"};
    std::uintptr_t sourceLo, sourceHi, outputLo, outputHi;
    if (!spanOf(source, sourceStride, height, rowBytes, sourceLo, sourceHi) ||
        !spanOf(output, outputStride, height, rowBytes, outputLo, outputHi))
        return {FLAIRIZE_ERROR_ARGUMENT, "a buffer's rows run past the end of the address space"};
    if (sourceLo < outputHi && outputLo < sourceHi) return {FLAIRIZE_ERROR_ARGUMENT, "source and output overlap"};
    if (settings->effect >= flairize::effectCount())
        return {FLAIRIZE_ERROR_EFFECT, "the effect index is outside the catalogue"};
    if (settings->mix != FLAIRIZE_MIX_FULL && settings->mix != FLAIRIZE_MIX_FILTER)
        return {FLAIRIZE_ERROR_ARGUMENT, "unknown mix (FLAIRIZE_MIX_FULL or FLAIRIZE_MIX_FILTER)"};

    flairize::Settings s;
    s.effect = static_cast<std::uint16_t>(settings->effect);
    for (int k = 0; k < 3; ++k)
        s.sliders[k] = static_cast<std::uint16_t>(settings->sliders[k] > 255 ? 255 : settings->sliders[k]);
    s.colour = libflairize::swapRedBlue(settings->colour & 0xFFFFFFu);
    s.progress = settings->progress;
    const flairize::Mix mix = settings->mix == FLAIRIZE_MIX_FILTER ? flairize::Mix::None : flairize::Mix::Always;
    const auto bytes = static_cast<std::uint8_t>(bytesPerPixel);
    const auto w = static_cast<std::uint16_t>(width), h = static_cast<std::uint16_t>(height);
    const flairize::PictureView out{static_cast<std::uint8_t*>(output), outputStride, w, h, bytes};
    const auto* in = static_cast<const std::uint8_t*>(source);
    if (order == FLAIRIZE_ORDER_BGR)
        return outcomeOf(
            flairize::renderInto(host, {const_cast<std::uint8_t*>(in), sourceStride, w, h, bytes}, s, mix, out));

    // RGB: the engine reads any row of its source, so the source is turned
    // into BGR whole first; the output is turned back as the last step.
    if (std::uint64_t(rowBytes) * height > SIZE_MAX) return {FLAIRIZE_ERROR_OUT_OF_MEMORY, "the picture is too large"};
    std::unique_ptr<std::uint8_t[]> working(new (std::nothrow) std::uint8_t[rowBytes * height]);
    if (!working) return {FLAIRIZE_ERROR_OUT_OF_MEMORY, "not enough memory for the BGR copy of the source"};
    const auto stride = static_cast<std::ptrdiff_t>(rowBytes);
    runSwap(host, height, {in, sourceStride, working.get(), stride, width, bytesPerPixel});
    const Outcome rendered = outcomeOf(flairize::renderInto(host, {working.get(), stride, w, h, bytes}, s, mix, out));
    if (rendered.status != FLAIRIZE_OK) return rendered;
    auto* o = static_cast<std::uint8_t*>(output);
    runSwap(host, height, {o, outputStride, o, outputStride, width, bytesPerPixel});
    return rendered;
}

}  // namespace

extern "C" {

flairize_status flairize_renderer_new(unsigned threads, flairize_renderer** renderer) {
    if (!renderer) return FLAIRIZE_ERROR_NULL;
    if (threads > kMaxThreads) return FLAIRIZE_ERROR_ARGUMENT;
    return libflairize::guarded([&] {
        std::unique_ptr<flairize_renderer> made(new flairize_renderer);
        made->threads = threads ? threads : hostops::availableThreads();
        made->host = hostops::threadedServices(made->threads);
        *renderer = made.release();
        return FLAIRIZE_OK;
    });
}

void flairize_renderer_free(flairize_renderer* renderer) { delete renderer; }

unsigned flairize_renderer_threads(const flairize_renderer* renderer) { return renderer ? renderer->threads : 1; }

flairize_status flairize_render(const flairize_renderer* renderer, const flairize_settings* settings,
                                const void* source, ptrdiff_t source_stride, void* output, ptrdiff_t output_stride,
                                uint32_t width, uint32_t height, uint32_t bytes_per_pixel, flairize_channel_order order,
                                const char** message) {
    Outcome outcome{FLAIRIZE_OK, ""};
    bool returned = false;
    const flairize_status status = libflairize::guarded([&] {
        outcome = renderChecked(renderer ? renderer->host : hostops::services(), settings, source, source_stride,
                                output, output_stride, width, height, bytes_per_pixel, libflairize::passedValue(order));
        returned = true;
        return outcome.status;
    });
    if (!returned)
        outcome = {status, status == FLAIRIZE_ERROR_OUT_OF_MEMORY ? "not enough memory for the render"
                                                                  : "an unexpected failure inside the library"};
    if (message) *message = outcome.message;
    return status;
}

}  // extern "C"
