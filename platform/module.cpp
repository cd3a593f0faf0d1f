#include "platform/module.h"

namespace plat {
namespace {
HINSTANCE g_instance = nullptr;
}

void setModuleInstance(HINSTANCE instance) { g_instance = instance; }
HINSTANCE moduleInstance() { return g_instance; }

void* loadModuleIcon() {
#ifdef _WIN32
    return LoadIconA(g_instance, "Flair");
#else
    return nullptr;
#endif
}

}  // namespace plat
