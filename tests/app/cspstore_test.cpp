// A Windows store as the program uses it: what it asks CryptoAPI for, and what it does when
// CryptoAPI fails or the user declines.
#include "cspstore.h"

#include "cleaning.h"

#include "memoryregistry.h"
#include "synchronise.h"

#include "importhook.h"
#include "storeview.h"

#include <windows.h>

#include <wincrypt.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace updater {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testsupport::ImportHook;
using Kind = SyncEvent::Kind;

template <class Function>
class CryptoHook : public ImportHook<Function> {
public:
    explicit CryptoHook(const char* name)
        : ImportHook<Function>(GetModuleHandleW(L"certstoreupdater.dll"), "crypt32.dll", name) {}
};

/// What CryptoAPI does if it asks the user, who declines.
BOOL declineRemoval(const CERT_CONTEXT* certificate) {
    CertFreeCertificateContext(certificate);
    SetLastError(ERROR_CANCELLED);
    return FALSE;
}

class WindowsStore : public testing::Test {
protected:
    std::vector<Kind> synchronised() {
        CspStore registry(store.name(), csp);
        std::vector<Kind> told;
        synchronise(wanted, registry,
                    {[&](const SyncEvent& event) { told.push_back(event.kind); }});
        return told;
    }

    bool isInStep(const wchar_t* container, int number) {
        return CspStore(store.name(), csp).isInStep(container, wantedOf(numbered(number)));
    }
    bool isPresent(int number) { return CspStore(store.name(), csp).isPresent(numbered(number)); }

    static constexpr wchar_t csp[] = L"Some CSP";
    testsupport::TestStore store;
    WantedMap wanted;
};

TEST_F(WindowsStore, IsNotWrittenToIfNothingDiffers) {
    wanted[L"A"] = wantedOf(numbered(1), L"one");
    wanted[L"B"] = wantedOf(numbered(2));
    EXPECT_THAT(synchronised(), ElementsAre(Kind::added, Kind::added));

    CryptoHook<decltype(CertAddEncodedCertificateToStore)> add("CertAddEncodedCertificateToStore");
    CryptoHook<decltype(CertSetCertificateContextProperty)> set(
        "CertSetCertificateContextProperty");
    CryptoHook<decltype(CertDeleteCertificateFromStore)> remove("CertDeleteCertificateFromStore");
    EXPECT_THAT(synchronised(), IsEmpty());
    EXPECT_EQ(add.count() + set.count() + remove.count(), 0u);
}

TEST_F(WindowsStore, IsWrittenToForTheOneCertificateThatChanged) {
    for (int number = 1; number <= 5; ++number)
        wanted[std::to_wstring(number).c_str()] = wantedOf(numbered(number));
    synchronised();
    wanted[L"3"] = wantedOf(numbered(33));

    CryptoHook<decltype(CertAddEncodedCertificateToStore)> add("CertAddEncodedCertificateToStore");
    CryptoHook<decltype(CertSetCertificateContextProperty)> set(
        "CertSetCertificateContextProperty");
    CryptoHook<decltype(CertDeleteCertificateFromStore)> remove("CertDeleteCertificateFromStore");
    EXPECT_THAT(synchronised(), ElementsAre(Kind::added, Kind::removed));
    EXPECT_EQ(add.count(), 1u);
    EXPECT_EQ(set.count(), 3u);
    EXPECT_EQ(remove.count(), 1u);
}

TEST_F(WindowsStore, KeepsACertificateWhileItIsRebound) {
    wanted[L"A"] = wantedOf(numbered(1), L"one");
    synchronised();
    const auto expected = store.entries();
    wanted.clear();
    wanted[L"B"] = wantedOf(numbered(1), L"one");
    synchronised();
    ASSERT_NE(store.entries(), expected);
    wanted.clear();
    wanted[L"A"] = wantedOf(numbered(1), L"one");
    CryptoHook<decltype(CertAddEncodedCertificateToStore)> add("CertAddEncodedCertificateToStore");
    CryptoHook<decltype(CertDeleteCertificateFromStore)> remove("CertDeleteCertificateFromStore");
    EXPECT_THAT(synchronised(), ElementsAre(Kind::rebound));
    EXPECT_EQ(add.count() + remove.count(), 0u);
    EXPECT_EQ(store.entries(), expected);
}

