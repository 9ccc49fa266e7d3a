// A module that needs a library that needs a library.
extern "C" __declspec(dllimport) int neighbourFunction();
extern "C" __declspec(dllexport) int needsNeighbourFunction();

int needsNeighbourFunction() {
    return neighbourFunction();
}
