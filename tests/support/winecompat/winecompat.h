// Makes up for what Wine's crypt32 lacks compared with Windows', so that the library and its
// program can be tried without Windows. Never part of the product; does nothing on Windows.
//
// Ways to get it: a test program links the CMake target `winecompat` (nothing to call); any
// other program is started by winecompat-launcher.exe, which loads winecompat.dll into it.
#pragma once

namespace testsupport {

/// Redirects the certificate store functions that the program and certstoreupdater.dll import,
/// now or when they are loaded, to the ones of storelayer.h. Does nothing on Windows, if it was
/// done before, or if winecompat.dll did it in this process.
void installWineCompatibility();

} // namespace testsupport