TEST_F(WindowsStore, KeepsNothingOfACertificateThatItCouldNotRegisterWholly) {
    wanted[L"A"] = wantedOf(numbered(1));
    ASSERT_THAT(synchronised(), ElementsAre(Kind::added));
    wanted[L"A"] = wantedOf(numbered(2));
    for (const std::size_t property : {1u, 2u, 3u}) {
        CryptoHook<decltype(CertSetCertificateContextProperty)> set(
            "CertSetCertificateContextProperty");
        set.fail(property, FALSE, ERROR_ACCESS_DENIED);
        try {
            synchronised();
            FAIL() << "property " << property;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), ExitCode::store);
        }
        EXPECT_EQ(set.count(), property);
        EXPECT_FALSE(isPresent(2));
        EXPECT_TRUE(isInStep(L"A", 1)) << "what was registered before is kept";
    }
    EXPECT_THAT(synchronised(), ElementsAre(Kind::added, Kind::removed));
}

TEST_F(WindowsStore, LeavesACertificateAloneThatItCouldNotAdd) {
    wanted[L"A"] = wantedOf(numbered(1));
    CryptoHook<decltype(CertAddEncodedCertificateToStore)> add("CertAddEncodedCertificateToStore");
    CryptoHook<decltype(CertDeleteCertificateFromStore)> remove("CertDeleteCertificateFromStore");
    add.fail(1, FALSE, ERROR_ACCESS_DENIED);
    EXPECT_THROW(synchronised(), Failure);
    EXPECT_EQ(remove.count(), 0u);
}

TEST_F(WindowsStore, TellsThatTheUserDeclinedAnAddition) {
    wanted[L"A"] = wantedOf(numbered(1));
    CryptoHook<decltype(CertAddEncodedCertificateToStore)> add("CertAddEncodedCertificateToStore");
    add.fail(1, FALSE, ERROR_CANCELLED);
    EXPECT_THAT(synchronised(), ElementsAre(Kind::addRefused));
}

TEST_F(WindowsStore, SaysThatCleaningLeftWhatTheUserDeclined) {
    wanted[L"A"] = wantedOf(numbered(1));
    ASSERT_THAT(synchronised(), ElementsAre(Kind::added));
    CryptoHook<decltype(CertDeleteCertificateFromStore)> remove("CertDeleteCertificateFromStore");
    remove.replace(declineRemoval);
    Options options;
    options.csp = csp;
    options.store = store.name();
    Output output("clean", {});
    testing::internal::CaptureStdout();
    const Json result = clean(options, Interruption(), output);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "nothing was removed";
    EXPECT_EQ(output.finish(), ExitCode::incomplete);
    EXPECT_EQ(result.at("keptContainers"), 1);
    EXPECT_EQ(result.at("removedContainers"), 0);
}

TEST_F(WindowsStore, TellsThatTheUserDeclinedARemoval) {
    wanted[L"A"] = wantedOf(numbered(1));
    ASSERT_THAT(synchronised(), ElementsAre(Kind::added));
    wanted.clear();
    CryptoHook<decltype(CertDeleteCertificateFromStore)> remove("CertDeleteCertificateFromStore");
    remove.replace(declineRemoval);
    EXPECT_THAT(synchronised(), ElementsAre(Kind::removalRefused));
    EXPECT_EQ(remove.count(), 1u);
}

TEST_F(WindowsStore, KeepsAContainerRegisteredWhicheverCallFailsWhileItsCertificateIsReplaced) {
    std::size_t failing = 0;
    bool failed = true;
    while (failed) {
        ++failing;
        for (const testsupport::StoreEntry& entry : store.entries())
            store.remove(entry.encoded);
        wanted[L"A"] = wantedOf(numbered(1));
        ASSERT_THAT(synchronised(), ElementsAre(Kind::added));
        wanted[L"A"] = wantedOf(numbered(2));
        CryptoHook<decltype(CertAddEncodedCertificateToStore)> add(
            "CertAddEncodedCertificateToStore");
        CryptoHook<decltype(CertSetCertificateContextProperty)> set(
            "CertSetCertificateContextProperty");
        std::size_t calls = 0;
        add.replace([&](auto... arguments) {
            SetLastError(ERROR_ACCESS_DENIED);
            return ++calls == failing ? FALSE : add.original(arguments...);
        });
        set.replace([&](auto... arguments) {
            SetLastError(ERROR_ACCESS_DENIED);
            return ++calls == failing ? FALSE : set.original(arguments...);
        });
        try {
            synchronised();
        } catch (const Failure&) {
            EXPECT_TRUE(isInStep(L"A", 1) || isInStep(L"A", 2)) << "call " << failing;
        }
        failed = calls >= failing;
    }
    EXPECT_EQ(failing, 5u) << "four calls add the successor";
    EXPECT_TRUE(isInStep(L"A", 2));
    EXPECT_THAT(store.entries(), SizeIs(1));
}

} // namespace
} // namespace updater
