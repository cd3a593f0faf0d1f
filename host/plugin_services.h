// The engine's services in the plug-in: the host's own library operations.
#pragma once

#include "engine/host_services.h"

namespace plugin {

const flairize::HostServices& services();

}  // namespace plugin
