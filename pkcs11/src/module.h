// A loaded PKCS #11 module.
#pragma once

#include "cryptoki.h"
#include "dynamiclibrary.h"

#include <string>

namespace pkcs11 {

/// A module file and the functions it exports.
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

    bool isLoaded() const noexcept { return functions_ != nullptr; }
    bool isIn(const DynamicLibrary& file) const noexcept { return file_ == file; }

    /// The module's functions, to be called through `answerOf`: any may be missing.
    /// \throws Pkcs11Error_CryptokiError "400" if the module has been freed
    const CK_FUNCTION_LIST& functions() const;

private:
    DynamicLibrary file_;
    const CK_FUNCTION_LIST* functions_ = nullptr;
    bool isOurs_ = false; ///< whether C_Finalize is ours to call
};

} // namespace pkcs11
