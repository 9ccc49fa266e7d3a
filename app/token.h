// Reads the token.
#pragma once

#include "failures.h"
#include "modulefile.h"
#include "output.h"
#include "pin.h"

#include "certlistpackage.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace pkcs11::certstoreupdater {
class Pkcs11Helper;
}

namespace updater {

struct TokenContents {
    /// The certificates whose private keys are on the token, of whatever class.
    pkcs11::certstoreupdater::CertMap withKey;
    /// All of them by class; only if they were asked for.
    std::optional<pkcs11::certstoreupdater::CertListPackage> classes;
};

enum class Reading { withKeyOnly, allClasses };

/// A loaded module and the token that it found. Every function throws Failure.
class Token {
public:
    Token(pkcs11::certstoreupdater::Pkcs11Helper& helper, std::wstring module)
        : helper_(helper), module_(std::move(module)) {}

    void logIn(const Pin& pin);
    /// Reads what is on the token now. Log in before.
    TokenContents read(Reading reading) const;

private:
    pkcs11::certstoreupdater::Pkcs11Helper& helper_;
    std::wstring module_;
};

/// Loads a module, has its token used, and unloads the module.
/// \returns what went wrong when the module was unloaded: what was done until then is good
/// \throws Failure, also what `use` throws
std::optional<Failure> withToken(const ModuleFile& module, const std::function<void(Token&)>& use);

/// Reads the token once. The PIN is read when the token is known to be there, tried once, and
/// wiped. A module that does not end as it should is told to `output`; the contents are good.
/// \throws Failure
TokenContents readToken(const ModuleFile& module, const PinSource& pin, Reading reading,
                        Output& output);

} // namespace updater
