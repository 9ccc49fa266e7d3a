// What the library shows to its callers.
#pragma once

// CERTSTOREUPDATER_API stands before every class and function that lives in the DLL and that a
// caller may use. CERTSTOREUPDATER_BUILDING is defined while the library itself is compiled,
// CERTSTOREUPDATER_STATIC where the layers' objects are linked directly and no DLL is involved.
#if defined(_WIN32) && defined(CERTSTOREUPDATER_BUILDING)
#define CERTSTOREUPDATER_API __declspec(dllexport)
#elif defined(_WIN32) && !defined(CERTSTOREUPDATER_STATIC)
#define CERTSTOREUPDATER_API __declspec(dllimport)
#else
#define CERTSTOREUPDATER_API
#endif
