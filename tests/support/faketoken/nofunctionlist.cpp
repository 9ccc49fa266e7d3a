// A library that can be loaded but is no PKCS #11 module: it has no C_GetFunctionList.
#ifdef _WIN32
extern "C" __declspec(dllexport) int answerToEverything();
#else
extern "C" __attribute__((visibility("default"))) int answerToEverything();
#endif

int answerToEverything() {
    return 42;
}
