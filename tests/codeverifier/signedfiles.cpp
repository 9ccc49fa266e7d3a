// The files that makesignedfiles.sh makes, and the authority that signed them.
#include "signedfiles.h"

#include "runningonwine.h"

#include <windows.h>

#include <wincrypt.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

namespace signedfiles {

namespace {

struct StoreCloser {
    using pointer = HCERTSTORE;
    void operator()(HCERTSTORE store) const { CertCloseStore(store, 0); }
};
using Store = std::unique_ptr<void, StoreCloser>;

struct ContextFreer {
    void operator()(const CERT_CONTEXT* context) const { CertFreeCertificateContext(context); }
};
using Context = std::unique_ptr<const CERT_CONTEXT, ContextFreer>;

// Windows asks the user before it takes an authority into the list of the current user. Wine makes
// the machine's list anew from the host's certificates, in newer versions in each process that
// looks at it.
Store trustedAuthorities() {
    const DWORD location = testsupport::runningOnWine() ? CERT_SYSTEM_STORE_CURRENT_USER
                                                        : CERT_SYSTEM_STORE_LOCAL_MACHINE;
    return Store(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, location, L"ROOT"));
}

Context testAuthority() {
    std::ifstream file(folder() / "authority.der", std::ios::binary);
    const std::vector<char> der{std::istreambuf_iterator<char>(file), {}};
    return Context(CertCreateCertificateContext(X509_ASN_ENCODING,
                                                reinterpret_cast<const BYTE*>(der.data()),
                                                static_cast<DWORD>(der.size())));
}

} // namespace

std::filesystem::path folder() {
    std::wstring program(32768, L'\0');
    program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    return std::filesystem::path(program).parent_path() / "signedfiles";
}

void TrustedAuthority::SetUp() {
    const Context authority = testAuthority();
    ASSERT_TRUE(authority) << "there is no authority.der in " << folder();
    const Store store = trustedAuthorities();
    ASSERT_TRUE(store) << "the trusted authorities cannot be changed: error " << GetLastError();
    ASSERT_TRUE(CertAddCertificateContextToStore(store.get(), authority.get(),
                                                 CERT_STORE_ADD_REPLACE_EXISTING, nullptr))
        << "error " << GetLastError();
}

void TrustedAuthority::TearDown() {
    const Context authority = testAuthority();
    const Store store = trustedAuthorities();
    ASSERT_TRUE(authority && store);
    const CERT_CONTEXT* found = CertFindCertificateInStore(
        store.get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, authority.get(), nullptr);
    ASSERT_TRUE(found);
    EXPECT_TRUE(CertDeleteCertificateFromStore(found));
}

} // namespace signedfiles
