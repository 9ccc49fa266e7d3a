// A program that is linked without any mitigation against exploits and that needs a library which
// is not Windows'. It is looked at, never run.
extern "C" __declspec(dllimport) int plantedFunction();

int main() {
    return plantedFunction();
}
