// A token of SoftHSM in memory, with certificates and their keys on it.
#pragma once

#include "softtoken.h"

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <filesystem>
#include <string>

namespace bench {

/// A new folder in memory, gone with all that is in it.
class MemoryFolder {
public:
    MemoryFolder();
    ~MemoryFolder();
    MemoryFolder(const MemoryFolder&) = delete;
    MemoryFolder& operator=(const MemoryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

class MemoryToken {
public:
    static constexpr char pin[] = "1234";

    /// SoftHSM's module, as CMake found it.
    static std::string module();

    /// Makes a token with certificates of the benchmark, an id of 20 bytes, a label and a key each.
    explicit MemoryToken(std::size_t certificates);

    /// Lets the module find this token when it is initialised next.
    void select() const { token_.select(); }

private:
    MemoryFolder folder_;
    testsupport::SoftToken token_;
};

/// A second user of the module in this process, as the bare calls need it.
class OwnSession {
public:
    /// Somebody else has initialised the module and logged the user in.
    OwnSession();
    ~OwnSession();
    OwnSession(const OwnSession&) = delete;
    OwnSession& operator=(const OwnSession&) = delete;

    CK_FUNCTION_LIST* functions() const { return functions_; }
    CK_SESSION_HANDLE handle() const { return handle_; }

private:
    void* library_;
    CK_FUNCTION_LIST* functions_ = nullptr;
    CK_SESSION_HANDLE handle_ = 0;
};

} // namespace bench
