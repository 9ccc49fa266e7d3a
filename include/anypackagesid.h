// The security identifier of all application packages.
#pragma once

#include "export.h"

#include <cstdint>

/// S-1-15-2-1, ALL APPLICATION PACKAGES: the group that every sandboxed package belongs to.
/// Owns the identifier; made once by the caller and passed to every operation.
class CERTSTOREUPDATER_API AnyPackageSid {
public:
    /// \throws CertStoreUpdaterError_InvalidConfiguration with "Method" =
    ///   "AllocateAndInitializeSid" and "error" = the system's error code
    AnyPackageSid();
    ~AnyPackageSid();
    AnyPackageSid(const AnyPackageSid&) = delete;
    AnyPackageSid& operator=(const AnyPackageSid&) = delete;

    /// The identifier as Windows takes it (PSID). This object owns it.
    void* getSid() const noexcept;
    /// Its length in bytes: 16.
    std::uint32_t getLengthSid() const noexcept;

private:
    void* sid;
};
