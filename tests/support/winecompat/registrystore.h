// The current user's system stores as they lie in the registry.
#pragma once

#include <windows.h>

#include <wincrypt.h>

#include <string>
#include <utility>

namespace testsupport {

/// One store of the current user: a key for each certificate, named by its SHA-1 hash, with the
/// certificate and its properties in serialised form.
class RegistryStore {
public:
    explicit RegistryStore(std::wstring name) : name_(std::move(name)) {}

    const std::wstring& name() const noexcept { return name_; }

    /// Writes a certificate with all its properties, whether it is there already or not.
    /// \returns false, with the last error set, if the registry does not take it
    bool write(const CERT_CONTEXT* certificate) const;

    /// Removes a certificate; that it is not there is no failure.
    /// \returns false, with the last error set, if the registry does not let it go
    bool remove(const CERT_CONTEXT* certificate) const;

private:
    std::wstring keyOf(const CERT_CONTEXT* certificate) const;

    std::wstring name_;
};

} // namespace testsupport
