// The certificate stores as Windows documents them, on Windows and, with the layer, under Wine:
// what the layer has to make true, seen through this program's own calls.
#include "certbuilder.h"
#include "storeview.h"
#include "winecompat.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <wincrypt.h>

#include <string>

namespace testsupport {
namespace {

using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAreArray;

class SystemStore : public testing::Test {
protected:
    void TearDown() override {
        if (handle)
            CertCloseStore(handle, 0);
    }

    HCERTSTORE open() { return handle = CertOpenSystemStoreW(0, store.name().c_str()); }

    static Bytes numbered(int number) { return CertBuilder().serialNumber(number).build(); }

    static StoreEntry plain(int number) { return {numbered(number), {}, {}, {}}; }

    static const CERT_CONTEXT* add(HCERTSTORE to, int number, DWORD disposition) {
        const Bytes encoded = numbered(number);
        const CERT_CONTEXT* added = nullptr;
        CertAddEncodedCertificateToStore(to, X509_ASN_ENCODING, encoded.data(),
                                         static_cast<DWORD>(encoded.size()), disposition, &added);
        return added;
    }

    TestStore store;
    HCERTSTORE handle = nullptr;
};

TEST_F(SystemStore, KeepsAnApplicationsOwnProperty) {
    const StoreEntry entry{numbered(1), {}, {}, Bytes{1, 2, 0, 3}};
    store.add(entry);
    EXPECT_THAT(store.entries(), testing::ElementsAre(entry));
    EXPECT_THAT(readStoreInOtherProcess(store.name()), testing::ElementsAre(entry));
}

TEST_F(SystemStore, KeepsAnApplicationsOwnPropertyApartFromTheDescription) {
    const HCERTSTORE opened = open();
    const CERT_CONTEXT* added = add(opened, 1, CERT_STORE_ADD_NEW);
    ASSERT_NE(added, nullptr);
    unsigned char bytes[] = {1, 2};
    const CRYPT_DATA_BLOB blob{sizeof bytes, bytes};
    EXPECT_TRUE(CertSetCertificateContextProperty(added, korvaneCspRefId, 0, &blob));
    DWORD size = 0;
    EXPECT_FALSE(
        CertGetCertificateContextProperty(added, CERT_DESCRIPTION_PROP_ID, nullptr, &size));
    CertFreeCertificateContext(added);
}

TEST_F(SystemStore, ShowsEachChangeToOtherProcessesAtOnceAlthoughContextsAreHeld) {
    const HCERTSTORE opened = open();
    const CERT_CONTEXT* held = add(opened, 1, CERT_STORE_ADD_NEW);
    EXPECT_THAT(readStoreInOtherProcess(store.name()), testing::ElementsAre(plain(1)));
    unsigned char bytes[] = {'x', 0, 0, 0};
    const CRYPT_DATA_BLOB blob{sizeof bytes, bytes};
    CertSetCertificateContextProperty(held, CERT_FRIENDLY_NAME_PROP_ID, 0, &blob);
    EXPECT_EQ(readStoreInOtherProcess(store.name()).at(0).friendlyName,
              Bytes(bytes, bytes + sizeof bytes));
    CertDeleteCertificateFromStore(CertDuplicateCertificateContext(held));
    EXPECT_THAT(readStoreInOtherProcess(store.name()), IsEmpty());
    CertFreeCertificateContext(held);
}

TEST_F(SystemStore, EnumeratesOnWhileEveryCertificateIsDeleted) {
    for (int number = 1; number != 11; ++number)
        store.add(plain(number));
    const HCERTSTORE opened = open();
    const CERT_CONTEXT* current = nullptr;
    int seen = 0;
    while (seen != 20 && (current = CertEnumCertificatesInStore(opened, current)) != nullptr) {
        ++seen;
        EXPECT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(current)));
    }
    EXPECT_EQ(seen, 10);
    EXPECT_EQ(CertEnumCertificatesInStore(opened, nullptr), nullptr);
    EXPECT_THAT(store.entries(), IsEmpty());
}

