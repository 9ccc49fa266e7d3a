// Opening, closing and assigning a CertStoreHelper.
#include "storetest.h"

#include <cstdint>
#include <tuple>
#include <type_traits>

namespace testsupport {
namespace {

using testing::ElementsAre;

class CertStoreHelperOpen : public StoreTest {};

static_assert(!std::is_copy_constructible_v<CertStoreHelper>);
static_assert(std::is_copy_assignable_v<CertStoreHelper>);
static_assert(std::is_default_constructible_v<CertStoreHelper>);
static_assert(!std::is_polymorphic_v<CertStoreHelper>);
static_assert(sizeof(CertStoreHelper) == sizeof(HCERTSTORE));

HCERTSTORE fakeHandle(std::uintptr_t number) {
    return reinterpret_cast<HCERTSTORE>(number);
}

TEST_F(CertStoreHelperOpen, OpensThePersonalStoreWithoutAnArgument) {
    CryptoApi api;
    const CertStoreHelper helper;
    ASSERT_EQ(api.opened.size(), 1u);
    EXPECT_EQ(api.opened[0].provider, 0u);
    EXPECT_EQ(api.opened[0].name, L"MY");
}

TEST_F(CertStoreHelperOpen, OpensTheNamedStoreWithoutAProvider) {
    CryptoApi api;
    api.openSystemStore.onCall(1, [&](HCRYPTPROV_LEGACY provider, LPCWSTR name) {
        api.opened.push_back({provider, name});
        return fakeHandle(0x1000);
    });
    api.closeStore.replace([](HCERTSTORE, DWORD) { return TRUE; });
    const std::wstring name = L"St\u00F6re \u20AC \xD83D\xDE00";
    const CertStoreHelper helper(name);
    ASSERT_EQ(api.opened.size(), 1u);
    EXPECT_EQ(api.opened[0].provider, 0u);
    EXPECT_EQ(api.opened[0].name, name);
}

TEST_F(CertStoreHelperOpen, ClosesItsHandleOnceWithFlagsZero) {
    CryptoApi api;
    HCERTSTORE handle = nullptr;
    api.openSystemStore.onCall(1, [&](HCRYPTPROV_LEGACY provider, LPCWSTR name) {
        return handle = api.openSystemStore.original(provider, name);
    });
    { const CertStoreHelper helper(storeName()); }
    EXPECT_THAT(api.closeStore.calls(), ElementsAre(std::tuple(handle, 0u)));
    EXPECT_THAT(api.log.names(), ElementsAre("CertOpenSystemStoreW", "CertCloseStore"));
}

TEST_F(CertStoreHelperOpen, IgnoresThatTheStoreDoesNotClose) {
    CryptoApi api;
    api.closeStore.replace([&](HCERTSTORE handle, DWORD flags) {
        api.closeStore.original(handle, flags);
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    EXPECT_NO_THROW(CertStoreHelper helper(storeName()));
    EXPECT_EQ(api.closeStore.count(), 1u);
}

TEST_F(CertStoreHelperOpen, ThrowsWithTheStoreNameWhenTheSystemRejectsIt) {
    const std::wstring name(300, L'x');
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_OpenSystemStore, CertStoreHelper helper(name),
                        {{L"STORE", name}});
}

TEST_F(CertStoreHelperOpen, ThrowsAndLeavesNothingToCloseWhenOpeningFails) {
    CryptoApi api;
    api.openSystemStore.fail(1, nullptr, ERROR_ACCESS_DENIED);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_OpenSystemStore, CertStoreHelper helper(L"\u00C4"),
                        {{L"STORE", L"\u00C4"}});
    EXPECT_THAT(api.log.names(), ElementsAre("CertOpenSystemStoreW"));
}

TEST_F(CertStoreHelperOpen, NamesThePersonalStoreWhenItCannotBeOpened) {
    CryptoApi api;
    api.openSystemStore.fail(1, nullptr, ERROR_ACCESS_DENIED);
    EXPECT_THROWS_EVENT(CertStoreUpdaterError_OpenSystemStore, CertStoreHelper(),
                        {{L"STORE", L"MY"}});
}

TEST_F(CertStoreHelperOpen, AssignmentSharesTheHandleAndClosesNone) {
    CryptoApi api;
    api.openSystemStore.replace([next = std::uintptr_t{0}](HCRYPTPROV_LEGACY, LPCWSTR) mutable {
        return fakeHandle(next += 0x1000);
    });
    api.closeStore.replace([](HCERTSTORE, DWORD) { return TRUE; });
    {
        CertStoreHelper target(storeName());
        const CertStoreHelper source(storeName());
        EXPECT_EQ(&(target = source), &target);
        EXPECT_EQ(api.closeStore.count(), 0u);
        EXPECT_THAT(api.log.names(), ElementsAre("CertOpenSystemStoreW", "CertOpenSystemStoreW"));
    }
    EXPECT_THAT(api.closeStore.calls(), ElementsAre(std::tuple(fakeHandle(0x2000), 0u),
                                                    std::tuple(fakeHandle(0x2000), 0u)));
}

TEST_F(CertStoreHelperOpen, AHeldContextOutlivesTheStore) {
    const CERT_CONTEXT* held = nullptr;
    {
        CryptoApi api;
        api.freeContext.replace([&](PCCERT_CONTEXT context) {
            held = CertDuplicateCertificateContext(context);
            return api.freeContext.original(context);
        });
        CertStoreHelper(storeName())
            .addCspCertificate(L"CSP", L"container", L"name", certificateOf(numbered(1)), false);
    }
    ASSERT_NE(held, nullptr);
    const Bytes encoded(held->pbCertEncoded, held->pbCertEncoded + held->cbCertEncoded);
    EXPECT_EQ(encoded, numbered(1));
    CertFreeCertificateContext(held);
}

TEST_F(CertStoreHelperOpen, ItsErrorsAreCaughtByClassByFamilyAndAsEvents) {
    const auto fail = [] { CertStoreHelper helper(std::wstring(300, L'x')); };
    EXPECT_THROW(fail(), pkcs11::certstoreupdater::CertStoreUpdaterError_OpenSystemStore);
    EXPECT_THROW(fail(), CertStoreUpdaterError);
    EXPECT_THROW(fail(), korv::GenericEvent);
    EXPECT_THROW(fail(), std::exception);
}

} // namespace
} // namespace testsupport
