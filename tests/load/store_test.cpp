// A store with a thousand registered certificates.
#include "certbuilder.h"
#include "certstorehelper.h"
#include "der.h"
#include "windowscalls.h"

#include "storeview.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace {

using pkcs11::certstoreupdater::CertItem;
using pkcs11::certstoreupdater::CertMap;
using pkcs11::certstoreupdater::CertStoreHelper;
using testsupport::Bytes;
using testsupport::CertBuilder;
using testsupport::StoreEntry;

constexpr int registeredCount = 1'000;
constexpr wchar_t csp[] = L"Load CSP";

Bytes encodingOf(int number) {
    return CertBuilder()
        .serialNumber(number)
        .names("Holder " + std::to_string(number), "Issuer")
        .build();
}

/// Certificates and their containers; the numbers of a second token begin behind those of the
/// first.
CertMap certificates(int first = 0) {
    CertMap certs;
    for (int number = first; number != first + registeredCount; ++number) {
        const Bytes encoding = encodingOf(number);
        CertItem item;
        item.label = (L"Label " + std::to_wstring(number)).c_str();
        asn1::der::decode({encoding.data(), encoding.size()}, item.certificate);
        certs.emplace((L"Container " + std::to_wstring(number)).c_str(), item);
    }
    return certs;
}

/// Frees the references that finding and deleting keep on purpose, so that the store can close.
class LargeStore : public testing::Test {
protected:
    LargeStore() {
        store.add({encodingOf(-1), {}, {}, {}});
        CertStoreHelper(store.name()).addCspCertificates(csp, certs, true);
        windows.begin();
    }
    ~LargeStore() override { releaseReferences(); }

    void releaseReferences() {
        windows.contexts.settle([](const void* context) {
            CertFreeCertificateContext(static_cast<const CERT_CONTEXT*>(context));
        });
    }

    const testsupport::TestStore store;
    const CertMap certs = certificates();
    torture::WindowsCalls windows;
};

TEST_F(LargeStore, FindsEachCertificateOnceAndNoOther) {
    CertStoreHelper helper(store.name());
    std::size_t found = 0;
    for (const auto& [container, item] : certs)
        found += helper.findCspCertificate(csp, container.c_str(), item.certificate, true);
    EXPECT_EQ(found, certs.size());
    // The one reference that each find keeps, and nothing else.
    EXPECT_EQ(windows.contexts.held(), certs.size());
    for (const auto& [container, item] : certificates(registeredCount))
        found += helper.findCspCertificate(csp, container.c_str(), item.certificate, true);
    EXPECT_EQ(found, certs.size());
    EXPECT_EQ(windows.contexts.held(), certs.size());
}

TEST_F(LargeStore, ListsAllByContainer) {
    const auto listed = CertStoreHelper(store.name()).listCertsByCsp(csp, true);
    ASSERT_EQ(listed->size(), certs.size());
    for (auto here = listed->cbegin(), there = certs.cbegin(); here != listed->cend();
         ++here, ++there) {
        EXPECT_EQ(here->first, there->first);
        EXPECT_EQ(here->second.certificate.cmp(there->second.certificate, asn1::Amatch::exact), 0);
    }
    EXPECT_EQ(windows.contexts.held(), 0u);
    EXPECT_EQ(windows.stores.held(), 0u);
}

TEST_F(LargeStore, IsEmptiedByCsp) {
    CertStoreHelper(store.name()).deleteCspCertificates(csp, true);
    EXPECT_EQ(windows.contexts.held(), 0u);
    EXPECT_EQ(windows.stores.held(), 0u);
    EXPECT_EQ(store.entries(), (std::vector<StoreEntry>{{encodingOf(-1), {}, {}, {}}}));
}

TEST_F(LargeStore, IsEmptiedOneByOne) {
    {
        CertStoreHelper helper(store.name());
        helper.deleteCertificates(certs);
        EXPECT_EQ(windows.contexts.held(), 0u);
    }
    EXPECT_EQ(store.entries(), (std::vector<StoreEntry>{{encodingOf(-1), {}, {}, {}}}));
}

} // namespace
