// Listing the certificates of a CSP, and the installed CSPs.
#include "installedcsp.h"
#include "storetest.h"

#include <algorithm>

namespace testsupport {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Listing = std::vector<std::pair<std::wstring, Bytes>>;

class CertStoreHelperList : public StoreTest {
protected:
    /// Key and encoded certificate of each item, in the map's order.
    Listing list(const std::wstring& csp, bool requireKeyProvInfo = false) {
        Listing listing;
        const auto map = CertStoreHelper(storeName()).listCertsByCsp(csp, requireKeyProvInfo);
        for (const auto& [container, item] : *map) {
            EXPECT_TRUE(item.id.empty());
            EXPECT_TRUE(item.label.empty());
            listing.emplace_back(toString(container), bytesOf(item.certificate));
        }
        return listing;
    }
};

TEST_F(CertStoreHelperList, IsEmptyForAnEmptyStore) {
    CertStoreHelper helper(storeName());
    const CryptoApi api;
    EXPECT_THAT(*helper.listCertsByCsp(L"", false), IsEmpty());
    EXPECT_THAT(api.log.names(), ElementsAre("CertEnumCertificatesInStore"));
}

TEST_F(CertStoreHelperList, ListsKeyBindingsAndReferencesToTheCspByContainer) {
    store.add({numbered(1), keyProvInfo(L"b", L"CSP"), friendlyNameBytes(L"name"), {}});
    store.add({numbered(2), {}, {}, reference("a\nCSP\n")});
    store.add({numbered(3), keyProvInfo(L"c", L"other"), {}, {}});
    store.add({numbered(4), {}, {}, reference("d\nother\n")});
    store.add({numbered(5), {}, {}, {}});
    EXPECT_EQ(list(L"CSP"), (Listing{{L"a", numbered(2)}, {L"b", numbered(1)}}));
}

TEST_F(CertStoreHelperList, DoesNotLookAtTheReferenceIfThereIsAKeyBinding) {
    store.add({numbered(1), keyProvInfo(L"a", L"CSP"), {}, reference("x\nother\n")});
    store.add({numbered(2), keyProvInfo(L"b", L"other"), {}, reference("y\nCSP\n")});
    const CryptoApi api;
    EXPECT_EQ(list(L"CSP"), (Listing{{L"a", numbered(1)}}));
    for (const auto& call : api.getProperty.calls())
        EXPECT_EQ(std::get<1>(call), 2u);
}

TEST_F(CertStoreHelperList, LeavesReferencesOutIfAKeyBindingIsRequired) {
    store.add({numbered(1), keyProvInfo(L"a", L"CSP"), {}, {}});
    store.add({numbered(2), {}, {}, reference("b\nCSP\n")});
    EXPECT_EQ(list(L"CSP", true), (Listing{{L"a", numbered(1)}}));
}

TEST_F(CertStoreHelperList, TakesAnEmptyCspForAny) {
    store.add({numbered(1), keyProvInfo(L"a", L"CSP"), {}, {}});
    store.add({numbered(2), {}, {}, reference("b\nother\n")});
    store.add({numbered(3), {}, {}, {}});
    EXPECT_EQ(list(L""), (Listing{{L"a", numbered(1)}, {L"b", numbered(2)}}));
    EXPECT_EQ(list(L"", true), (Listing{{L"a", numbered(1)}}));
}

TEST_F(CertStoreHelperList, ComparesNamesExactly) {
    store.add({numbered(1), keyProvInfo(L"a", L"csp"), {}, {}});
    store.add({numbered(2), {}, {}, reference("b\ncsp\n")});
    EXPECT_THAT(list(L"CSP"), IsEmpty());
    EXPECT_THAT(list(L"csp"), SizeIs(2));
}

TEST_F(CertStoreHelperList, KeepsTheFirstCertificateOfAContainer) {
    for (const int number : {1, 2, 3})
        store.add({numbered(number), keyProvInfo(L"container", L"CSP"), {}, {}});
    const Bytes first = store.entries().at(0).encoded;
    EXPECT_EQ(list(L"CSP"), (Listing{{L"container", first}}));
}

TEST_F(CertStoreHelperList, KeysABindingWithoutAContainerByNothing) {
    KeyProvInfo info;
    info.provider = L"CSP";
    store.add({numbered(1), info, {}, {}});
    EXPECT_EQ(list(L"CSP"), (Listing{{L"", numbered(1)}}));
}

TEST_F(CertStoreHelperList, ReadsMissingLinesAsEmpty) {
    store.add({numbered(1), {}, {}, reference("a")});
    EXPECT_EQ(list(L""), (Listing{{L"a", numbered(1)}}));
    EXPECT_THAT(list(L"CSP"), IsEmpty());
}

TEST_F(CertStoreHelperList, TakesAnEmptyPropertyForOneThatIsThere) {
    store.add({numbered(1), {}, {}, reference("a\nCSP\n")});
    CryptoApi api;
    for (const std::size_t call : {2u, 3u}) // the first asks for key provider information
        api.getProperty.onCall(call, [](PCCERT_CONTEXT, DWORD id, void*, DWORD* size) {
            EXPECT_EQ(id, 54086u);
            *size = 0;
            return TRUE;
        });
    EXPECT_EQ(list(L""), (Listing{{L"", numbered(1)}}));
}

TEST_F(CertStoreHelperList, TakesATruncatedKeyBindingForOneThatNamesNothing) {
    store.add({numbered(1), {}, {}, reference("a\nCSP\n")});
    CryptoApi api;
    for (const std::size_t call : {1u, 2u})
        api.getProperty.onCall(call, [](PCCERT_CONTEXT, DWORD id, void* data, DWORD* size) {
            EXPECT_EQ(id, 2u);
            *size = sizeof(CRYPT_KEY_PROV_INFO) - 1;
            if (data)
                std::fill_n(static_cast<unsigned char*>(data), *size,
                            static_cast<unsigned char>(0xFF));
            return TRUE;
        });
    EXPECT_EQ(list(L""), (Listing{{L"", numbered(1)}}));
}

TEST_F(CertStoreHelperList, ReadsNamesOutsideAscii) {
    store.add({numbered(1), keyProvInfo(L"\xD83D\xDE00", L"\u20AC"), {}, {}});
    store.add({numbered(2), {}, {}, reference("\xC3\xA9\n\xE2\x82\xAC\n")});
    EXPECT_EQ(list(L"\u20AC"), (Listing{{L"\u00E9", numbered(2)}, {L"\xD83D\xDE00", numbered(1)}}));
}

TEST_F(CertStoreHelperList, ListsWhatWasRegistered) {
    CertMap items;
    items[L"container 1"] = itemOf(numbered(1), L"label");
    items[L"container 2"] = itemOf(numbered(2));
    CertStoreHelper helper(storeName());
    helper.addCspCertificates(L"CSP", items, true);
    EXPECT_EQ(list(L"CSP", true),
              (Listing{{L"container 1", numbered(1)}, {L"container 2", numbered(2)}}));
}

TEST_F(CertStoreHelperList, WalksOnceAndKeepsNoReference) {
    for (const int number : {1, 2, 3})
        store.add({numbered(number), keyProvInfo(std::to_wstring(number), L"CSP"), {}, {}});
    const CryptoApi api;
    EXPECT_THAT(list(L"CSP"), SizeIs(3));
    EXPECT_EQ(api.enumerate.count(), 4u);
    EXPECT_EQ(api.enumerate.argument<1>(1), nullptr);
    EXPECT_EQ(api.heldReferences(), 0);
}

TEST_F(CertStoreHelperList, ThrowsForAReferenceThatIsNotUtf8AndFreesItsContext) {
    store.add({numbered(1), {}, {}, reference("a\xE2\x82\nCSP\n")});
    const CryptoApi api;
    expectThrowsMalformedUtf8([&] { list(L"CSP"); });
    EXPECT_EQ(api.heldReferences(), 0);
}

TEST_F(CertStoreHelperList, ThrowsWithItsIdWhenAPropertyCannotBeReadAndFreesItsContext) {
    store.add({numbered(1), keyProvInfo(L"a", L"CSP"), {}, {}});
    CryptoApi api;
    api.getProperty.fail(2, FALSE, ERROR_MORE_DATA);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_GetCertContextPropertyFailed, list(L"CSP"),
                        {{L"PROPERTY", L"2"}});
    EXPECT_EQ(api.heldReferences(), 0);
}

