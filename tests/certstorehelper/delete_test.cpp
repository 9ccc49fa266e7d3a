// Removing certificates.
#include "storetest.h"

namespace testsupport {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

/// The last error that a failed call left must be read before anything else changes it.
void clobberLastErrorOnFree(CryptoApi& api) {
    api.freeContext.replace([&api](PCCERT_CONTEXT context) {
        const BOOL freed = api.freeContext.original(context);
        SetLastError(ERROR_INVALID_FUNCTION);
        return freed;
    });
}

class CertStoreHelperDelete : public StoreTest {
protected:
    void remove(const Bytes& encoded) {
        CertStoreHelper(storeName()).deleteCertificate(certificateOf(encoded));
    }
};

TEST_F(CertStoreHelperDelete, RemovesTheCertificateWhateverItIsBoundTo) {
    store.add({numbered(1), keyProvInfo(L"container", L"CSP"), {}, {}});
    store.add({numbered(2), {}, {}, {}});
    remove(numbered(1));
    ASSERT_THAT(store.entries(), SizeIs(1));
    EXPECT_EQ(store.entries()[0].encoded, numbered(2));
}

TEST_F(CertStoreHelperDelete, ReturnsQuietlyIfTheCertificateIsNotThere) {
    store.add({numbered(2), {}, {}, {}});
    const CryptoApi api;
    EXPECT_NO_THROW(remove(numbered(1)));
    EXPECT_EQ(api.remove.count(), 0u);
    EXPECT_EQ(api.heldReferences(), 0);
}

TEST_F(CertStoreHelperDelete, CallsCryptoApiInOrder) {
    store.add({numbered(1), {}, {}, {}});
    CertStoreHelper helper(storeName());
    const asn1::Certificate certificate = certificateOf(numbered(1));
    const CryptoApi api;
    helper.deleteCertificate(certificate);
    EXPECT_THAT(api.log.names(),
                ElementsAre("CertCreateCertificateContext", "CertFindCertificateInStore",
                            "CertDeleteCertificateFromStore", "CertFreeCertificateContext"));
    EXPECT_EQ(api.heldReferences(), 0);
    EXPECT_NE(api.remove.argument<0>(1), api.freeContext.argument<0>(1));
}

TEST_F(CertStoreHelperDelete, AcceptsThatTheUserDeclines) {
    store.add({numbered(1), {}, {}, {}});
    CryptoApi api;
    clobberLastErrorOnFree(api);
    api.failRemove(1, ERROR_CANCELLED);
    EXPECT_NO_THROW(remove(numbered(1)));
    EXPECT_THAT(store.entries(), SizeIs(1));
}

TEST_F(CertStoreHelperDelete, ThrowsWhenTheStoreRefuses) {
    store.add({numbered(1), {}, {}, {}});
    CryptoApi api;
    api.failRemove(1, ERROR_ACCESS_DENIED);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_DeleteCertificateFailed, remove(numbered(1)));
    EXPECT_EQ(api.heldReferences(), 0);
}

TEST_F(CertStoreHelperDelete, RemovesEveryCertificateOfAMapWhateverItsKey) {
    for (const int number : {1, 2, 3})
        store.add({numbered(number), {}, {}, reference("container\nCSP\n")});
    CertMap items;
    items[L"x"] = itemOf(numbered(1));
    items[L"y"] = itemOf(numbered(3));
    items[L"z"] = itemOf(numbered(4));
    CertStoreHelper(storeName()).deleteCertificates(items);
    ASSERT_THAT(store.entries(), SizeIs(1));
    EXPECT_EQ(store.entries()[0].encoded, numbered(2));
}

TEST_F(CertStoreHelperDelete, RemovesAMapInTheOrderOfItsKeysUpToTheFirstFailure) {
    for (const int number : {1, 2, 3})
        store.add({numbered(number), {}, {}, {}});
    CertMap items;
    items[L"c"] = itemOf(numbered(1));
    items[L"b"] = itemOf(numbered(2));
    items[L"a"] = itemOf(numbered(3));
    CryptoApi api;
    api.failRemove(2, ERROR_ACCESS_DENIED);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_DeleteCertificateFailed,
                        CertStoreHelper(storeName()).deleteCertificates(items));
    ASSERT_THAT(api.found, SizeIs(2));
    EXPECT_EQ(api.found[0].wanted, numbered(3));
    EXPECT_EQ(api.found[1].wanted, numbered(2));
    EXPECT_THAT(store.entries(), SizeIs(2));
}

TEST_F(CertStoreHelperDelete, GoesOnWithAMapIfTheUserDeclinesOne) {
    for (const int number : {1, 2})
        store.add({numbered(number), {}, {}, {}});
    CertMap items;
    items[L"a"] = itemOf(numbered(1));
    items[L"b"] = itemOf(numbered(2));
    CryptoApi api;
    api.failRemove(1, ERROR_CANCELLED);
    CertStoreHelper(storeName()).deleteCertificates(items);
    ASSERT_THAT(store.entries(), SizeIs(1));
    EXPECT_EQ(store.entries()[0].encoded, numbered(1));
}

