// Registering certificates for a CSP.
#include "storetest.h"

#include <algorithm>

namespace testsupport {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class CertStoreHelperAdd : public StoreTest {
protected:
    void add(const Bytes& encoded, const std::wstring& friendlyName = L"name",
             bool withKeyProvInfo = true) {
        CertStoreHelper(storeName())
            .addCspCertificate(L"CSP", L"container", friendlyName, certificateOf(encoded),
                               withKeyProvInfo);
    }

    /// The friendly name that a certificate gets when none is given.
    std::wstring defaultNameOf(const Bytes& subject) {
        add(CertBuilder().subject(subject).build(), L"");
        const Bytes stored = store.entries().at(0).friendlyName.value();
        std::wstring name(stored.size() / sizeof(wchar_t), L'\0');
        std::copy(stored.begin(), stored.end(), reinterpret_cast<unsigned char*>(name.data()));
        EXPECT_EQ(name.back(), L'\0');
        name.pop_back();
        return name;
    }
};

TEST_F(CertStoreHelperAdd, StoresTheCertificateWithItsThreeProperties) {
    const Bytes encoded = CertBuilder().extensions({keyUsage({0})}).build();
    add(encoded);
    KeyProvInfo info = keyProvInfo(L"container", L"CSP");
    info.keySpec = AT_SIGNATURE;
    EXPECT_THAT(store.entries(), ElementsAre(StoreEntry{encoded, info, friendlyNameBytes(L"name"),
                                                        reference("container\nCSP\n")}));
}

TEST_F(CertStoreHelperAdd, CallsCryptoApiInOrder) {
    CertStoreHelper helper(storeName());
    const asn1::Certificate certificate = certificateOf(numbered(1));
    const CryptoApi api;
    helper.addCspCertificate(L"CSP", L"container", L"name", certificate, true);
    EXPECT_THAT(api.log.names(),
                ElementsAre("CertAddEncodedCertificateToStore", "CertSetCertificateContextProperty",
                            "CertSetCertificateContextProperty",
                            "CertSetCertificateContextProperty", "CertFreeCertificateContext"));
    EXPECT_EQ(api.heldReferences(), 0);
}

TEST_F(CertStoreHelperAdd, AddsTheEncodingAsANewX509Certificate) {
    CryptoApi api;
    add(numbered(1));
    ASSERT_THAT(api.added, SizeIs(1));
    EXPECT_NE(api.added[0].store, nullptr);
    EXPECT_EQ(api.added[0].encodingType, 1u);
    EXPECT_EQ(api.added[0].encoded, numbered(1));
    EXPECT_EQ(api.added[0].disposition, 1u);
}

TEST_F(CertStoreHelperAdd, SetsKeyProviderInformationThenFriendlyNameThenReference) {
    CryptoApi api;
    add(CertBuilder().extensions({keyUsage({0, 2})}).build(), L"AB");
    ASSERT_THAT(api.propertiesSet, SizeIs(3));

    const PropertyCall& info = api.propertiesSet[0];
    EXPECT_EQ(info.id, 2u);
    EXPECT_EQ(info.flags, 0u);
    EXPECT_EQ(info.keyProvInfo, (KeyProvInfo{L"container", L"CSP", 1, 0, 0, 1}));
    EXPECT_FALSE(info.hasParameters);

    const PropertyCall& name = api.propertiesSet[1];
    EXPECT_EQ(name.id, 11u);
    EXPECT_EQ(name.flags, 0u);
    EXPECT_EQ(name.blob, (Bytes{0x41, 0x00, 0x42, 0x00, 0x00, 0x00}));

    const PropertyCall& bound = api.propertiesSet[2];
    EXPECT_EQ(bound.id, 54086u);
    EXPECT_EQ(bound.flags, 0u);
    EXPECT_EQ(bound.blob, reference("container\nCSP\n"));
}

TEST_F(CertStoreHelperAdd, WritesTheReferenceOfOneLetterNamesInFourBytes) {
    CryptoApi api;
    CertStoreHelper(storeName())
        .addCspCertificate(L"B", L"A", L"name", certificateOf(numbered(1)), false);
    EXPECT_EQ(api.propertiesSet.back().blob, (Bytes{0x41, 0x0A, 0x42, 0x0A}));
}

TEST_F(CertStoreHelperAdd, TakesTheKeySpecificationFromTheKeyUsage) {
    for (const auto& [bit, keySpec] :
         {std::pair(0u, AT_SIGNATURE), std::pair(2u, AT_KEYEXCHANGE), std::pair(4u, 0)}) {
        CryptoApi api;
        add(CertBuilder().serialNumber(bit + 1).extensions({keyUsage({bit})}).build());
        EXPECT_EQ(api.propertiesSet.at(0).keyProvInfo->keySpec, static_cast<DWORD>(keySpec));
    }
}

TEST_F(CertStoreHelperAdd, LeavesKeyProviderInformationOutIfNotAskedForIt) {
    add(numbered(1), L"name", false);
    EXPECT_THAT(store.entries(),
                ElementsAre(StoreEntry{numbered(1), std::nullopt, friendlyNameBytes(L"name"),
                                       reference("container\nCSP\n")}));
}

TEST_F(CertStoreHelperAdd, StoresNamesOutsideAscii) {
    const std::wstring csp = L"Anbieter \u00C4\u20AC";
    const std::wstring container = L"\u043A\u043B\u044E\u0447";
    const std::wstring name = L"Smile \xD83D\xDE00";
    CertStoreHelper(storeName())
        .addCspCertificate(csp, container, name, certificateOf(numbered(1)), true);
    EXPECT_THAT(
        store.entries(),
        ElementsAre(StoreEntry{
            numbered(1), keyProvInfo(container, csp), friendlyNameBytes(name),
            reference("\xD0\xBA\xD0\xBB\xD1\x8E\xD1\x87\nAnbieter \xC3\x84\xE2\x82\xAC\n")}));
}

TEST_F(CertStoreHelperAdd, EncodesTheHalvesOfASurrogatePairEachByItself) {
    CryptoApi api;
    CertStoreHelper(storeName())
        .addCspCertificate(L"\xD83D\xDE00", L"c", L"name", certificateOf(numbered(1)), false);
    EXPECT_EQ(api.propertiesSet.back().blob, reference("c\n\xED\xA0\xBD\xED\xB8\x80\n"));
}

TEST_F(CertStoreHelperAdd, WritesAFriendlyNameWithAZeroUnitWhole) {
    const std::wstring name{L'A', L'\0', L'B'};
    CryptoApi api;
    add(numbered(1), name, false);
    EXPECT_EQ(api.propertiesSet.front().blob, friendlyNameBytes(name));
}

TEST_F(CertStoreHelperAdd, NamesACertificateAfterItsCommonName) {
    EXPECT_EQ(defaultNameOf(name({{"C", "DE"}, {"CN", "J\xC3\xBCrgen, Dr."}})),
              L"J\u00FCrgen, Dr.");
}

TEST_F(CertStoreHelperAdd, NamesACertificateAfterTheFirstOfSeveralCommonNames) {
    EXPECT_EQ(defaultNameOf(name({{"CN", "first"}, {"CN", "second"}})), L"first");
}

TEST_F(CertStoreHelperAdd, JoinsTheSegmentsOfACommonName) {
    EXPECT_EQ(defaultNameOf(nameOf({set(
                  {attribute("CN", element(0x2C, utf8String("AB") + octetString({67, 68})))})})),
              L"ABCD");
}

TEST_F(CertStoreHelperAdd, ReadsACommonNameInAnyCharacterString) {
    EXPECT_EQ(defaultNameOf(nameOf({set({attribute("2.5.4.3", bmpString(u"\u00C4 \u20AC"))})})),
              L"\u00C4 \u20AC");
}

TEST_F(CertStoreHelperAdd, NamesACertificateWithoutACommonNameAfterItsWholeSubject) {
    EXPECT_EQ(defaultNameOf(name({{"C", "DE"}, {"O", "Smith, John"}})), L"O=Smith\\, John, C=DE");
}

TEST_F(CertStoreHelperAdd, NamesACertificateWithoutASubjectByNothing) {
    EXPECT_EQ(defaultNameOf(name({})), L"");
}

TEST_F(CertStoreHelperAdd, NeverChangesAGivenFriendlyName) {
    add(numbered(1), L" ");
    EXPECT_EQ(store.entries().at(0).friendlyName, friendlyNameBytes(L" "));
}

TEST_F(CertStoreHelperAdd, PassesOnThatTheCommonNameIsNoDirectoryString) {
    const Bytes subject = nameOf({set({attribute("2.5.4.3", integer(1))})});
    const Bytes encoded = CertBuilder().subject(subject).build();
    EXPECT_THROW(add(encoded, L""), asn1::QuorError_Asn1_Decode);
    EXPECT_THAT(store.entries(),
                ElementsAre(StoreEntry{encoded, keyProvInfo(L"container", L"CSP"), {}, {}}));
}

TEST_F(CertStoreHelperAdd, LeavesAPresentCertificateExactlyAsItIs) {
    const StoreEntry present{numbered(1), keyProvInfo(L"old container", L"old CSP"),
                             friendlyNameBytes(L"old name"), reference("old\nold\n")};
    store.add(present);
    CryptoApi api;
    EXPECT_NO_THROW(add(numbered(1)));
    EXPECT_THAT(store.entries(), ElementsAre(present));
    EXPECT_THAT(api.propertiesSet, IsEmpty());
    EXPECT_EQ(api.heldReferences(), 0);
}

TEST_F(CertStoreHelperAdd, AcceptsThatTheUserDeclines) {
    CryptoApi api;
    api.addEncoded.fail(1, FALSE, ERROR_CANCELLED);
    EXPECT_NO_THROW(add(numbered(1)));
    EXPECT_THAT(store.entries(), IsEmpty());
    EXPECT_THAT(api.propertiesSet, IsEmpty());
}

TEST_F(CertStoreHelperAdd, AcceptsThatTheSystemFindsThePresentCertificate) {
    CryptoApi api;
    api.addEncoded.fail(1, FALSE, static_cast<DWORD>(CRYPT_E_EXISTS));
    EXPECT_NO_THROW(add(numbered(1)));
    EXPECT_THAT(api.propertiesSet, IsEmpty());
}

TEST_F(CertStoreHelperAdd, ThrowsWhenTheStoreRefusesTheCertificate) {
    CertStoreHelper helper(storeName());
    const asn1::Certificate certificate = certificateOf(numbered(1));
    CryptoApi api;
    api.addEncoded.fail(1, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_AddCertificateToStoreFailed,
                        helper.addCspCertificate(L"CSP", L"c", L"n", certificate, true));
    EXPECT_THAT(api.log.names(), ElementsAre("CertAddEncodedCertificateToStore"));
}

TEST_F(CertStoreHelperAdd, ThrowsWhenKeyProviderInformationIsRefused) {
    CryptoApi api;
    api.setProperty.fail(1, FALSE, ERROR_CANCELLED);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_SetKeyProviderInfoFailed, add(numbered(1)),
                        {{L"CSP", L"CSP"}, {L"CONTAINER", L"container"}});
    EXPECT_THAT(store.entries(), ElementsAre(StoreEntry{numbered(1), {}, {}, {}}));
    EXPECT_EQ(api.setProperty.count(), 1u);
    EXPECT_EQ(api.heldReferences(), 1) << "the reference to the added certificate is kept";
}

