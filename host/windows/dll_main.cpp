// The library entry point: remember the module's instance, nothing else.
#include <windows.h>

#include "platform/module.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) plat::setModuleInstance(instance);
    return TRUE;
}
