#include "host/plugin_services.h"

#include "host/host_imports.h"

namespace plugin {

const flairize::HostServices& services() {
    static const flairize::HostServices s = [] {
        flairize::HostServices h;
        h.colourTableSize = [](void*, const BITMAPINFOHEADER* header) { return BaseKit_ColorTableSize(header); };
        h.rowTick = [](void*) { BaseKit_RowTick(); };
        h.mix = [](void*, HGLOBAL first, HGLOBAL second, std::uint32_t weight) {
            return BaseKit_MixPictures(first, second, weight);
        };
        h.smooth = [](void*, HGLOBAL picture) { return HueKit_Smooth(picture, 0, 0); };
        h.simplify = [](void*, HGLOBAL picture) { return HueKit_Simplify(picture, 0, 0); };
        h.soften = [](void*, HGLOBAL picture) { return HueKit_Soften(picture, 0, 0); };
        return h;
    }();
    return s;
}

}  // namespace plugin
