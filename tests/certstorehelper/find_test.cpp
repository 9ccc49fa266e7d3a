// Finding certificates, and how properties are read for it.
#include "storetest.h"

namespace testsupport {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

class CertStoreHelperFind : public StoreTest {
protected:
    bool find(const std::wstring& csp, const std::wstring& container,
              bool requireKeyProvInfo = false) {
        return CertStoreHelper(storeName())
            .findCspCertificate(csp, container, certificateOf(numbered(1)), requireKeyProvInfo);
    }
};

TEST_F(CertStoreHelperFind, FindsAPresentCertificateWithoutAnyProperty) {
    store.add({numbered(1), {}, {}, {}});
    CertStoreHelper helper(storeName());
    EXPECT_TRUE(helper.findCertificate(certificateOf(numbered(1))));
    EXPECT_FALSE(helper.findCertificate(certificateOf(numbered(2))));
}

TEST_F(CertStoreHelperFind, TellsAReissuedCertificateFromTheOneThatIsThere) {
    store.add({numbered(1), {}, {}, {}});
    const auto reissued = CertBuilder().serialNumber(1).subject(name({{"CN", "another subject"}}));
    EXPECT_FALSE(CertStoreHelper(storeName()).findCertificate(certificateOf(reissued.build())));
}

TEST_F(CertStoreHelperFind, LooksForTheCertificateItself) {
    store.add({numbered(1), {}, {}, {}});
    CryptoApi api;
    HCERTSTORE handle = nullptr;
    api.openSystemStore.onCall(1, [&](HCRYPTPROV_LEGACY provider, LPCWSTR name) {
        return handle = api.openSystemStore.original(provider, name);
    });
    CertStoreHelper(storeName()).findCertificate(certificateOf(numbered(1)));
    ASSERT_THAT(api.found, SizeIs(1));
    EXPECT_EQ(api.found[0].store, handle);
    EXPECT_EQ(api.found[0].encodingType, 1u);
    EXPECT_EQ(api.found[0].flags, 0u);
    EXPECT_EQ(api.found[0].type, 0xD0000u);
    EXPECT_EQ(api.found[0].wanted, numbered(1));
    EXPECT_EQ(api.found[0].previous, nullptr);
    EXPECT_EQ(api.createContext.argument<0>(1), 1u);
    EXPECT_EQ(api.createContext.argument<2>(1), numbered(1).size());
}

TEST_F(CertStoreHelperFind, FreesOnlyTheContextThatItMade) {
    store.add({numbered(1), {}, {}, {}});
    CertStoreHelper helper(storeName());
    const asn1::Certificate present = certificateOf(numbered(1));
    const asn1::Certificate absent = certificateOf(numbered(2));
    CryptoApi api;
    helper.findCertificate(absent);
    EXPECT_EQ(api.heldReferences(), 0);
    EXPECT_THAT(api.log.names(),
                ElementsAre("CertCreateCertificateContext", "CertFindCertificateInStore",
                            "CertFreeCertificateContext"));
    helper.findCertificate(present);
    EXPECT_EQ(api.heldReferences(), 1) << "the found context lives until the store is closed";
}

TEST_F(CertStoreHelperFind, TakesAnEmptyCspForAnyBindingOrNone) {
    store.add({numbered(1), {}, {}, {}});
    const CryptoApi api;
    EXPECT_TRUE(find(L"", L"container", true));
    EXPECT_EQ(api.getProperty.count(), 0u);
}

TEST_F(CertStoreHelperFind, MatchesCspAndContainerOfTheReference) {
    store.add({numbered(1), {}, {}, reference("container\nCSP\n")});
    EXPECT_TRUE(find(L"CSP", L"container"));
    EXPECT_FALSE(find(L"other", L"container"));
    EXPECT_FALSE(find(L"CSP", L"other"));
    EXPECT_FALSE(find(L"container", L"CSP"));
}

TEST_F(CertStoreHelperFind, TakesAnEmptyContainerForAny) {
    store.add({numbered(1), {}, {}, reference("container\nCSP\n")});
    EXPECT_TRUE(find(L"CSP", L""));
    CertStoreHelper helper(storeName());
    EXPECT_TRUE(helper.findCspCertificate(L"CSP", certificateOf(numbered(1))));
    EXPECT_FALSE(helper.findCspCertificate(L"other", certificateOf(numbered(1))));
    EXPECT_TRUE(helper.findCspCertificate(L"CSP", L"container", certificateOf(numbered(1))));
    EXPECT_FALSE(helper.findCspCertificate(L"CSP", L"other", certificateOf(numbered(1))));
}

TEST_F(CertStoreHelperFind, ComparesNamesExactly) {
    store.add({numbered(1), {}, {}, reference("container\ncsp\n")});
    EXPECT_FALSE(find(L"CSP", L""));
    EXPECT_FALSE(find(L"csp ", L""));
    EXPECT_FALSE(find(L"cs", L""));
    EXPECT_FALSE(find(L"csp", L"Container"));
    EXPECT_TRUE(find(L"csp", L"container"));
}

TEST_F(CertStoreHelperFind, MatchesNamesOutsideAscii) {
    store.add({numbered(1), {}, {}, reference("\xED\xA0\xBD\xED\xB8\x80\n\xE2\x82\xAC\n")});
    EXPECT_TRUE(find(L"\u20AC", L"\xD83D\xDE00"));
    EXPECT_FALSE(find(L"\u20AC", L"\xD83D"));
}

TEST_F(CertStoreHelperFind, DoesNotFindACertificateWithoutAReference) {
    store.add({numbered(1), keyProvInfo(L"container", L"CSP"), {}, {}});
    EXPECT_FALSE(find(L"CSP", L"container"));
    EXPECT_FALSE(find(L"CSP", L"container", true));
}

TEST_F(CertStoreHelperFind, NeverMatchesACspInAReferenceOfOneLine) {
    store.add({numbered(1), {}, {}, reference("CSP")});
    EXPECT_FALSE(find(L"CSP", L""));
    EXPECT_FALSE(find(L"CSP", L"CSP"));
}

TEST_F(CertStoreHelperFind, IgnoresWhatFollowsTheSecondLine) {
    store.add({numbered(1), {}, {}, reference("container\nCSP\nfurther\n")});
    EXPECT_TRUE(find(L"CSP", L"container"));
}

TEST_F(CertStoreHelperFind, ThrowsForAReferenceThatIsNotUtf8) {
    store.add({numbered(1), {}, {}, reference("container\nCSP\n\xC3")});
    expectThrowsMalformedUtf8([&] { find(L"CSP", L"container"); });
}

TEST_F(CertStoreHelperFind, WantsAnAgreeingKeyProviderInformationIfAsked) {
    store.add({numbered(1), keyProvInfo(L"container", L"CSP"), {}, reference("container\nCSP\n")});
    EXPECT_TRUE(find(L"CSP", L"container", true));
    EXPECT_TRUE(find(L"CSP", L"", true));
}

TEST_F(CertStoreHelperFind, WantsAKeyProviderInformationIfAsked) {
    store.add({numbered(1), {}, {}, reference("container\nCSP\n")});
    EXPECT_FALSE(find(L"CSP", L"container", true));
    EXPECT_TRUE(find(L"CSP", L"container", false));
}

TEST_F(CertStoreHelperFind, WantsTheSameProviderIfAsked) {
    store.add({numbered(1), keyProvInfo(L"container", L"csp"), {}, reference("container\nCSP\n")});
    EXPECT_FALSE(find(L"CSP", L"container", true));
    EXPECT_TRUE(find(L"CSP", L"container", false));
}

TEST_F(CertStoreHelperFind, WantsTheSameContainerIfAsked) {
    store.add({numbered(1), keyProvInfo(L"other", L"CSP"), {}, reference("container\nCSP\n")});
    EXPECT_FALSE(find(L"CSP", L"container", true));
    EXPECT_TRUE(find(L"CSP", L"", true));
}

TEST_F(CertStoreHelperFind, DoesNotReadKeyProviderInformationWithoutNeed) {
    store.add({numbered(1), keyProvInfo(L"container", L"CSP"), {}, reference("container\nCSP\n")});
    const CryptoApi api;
    find(L"CSP", L"container", false);
    find(L"other", L"container", true);
    for (const auto& call : api.getProperty.calls())
        EXPECT_EQ(std::get<1>(call), 54086u);
}

TEST_F(CertStoreHelperFind, TakesNullNamesInKeyProviderInformationForEmptyOnes) {
    KeyProvInfo nameless;
    store.add({numbered(1), nameless, {}, reference("container\nCSP\n")});
    EXPECT_FALSE(find(L"CSP", L"", true));
}

// How a property is read: its size, then its value.
class CertStoreHelperProperty : public CertStoreHelperFind {
protected:
    void SetUp() override {
        store.add(
            {numbered(1), keyProvInfo(L"container", L"CSP"), {}, reference("container\nCSP\n")});
    }

