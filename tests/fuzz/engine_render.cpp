// The engine's two entry points on arbitrary pictures and settings: render() on
// a packed DIB made from the input (damaged headers included), renderInto() on
// views of the input's bytes; any effect, slider, colour, progress and mix, on
// 1 to 3 slice threads, sometimes with an allocation failing. Nothing may be
// read or written outside the pictures, and every block is given back.
#include <vector>

#include "engine/dib.h"
#include "engine/flairize.h"
#include "hostops/threads.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput in{data, size};
    flairize::Settings s;
    s.effect = std::uint16_t(in.take<std::uint8_t>() % (flairize::effectCount() + 2));   // a few outside the table
    for (auto& slider : s.sliders) slider = in.take<std::uint16_t>();
    s.colour = in.take<std::uint32_t>();
    s.progress = in.take<std::uint32_t>() % 20000;
    const std::uint8_t choices = in.take<std::uint8_t>();
    const auto mix = flairize::Mix(choices % 3);
    const unsigned threads = 1 + (choices >> 2) % 3;
    const bool into = (choices & 0x20) != 0;
    const long failAt = (choices >> 6) ? in.take<std::uint8_t>() % 8 : 0;   // 0: no failure
    const flairize::HostServices host = hostops::threadedServices(threads);
    const long live = plat::liveBlocks();

    if (into) {
        // Views of 1..64 x 1..64 pixels, 3 or 4 bytes each, rows possibly padded.
        const auto width = std::uint16_t(1 + in.take<std::uint8_t>() % 64);
        const auto height = std::uint16_t(1 + in.take<std::uint8_t>() % 64);
        const std::uint8_t bytesPerPixel = (in.take<std::uint8_t>() & 1) ? 4 : 3;
        const std::ptrdiff_t stride = width * bytesPerPixel + in.take<std::uint8_t>() % 8;
        std::vector<std::uint8_t> source(std::size_t(stride) * height), output(source.size());
        std::size_t n = source.size();
        const std::uint8_t* pixels = in.bytes(n);
        std::memcpy(source.data(), pixels, n);
        const bool upsideDown = (height & 1) != 0;   // rows walked bottom first
        auto view = [&](std::vector<std::uint8_t>& buffer) {
            flairize::PictureView v;
            v.top = upsideDown ? buffer.data() + (height - 1) * stride : buffer.data();
            v.stride = upsideDown ? -stride : stride;
            v.width = width, v.height = height, v.bytesPerPixel = bytesPerPixel;
            return v;
        };
        plat::failAllocationAfter(failAt);
        const flairize::Result r = flairize::renderInto(host, view(source), s, mix, view(output));
        plat::failAllocationAfter(0);
        FUZZ_CHECK(r.picture == nullptr);
    } else {
        HGLOBAL source = fuzzPictureBlock(in);
        if (!source) return 0;
        plat::failAllocationAfter(failAt);
        const flairize::Result r = flairize::render(host, source, s, mix);
        plat::failAllocationAfter(0);
        // A result is a picture the engine itself accepts as a source.
        FUZZ_CHECK((r.picture != nullptr) == (r.status == flairize::Status::Ok || r.status == flairize::Status::MixFailed));
        if (r.picture) {
            dib::Layout layout;
            const auto* bytes = static_cast<const std::uint8_t*>(plat::globalLock(r.picture));
            FUZZ_CHECK(dib::inspect(bytes, plat::globalSize(r.picture), nullptr, layout));
            plat::globalUnlock(r.picture);
        }
        plat::globalFree(r.picture);
        plat::globalFree(source);
    }
    FUZZ_CHECK(plat::liveBlocks() == live);
    return 0;
}