TEST_F(SystemStore, EnumeratesOnWhileEverySecondCertificateIsDeleted) {
    for (int number = 1; number != 11; ++number)
        store.add(plain(number));
    const HCERTSTORE opened = open();
    const CERT_CONTEXT* current = nullptr;
    int seen = 0;
    while (seen != 20 && (current = CertEnumCertificatesInStore(opened, current)) != nullptr)
        if (++seen % 2 == 0)
            CertDeleteCertificateFromStore(CertDuplicateCertificateContext(current));
    EXPECT_EQ(seen, 10);
    EXPECT_THAT(store.entries(), SizeIs(5));
}

TEST_F(SystemStore, DeletesWhatAnAbandonedEnumerationStandsOn) {
    store.add(plain(1));
    const HCERTSTORE opened = open();
    const CERT_CONTEXT* current = CertEnumCertificatesInStore(opened, nullptr);
    ASSERT_NE(current, nullptr);
    CertDeleteCertificateFromStore(CertDuplicateCertificateContext(current));
    EXPECT_EQ(
        CertFindCertificateInStore(opened, X509_ASN_ENCODING, 0, CERT_FIND_ANY, nullptr, nullptr),
        nullptr);
    CertFreeCertificateContext(current);
}

TEST_F(SystemStore, RefusesAPresentCertificateThatIsAddedAsNew) {
    store.add({numbered(1), {}, friendlyNameBytes(L"name"), {}});
    const HCERTSTORE opened = open();
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(add(opened, 1, CERT_STORE_ADD_NEW), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(CRYPT_E_EXISTS));
    EXPECT_EQ(store.entries().at(0).friendlyName, friendlyNameBytes(L"name"));
}

TEST_F(SystemStore, DoesNotWriteBackWhatAnotherHandleDeleted) {
    store.add(plain(1));
    const HCERTSTORE opened = open();
    store.remove(numbered(1));
    CertFreeCertificateContext(add(opened, 2, CERT_STORE_ADD_NEW));
    CertCloseStore(opened, 0);
    handle = nullptr;
    EXPECT_THAT(store.entries(), testing::ElementsAre(plain(2)));
}

TEST_F(SystemStore, ReadsTheStoreAnewOnResync) {
    store.add(plain(1));
    const HCERTSTORE opened = open();
    store.remove(numbered(1));
    store.add(plain(2));
    store.add(plain(3));
    EXPECT_TRUE(CertControlStore(opened, 0, CERT_STORE_CTRL_RESYNC, nullptr));
    std::vector<Bytes> seen;
    const CERT_CONTEXT* current = nullptr;
    while ((current = CertEnumCertificatesInStore(opened, current)) != nullptr)
        seen.emplace_back(current->pbCertEncoded, current->pbCertEncoded + current->cbCertEncoded);
    EXPECT_THAT(seen, UnorderedElementsAreArray({numbered(2), numbered(3)}));
}

TEST_F(SystemStore, FindsAnExactMatchOnly) {
    store.add(plain(1));
    const HCERTSTORE opened = open();
    const auto isFound = [&](const Bytes& encoded) {
        const CERT_CONTEXT* sought = CertCreateCertificateContext(
            X509_ASN_ENCODING, encoded.data(), static_cast<DWORD>(encoded.size()));
        const CERT_CONTEXT* found = CertFindCertificateInStore(opened, X509_ASN_ENCODING, 0,
                                                               CERT_FIND_EXISTING, sought, nullptr);
        CertFreeCertificateContext(sought);
        CertFreeCertificateContext(found);
        return found != nullptr;
    };
    EXPECT_TRUE(isFound(numbered(1)));
    EXPECT_FALSE(isFound(numbered(2)));
    const auto reissued = CertBuilder().serialNumber(1).subject(name({{"CN", "another subject"}}));
    EXPECT_FALSE(isFound(reissued.build()));
}

TEST_F(SystemStore, ReportsACertificateThatIsNone) {
    const HCERTSTORE opened = open();
    const unsigned char garbage[] = {1, 2, 3};
    const CERT_CONTEXT* added = nullptr;
    EXPECT_FALSE(CertAddEncodedCertificateToStore(opened, X509_ASN_ENCODING, garbage,
                                                  sizeof garbage, CERT_STORE_ADD_NEW, &added));
    EXPECT_NE(GetLastError(), static_cast<DWORD>(CRYPT_E_EXISTS));
    EXPECT_THAT(store.entries(), IsEmpty());
}

} // namespace
} // namespace testsupport
