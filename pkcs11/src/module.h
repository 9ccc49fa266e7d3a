// A loaded PKCS #11 module.
#pragma once

#include "cryptoki.h"
#include "dynamiclibrary.h"

#include <atomic>
#include <string>

namespace pkcs11 {

/// A module file and the functions it exports, from one initialisation to its end.
class Module {
public:
    /// Takes over a loaded file.
    /// \param path the file's, for the error
    /// \throws Pkcs11Error_CryptokiError "5" with a parent if it lacks C_GetFunctionList,
    ///   C_Initialize or C_Finalize; with the answer of C_GetFunctionList if that failed
    Module(DynamicLibrary file, const std::string& path);

    /// PKCS #11 C_Initialize.
    /// \throws Pkcs11Error_CryptokiError with the module's answer
    void initialize();
    /// PKCS #11 C_Finalize if `initialize` did initialise the module, then frees the file.
    /// \returns the module's answer
    CK_RV finalizeAndFree() noexcept;

    /// Whether other code of this process has finalised it, as C_GetInfo tells.
    bool isFinalizedByOthers() const;
    /// Makes this object useless, because others have finalised the module and it was initialised
    /// again: its slots and sessions are gone, and their numbers may be those of new ones.
    void retire() noexcept {
        isRetired_ = true;
        isOurs_ = false;
    }

    /// Whether the module can be called.
    bool isUsable() const noexcept { return functions_ && !isRetired_; }
    bool isIn(const DynamicLibrary& file) const noexcept { return file_ == file; }

    /// The module's functions, to be called through `answerOf`: any may be missing.
    /// \throws Pkcs11Error_CryptokiError "400" if the module has been freed or this retired
    const CK_FUNCTION_LIST& functions() const;

private:
    DynamicLibrary file_;
    const CK_FUNCTION_LIST* functions_ = nullptr;
    bool isOurs_ = false;                 ///< whether C_Finalize is ours to call
    std::atomic<bool> isRetired_ = false; // by another thread than those that use the module
};

} // namespace pkcs11
