// A token of SoftHSM in memory, with certificates and their keys on it.
#pragma once

#include "peers/peer.h"

#include <p11-kit/pkcs11.h>

#include <filesystem>
#include <string>

namespace bench {

class SoftToken {
public:
    static constexpr char pin[] = "1234";

    /// SoftHSM's module, as CMake found it.
    static std::string module();

    /// Makes a token with certificates of the benchmark, an id of 20 bytes, a label and a key
    /// each.
    explicit SoftToken(std::size_t certificates);
    ~SoftToken();
    SoftToken(const SoftToken&) = delete;
    SoftToken& operator=(const SoftToken&) = delete;

    /// Has the module use this token when it is initialised next.
    void select() const;

private:
    std::filesystem::path folder_;
};

/// A second user of the module in this process, as the bare calls need it.
class OwnSession {
public:
    /// The module is initialised, and the user logged in, by somebody else.
    OwnSession();
    ~OwnSession();
    OwnSession(const OwnSession&) = delete;
    OwnSession& operator=(const OwnSession&) = delete;

    CK_FUNCTION_LIST* functions() const { return functions_; }
    CK_SESSION_HANDLE handle() const { return handle_; }

private:
    CK_FUNCTION_LIST* functions_ = nullptr;
    void* library_ = nullptr;
    CK_SESSION_HANDLE handle_ = 0;
};

} // namespace bench
