// The module's own instance and the resources loaded through it.
#pragma once

#include "platform/win_types.h"

namespace plat {

void setModuleInstance(HINSTANCE instance);
HINSTANCE moduleInstance();
void* loadModuleIcon();   // the icon "Flair"; null where there are no resources

}  // namespace plat
