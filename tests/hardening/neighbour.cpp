// A library that lies beside the module that needs it, and needs one that does not.
extern "C" __declspec(dllimport) int plantedFunction();
extern "C" __declspec(dllexport) int neighbourFunction();

int neighbourFunction() {
    return plantedFunction();
}
