// The place in a module's import table through which it calls one imported function.
#pragma once

#include <string_view>
#include <utility>
#include <vector>

namespace testsupport {

/// All entries of one module's import table for one function of one DLL. Changing them affects this
/// module's calls only, and only those made through the table: not calls through pointers that it
/// took earlier, as a compiler may do for all calls within one function. Pointers that it keeps in
/// variables can be changed in the same way.
class ImportSlot {
public:
    using Address = void (*)();

    /// \param module a loaded module (an HMODULE), which must stay loaded while this object is used
    /// \param dll the DLL's name as the import table gives it, in any letter case
    /// \param function the function's name; imports by ordinal are not found
    /// \throws std::invalid_argument if the module does not import the function
    ImportSlot(void* module, std::string_view dll, std::string_view function);

    /// The variables of a module that hold the address of a function, which it has from
    /// GetProcAddress, in place of entries of the import table.
    /// \param module as above
    /// \param dll a loaded DLL's name
    /// \param function the name of a function that the DLL exports
    /// \throws std::invalid_argument if no variable holds the function's address
    static ImportSlot ofPointers(void* module, const char* dll, const char* function);

    /// Where the module's calls go now.
    Address target() const noexcept { return *entries_.front(); }

    /// Sends the module's calls to `newTarget` from now on.
    /// \throws std::runtime_error if the table cannot be made writable
    void redirect(Address newTarget);

    /// Whether the module imports the function.
    static bool exists(void* module, std::string_view dll, std::string_view function);

private:
    explicit ImportSlot(std::vector<Address*> entries) : entries_(std::move(entries)) {}

    std::vector<Address*> entries_; // more than one if the DLL is named more than once
};

} // namespace testsupport