TEST_F(CertStoreHelperAdd, ThrowsWhenTheFriendlyNameIsRefused) {
    CryptoApi api;
    api.setProperty.fail(2, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_THROWS_EVENT(
        CertStoreUpdaterError_SetCertFriendlyNameFailed, add(numbered(1), L""),
        {{L"CSP", L"CSP"}, {L"CONTAINER", L"container"}, {L"FRIENDLYNAME", L"Holder 1"}});
    EXPECT_THAT(store.entries(),
                ElementsAre(StoreEntry{numbered(1), keyProvInfo(L"container", L"CSP"), {}, {}}));
    EXPECT_EQ(api.setProperty.count(), 2u);
    EXPECT_EQ(api.heldReferences(), 1) << "the reference to the added certificate is kept";
}

TEST_F(CertStoreHelperAdd, ThrowsWhenTheReferenceIsRefused) {
    CryptoApi api;
    api.setProperty.fail(3, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_SetCertKorvaneCspRefFailed, add(numbered(1)),
                        {{L"CSP", L"CSP"}});
    EXPECT_THAT(
        store.entries(),
        ElementsAre(StoreEntry{
            numbered(1), keyProvInfo(L"container", L"CSP"), friendlyNameBytes(L"name"), {}}));
    EXPECT_EQ(api.heldReferences(), 1) << "the reference to the added certificate is kept";
}

TEST_F(CertStoreHelperAdd, LeavesACertificateOfMalformedKeyUsageWithoutProperties) {
    const Bytes encoded = CertBuilder().extensions({extension("2.5.29.15", integer(1))}).build();
    CryptoApi api;
    EXPECT_THROW(add(encoded), asn1::QuorError_Asn1_Decode);
    EXPECT_THAT(store.entries(), ElementsAre(StoreEntry{encoded, {}, {}, {}}));
    EXPECT_EQ(api.setProperty.count(), 0u);
    EXPECT_EQ(api.heldReferences(), 1) << "the reference to the added certificate is kept";
}

TEST_F(CertStoreHelperAdd, DoesNotAskForTheKeyUsageWithoutKeyProviderInformation) {
    const Bytes encoded = CertBuilder().extensions({extension("2.5.29.15", integer(1))}).build();
    add(encoded, L"name", false);
    EXPECT_THAT(store.entries(),
                ElementsAre(StoreEntry{
                    encoded, {}, friendlyNameBytes(L"name"), reference("container\nCSP\n")}));
}

TEST_F(CertStoreHelperAdd, PassesOnThatACertificateHasNoValue) {
    CertStoreHelper helper(storeName());
    const CryptoApi api;
    EXPECT_THROW(helper.addCspCertificate(L"CSP", L"c", L"n", asn1::Certificate(), true),
                 asn1::QuorError);
    EXPECT_THAT(api.log.names(), IsEmpty());
}

class CertStoreHelperAddWithLookup : public StoreTest {
protected:
    void add(bool withKeyProvInfo, bool skipLookup, bool lookupByCsp) {
        CertStoreHelper(storeName())
            .addCspCertificate(L"CSP", L"container", L"name", certificateOf(numbered(1)),
                               withKeyProvInfo, skipLookup, lookupByCsp);
    }
};

TEST_F(CertStoreHelperAddWithLookup, DoesNotAddAPresentCertificate) {
    store.add({numbered(1), {}, {}, {}});
    const CryptoApi api;
    add(true, false, false);
    EXPECT_EQ(api.find.count(), 1u);
    EXPECT_EQ(api.addEncoded.count(), 0u);
    EXPECT_EQ(api.getProperty.count(), 0u);
}

TEST_F(CertStoreHelperAddWithLookup, AddsAnAbsentCertificate) {
    const CryptoApi api;
    add(true, false, false);
    EXPECT_EQ(api.find.count(), 1u);
    EXPECT_THAT(store.entries(), SizeIs(1));
}

TEST_F(CertStoreHelperAddWithLookup, DoesNotAddACertificateThatIsRegisteredForTheCsp) {
    store.add({numbered(1), keyProvInfo(L"container", L"CSP"), {}, reference("container\nCSP\n")});
    const CryptoApi api;
    add(true, false, true);
    EXPECT_EQ(api.addEncoded.count(), 0u);
}

TEST_F(CertStoreHelperAddWithLookup, TriesToAddACertificateThatIsRegisteredForAnotherCsp) {
    const StoreEntry other{numbered(1), {}, {}, reference("container\nother\n")};
    store.add(other);
    const CryptoApi api;
    add(false, false, true);
    EXPECT_EQ(api.addEncoded.count(), 1u);
    EXPECT_THAT(store.entries(), ElementsAre(other));
}

TEST_F(CertStoreHelperAddWithLookup, TriesToAddACertificateThatIsRegisteredForAnotherContainer) {
    store.add({numbered(1), {}, {}, reference("other\nCSP\n")});
    const CryptoApi api;
    add(false, false, true);
    EXPECT_EQ(api.addEncoded.count(), 1u);
}

TEST_F(CertStoreHelperAddWithLookup, AsksForKeyProviderInformationOnlyIfItWouldWriteIt) {
    store.add({numbered(1), {}, {}, reference("container\nCSP\n")});
    const CryptoApi api;
    add(false, false, true);
    EXPECT_EQ(api.addEncoded.count(), 0u);
    add(true, false, true);
    EXPECT_EQ(api.addEncoded.count(), 1u);
}

TEST_F(CertStoreHelperAddWithLookup, DoesNotLookIfToldNotTo) {
    const CryptoApi api;
    add(true, true, true);
    add(true, true, false);
    EXPECT_EQ(api.find.count(), 0u);
    EXPECT_EQ(api.addEncoded.count(), 2u);
}

class CertStoreHelperAddAll : public StoreTest {};

TEST_F(CertStoreHelperAddAll, RegistersEveryItemByItsKeyAndLabel) {
    CertMap items;
    items[L"container 1"] = itemOf(numbered(1), L"label 1");
    items[L"container 2"] = itemOf(numbered(2));
    CertStoreHelper(storeName()).addCspCertificates(L"CSP", items, true);
    EXPECT_THAT(store.entries(),
                testing::UnorderedElementsAre(
                    StoreEntry{numbered(1), keyProvInfo(L"container 1", L"CSP"),
                               friendlyNameBytes(L"label 1"), reference("container 1\nCSP\n")},
                    StoreEntry{numbered(2), keyProvInfo(L"container 2", L"CSP"),
                               friendlyNameBytes(L"Holder 2"), reference("container 2\nCSP\n")}));
}

TEST_F(CertStoreHelperAddAll, WalksInTheOrderOfTheKeysCodeUnits) {
    CertMap items;
    items[L"\xFFFD"] = itemOf(numbered(4));
    items[L"\xD83D\xDE00"] = itemOf(numbered(3));
    items[L"b"] = itemOf(numbered(2));
    items[L"B"] = itemOf(numbered(1));
    CryptoApi api;
    CertStoreHelper(storeName()).addCspCertificates(L"CSP", items, false);
    ASSERT_THAT(api.added, SizeIs(4));
    for (int i = 0; i != 4; ++i)
        EXPECT_EQ(api.added[static_cast<std::size_t>(i)].encoded, numbered(i + 1));
}

TEST_F(CertStoreHelperAddAll, CutsKeyAndLabelAtTheirFirstZeroUnit) {
    CertMap items;
    CertItem item = itemOf(numbered(1));
    item.label = buffer::Buffer<wchar_t>(L"la\0bel", 6);
    items[buffer::Buffer<wchar_t>(L"con\0tainer", 10)] = item;
    CertStoreHelper(storeName()).addCspCertificates(L"CSP", items, true);
    EXPECT_THAT(store.entries(),
                ElementsAre(StoreEntry{numbered(1), keyProvInfo(L"con", L"CSP"),
                                       friendlyNameBytes(L"la"), reference("con\nCSP\n")}));
}

TEST_F(CertStoreHelperAddAll, TakesNullKeyAndLabelForEmptyText) {
    CertMap items;
    items[{}].certificate = certificateOf(numbered(1));
    CertStoreHelper(storeName()).addCspCertificates(L"CSP", items, false);
    EXPECT_THAT(store.entries(),
                ElementsAre(StoreEntry{numbered(1), std::nullopt, friendlyNameBytes(L"Holder 1"),
                                       reference("\nCSP\n")}));
}

TEST_F(CertStoreHelperAddAll, StopsAtTheFirstFailure) {
    CertMap items;
    items[L"1"] = itemOf(numbered(1));
    items[L"2"] = itemOf(numbered(2));
    items[L"3"] = itemOf(numbered(3));
    CryptoApi api;
    api.addEncoded.fail(2, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_AddCertificateToStoreFailed,
                        CertStoreHelper(storeName()).addCspCertificates(L"CSP", items, false));
    EXPECT_EQ(api.addEncoded.count(), 2u);
    ASSERT_THAT(store.entries(), SizeIs(1));
    EXPECT_EQ(store.entries()[0].encoded, numbered(1));
}

TEST_F(CertStoreHelperAddAll, GoesOnAfterWhatIsPresentOrDeclined) {
    store.add({numbered(1), {}, {}, {}});
    CertMap items;
    items[L"1"] = itemOf(numbered(1));
    items[L"2"] = itemOf(numbered(2));
    items[L"3"] = itemOf(numbered(3));
    CryptoApi api;
    api.addEncoded.fail(2, FALSE, ERROR_CANCELLED);
    CertStoreHelper(storeName()).addCspCertificates(L"CSP", items, false);
    EXPECT_THAT(store.entries(), SizeIs(2));
    EXPECT_EQ(api.addEncoded.count(), 3u);
}

TEST_F(CertStoreHelperAddAll, PassesItsFlagsOnToEachItem) {
    store.add({numbered(1), {}, {}, reference("1\nother\n")});
    CertMap items;
    items[L"1"] = itemOf(numbered(1));
    items[L"2"] = itemOf(numbered(2));
    const CryptoApi api;
    CertStoreHelper helper(storeName());
    helper.addCspCertificates(L"CSP", items, false, false, false);
    EXPECT_EQ(api.find.count(), 2u);
    EXPECT_EQ(api.addEncoded.count(), 1u);
    helper.addCspCertificates(L"CSP", items, false, false, true);
    EXPECT_EQ(api.find.count(), 4u);
    EXPECT_EQ(api.addEncoded.count(), 2u) << "one is registered for another CSP";
}

TEST_F(CertStoreHelperAddAll, LooksForNoItemUnlessToldTo) {
    CertMap items;
    items[L"1"] = itemOf(numbered(1));
    items[L"2"] = itemOf(numbered(2));
    const CryptoApi api;
    CertStoreHelper helper(storeName());
    helper.addCspCertificates(L"CSP", items, false);
    helper.addCspCertificates(L"CSP", items, false, true, true);
    helper.addCspCertificates(L"CSP", items, false, true, false);
    EXPECT_EQ(api.find.count(), 0u);
    EXPECT_EQ(api.addEncoded.count(), 6u);
}

TEST_F(CertStoreHelperAddAll, AsksForTheKeyProviderInformationOfEachItemThatItWouldWrite) {
    store.add({numbered(1), {}, {}, reference("1\nCSP\n")});
    CertMap items;
    items[L"1"] = itemOf(numbered(1));
    const CryptoApi api;
    CertStoreHelper helper(storeName());
    helper.addCspCertificates(L"CSP", items, false, false, true);
    EXPECT_EQ(api.addEncoded.count(), 0u);
    helper.addCspCertificates(L"CSP", items, true, false, true);
    EXPECT_EQ(api.addEncoded.count(), 1u);
}

TEST_F(CertStoreHelperAddAll, DoesNothingForAnEmptyMap) {
    CertStoreHelper helper(storeName());
    const CryptoApi api;
    helper.addCspCertificates(L"CSP", {}, true, false, true);
    EXPECT_THAT(api.log.names(), IsEmpty());
}

} // namespace
} // namespace testsupport
