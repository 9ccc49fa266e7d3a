// A library that cannot be loaded without another one.
#ifdef _WIN32
extern "C" __declspec(dllimport) int plantedFunction();
extern "C" __declspec(dllexport) int needsLibraryFunction();
#else
extern "C" int plantedFunction();
extern "C" __attribute__((visibility("default"))) int needsLibraryFunction();
#endif

int needsLibraryFunction() {
    return plantedFunction();
}
