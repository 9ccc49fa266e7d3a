// Import tables and variables as they lie in memory: PE Format, "The .idata Section" and "Section
// Table".
#include "importslot.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>

namespace testsupport {

namespace {

class Image {
public:
    explicit Image(void* module) : base_(static_cast<unsigned char*>(module)) {}

    template <class T>
    T* at(DWORD offset) const {
        return static_cast<T*>(static_cast<void*>(base_ + offset));
    }

    /// The first import descriptor, or null if the module imports nothing.
    const IMAGE_IMPORT_DESCRIPTOR* imports() const {
        const IMAGE_DATA_DIRECTORY& directory =
            headers()->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        return directory.Size == 0 ? nullptr
                                   : at<const IMAGE_IMPORT_DESCRIPTOR>(directory.VirtualAddress);
    }

    std::span<const IMAGE_SECTION_HEADER> sections() const {
        const IMAGE_FILE_HEADER& header = headers()->FileHeader;
        const auto* optional =
            static_cast<const unsigned char*>(static_cast<const void*>(&headers()->OptionalHeader));
        const void* first = optional + header.SizeOfOptionalHeader;
        return {static_cast<const IMAGE_SECTION_HEADER*>(first), header.NumberOfSections};
    }

private:
    const IMAGE_NT_HEADERS* headers() const {
        const auto* dos = at<const IMAGE_DOS_HEADER>(0);
        return at<const IMAGE_NT_HEADERS>(static_cast<DWORD>(dos->e_lfanew));
    }

    unsigned char* base_;
};

char lowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lowerAscii(x) == lowerAscii(y); });
}

void collectEntries(const Image& image, const IMAGE_IMPORT_DESCRIPTOR& descriptor,
                    std::string_view function, std::vector<ImportSlot::Address*>& entries) {
    // Without a table of its own for names, addresses have taken the place of the names.
    if (descriptor.OriginalFirstThunk == 0)
        return;
    const auto* name = image.at<const IMAGE_THUNK_DATA>(descriptor.OriginalFirstThunk);
    auto* entry = image.at<ImportSlot::Address>(descriptor.FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++entry) {
        if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal))
            continue;
        const auto* byName =
            image.at<const IMAGE_IMPORT_BY_NAME>(static_cast<DWORD>(name->u1.AddressOfData));
        if (function == static_cast<const char*>(&byName->Name[0]))
            entries.push_back(entry);
    }
}

std::vector<ImportSlot::Address*> findEntries(void* module, std::string_view dll,
                                              std::string_view function) {
    std::vector<ImportSlot::Address*> entries;
    const Image image(module);
    const IMAGE_IMPORT_DESCRIPTOR* descriptor = image.imports();
    for (; descriptor && descriptor->Name != 0; ++descriptor)
        if (equalIgnoringCase(image.at<const char>(descriptor->Name), dll))
            collectEntries(image, *descriptor, function, entries);
    return entries;
}

std::vector<ImportSlot::Address*> findVariables(void* module, ImportSlot::Address value) {
    std::vector<ImportSlot::Address*> variables;
    const Image image(module);
    for (const IMAGE_SECTION_HEADER& section : image.sections()) {
        if (!(section.Characteristics & IMAGE_SCN_MEM_WRITE))
            continue;
        auto* variable = image.at<ImportSlot::Address>(section.VirtualAddress);
        const std::size_t count = section.Misc.VirtualSize / sizeof *variable;
        for (auto* end = variable + count; variable != end; ++variable)
            if (*variable == value)
                variables.push_back(variable);
    }
    return variables;
}

/// Makes an entry writable for the length of a scope.
class Unprotected {
public:
    explicit Unprotected(ImportSlot::Address* entry) : entry_(entry) {
        if (!VirtualProtect(entry_, sizeof *entry_, PAGE_READWRITE, &protection_))
            throw std::runtime_error("an import table cannot be made writable");
    }
    Unprotected(const Unprotected&) = delete;
    Unprotected& operator=(const Unprotected&) = delete;
    ~Unprotected() { VirtualProtect(entry_, sizeof *entry_, protection_, &protection_); }

private:
    ImportSlot::Address* entry_;
    DWORD protection_ = 0;
};

} // namespace

ImportSlot::ImportSlot(void* module, std::string_view dll, std::string_view function)
    : entries_(findEntries(module, dll, function)) {
    if (entries_.empty())
        throw std::invalid_argument("the module does not import " + std::string(function) +
                                    " from " + std::string(dll));
}

ImportSlot ImportSlot::ofPointers(void* module, const char* dll, const char* function) {
    const auto address = reinterpret_cast<Address>(GetProcAddress(GetModuleHandleA(dll), function));
    ImportSlot slot(address ? findVariables(module, address) : std::vector<Address*>());
    if (slot.entries_.empty())
        throw std::invalid_argument("the module has no pointer to " + std::string(function) +
                                    " of " + dll);
    return slot;
}

void ImportSlot::redirect(Address newTarget) {
    for (Address* entry : entries_) {
        const Unprotected writable(entry);
        *entry = newTarget;
    }
}

bool ImportSlot::exists(void* module, std::string_view dll, std::string_view function) {
    return !findEntries(module, dll, function).empty();
}

} // namespace testsupport
