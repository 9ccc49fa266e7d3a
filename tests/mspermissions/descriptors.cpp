// Security descriptors and access-control lists as the tests write, compare and print them.
#include "descriptors.h"

#include <sddl.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

namespace descriptors {

namespace {

struct LocalFreer {
    void operator()(void* memory) const { LocalFree(memory); }
};

template <class Value>
Bytes bytesOf(const Value& value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

PACL daclOf(PSECURITY_DESCRIPTOR descriptor) {
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL dacl = nullptr;
    if (!GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted) || !present)
        return nullptr;
    return dacl;
}

} // namespace

Bytes operator+(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

const Bytes anyPackage = {1, 2, 0, 0, 0, 0, 0, 15, 2, 0, 0, 0, 1, 0, 0, 0};
const Bytes everyone = {1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};

Bytes fromSddl(const std::wstring& sddl) {
    PSECURITY_DESCRIPTOR parsed = nullptr;
    ULONG size = 0;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1,
                                                              &parsed, &size))
        throw std::invalid_argument("no security descriptor");
    const std::unique_ptr<void, LocalFreer> owner(parsed);
    const auto* bytes = static_cast<const unsigned char*>(parsed);
    return Bytes(bytes, bytes + size);
}

std::wstring toSddl(PSECURITY_DESCRIPTOR descriptor) {
    LPWSTR text = nullptr;
    if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(
            descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr))
        return L"invalid: error " + std::to_wstring(GetLastError());
    const std::unique_ptr<void, LocalFreer> owner(text);
    return text;
}

std::wstring canonical(const std::wstring& sddl) {
    return toSddl(fromSddl(sddl).data());
}

Bytes daclOnly(PSECURITY_DESCRIPTOR descriptor) {
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    if (!GetSecurityDescriptorControl(descriptor, &control, &revision))
        throw std::invalid_argument("no security descriptor");
    const auto kept = static_cast<SECURITY_DESCRIPTOR_CONTROL>(
        control & (SE_DACL_DEFAULTED | SE_DACL_AUTO_INHERITED | SE_DACL_PROTECTED));
    if (!(control & SE_DACL_PRESENT))
        return bytesOf(SECURITY_DESCRIPTOR_RELATIVE{
            1, 0, static_cast<WORD>(kept | SE_SELF_RELATIVE), 0, 0, 0, 0});
    return descriptorWith(aclBytes(descriptor), kept);
}

void mapGenericRights(Bytes& descriptor) {
    GENERIC_MAPPING ofFiles = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE,
                               FILE_ALL_ACCESS};
    PACL dacl = daclOf(descriptor.data());
    for (DWORD i = 0; dacl && i != dacl->AceCount; ++i) {
        void* found = nullptr;
        if (!GetAce(dacl, i, &found))
            return;
        ACE_HEADER header{};
        std::memcpy(&header, found, sizeof header);
        if (header.AceType > ACCESS_DENIED_ACE_TYPE ||
            header.AceSize < sizeof header + sizeof(DWORD))
            continue;
        DWORD mask = 0;
        void* const maskAddress = static_cast<unsigned char*>(found) + sizeof header;
        std::memcpy(&mask, maskAddress, sizeof mask);
        MapGenericMask(&mask, &ofFiles);
        std::memcpy(maskAddress, &mask, sizeof mask);
    }
}

Bytes aclBytes(const ACL* acl) {
    if (!acl)
        return {};
    const auto* begin = reinterpret_cast<const unsigned char*>(acl);
    return Bytes(begin, begin + acl->AclSize);
}

Bytes aclBytes(PSECURITY_DESCRIPTOR descriptor) {
    return aclBytes(daclOf(descriptor));
}

std::vector<Bytes> entries(const Bytes& acl) {
    ACL header{};
    std::memcpy(&header, acl.data(), sizeof header);
    std::vector<Bytes> found;
    std::size_t offset = sizeof header;
    for (WORD i = 0; i != header.AceCount; ++i) {
        ACE_HEADER ace{};
        if (acl.size() - offset < sizeof ace)
            throw std::invalid_argument("a list that is cut short");
        std::memcpy(&ace, acl.data() + offset, sizeof ace);
        if (ace.AceSize < sizeof ace || acl.size() - offset < ace.AceSize)
            throw std::invalid_argument("a list that is cut short");
        const auto begin = acl.begin() + static_cast<std::ptrdiff_t>(offset);
        found.emplace_back(begin, begin + ace.AceSize);
        offset += ace.AceSize;
    }
    return found;
}

Bytes entry(unsigned char type, unsigned char flags, const Bytes& body) {
    const ACE_HEADER header{type, flags, static_cast<WORD>(sizeof(ACE_HEADER) + body.size())};
    return bytesOf(header) + body;
}

Bytes maskAndSid(std::uint32_t mask, const Bytes& sid) {
    return bytesOf(mask) + sid;
}

Bytes acl(unsigned char revision, const std::vector<Bytes>& entries, std::size_t size) {
    std::size_t length = sizeof(ACL);
    for (const Bytes& ace : entries)
        length += ace.size();
    Bytes bytes = bytesOf(ACL{revision, 0, static_cast<WORD>(size ? size : length),
                              static_cast<WORD>(entries.size()), 0});
    for (const Bytes& ace : entries)
        bytes = std::move(bytes) + ace;
    if (bytes.size() < size)
        bytes.resize(size);
    return bytes;
}

Bytes descriptorWith(const Bytes& acl, SECURITY_DESCRIPTOR_CONTROL flags, const Bytes& tail) {
    const SECURITY_DESCRIPTOR_RELATIVE header{
        SECURITY_DESCRIPTOR_REVISION,
        0,
        static_cast<WORD>(flags | SE_SELF_RELATIVE | SE_DACL_PRESENT),
        0,
        0,
        0,
        acl.empty() ? 0 : DWORD{sizeof(SECURITY_DESCRIPTOR_RELATIVE)}};
    return bytesOf(header) + acl + tail;
}

std::string hex(const Bytes& bytes) {
    std::string text;
    for (const unsigned char byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X ", byte);
        text += digits;
    }
    return text;
}

} // namespace descriptors
