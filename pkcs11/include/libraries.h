// The process-wide registry of loaded PKCS #11 modules.
#pragma once

#include "cklibrary.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace pkcs11 {

/// Loads and unloads modules. Every `load` that returned needs one `unload`; a module that is
/// loaded several times is initialised once and finalised with its last `unload`. All operations
/// may be called from several threads at once.
///
/// Other code of the process may finalise a module that is loaded here. Every use of it fails from
/// then on with the module's answer, CKR_CRYPTOKI_NOT_INITIALIZED; so does its last `unload`.
class Libraries {
public:
    static Libraries& instance();

    Libraries(const Libraries&) = delete;
    Libraries& operator=(const Libraries&) = delete;

    /// Loads a module file and initialises it (C_Initialize with CKF_OS_LOCKING_OK). A module
    /// that answers CKR_CRYPTOKI_ALREADY_INITIALIZED is in use by other code of this process: it
    /// is used as it is and never finalised from here.
    ///
    /// A module that is loaded already is asked for C_GetInfo. If it answers that other code has
    /// finalised it, it is initialised again in the same way. Its earlier handles stay of no use,
    /// since new slots and sessions may have the numbers of theirs; unloading them does nothing
    /// to the module.
    ///
    /// \param path in the active code page on Windows. A name without a directory is looked for
    ///   in the program's directory, then in the system's; a relative path is made absolute.
    ///   Neither the current directory nor the system's search path is ever looked at, not even
    ///   for the DLLs that the module needs: they come from its own directory or the system's.
    /// \throws Pkcs11Error_CryptokiError "5" with a parent (see there) if the file cannot be
    ///   loaded or lacks C_GetFunctionList, C_Initialize or C_Finalize; else with the module's
    ///   answer to C_GetFunctionList or C_Initialize. Nothing stays loaded then. Any other
    ///   function that the module lacks counts as one that answers CKR_FUNCTION_NOT_SUPPORTED,
    ///   "84".
    CkLibrary load(const std::string& path);

    /// Undoes one `load`.
    /// \throws Pkcs11Error_CryptokiError "7" if the module is not loaded; with the answer of
    ///   C_Finalize if that failed, after the module was freed and forgotten.
    void unload(const CkLibrary& library);

private:
    struct Loaded {
        std::shared_ptr<Module> module;
        std::size_t users;
    };

    Libraries() = default;
    ~Libraries() = default;

    std::mutex mutex_;
    std::vector<Loaded> loaded_;
};

} // namespace pkcs11
