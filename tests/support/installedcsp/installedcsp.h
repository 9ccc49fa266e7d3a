// A cryptographic service provider that is installed for the length of a test.
#pragma once

#include <string>

namespace testsupport {

/// Registers a provider of type PROV_RSA_FULL, as a name that CryptEnumProviders lists; there is no
/// library behind it. Several objects may install the same name, also in processes that run side by
/// side: it goes with the last of them. A provider that somebody else installed stays as it was.
/// What a crashed process leaves behind goes with the next object of that name, or when Windows
/// starts again.
///
/// All programs of the machine see the provider. A test that counts providers of its own puts its
/// process id into their names.
class InstalledCsp {
public:
    /// Needs the right to write to the machine's part of the registry.
    /// \param name at most 255 characters, no backslash
    /// \throws std::runtime_error if the provider cannot be registered
    explicit InstalledCsp(const std::wstring& name);
    InstalledCsp(const InstalledCsp&) = delete;
    InstalledCsp& operator=(const InstalledCsp&) = delete;
    ~InstalledCsp();

    const std::wstring& name() const noexcept { return name_; }

private:
    std::wstring name_;
    void* use_; ///< an event that exists as long as someone uses the name
};

} // namespace testsupport
