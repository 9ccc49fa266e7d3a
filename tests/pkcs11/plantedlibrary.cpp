// The library that a module needs.
#ifdef _WIN32
extern "C" __declspec(dllexport) int plantedFunction();
#else
extern "C" __attribute__((visibility("default"))) int plantedFunction();
#endif

int plantedFunction() {
    return 1;
}
