// A cryptographic service provider that is installed for the length of a test.
#pragma once

#include <string>

namespace testsupport {

/// Registers a provider of type PROV_RSA_FULL, as a name that CryptEnumProviders lists; there is no
/// library behind it. Several objects, also of processes that run side by side, may install the
/// same name: it goes with the last of them. One that was installed by others stays as it was.
/// What a process that crashed has left behind goes with the next object of that name, or when
/// Windows is started anew.
///
/// All programs of the machine see the provider. A test that counts what only it may see chooses
/// a name with its process id in it.
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
    void* use_; ///< a kernel object that exists as long as someone uses the name
};

} // namespace testsupport
