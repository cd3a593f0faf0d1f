// Renderers and the render: the C call's buffers checked, then handed to the
// engine as views. The engine works in BGR; an RGB source is copied with its
// red and blue bytes exchanged into a working picture, and the output's are
// exchanged back in place, both in bands of rows on the renderer's threads.
#include <cstdint>
#include <cstring>
#include <memory>

#include "engine/flairize.h"
#include "libflairize/boundary.h"
#include "platform/host_ops.h"
#include "platform/threads.h"

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

// Exchanges the first and third byte of every pixel of a row from `from` into
// `to`, which may be the same row (never a partly overlapping one).
template <unsigned kBytes>
void swapRedBlueRow(const std::uint8_t* from, std::uint8_t* to, unsigned width) {
    for (unsigned x = 0; x < width; ++x, from += kBytes, to += kBytes) {
        const std::uint8_t first = from[0], third = from[2];
        to[0] = third;
        to[2] = first;
        if (from != to) {
            to[1] = from[1];
            if (kBytes == 4) to[3] = from[3];
        }
    }
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
        if (p.bytesPerPixel == 4)
            swapRedBlueRow<4>(from, to, p.width);
        else
            swapRedBlueRow<3>(from, to, p.width);
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
    case flairize::Status::Ok: return {FLAIRIZE_OK, ""};
    case flairize::Status::Refused: return {FLAIRIZE_ERROR_REFUSED, "the engine refused the picture"};
    case flairize::Status::OutOfMemory:
        return {FLAIRIZE_ERROR_OUT_OF_MEMORY, "not enough memory for the effect's working pictures"};
    case flairize::Status::MixFailed:
        return {FLAIRIZE_ERROR_OUT_OF_MEMORY, "not enough memory to blend the effect with the source"};
    }
    return {FLAIRIZE_ERROR_INTERNAL, "the engine gave an unknown status"};
}

Outcome renderChecked(const flairize::HostServices& host, const flairize_settings* settings, const void* source,
                      std::ptrdiff_t sourceStride, void* output, std::ptrdiff_t outputStride, std::uint32_t width,
                      std::uint32_t height, std::uint32_t bytesPerPixel, flairize_channel_order order) {
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
                                uint32_t width, uint32_t height, uint32_t bytes_per_pixel,
                                flairize_channel_order order, const char** message) {
    Outcome outcome{FLAIRIZE_OK, ""};
    bool returned = false;
    const flairize_status status = libflairize::guarded([&] {
        outcome = renderChecked(renderer ? renderer->host : hostops::services(), settings, source, source_stride,
                                output, output_stride, width, height, bytes_per_pixel, order);
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
