// A handle of a loaded PKCS #11 module.
#pragma once

#include <memory>
#include <utility>

namespace pkcs11 {

class Module;

/// Names a module that `Libraries::load` loaded; copies name the same module. Copies do not keep
/// the module loaded: after the last `Libraries::unload` every use of one fails with
/// CKR_CRYPTOKI_NOT_INITIALIZED. So does every use of one after a later `Libraries::load` had to
/// initialise the module again, because other code had finalised it.
class CkLibrary {
public:
    /// A handle of no module.
    CkLibrary() noexcept = default;

    friend bool operator==(const CkLibrary&, const CkLibrary&) noexcept = default;

    /// What this layer needs to call the module.
    /// \throws Pkcs11Error_CryptokiError "400" for a handle of no module
    const Module& module() const;

private:
    friend class Libraries;
    explicit CkLibrary(std::shared_ptr<Module> module) noexcept : module_(std::move(module)) {}

    std::shared_ptr<Module> module_;
};

} // namespace pkcs11
