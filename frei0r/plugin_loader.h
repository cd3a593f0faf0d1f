// A frei0r plug-in opened as a host opens it (dlopen), its f0r_* functions
// under their own names less the prefix: the benchmark and the tests call the
// plug-ins in-process through it.
#pragma once

#include <dlfcn.h>

extern "C" {
#include <frei0r.h>
}

#include <map>
#include <memory>
#include <string>

#include "engine/flairize.h"

#define FLR_F0R_FUNCTIONS(X)                                                                                     \
    X(init) X(get_plugin_info) X(get_param_info) X(construct) X(destruct) X(set_param_value) X(get_param_value) \
        X(update) X(update2)

struct Frei0rPlugin {
    std::string path;
    void* handle;
#define FLR_DECLARE(f) decltype(&f0r_##f) f = nullptr;
    FLR_F0R_FUNCTIONS(FLR_DECLARE)
#undef FLR_DECLARE
    explicit Frei0rPlugin(const std::string& file) : path(file), handle(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
#define FLR_BIND(f) f = handle ? reinterpret_cast<decltype(&f0r_##f)>(dlsym(handle, "f0r_" #f)) : nullptr;
        FLR_F0R_FUNCTIONS(FLR_BIND)
#undef FLR_BIND
    }
#define FLR_PRESENT(f) &&f
    bool complete() const { return handle FLR_F0R_FUNCTIONS(FLR_PRESENT) && init() == 1; }
#undef FLR_PRESENT
    int paramIndex(const std::string& name) const {
        f0r_plugin_info_t pi{};
        get_plugin_info(&pi);
        for (int k = 0; k < pi.num_params; ++k) {
            f0r_param_info_t p{};
            get_param_info(&p, k);
            if (p.name && name == p.name) return k;
        }
        return -1;
    }
    // Sets a parameter by name; false when the plug-in has no such parameter.
    template <typename T>
    bool set(f0r_instance_t instance, const std::string& name, T value) const {
        const int k = paramIndex(name);
        if (k >= 0) set_param_value(instance, &value, k);
        return k >= 0;
    }
};

// The plug-in of an offered effect in the build's plug-in folder.
inline Frei0rPlugin& frei0rPlugin(unsigned effect) {
    static std::map<unsigned, std::unique_ptr<Frei0rPlugin>> opened;
    auto& p = opened[effect];
    if (!p)
        p = std::make_unique<Frei0rPlugin>(std::string(FLAIRIZE_FREI0R_DIR) + "/flairize-" + flairize::effectSlug(effect) +
                                           ".so");
    return *p;
}