TEST_F(CertStoreHelperList, ThrowsForACertificateThatIsNotDerAndFreesItsContext) {
    // A version that is written although it has its default: Windows takes it, DER forbids it.
    const Bytes notDer = CertBuilder().version(explicitly(0, integer(0))).build();
    store.add({notDer, keyProvInfo(L"a", L"CSP"), {}, {}});
    CryptoApi api;
    EXPECT_THROW(list(L"CSP"), asn1::QuorError_Asn1_Decode);
    EXPECT_EQ(api.heldReferences(), 0);
    EXPECT_THAT(list(L"other"), IsEmpty()) << "what is not listed is not decoded";
}

TEST_F(CertStoreHelperList, DecodesAlsoACertificateWhoseContainerIsTaken) {
    store.add({numbered(1), keyProvInfo(L"a", L"CSP"), {}, {}});
    const Bytes notDer = CertBuilder().version(explicitly(0, integer(0))).build();
    store.add({notDer, keyProvInfo(L"a", L"CSP"), {}, {}});
    EXPECT_THROW(list(L"CSP"), asn1::QuorError_Asn1_Decode);
}

std::vector<std::wstring> installedCsps() {
    std::vector<std::wstring> names;
    DWORD type = 0;
    DWORD size = 0;
    while (
        CryptEnumProvidersW(static_cast<DWORD>(names.size()), nullptr, 0, &type, nullptr, &size)) {
        std::vector<wchar_t> name(size);
        if (!CryptEnumProvidersW(static_cast<DWORD>(names.size()), nullptr, 0, &type, name.data(),
                                 &size))
            break;
        names.emplace_back(name.data());
    }
    return names;
}

