// winecompat.dll: the layer for a program that does not know of it.
#include "winecompat.h"

#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH)
        testsupport::installWineCompatibility();
    return TRUE;
}
