// The frei0r plug-ins as a host drives them: one plug-in per offered effect,
// opened once; an instance of 1..64 x 1..64 pixels, its parameters set to any
// value (out of range too), then f0r_update on the input's pixels, in place or
// into a separate frame. Nothing may be written outside the output frame, and
// the input frame, when separate, is left as it was.
#include <vector>

#include "frei0r/plugin_loader.h"
#include "tests/fuzz/fuzz_input.h"

namespace {
std::vector<Frei0rPlugin*> plugins;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    for (unsigned e = 0; e < flairize::effectCount(); ++e)
        if (flairize::effectOffered(e) && frei0rPlugin(e).complete()) plugins.push_back(&frei0rPlugin(e));
    if (plugins.empty()) {
        std::fprintf(stderr, "no frei0r plug-ins in %s\n", FLAIRIZE_FREI0R_DIR);
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput in{data, size};
    const Frei0rPlugin& p = *plugins[in.take<std::uint8_t>() % plugins.size()];
    const unsigned width = 1 + in.take<std::uint8_t>() % 64, height = 1 + in.take<std::uint8_t>() % 64;
    const std::uint8_t how = in.take<std::uint8_t>();
    f0r_instance_t instance = p.construct(width, height);
    FUZZ_CHECK(instance);
    f0r_plugin_info_t info{};
    p.get_plugin_info(&info);
    for (int k = 0; k < info.num_params; ++k) {
        f0r_param_info_t param{};
        p.get_param_info(&param, k);
        if (param.type == F0R_PARAM_COLOR) {
            f0r_param_color_t colour{in.take<float>(), in.take<float>(), in.take<float>()};
            p.set_param_value(instance, &colour, k);
        } else {
            double value = in.take<double>();
            p.set_param_value(instance, &value, k);
        }
    }
    // The frame and a guard word either side of it; the host's frames hold whole 32-bit pixels.
    const std::size_t pixels = std::size_t(width) * height;
    std::vector<std::uint32_t> source(pixels), output(pixels + 2, 0xA5A5A5A5u);
    std::size_t n = pixels * 4;
    std::memcpy(source.data(), in.bytes(n), n);
    const std::vector<std::uint32_t> original = source;
    if (how & 1) {
        std::memcpy(output.data() + 1, source.data(), pixels * 4);
        p.update(instance, 0.0, output.data() + 1, output.data() + 1);
    } else {
        p.update(instance, 0.0, source.data(), output.data() + 1);
        FUZZ_CHECK(source == original);
    }
    FUZZ_CHECK(output.front() == 0xA5A5A5A5u && output.back() == 0xA5A5A5A5u);
    p.destruct(instance);
    return 0;
}
