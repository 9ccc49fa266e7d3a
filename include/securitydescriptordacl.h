// The access-control list of a file, inside the security descriptor that carries it.
#pragma once

#include "buffer.h"
#include "export.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>

class AnyPackageSid;
struct _ACL;

/// A security descriptor and its discretionary access-control list (DACL): either as read from a
/// file or built from one that was read. The list is valid as long as the object is.
class CERTSTOREUPDATER_API SecurityDescriptorDacl {
public:
    /// Reads the DACL of a file or directory.
    ///
    /// \param path handed to Windows as it is
    /// \throws CertStoreUpdaterError_InvalidConfiguration with "Method" = "GetFileSecurity" or
    ///   "GetSecurityDescriptorDacl" and "error" = the system's error code
    ///   (ERROR_INVALID_SECURITY_DESCR if the list reaches beyond its descriptor). A file without
    ///   a DACL and one whose DACL is NULL, which grants everything to everyone, are refused
    ///   with the single parameter "error" = "GetSecurityDescriptorDacl not found".
    explicit SecurityDescriptorDacl(const std::wstring& path);

    /// Builds a descriptor whose DACL is that of `current` with a new first entry that allows
    /// `sid` GENERIC_READ and is inherited by files and directories. The entries of `current`
    /// follow it unchanged, in their order, even where Windows would sort them differently. Of the
    /// flags of the list only SE_DACL_DEFAULTED is taken over, not SE_DACL_PROTECTED and
    /// SE_DACL_AUTO_INHERITED.
    ///
    /// \param current one that was read from a file; need not outlive the call
    /// \throws CertStoreUpdaterError_InvalidConfiguration with "Method" = the Windows function
    ///   that failed and "error" = the system's error code. A list that would outgrow the 64 KiB
    ///   that Windows allows fails in "InitializeAcl".
    SecurityDescriptorDacl(const SecurityDescriptorDacl& current, const AnyPackageSid& sid);

    ~SecurityDescriptorDacl();
    SecurityDescriptorDacl(const SecurityDescriptorDacl&) = delete;
    SecurityDescriptorDacl& operator=(const SecurityDescriptorDacl&) = delete;

    /// The descriptor as Windows takes it (PSECURITY_DESCRIPTOR): self-relative if it was read,
    /// absolute if it was built. This object owns it.
    void* getSecurityDescriptor() const noexcept;
    /// The list (PACL), never null. This object owns it.
    _ACL* getDacl() const noexcept;

private:
    buffer::Buffer<unsigned char> securityDescriptor;
    _ACL* dacl;
    // BOOLs of Windows, as read from the file. Nobody reads those of a list that was built.
    std::int32_t daclPresent;
    std::int32_t daclDefaulted;
    boost::shared_ptr<buffer::Buffer<unsigned char>> aclStorage; // null if the list was read
};
