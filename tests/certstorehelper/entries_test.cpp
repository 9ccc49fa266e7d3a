// Listing all entries of a store, and giving one of them other properties.
#include "storetest.h"

#include <algorithm>

namespace testsupport {
namespace {

using pkcs11::certstoreupdater::CertStoreUpdaterError_GetCertContextPropertyFailed;
using Entry = pkcs11::certstoreupdater::StoreEntry;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

Bytes bytesOf(const buffer::Buffer<unsigned char>& buffer) {
    return Bytes(buffer.begin(), buffer.end());
}

/// What is the same as in an entry that any program sees.
StoreEntry asSeen(const Entry& entry) {
    StoreEntry seen;
    seen.encoded = bytesOf(entry.encoding);
    if (entry.keyProvider) {
        seen.keyProvInfo =
            keyProvInfo(entry.keyProvider->containerName, entry.keyProvider->cspName);
        seen.keyProvInfo->type = entry.keyProvider->type;
        seen.keyProvInfo->keySpec = entry.keyProvider->keySpec;
    }
    if (!entry.friendlyName.empty())
        seen.friendlyName = friendlyNameBytes(entry.friendlyName);
    return seen;
}

class CertStoreHelperEntries : public StoreTest {
protected:
    std::vector<Entry> list() { return CertStoreHelper(storeName()).listEntries(); }
    Entry only() {
        const std::vector<Entry> entries = list();
        EXPECT_THAT(entries, SizeIs(1));
        return entries.empty() ? Entry() : entries.front();
    }
};

TEST_F(CertStoreHelperEntries, AreNoneInAnEmptyStore) {
    EXPECT_THAT(list(), IsEmpty());
}

TEST_F(CertStoreHelperEntries, AreListedInTheStoresOrderWithAllThatBindsThem) {
    KeyProvInfo modern = keyProvInfo(L"b", L"KSP");
    modern.type = 0;
    modern.keySpec = AT_SIGNATURE;
    store.add({numbered(1), keyProvInfo(L"a", L"CSP"), friendlyNameBytes(L"name"), {}});
    store.add({numbered(2), modern, {}, {}});
    store.add({numbered(3), {}, friendlyNameBytes(L"\u20AC \xD83D\xDE00"), {}});
    store.add({numbered(4), {}, {}, {}});
    const std::vector<StoreEntry> expected = store.entries();
    const std::vector<Entry> entries = list();
    ASSERT_EQ(entries.size(), expected.size());
    for (std::size_t i = 0; i != entries.size(); ++i) {
        EXPECT_EQ(asSeen(entries[i]), expected[i]);
        EXPECT_FALSE(entries[i].registration);
        ASSERT_TRUE(entries[i].certificate);
        EXPECT_EQ(testsupport::bytesOf(*entries[i].certificate), expected[i].encoded);
        EXPECT_EQ(entries[i].certificateError, nullptr);
        EXPECT_EQ(entries[i].propertyError, nullptr);
    }
}

TEST_F(CertStoreHelperEntries, CarryWhatARegistrationRecords) {
    store.add({numbered(1), {}, {}, reference("\xC3\xA9\n\xE2\x82\xAC\nmore")});
    const Entry entry = only();
    ASSERT_TRUE(entry.registration);
    EXPECT_EQ(entry.registration->containerName, L"\u00E9");
    EXPECT_EQ(entry.registration->cspName, L"\u20AC");
    EXPECT_FALSE(entry.keyProvider);
}

TEST_F(CertStoreHelperEntries, CarryBothKindsOfBindings) {
    store.add({numbered(1), keyProvInfo(L"a", L"CSP"), {}, reference("x\nother\n")});
    const Entry entry = only();
    ASSERT_TRUE(entry.registration && entry.keyProvider);
    EXPECT_EQ(entry.registration->containerName, L"x");
    EXPECT_EQ(entry.keyProvider->containerName, L"a");
}

TEST_F(CertStoreHelperEntries, OfOneContainerAreAllListed) {
    for (const int number : {1, 2, 3})
        store.add({numbered(number), keyProvInfo(L"container", L"CSP"), {}, {}});
    std::vector<Bytes> encodings;
    for (const Entry& entry : list())
        encodings.push_back(bytesOf(entry.encoding));
    EXPECT_THAT(encodings, testing::UnorderedElementsAre(numbered(1), numbered(2), numbered(3)));
}

TEST_F(CertStoreHelperEntries, CarryTheThumbprintThatWindowsComputes) {
    store.add({numbered(1), {}, {}, {}});
    const HCERTSTORE opened = CertOpenSystemStoreW(0, storeName().c_str());
    const CERT_CONTEXT* const context = CertEnumCertificatesInStore(opened, nullptr);
    ASSERT_NE(context, nullptr);
    Bytes expected(20);
    DWORD size = 20;
    ASSERT_TRUE(
        CertGetCertificateContextProperty(context, CERT_SHA1_HASH_PROP_ID, expected.data(), &size));
    CertFreeCertificateContext(context);
    CertCloseStore(opened, 0);
    EXPECT_EQ(bytesOf(only().thumbprint), expected);
}

TEST_F(CertStoreHelperEntries, ThatCannotBeReadAsAWholeEndNothing) {
    // A version that is written although it has its default: Windows takes it, DER forbids it.
    const Bytes malformed = CertBuilder().version(explicitly(0, integer(0))).build();
    store.add({malformed, keyProvInfo(L"a", L"CSP"), friendlyNameBytes(L"name"), {}});
    store.add({numbered(1), keyProvInfo(L"b", L"CSP"), {}, reference("\xFF")});
    store.add({numbered(3), {}, {}, {}});
    const std::vector<Entry> entries = list();
    ASSERT_THAT(entries, SizeIs(3));
    for (const Entry& entry : entries) {
        const Bytes encoding = bytesOf(entry.encoding);
        EXPECT_EQ(entry.certificate.has_value(), encoding != malformed);
        EXPECT_EQ(entry.certificateError == nullptr, encoding != malformed);
        EXPECT_EQ(entry.propertyError == nullptr, encoding != numbered(1));
        EXPECT_EQ(entry.keyProvider.has_value(), encoding != numbered(3));
        EXPECT_FALSE(entry.registration);
        if (entry.certificateError) {
            EXPECT_EQ(entry.friendlyName, L"name");
            EXPECT_STREQ(entry.certificateError->what(), "QuorError_Asn1_Decode");
        }
        if (entry.propertyError) {
            EXPECT_STREQ(entry.propertyError->what(), "BufferError_InvalidEncodingUnit");
        }
    }
}

/// With one property that can be measured, but not read.
class CertStoreHelperEntriesWithout : public CertStoreHelperEntries,
                                      public testing::WithParamInterface<DWORD> {};

TEST_P(CertStoreHelperEntriesWithout, SayWhichPropertyCouldNotBeRead) {
    store.add({numbered(1), keyProvInfo(L"a", L"CSP"), friendlyNameBytes(L"name"),
               reference("a\nCSP\n")});
    CryptoApi api;
    api.getProperty.replace([&](PCCERT_CONTEXT context, DWORD id, void* data, DWORD* size) {
        if (id == GetParam() && data)
            return FALSE;
        return api.getProperty.original(context, id, data, size);
    });
    const Entry entry = only();
    ASSERT_NE(entry.propertyError, nullptr);
    EXPECT_EQ(typeid(*entry.propertyError),
              typeid(CertStoreUpdaterError_GetCertContextPropertyFailed));
    EXPECT_EQ(paramsOf(*entry.propertyError), (Params{{L"PROPERTY", std::to_wstring(GetParam())}}));
    EXPECT_EQ(entry.keyProvider.has_value(), GetParam() != CERT_KEY_PROV_INFO_PROP_ID);
    EXPECT_EQ(entry.friendlyName.empty(), GetParam() == CERT_FRIENDLY_NAME_PROP_ID);
    EXPECT_EQ(entry.registration.has_value(), GetParam() != korvaneCspRefId);
}

INSTANTIATE_TEST_SUITE_P(Of, CertStoreHelperEntriesWithout,
                         testing::Values(DWORD{CERT_KEY_PROV_INFO_PROP_ID},
                                         DWORD{CERT_FRIENDLY_NAME_PROP_ID}, korvaneCspRefId));

TEST_F(CertStoreHelperEntries, HaveAFriendlyNameWithoutATerminatorToo) {
    store.add({numbered(1), {}, Bytes{'n', 0, 'a', 0, 'm'}, {}});
    EXPECT_EQ(only().friendlyName, L"na");
}

TEST_F(CertStoreHelperEntries, AreListedInOneWalkThatChangesNothingAndKeepsNothing) {
    for (const int number : {1, 2, 3})
        store.add({numbered(number), keyProvInfo(L"a", L"CSP"), {}, reference("a\nCSP\n")});
    const std::vector<StoreEntry> before = store.entries();
    CertStoreHelper helper(storeName());
    const CryptoApi api;
    EXPECT_THAT(helper.listEntries(), SizeIs(3));
    EXPECT_EQ(api.enumerate.count(), 4u);
    EXPECT_THAT(api.log.names(), Each(testing::AnyOf("CertEnumCertificatesInStore",
                                                     "CertGetCertificateContextProperty")));
    EXPECT_EQ(api.heldReferences(), 0);
    EXPECT_EQ(store.entries(), before);
}

class CertStoreHelperRebind : public StoreTest {
protected:
    bool rebind(const Bytes& encoded, const wchar_t* friendlyName, bool withKeyProvInfo) {
        return CertStoreHelper(storeName())
            .rebindCspCertificate(L"CSP", L"container", friendlyName, certificateOf(encoded),
                                  withKeyProvInfo);
    }
    StoreEntry only() {
        const std::vector<StoreEntry> entries = store.entries();
        EXPECT_THAT(entries, SizeIs(1));
        return entries.empty() ? StoreEntry() : entries.front();
    }
};

TEST_F(CertStoreHelperRebind, GivesAnEntryThePropertiesOfOneThatIsAdded) {
    const TestStore other;
    CertStoreHelper(other.name())
        .addCspCertificate(L"CSP", L"container", L"name", certificateOf(numbered(1)), true);
    store.add({numbered(1), keyProvInfo(L"old", L"old CSP"), friendlyNameBytes(L"old name"),
               reference("old\nold CSP\n")});
    EXPECT_TRUE(rebind(numbered(1), L"name", true));
    EXPECT_EQ(store.entries(), other.entries());
}

TEST_F(CertStoreHelperRebind, GivesPropertiesToABareCertificate) {
    store.add({numbered(1), {}, {}, {}});
    EXPECT_TRUE(rebind(numbered(1), L"", true));
    const StoreEntry entry = only();
    EXPECT_EQ(entry.keyProvInfo, keyProvInfo(L"container", L"CSP"));
    EXPECT_EQ(entry.friendlyName, friendlyNameBytes(L"Holder 1"));
    EXPECT_EQ(entry.korvaneCspRef, reference("container\nCSP\n"));
}

TEST_F(CertStoreHelperRebind, TakesKeyProviderInformationAwayIfThereIsToBeNone) {
    store.add({numbered(1), keyProvInfo(L"old", L"CSP"), {}, reference("old\nCSP\n")});
    EXPECT_TRUE(rebind(numbered(1), L"name", false));
    const StoreEntry entry = only();
    EXPECT_EQ(entry.keyProvInfo, std::nullopt);
    EXPECT_EQ(entry.friendlyName, friendlyNameBytes(L"name"));
    EXPECT_EQ(entry.korvaneCspRef, reference("container\nCSP\n"));
}

TEST_F(CertStoreHelperRebind, HasNothingToTakeAwayFromABareCertificate) {
    store.add({numbered(1), {}, {}, {}});
    EXPECT_TRUE(rebind(numbered(1), L"name", false));
    EXPECT_EQ(only().keyProvInfo, std::nullopt);
}

TEST_F(CertStoreHelperRebind, DoesNothingForACertificateThatIsNotThere) {
    store.add({numbered(1), {}, {}, {}});
    const CryptoApi api;
    EXPECT_FALSE(rebind(numbered(2), L"name", true));
    EXPECT_THAT(api.propertiesSet, IsEmpty());
    EXPECT_EQ(api.heldReferences(), 0);
}

// The binding of the library's own comes last: without it the entry is still the old one's.
TEST_F(CertStoreHelperRebind, NeverTakesTheEntryOutAndKeepsNoReference) {
    store.add({numbered(1), keyProvInfo(L"old", L"CSP"), {}, {}});
    CertStoreHelper helper(storeName());
    const CryptoApi api;
    helper.rebindCspCertificate(L"CSP", L"container", L"name", certificateOf(numbered(1)), true);
    std::vector<DWORD> properties;
    for (const PropertyCall& call : api.propertiesSet) {
        properties.push_back(call.id);
        EXPECT_EQ(call.flags, 0u);
    }
    EXPECT_THAT(properties, ElementsAre(CERT_KEY_PROV_INFO_PROP_ID, CERT_FRIENDLY_NAME_PROP_ID,
                                        korvaneCspRefId));
    EXPECT_THAT(api.log.names(), Not(Contains("CertDeleteCertificateFromStore")));
    EXPECT_THAT(api.log.names(), Not(Contains("CertAddEncodedCertificateToStore")));
    EXPECT_EQ(api.heldReferences(), 0);
}

TEST_F(CertStoreHelperRebind, ThrowsForEachPropertyThatCannotBeSetAndKeepsNoReference) {
    store.add({numbered(1), {}, {}, {}});
    CryptoApi api;
    const auto failing = [&](std::size_t call) {
        api.setProperty.fail(call, FALSE, ERROR_ACCESS_DENIED);
    };
    failing(1);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_SetKeyProviderInfoFailed,
                        rebind(numbered(1), L"name", true),
                        Params{{L"CSP", L"CSP"}, {L"CONTAINER", L"container"}});
    failing(2);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_SetKeyProviderInfoFailed,
                        rebind(numbered(1), L"name", false),
                        Params{{L"CSP", L"CSP"}, {L"CONTAINER", L"container"}});
    failing(4);
    EXPECT_THROWS_EVENT(
        CertStoreUpdaterError_SetCertFriendlyNameFailed, rebind(numbered(1), L"name", true),
        Params{{L"CSP", L"CSP"}, {L"CONTAINER", L"container"}, {L"FRIENDLYNAME", L"name"}});
    failing(7);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_SetCertKorvaneCspRefFailed,
                        rebind(numbered(1), L"name", true), Params{{L"CSP", L"CSP"}});
    EXPECT_EQ(api.heldReferences(), 0);
}

} // namespace
} // namespace testsupport