using EnumProvidersHook = ImportHook<decltype(CryptEnumProvidersW)>;

EnumProvidersHook enumProvidersHook() {
    return EnumProvidersHook(library(), "advapi32.dll", "CryptEnumProvidersW");
}

/// Answers with names in turn, whatever is installed; their sizes are given in bytes.
void answerWith(EnumProvidersHook& hook, const std::vector<std::wstring>& names) {
    hook.replace([names](DWORD index, DWORD*, DWORD, DWORD* type, LPWSTR name, DWORD* size) {
        if (index == names.size()) {
            SetLastError(ERROR_NO_MORE_ITEMS);
            return FALSE;
        }
        const auto needed = static_cast<DWORD>((names[index].size() + 1) * sizeof(wchar_t));
        if (name && *size < needed) {
            SetLastError(ERROR_MORE_DATA);
            return FALSE;
        }
        if (name)
            std::copy_n(names[index].c_str(), names[index].size() + 1, name);
        *type = index;
        *size = needed;
        return TRUE;
    });
}

TEST(CertStoreHelperListCsps, ListsTheInstalledCspsInTheSystemsOrder) {
    const auto listed = CertStoreHelper::listCSPs();
    EXPECT_THAT(*listed, testing::Not(IsEmpty()));
    EXPECT_EQ(*listed, installedCsps());
}

TEST(CertStoreHelperListCsps, ListsACspOfAVeryLongName) {
    const std::wstring name(250, L'x');
    const InstalledCsp csp(name);
    EXPECT_THAT(*CertStoreHelper::listCSPs(), Contains(name));
}

TEST(CertStoreHelperListCsps, ListsACspOfANameOutsideAscii) {
    const std::wstring name = L"CSP \u00C4\u20AC \xD83D\xDE00";
    const InstalledCsp csp(name);
    EXPECT_THAT(*CertStoreHelper::listCSPs(), Contains(name));
}

TEST(CertStoreHelperListCsps, AsksForSizeAndNameOfEachInTurn) {
    EnumProvidersHook hook = enumProvidersHook();
    answerWith(hook, {L"first", L"second"});
    CertStoreHelper::listCSPs();
    ASSERT_EQ(hook.count(), 5u);
    for (const std::size_t call : {1u, 2u, 3u, 4u, 5u}) {
        EXPECT_EQ(hook.argument<0>(call), (call - 1) / 2);
        EXPECT_EQ(hook.argument<1>(call), nullptr);
        EXPECT_EQ(hook.argument<2>(call), 0u);
        EXPECT_NE(hook.argument<3>(call), nullptr);
        EXPECT_EQ(hook.argument<4>(call) != nullptr, call % 2 == 0);
        EXPECT_NE(hook.argument<5>(call), nullptr);
    }
}

TEST(CertStoreHelperListCsps, KeepsEmptyLongAndRepeatedNamesInOrder) {
    EnumProvidersHook hook = enumProvidersHook();
    const std::vector<std::wstring> names{L"z", L"", std::wstring(100000, L'x'), L"a", L"z"};
    answerWith(hook, names);
    EXPECT_EQ(*CertStoreHelper::listCSPs(), names);
}

TEST(CertStoreHelperListCsps, IsEmptyIfTheFirstSizeCannotBeAskedFor) {
    EnumProvidersHook hook = enumProvidersHook();
    hook.fail(1, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_THAT(*CertStoreHelper::listCSPs(), IsEmpty());
    EXPECT_EQ(hook.count(), 1u);
}

TEST(CertStoreHelperListCsps, EndsAtTheFirstSizeThatCannotBeAskedFor) {
    EnumProvidersHook hook = enumProvidersHook();
    answerWith(hook, {L"first", L"second"});
    hook.fail(3, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_THAT(*CertStoreHelper::listCSPs(), ElementsAre(L"first"));
}

TEST(CertStoreHelperListCsps, ThrowsIfANameCannotBeFetched) {
    EnumProvidersHook hook = enumProvidersHook();
    answerWith(hook, {L"first", L"second"});
    hook.fail(4, FALSE, ERROR_MORE_DATA);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_GetCspNameFailed, CertStoreHelper::listCSPs());
}

TEST(CertStoreHelperListCsps, DoesNotReadBeyondANameWithoutATerminator) {
    EnumProvidersHook hook = enumProvidersHook();
    hook.replace([](DWORD index, DWORD*, DWORD, DWORD* type, LPWSTR name, DWORD* size) {
        if (index == 1)
            return FALSE;
        if (name)
            std::fill_n(name, 4, L'x');
        *type = PROV_RSA_FULL;
        *size = 4 * sizeof(wchar_t);
        return TRUE;
    });
    EXPECT_THAT(*CertStoreHelper::listCSPs(), ElementsAre(L"xxxx"));
}

} // namespace
} // namespace testsupport
