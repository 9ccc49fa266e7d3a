// Security descriptors and access-control lists as the tests write, compare and print them.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace descriptors {

using Bytes = std::vector<unsigned char>;

/// One behind the other.
Bytes operator+(Bytes first, const Bytes& second);

/// The SID of all application packages, in its binary form.
extern const Bytes anyPackage;

/// A self-relative descriptor from its text, such as L"D:(A;;FA;;;WD)".
/// \throws std::invalid_argument if the text is none
Bytes fromSddl(const std::wstring& sddl);

/// The text of a descriptor's DACL as the system writes it, or L"invalid" and an error code.
std::wstring toSddl(PSECURITY_DESCRIPTOR descriptor);

/// The same text as the system itself would write it: with its own choice of abbreviations.
std::wstring canonical(const std::wstring& sddl);

/// A self-relative copy with the DACL alone.
Bytes daclOnly(PSECURITY_DESCRIPTOR descriptor);

/// Replaces generic rights by those of files, as file systems do when they store a DACL.
void mapGenericRights(Bytes& descriptor);

/// The list of a descriptor as its header says it is; empty if there is none.
Bytes aclBytes(PSECURITY_DESCRIPTOR descriptor);
Bytes aclBytes(const ACL* acl);

/// The entries of a list that begins at `acl`, by the lengths in their headers.
std::vector<Bytes> entries(const Bytes& acl);

/// An entry with this header and this body, of the length that they have together.
Bytes entry(unsigned char type, unsigned char flags, const Bytes& body);
/// The body of an entry with a mask and a SID.
Bytes maskAndSid(std::uint32_t mask, const Bytes& sid);
/// S-1-1-0.
extern const Bytes everyone;

/// A list of these entries; its header says so, and says that it is `size` bytes long, or as
/// long as it is.
Bytes acl(unsigned char revision, const std::vector<Bytes>& entries, std::size_t size = 0);

/// A self-relative descriptor whose DACL are these bytes, followed by `tail`.
Bytes descriptorWith(const Bytes& acl, SECURITY_DESCRIPTOR_CONTROL flags = 0,
                     const Bytes& tail = {});

/// Every byte in hexadecimal, to be read in a failing test.
std::string hex(const Bytes& bytes);

} // namespace descriptors
