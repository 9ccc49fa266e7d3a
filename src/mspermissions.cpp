// Lets sandboxed application packages read files.
#include "mspermissions.h"

#include "certstoreupdatererror.h"
#include "makeevent.h"

#include <windows.h>

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <type_traits>
#include <utility>

namespace {

using buffer::Buffer;
using pkcs11::certstoreupdater::CertStoreUpdaterError_InvalidConfiguration;

constexpr wchar_t sourceFile[] = L"src\\mspermissions.cpp";

constexpr int deepestGranted = 2;
constexpr std::size_t sidOffsetInAce = offsetof(ACCESS_ALLOWED_ACE, SidStart);

static_assert(std::is_same_v<PSID, void*> && std::is_same_v<PACL, _ACL*>);
static_assert(std::is_same_v<BOOL, std::int32_t>);
static_assert(sizeof(ACL_SIZE_INFORMATION) == 12);
static_assert(sizeof(void*) != 8 || SECURITY_DESCRIPTOR_MIN_LENGTH == 40);

/// Reports a Windows function that has just failed. The error code is read before the exception
/// is made, since making it calls other functions.
[[noreturn]] void throwFailureOf(const wchar_t* method, DWORD error = GetLastError(),
                                 int line = __builtin_LINE()) {
    throw korv::makeEvent<CertStoreUpdaterError_InvalidConfiguration>(
        sourceFile, {{L"Method", method}, {L"error", error}}, line);
}

ACL_SIZE_INFORMATION sizeInformation(PACL acl) {
    ACL_SIZE_INFORMATION size{};
    if (!GetAclInformation(acl, &size, sizeof size, AclSizeInformation))
        throwFailureOf(L"GetAclInformation");
    return size;
}

/// What stands at an address, whatever its alignment.
template <class Value>
Value valueAt(const void* address) {
    Value value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

/// How many bytes there are for an entry: up to the end of the list that it begins in, or as many
/// as any entry can have if it was found elsewhere.
std::size_t roomFor(const void* entry, PACL acl) {
    // For an entry before the list the difference wraps around and lies far beyond any list.
    const std::size_t offset =
        reinterpret_cast<std::uintptr_t>(entry) - reinterpret_cast<std::uintptr_t>(acl);
    const std::size_t listSize = valueAt<ACL>(acl).AclSize;
    return offset < listSize ? listSize - offset : std::numeric_limits<WORD>::max();
}

/// An entry, as long as its header says; an error if it does not lie within the list.
std::span<unsigned char> entryAt(PACL acl, DWORD index) {
    void* found = nullptr;
    if (!GetAce(acl, index, &found))
        throwFailureOf(L"GetAce");
    // Windows has checked where the entry begins, not where it ends.
    const std::size_t room = roomFor(found, acl);
    if (room < sizeof(ACE_HEADER))
        throwFailureOf(L"GetAce", ERROR_INVALID_ACL);
    const WORD size = valueAt<ACE_HEADER>(found).AceSize;
    if (size < sizeof(ACE_HEADER) || room < size)
        throwFailureOf(L"GetAce", ERROR_INVALID_ACL);
    return {static_cast<unsigned char*>(found), size};
}

/// Whether `sid` stands where entries that allow or deny access have their SID.
bool names(std::span<unsigned char> entry, const AnyPackageSid& sid) {
    constexpr std::size_t sidHeaderSize = offsetof(SID, SubAuthority);
    if (entry.size() < sidOffsetInAce + sidHeaderSize)
        return false;
    const std::span<unsigned char> named = entry.subspan(sidOffsetInAce);
    const std::size_t subAuthorityCount = named[offsetof(SID, SubAuthorityCount)];
    if (named.size() < sidHeaderSize + subAuthorityCount * sizeof(DWORD))
        return false;
    return EqualSid(named.data(), sid.getSid());
}

SECURITY_DESCRIPTOR_CONTROL controlOf(const Buffer<unsigned char>& descriptor) {
    return valueAt<SECURITY_DESCRIPTOR_CONTROL>(descriptor.begin() +
                                                offsetof(SECURITY_DESCRIPTOR_RELATIVE, Control));
}

/// Whether the bytes hold all that Windows reads to find out where the list is.
bool hasItsHeader(const Buffer<unsigned char>& descriptor) {
    if (descriptor.size() < offsetof(SECURITY_DESCRIPTOR_RELATIVE, Owner))
        return false;
    const SECURITY_DESCRIPTOR_CONTROL control = controlOf(descriptor);
    if (!(control & SE_DACL_PRESENT))
        return true;
    return descriptor.size() >= (control & SE_SELF_RELATIVE ? sizeof(SECURITY_DESCRIPTOR_RELATIVE)
                                                            : sizeof(SECURITY_DESCRIPTOR));
}

/// Whether the list of a self-relative descriptor lies within it, as long as the list's header
/// says. An absolute one has a pointer to its list, about which its bytes tell nothing.
bool containsItsList(const Buffer<unsigned char>& descriptor) {
    constexpr SECURITY_DESCRIPTOR_CONTROL hasOffset = SE_SELF_RELATIVE | SE_DACL_PRESENT;
    if ((controlOf(descriptor) & hasOffset) != hasOffset)
        return true;
    const DWORD offset = valueAt<SECURITY_DESCRIPTOR_RELATIVE>(descriptor.begin()).Dacl;
    if (offset == 0)
        return true; // a NULL list
    if (offset > descriptor.size() || descriptor.size() - offset < sizeof(ACL))
        return false;
    const WORD size = valueAt<ACL>(descriptor.begin() + offset).AclSize;
    return size >= sizeof(ACL) && descriptor.size() - offset >= size;
}

/// An access-control list while it is being built.
class NewAcl {
public:
    explicit NewAcl(DWORD size)
        : storage_(boost::make_shared<Buffer<unsigned char>>(std::size_t{size})) {
        // The unused bytes at the end are written to the file, too.
        std::fill_n(storage_->data(), size, static_cast<unsigned char>(0));
        if (!InitializeAcl(get(), size, ACL_REVISION))
            throwFailureOf(L"InitializeAcl");
    }

    PACL get() const noexcept { return reinterpret_cast<PACL>(storage_->data()); }

    boost::shared_ptr<Buffer<unsigned char>> release() noexcept { return std::move(storage_); }

private:
    boost::shared_ptr<Buffer<unsigned char>> storage_;
};

void copyEntries(PACL from, DWORD count, PACL to) {
    for (DWORD i = 0; i != count; ++i) {
        const std::span<unsigned char> entry = entryAt(from, i);
        if (!AddAce(to, ACL_REVISION, i + 1, entry.data(), static_cast<DWORD>(entry.size())))
            throwFailureOf(L"AddAce");
    }
}

void grantTree(const boost::filesystem::path& path, const AnyPackageSid& sid, int depth) {
    if (depth > deepestGranted)
        return;
    MSPermissionsUtils::addPermissions(path, sid);
    if (!boost::filesystem::is_directory(boost::filesystem::status(path)))
        return;
    for (const auto& entry : boost::filesystem::directory_iterator(path))
        grantTree(entry.path(), sid, depth + 1);
}

} // namespace

AnyPackageSid::AnyPackageSid() : sid(nullptr) {
    SID_IDENTIFIER_AUTHORITY authority = {SECURITY_APP_PACKAGE_AUTHORITY};
    if (!AllocateAndInitializeSid(&authority, 2, SECURITY_APP_PACKAGE_BASE_RID,
                                  SECURITY_BUILTIN_PACKAGE_ANY_PACKAGE, 0, 0, 0, 0, 0, 0, &sid))
        throwFailureOf(L"AllocateAndInitializeSid");
}

AnyPackageSid::~AnyPackageSid() {
    FreeSid(sid);
}

void* AnyPackageSid::getSid() const noexcept {
    return sid;
}

std::uint32_t AnyPackageSid::getLengthSid() const noexcept {
    return GetLengthSid(sid);
}

SecurityDescriptorDacl::SecurityDescriptorDacl(const std::wstring& path)
    : dacl(nullptr), daclPresent(FALSE), daclDefaulted(FALSE) {
    DWORD needed = 0;
    GetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &needed);