TEST_F(CertStoreHelperDelete, DoesNothingForAnEmptyMap) {
    CertStoreHelper helper(storeName());
    const CryptoApi api;
    helper.deleteCertificates({});
    EXPECT_THAT(api.log.names(), IsEmpty());
}

class CertStoreHelperDeleteByCsp : public StoreTest {
protected:
    void addRegistered(int number, std::string_view ref = "container\nCSP\n") {
        store.add({numbered(number), keyProvInfo(L"container", L"CSP"), {}, reference(ref)});
    }
    void remove(bool requireKeyProvInfo = false) {
        CertStoreHelper(storeName()).deleteCspCertificates(L"CSP", requireKeyProvInfo);
    }
    std::vector<Bytes> remaining() const {
        std::vector<Bytes> encodings;
        for (const StoreEntry& entry : store.entries())
            encodings.push_back(entry.encoded);
        return encodings;
    }
};

TEST_F(CertStoreHelperDeleteByCsp, RemovesAllOfTheCspInOnePassAndNothingElse) {
    for (int number = 1; number != 11; ++number)
        addRegistered(number, number % 2 ? "container\nCSP\n" : "other container\nCSP\n");
    addRegistered(11, "container\nother CSP\n");
    addRegistered(12, "container\ncsp\n");
    addRegistered(13, "CSP");
    store.add({numbered(14), keyProvInfo(L"container", L"CSP"), {}, {}});
    const CryptoApi api;
    remove();
    EXPECT_THAT(remaining(),
                UnorderedElementsAre(numbered(11), numbered(12), numbered(13), numbered(14)));
    EXPECT_EQ(api.remove.count(), 10u);
    EXPECT_EQ(api.enumerate.count(), 15u) << "one pass over 14 certificates";
    EXPECT_EQ(api.heldReferences(), 0);
}

TEST_F(CertStoreHelperDeleteByCsp, ReturnsAtOnceForAnEmptyStore) {
    CertStoreHelper helper(storeName());
    const CryptoApi api;
    helper.deleteCspCertificates(L"CSP", true);
    EXPECT_THAT(api.log.names(), ElementsAre("CertEnumCertificatesInStore"));
    EXPECT_EQ(api.enumerate.argument<1>(1), nullptr);
}

TEST_F(CertStoreHelperDeleteByCsp, DeletesADuplicateAndGoesOnFromTheCurrentContext) {
    addRegistered(1);
    CertStoreHelper helper(storeName());
    CryptoApi api;
    const CERT_CONTEXT* current = nullptr;
    const CERT_CONTEXT* copy = nullptr;
    const CERT_INFO* currentInfo = nullptr;
    const CERT_INFO* copyInfo = nullptr;
    // A duplicate at an address of its own tells apart who is deleted and who goes on.
    api.duplicate.onCall(1, [&](PCCERT_CONTEXT context) {
        current = context;
        currentInfo = context->pCertInfo;
        copy = CertCreateCertificateContext(X509_ASN_ENCODING, context->pbCertEncoded,
                                            context->cbCertEncoded);
        copyInfo = copy->pCertInfo;
        return copy;
    });
    api.remove.onCall(1,
                      [](PCCERT_CONTEXT context) { return CertFreeCertificateContext(context); });
    helper.deleteCspCertificates(L"CSP", true);
    ASSERT_NE(copy, nullptr);
    EXPECT_THAT(api.log.names(),
                ElementsAre("CertEnumCertificatesInStore",
                            "CertGetCertificateContextProperty", // the reference
                            "CertGetCertificateContextProperty",
                            "CertGetCertificateContextProperty", // key provider information
                            "CertGetCertificateContextProperty", "CertDuplicateCertificateContext",
                            "CertCompareCertificate", "CertDeleteCertificateFromStore",
                            "CertEnumCertificatesInStore"));
    EXPECT_EQ(api.compare.argument<0>(1), 1u);
    EXPECT_EQ(api.compare.argument<1>(1), copyInfo);
    EXPECT_EQ(api.compare.argument<2>(1), currentInfo);
    EXPECT_EQ(api.remove.argument<0>(1), copy);
    EXPECT_EQ(api.enumerate.argument<1>(2), current);
}

