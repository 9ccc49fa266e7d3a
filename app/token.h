// What the token holds.
#pragma once

#include "failures.h"
#include "pin.h"

#include "certlistpackage.h"

#include <optional>
#include <string>

namespace updater {

struct TokenContents {
    /// The certificates whose private keys are on the token, of whatever class.
    pkcs11::certstoreupdater::CertMap withKey;
    /// All of them by class; only if they were asked for.
    std::optional<pkcs11::certstoreupdater::CertListPackage> classes;
    /// The contents are good, but the module did not end as it should.
    std::optional<Failure> unloadFailure;
};

enum class Reading { withKeyOnly, allClasses };

/// Loads the module, logs in, reads, and unloads the module again. The PIN is read once the token
/// is known to be there, tried once, and wiped.
/// \throws Failure
TokenContents readToken(const std::wstring& module, const PinSource& pin, Reading reading);

} // namespace updater
