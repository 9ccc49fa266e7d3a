// A token of SoftHSM, made and changed through its PKCS #11 module, as a card's own tool would.
#pragma once

#include <p11-kit/pkcs11.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace testsupport {

using Bytes = std::vector<unsigned char>;

/// Changes a token in a session in which its user is logged in.
/// Each change throws std::runtime_error for an answer of the module other than CKR_OK.
class SoftTokenEditor {
public:
    SoftTokenEditor(CK_FUNCTION_LIST* module, CK_SESSION_HANDLE session)
        : module_(module), session_(session) {}

    /// Generates a key pair and keeps its private key.
    void addKey(const Bytes& id);
    void addCertificate(const Bytes& encoded, const Bytes& id, std::string_view label);
    /// Removes the certificate with this value.
    void removeCertificate(const Bytes& encoded);

private:
    CK_OBJECT_HANDLE findCertificate(const Bytes& encoded) const;

    CK_FUNCTION_LIST* module_;
    CK_SESSION_HANDLE session_;
};

/// A token in a folder of its own. The module is loaded only while the token is being changed.
class SoftToken {
public:
    /// Text as this system has it in paths and environments.
    using NativeText = std::filesystem::path::string_type;

    static constexpr std::string_view pin = "correct horse 1";

    /// Makes an empty token with a user PIN.
    /// \param folder exists, is empty, and outlives the token
    /// \param file the module's file
    /// \throws std::runtime_error, here and below, if the module cannot be loaded, or for an answer
    ///   of the module other than CKR_OK
    explicit SoftToken(const std::filesystem::path& folder,
                       const std::filesystem::path& file = module(),
                       std::string_view userPin = pin);

    /// Makes several changes in one session.
    void edit(const std::function<void(SoftTokenEditor&)>& changes) const;
    /// One change each, as `SoftTokenEditor` has them.
    void addKey(const Bytes& id) const;
    void addCertificate(const Bytes& encoded, const Bytes& id, std::string_view label) const;
    void removeCertificate(const Bytes& encoded) const;

    /// Lets the module find this token when this process initialises it next.
    void select() const;
    /// What another process needs in its environment to find this token.
    std::map<NativeText, NativeText> environment() const;

    /// The module for tests: the file that the environment variable CSU_SOFTHSM_DLL names, or
    /// CSU_NATIVE_SOFTHSM where modules are no DLLs; empty without it.
    static NativeText module();

private:
    std::filesystem::path file_;
    std::filesystem::path configuration_;
    std::string pin_;
};

} // namespace testsupport
