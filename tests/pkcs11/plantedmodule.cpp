// A library that must not be loaded: it lies in the current directory and in the search path.
#ifdef _WIN32
extern "C" __declspec(dllexport) int plantedModuleFunction();
#else
extern "C" __attribute__((visibility("default"))) int plantedModuleFunction();
#endif

int plantedModuleFunction() {
    return 1;
}