    securityDescriptor = Buffer<unsigned char>(std::size_t{needed});
    // Bytes that Windows leaves unfilled must say nothing.
    std::fill_n(securityDescriptor.data(), needed, static_cast<unsigned char>(0));
    if (!GetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, securityDescriptor.data(),
                          needed, &needed))
        throwFailureOf(L"GetFileSecurity");

    if (!hasItsHeader(securityDescriptor))
        throwFailureOf(L"GetFileSecurity", ERROR_INVALID_SECURITY_DESCR);
    if (!GetSecurityDescriptorDacl(securityDescriptor.data(), &daclPresent, &dacl, &daclDefaulted))
        throwFailureOf(L"GetSecurityDescriptorDacl");
    if (!daclPresent || !dacl)
        throw korv::makeEvent<CertStoreUpdaterError_InvalidConfiguration>(
            sourceFile, {{L"error", L"GetSecurityDescriptorDacl not found"}});
    if (!containsItsList(securityDescriptor))
        throwFailureOf(L"GetSecurityDescriptorDacl", ERROR_INVALID_SECURITY_DESCR);
}

SecurityDescriptorDacl::SecurityDescriptorDacl(const SecurityDescriptorDacl& current,
                                               const AnyPackageSid& sid)
    : securityDescriptor(std::size_t{SECURITY_DESCRIPTOR_MIN_LENGTH}), dacl(nullptr),
      daclPresent(FALSE), daclDefaulted(TRUE) {
    if (!InitializeSecurityDescriptor(securityDescriptor.data(), SECURITY_DESCRIPTOR_REVISION))
        throwFailureOf(L"InitializeSecurityDescriptor");

    const ACL_SIZE_INFORMATION currentSize = sizeInformation(current.dacl);
    NewAcl acl(currentSize.AclBytesInUse + 2 * sid.getLengthSid());
    dacl = acl.get();
    aclStorage = acl.release();

    if (!AddAccessAllowedAceEx(dacl, ACL_REVISION, OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE,
                               GENERIC_READ, sid.getSid()))
        throwFailureOf(L"AddAccessAllowedAceEx");
    copyEntries(current.dacl, currentSize.AceCount, dacl);
    if (!IsValidAcl(dacl))
        throwFailureOf(L"IsValidAcl");
    if (!SetSecurityDescriptorDacl(securityDescriptor.data(), current.daclPresent, dacl,
                                   current.daclDefaulted))
        throwFailureOf(L"SetSecurityDescriptorDacl");
}