    /// Answers both reads of the reference: the size, then the bytes of `value` and `secondSize`.
    void answer(CryptoApi& api, DWORD firstSize, const Bytes& value, DWORD secondSize) {
        api.getProperty.onCall(1, [firstSize](PCCERT_CONTEXT, DWORD, void*, DWORD* size) {
            *size = firstSize;
            return TRUE;
        });
        api.getProperty.onCall(2, [=](PCCERT_CONTEXT, DWORD, void* data, DWORD* size) {
            std::copy(value.begin(), value.end(), static_cast<unsigned char*>(data));
            *size = secondSize;
            return TRUE;
        });
    }
};

TEST_F(CertStoreHelperProperty, IsAskedForItsSizeFirst) {
    CryptoApi api;
    std::vector<DWORD> sizes;
    api.getProperty.replace([&](PCCERT_CONTEXT context, DWORD id, void* data, DWORD* size) {
        sizes.push_back(*size);
        return api.getProperty.original(context, id, data, size);
    });
    EXPECT_TRUE(find(L"CSP", L"container"));
    ASSERT_EQ(api.getProperty.count(), 2u);
    EXPECT_EQ(api.getProperty.argument<0>(1), api.getProperty.argument<0>(2));
    EXPECT_EQ(api.getProperty.argument<1>(1), 54086u);
    EXPECT_EQ(api.getProperty.argument<1>(2), 54086u);
    EXPECT_EQ(api.getProperty.argument<2>(1), nullptr);
    EXPECT_NE(api.getProperty.argument<2>(2), nullptr);
    EXPECT_THAT(sizes, ElementsAre(0u, 14u));
}

TEST_F(CertStoreHelperProperty, IsAbsentIfItsSizeCannotBeReadForAnyReason) {
    CryptoApi api;
    api.getProperty.fail(1, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(find(L"CSP", L"container"));
    EXPECT_EQ(api.getProperty.count(), 1u);
}

TEST_F(CertStoreHelperProperty, ThrowsWithItsIdWhenItsValueCannotBeRead) {
    CryptoApi api;
    api.getProperty.fail(2, FALSE, ERROR_MORE_DATA);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_GetCertContextPropertyFailed,
                        find(L"CSP", L"container"), {{L"PROPERTY", L"54086"}});
}

TEST_F(CertStoreHelperProperty, ThrowsWithTheIdOfKeyProviderInformation) {
    CryptoApi api;
    api.getProperty.fail(4, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_GetCertContextPropertyFailed,
                        find(L"CSP", L"container", true), {{L"PROPERTY", L"2"}});
    EXPECT_EQ(api.heldReferences(), 1) << "only the found context is kept";
}

TEST_F(CertStoreHelperProperty, KeepsTheSizeThatWasReportedFirst) {
    CryptoApi api;
    answer(api, 4, reference("A\nB\n"), 2);
    EXPECT_TRUE(find(L"B", L"A"));
}

TEST_F(CertStoreHelperProperty, SaysNothingBeyondWhatWasRead) {
    CryptoApi api;
    answer(api, 20, reference("A\nB\n"), 4);
    EXPECT_TRUE(find(L"B", L"A"));
}

TEST_F(CertStoreHelperProperty, MayBeEmpty) {
    CryptoApi api;
    answer(api, 0, {}, 0);
    EXPECT_FALSE(find(L"CSP", L""));
    EXPECT_EQ(api.getProperty.count(), 2u);
}

TEST_F(CertStoreHelperProperty, MayBeLong) {
    CryptoApi api;
    const std::string csp(1000000, 'x');
    const Bytes value = reference("A\n" + csp + "\n");
    answer(api, static_cast<DWORD>(value.size()), value, static_cast<DWORD>(value.size()));
    EXPECT_TRUE(find(std::wstring(csp.begin(), csp.end()), L"A"));
}

TEST_F(CertStoreHelperProperty, OfKeyProviderInformationIsNotReadBeyondItsEnd) {
    CryptoApi api;
    for (const std::size_t call : {3u, 4u})
        api.getProperty.onCall(call, [](PCCERT_CONTEXT, DWORD id, void* data, DWORD* size) {
            EXPECT_EQ(id, 2u);
            *size = 8;
            if (data)
                std::fill_n(static_cast<unsigned char*>(data), 8, static_cast<unsigned char>(0xFF));
            return TRUE;
        });
    EXPECT_FALSE(find(L"CSP", L"", true));
    EXPECT_EQ(api.getProperty.count(), 4u);
}

} // namespace
} // namespace testsupport