TEST_F(CertStoreHelperDeleteByCsp, WantsAKeyProviderInformationOfTheSameProviderIfAsked) {
    addRegistered(1);
    store.add({numbered(2), keyProvInfo(L"container", L"other CSP"), {}, reference("c\nCSP\n")});
    store.add({numbered(3), {}, {}, reference("container\nCSP\n")});
    store.add({numbered(4), keyProvInfo(L"another container", L"CSP"), {}, reference("c\nCSP\n")});
    remove(true);
    EXPECT_THAT(remaining(), UnorderedElementsAre(numbered(2), numbered(3)));
    remove(false);
    EXPECT_THAT(remaining(), IsEmpty());
}

TEST_F(CertStoreHelperDeleteByCsp, TakesAnEmptyCspForOneOfNoName) {
    addRegistered(1);
    addRegistered(2, "container\n\n");
    addRegistered(3, "container");
    addRegistered(4, "\n\nCSP\n");
    addRegistered(5, "\nCSP\n");
    store.add({numbered(6), keyProvInfo(L"container", L""), {}, {}});
    CertStoreHelper(storeName()).deleteCspCertificates(L"", false);
    EXPECT_THAT(remaining(), UnorderedElementsAre(numbered(1), numbered(5), numbered(6)));
}

TEST_F(CertStoreHelperDeleteByCsp, WantsAProviderOfNoNameForAnEmptyCspIfAsked) {
    addRegistered(1, "container\n\n");
    store.add({numbered(2), keyProvInfo(L"container", L""), {}, reference("container\n\n")});
    store.add({numbered(3), keyProvInfo(L"container", L""), {}, reference("container\nCSP\n")});
    CertStoreHelper(storeName()).deleteCspCertificates(L"", true);
    EXPECT_THAT(remaining(), UnorderedElementsAre(numbered(1), numbered(3)));
}

TEST_F(CertStoreHelperDeleteByCsp, EndsQuietlyWhenTheUserDeclines) {
    for (const int number : {1, 2, 3})
        addRegistered(number);
    CryptoApi api;
    clobberLastErrorOnFree(api);
    api.failRemove(2, ERROR_CANCELLED);
    EXPECT_NO_THROW(remove());
    EXPECT_THAT(remaining(), SizeIs(2));
    EXPECT_EQ(api.remove.count(), 2u);
    EXPECT_EQ(api.enumerate.count(), 2u);
    EXPECT_EQ(api.heldReferences(), 1) << "the enumeration is abandoned";
}

TEST_F(CertStoreHelperDeleteByCsp, ThrowsWhenTheStoreRefuses) {
    for (const int number : {1, 2, 3})
        addRegistered(number);
    CryptoApi api;
    api.failRemove(2, ERROR_ACCESS_DENIED);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_DeleteCertificateFailed, remove());
    EXPECT_THAT(remaining(), SizeIs(2));
    EXPECT_EQ(api.heldReferences(), 1) << "the enumeration is abandoned";
}

TEST_F(CertStoreHelperDeleteByCsp, ThrowsWithoutASecondReference) {
    addRegistered(1);
    CryptoApi api;
    api.duplicate.fail(1, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_DuplicateCertificatePointerFailed, remove());
    EXPECT_THAT(remaining(), SizeIs(1));
    EXPECT_EQ(api.compare.count(), 0u);
    EXPECT_EQ(api.heldReferences(), 1) << "the enumeration is abandoned";
}

TEST_F(CertStoreHelperDeleteByCsp, ThrowsIfTheSecondReferenceIsToAnotherCertificate) {
    addRegistered(1);
    CryptoApi api;
    api.compare.fail(1, FALSE, ERROR_SUCCESS);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_DuplicateCertificateMismatch, remove());
    EXPECT_THAT(remaining(), SizeIs(1));
    EXPECT_EQ(api.remove.count(), 0u);
    EXPECT_EQ(api.freeContext.count(), 1u) << "the second reference is freed";
    EXPECT_EQ(api.heldReferences(), 1) << "the enumeration is abandoned";
}

TEST_F(CertStoreHelperDeleteByCsp, ThrowsForAReferenceThatIsNotUtf8) {
    addRegistered(1, "container\nCSP\n\xC3\x41");
    const CryptoApi api;
    expectThrowsMalformedUtf8([&] { remove(); });
    EXPECT_THAT(remaining(), SizeIs(1));
    EXPECT_EQ(api.heldReferences(), 1) << "the enumeration is abandoned";
}

TEST_F(CertStoreHelperDeleteByCsp, ThrowsWithItsIdWhenAPropertyCannotBeRead) {
    addRegistered(1);
    for (const auto& [call, id] : {std::pair(2u, L"54086"), std::pair(4u, L"2")}) {
        CryptoApi api;
        api.getProperty.fail(call, FALSE, ERROR_MORE_DATA);
        EXPECT_THROWS_EVENT(CertStoreUpdaterError_GetCertContextPropertyFailed, remove(true),
                            {{L"PROPERTY", id}});
    }
    EXPECT_THAT(remaining(), SizeIs(1));
}

} // namespace
} // namespace testsupport