SecurityDescriptorDacl::~SecurityDescriptorDacl() = default;

void* SecurityDescriptorDacl::getSecurityDescriptor() const noexcept {
    return const_cast<unsigned char*>(securityDescriptor.data());
}

_ACL* SecurityDescriptorDacl::getDacl() const noexcept {
    return dacl;
}

bool MSPermissionsUtils::hasPermissions(const SecurityDescriptorDacl& descriptor,
                                        const AnyPackageSid& sid) {
    const DWORD count = sizeInformation(descriptor.getDacl()).AceCount;
    for (DWORD i = 0; i != count; ++i)
        if (names(entryAt(descriptor.getDacl(), i), sid))
            return true;
    return false;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the exported signature takes it by value.
void MSPermissionsUtils::addPermissions(boost::filesystem::path path, const AnyPackageSid& sid) {
    const std::wstring& file = path.native();
    const SecurityDescriptorDacl current(file);
    if (hasPermissions(current, sid))
        return;
    const SecurityDescriptorDacl granted(current, sid);
    if (!SetFileSecurityW(file.c_str(), DACL_SECURITY_INFORMATION, granted.getSecurityDescriptor()))
        throwFailureOf(L"SetFileSecurity");
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): as above.
void MSPermissionsUtils::addPermissionsRecursive(boost::filesystem::path path,
                                                 const AnyPackageSid& sid) {
    grantTree(path, sid, 0);
}
