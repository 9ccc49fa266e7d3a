// The program that gets signed. Its marker is what a copy of it is tampered with by.
#include <cstdio>

int main() {
    std::puts("genuine contents");
}
