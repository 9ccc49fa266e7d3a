// Damages the heap in the way that its argument names, then uses the heap as any program does.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

// The compiler must not see through them.
char* volatile block = nullptr;
volatile std::size_t size = 40;

void writeBehind() {
    block = static_cast<char*>(std::malloc(size));
    block[size] = 1;
    std::free(block);
}

void writeToFreed() {
    block = static_cast<char*>(std::malloc(size));
    std::free(block);
    block[size / 2] = 1;
}

void freeTwice() {
    block = static_cast<char*>(std::malloc(size));
    std::free(block);
    std::free(block);
}

void useHeap() {
    std::vector<std::unique_ptr<char[]>> blocks;
    for (std::size_t i = 0; i != 1000; ++i)
        blocks.push_back(std::make_unique<char[]>(i % 100));
}

} // namespace

int main(int count, char** arguments) {
    const std::string defect = count == 2 ? arguments[1] : "";
    if (defect == "write-behind")
        writeBehind();
    else if (defect == "write-to-freed")
        writeToFreed();
    else if (defect == "free-twice")
        freeTwice();
    useHeap();
}
