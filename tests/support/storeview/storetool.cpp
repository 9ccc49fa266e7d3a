// storetool list STORE: prints each certificate of a store on a line of its own.
// storetool add STORE: adds the certificates that such lines on standard input describe.
// For tests that ask what another process sees.
#include "storeview.h"

#include <shellapi.h>

#include <exception>
#include <iostream>
#include <string>

namespace {

int run(const std::wstring& command, const std::wstring& store) {
    if (command == L"list") {
        for (const testsupport::StoreEntry& entry : testsupport::readStore(store))
            std::cout << testsupport::toLine(entry) << '\n';
        return 0;
    }
    if (command == L"add") {
        std::string line;
        while (std::getline(std::cin, line))
            testsupport::addToStore(store, testsupport::fromLine(line));
        return 0;
    }
    return 2;
}

} // namespace

int main() {
    int count = 0;
    wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    if (count != 3) {
        std::cerr << "usage: storetool list|add STORE\n";
        return 2;
    }
    try {
        return run(arguments[1], arguments[2]);
    } catch (const std::exception& error) {
        std::cerr << "storetool: " << error.what() << '\n';
        return 1;
    }
}
