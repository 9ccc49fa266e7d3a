// A token of SoftHSM, made and changed through its PKCS #11 module, as a card's own tool would.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace testsupport {

using Bytes = std::vector<unsigned char>;

/// A token in a folder of its own. The module is loaded only while the token is being changed.
class SoftToken {
public:
    static constexpr std::string_view pin = "correct horse 1";

    /// Makes an empty token with a user PIN.
    /// \param folder exists, is empty, and outlives the token
    /// \throws std::runtime_error, here and below, if the environment variable CSU_SOFTHSM_DLL
    ///   names no module, or for an answer of the module other than CKR_OK
    explicit SoftToken(const std::filesystem::path& folder);

    /// Generates a key pair and keeps its private key.
    void addKey(const Bytes& id);
    void addCertificate(const Bytes& encoded, const Bytes& id, std::string_view label);
    /// Removes the certificate with this value.
    void removeCertificate(const Bytes& encoded);

    /// The module's file.
    static std::wstring module();
    /// What a process needs in its environment to find this token.
    std::map<std::wstring, std::wstring> environment() const;

private:
    template <class Function>
    void edit(Function function) const;

    std::filesystem::path configuration_;
};

} // namespace testsupport
