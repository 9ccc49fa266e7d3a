// A program that is linked without anything that makes the life of an exploit hard, and that needs
// a library of which nobody knows. It is looked at and not run.
extern "C" __declspec(dllimport) int plantedFunction();

int main() {
    return plantedFunction();
}
