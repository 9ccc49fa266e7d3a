// The current user's system stores as they lie in the registry.
#include "registrystore.h"

#include "hex.h"

#include <array>
#include <vector>

namespace testsupport {

namespace {

constexpr wchar_t storesKey[] = L"Software\\Microsoft\\SystemCertificates\\";

std::vector<BYTE> serialize(const CERT_CONTEXT* certificate) {
    DWORD size = 0;
    std::vector<BYTE> bytes;
    if (CertSerializeCertificateStoreElement(certificate, 0, nullptr, &size))
        bytes.resize(size);
    if (!CertSerializeCertificateStoreElement(certificate, 0, bytes.data(), &size))
        size = 0;
    bytes.resize(size);
    return bytes;
}

bool succeeded(LSTATUS status) {
    SetLastError(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS;
}

} // namespace

bool RegistryStore::write(const CERT_CONTEXT* certificate) const {
    const std::vector<BYTE> bytes = serialize(certificate);
    if (bytes.empty())
        return false;
    HKEY key = nullptr;
    if (!succeeded(RegCreateKeyExW(HKEY_CURRENT_USER, keyOf(certificate).c_str(), 0, nullptr, 0,
                                   KEY_SET_VALUE, nullptr, &key, nullptr)))
        return false;
    const LSTATUS written =
        RegSetValueExW(key, L"Blob", 0, REG_BINARY, bytes.data(), static_cast<DWORD>(bytes.size()));
    RegCloseKey(key);
    return succeeded(written);
}

bool RegistryStore::remove(const CERT_CONTEXT* certificate) const {
    const LSTATUS status = RegDeleteKeyW(HKEY_CURRENT_USER, keyOf(certificate).c_str());
    return status == ERROR_FILE_NOT_FOUND || succeeded(status);
}

std::wstring RegistryStore::keyOf(const CERT_CONTEXT* certificate) const {
    std::array<BYTE, 20> hash{};
    auto size = static_cast<DWORD>(hash.size());
    CertGetCertificateContextProperty(certificate, CERT_SHA1_HASH_PROP_ID, hash.data(), &size);
    const std::string name = toHex(hash);
    return storesKey + name_ + L"\\Certificates\\" + std::wstring(name.begin(), name.end());
}

} // namespace testsupport
