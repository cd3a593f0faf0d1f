// What the stand-in host libraries recorded, for the Wine test host to check.
#pragma once

#include <windows.h>

struct StandInLog {
    long busyBegin, busyEnd, rowTicks, mixes;
    long beforeEditor, afterEditor, beforeHelp, moves;
    long palettesMade, previewRenders, previewSetupA, previewSetupB;
    void* icon;
    char name[128];
};

extern "C" __declspec(dllexport) StandInLog* StandIn_Log();
