// The program's whole work on a real token and a real store, seen from another process.
#include "certbuilder.h"
#include "installedcsp.h"
#include "registrytimes.h"
#include "softtoken.h"
#include "storeview.h"
#include "testfolder.h"
#include "updaterprogram.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace testsupport {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

constexpr wchar_t csp[] = L"Token CSP \u2713";
constexpr char cspUtf8[] = "Token CSP \xE2\x9C\x93";

constexpr unsigned digitalSignature = 0;
constexpr unsigned keyEncipherment = 2;
constexpr unsigned keyCertSign = 5;

Bytes userCertificate(int serialNumber, std::initializer_list<unsigned> usage) {
    return CertBuilder()
        .serialNumber(serialNumber)
        .names("User " + std::to_string(serialNumber), "Authority")
        .extensions({keyUsage(usage)})
        .build();
}

Bytes authorityCertificate() {
    return CertBuilder()
        .names("Authority", "Root")
        .extensions({keyUsage({keyCertSign}), basicConstraints(true)})
        .build();
}

Bytes selfSignedCertificate() {
    return CertBuilder().names("Self", "Self").build();
}

/// An entry as it must be after a synchronisation.
StoreEntry registered(const Bytes& encoded, const std::string& container,
                      const std::wstring& friendlyName, DWORD keySpec) {
    KeyProvInfo binding;
    binding.container = std::wstring(container.begin(), container.end());
    binding.provider = csp;
    binding.keySpec = keySpec;
    return {encoded, binding, friendlyNameBytes(friendlyName),
            fromText(container + "\n" + cspUtf8 + "\n")};
}

class EndToEnd : public testing::Test {
protected:
    Outcome run(const std::wstring& command) {
        std::vector<std::wstring> arguments{command, L"--csp", csp, L"--store", store.name()};
        if (command == L"status" || command == L"sync") {
            arguments.insert(arguments.end(), {L"--module", SoftToken::module(),
                                               L"--allow-unsigned-module", L"--pin-stdin"});
        }
        return runUpdater({arguments, pin + "\n", token.environment()});
    }
    void expectDone(const std::wstring& command) {
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_EQ(outcome.errors, "");
    }
    std::vector<StoreEntry> seenByOthers() const { return readStoreInOtherProcess(store.name()); }

    void addWithKey(const Bytes& encoded, const Bytes& id, std::string_view label) {
        token.addKey(id);
        token.addCertificate(encoded, id, label);
    }

    InstalledCsp installed{csp};
    TestFolder folder;
    TestStore store;
    SoftToken token{folder.path()};
    std::string pin{SoftToken::pin};
};

TEST_F(EndToEnd, RegistersTheCertificatesWithKeysOfEveryClass) {
    const Bytes signing = userCertificate(1, {digitalSignature});
    const Bytes encipherment = userCertificate(2, {digitalSignature, keyEncipherment});
    addWithKey(signing, {0x01}, "Unterschrift \xC3\xA4\xC3\xB6");
    addWithKey(encipherment, {0x02, 0xAB}, "");
    addWithKey(selfSignedCertificate(), {0x03}, "self");
    addWithKey(authorityCertificate(), {0x04}, "authority");
    token.addCertificate(userCertificate(5, {digitalSignature}), {0x05}, "no key");

    expectDone(L"sync");
    EXPECT_THAT(seenByOthers(),
                UnorderedElementsAre(
                    registered(signing, "CKAIDHEX:01", L"Unterschrift \u00E4\u00F6", AT_SIGNATURE),
                    registered(encipherment, "CKAIDHEX:02AB", L"User 2", AT_KEYEXCHANGE),
                    registered(selfSignedCertificate(), "CKAIDHEX:03", L"self", AT_KEYEXCHANGE),
                    registered(authorityCertificate(), "CKAIDHEX:04", L"authority", AT_SIGNATURE)));
}

TEST_F(EndToEnd, WritesNothingTheSecondTime) {
    addWithKey(selfSignedCertificate(), {0x01}, "one");
    addWithKey(userCertificate(2, {digitalSignature}), {0x02}, "two");
    addToStoreInOtherProcess(store.name(), {userCertificate(9, {}), {}, {}, {}});
    const auto before = registryTimesOf(store.name());
    expectDone(L"sync");
    const auto between = registryTimesOf(store.name());
    EXPECT_NE(before, between);

    const Outcome second = run(L"sync");
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_THAT(second.output, HasSubstr("nothing to do"));
    expectDone(L"status");
    expectDone(L"list");
    EXPECT_EQ(registryTimesOf(store.name()), between);
}

TEST_F(EndToEnd, FollowsTheTokenAndLeavesAForeignCertificateAlone) {
    const StoreEntry foreign{
        userCertificate(9, {digitalSignature}), {}, friendlyNameBytes(L"somebody else's"), {}};
    addToStoreInOtherProcess(store.name(), foreign);
    const auto foreignTimes = registryTimesOf(store.name());
    const auto foreignKey =
        std::find_if(foreignTimes.begin(), foreignTimes.end(), [](const auto& entry) {
            return entry.first.starts_with(L"\\Certificates\\");
        });
    ASSERT_NE(foreignKey, foreignTimes.end());

    const Bytes one = userCertificate(1, {digitalSignature});
    const Bytes two = userCertificate(2, {digitalSignature});
    addWithKey(one, {0x01}, "one");
    addWithKey(two, {0x02}, "two");
    expectDone(L"sync");
    EXPECT_THAT(seenByOthers(),
                UnorderedElementsAre(foreign, registered(one, "CKAIDHEX:01", L"one", AT_SIGNATURE),
                                     registered(two, "CKAIDHEX:02", L"two", AT_SIGNATURE)));

    token.removeCertificate(one);
    expectDone(L"sync");
    EXPECT_THAT(seenByOthers(), UnorderedElementsAre(
                                    foreign, registered(two, "CKAIDHEX:02", L"two", AT_SIGNATURE)));

    const Bytes renewed = userCertificate(3, {digitalSignature, keyEncipherment});
    token.removeCertificate(two);
    token.addCertificate(renewed, {0x02}, "renewed");
    expectDone(L"sync");
    EXPECT_THAT(seenByOthers(),
                UnorderedElementsAre(
                    foreign, registered(renewed, "CKAIDHEX:02", L"renewed", AT_KEYEXCHANGE)));

    expectDone(L"clean");
    EXPECT_THAT(seenByOthers(), ElementsAre(foreign));
    EXPECT_EQ(registryTimesOf(store.name()).at(foreignKey->first), foreignKey->second);
}

TEST_F(EndToEnd, RemovesPredecessorsThatInterruptedRunsLeftBehind) {
    for (const int number : {11, 12, 13})
        addToStoreInOtherProcess(store.name(),
                                 registered(userCertificate(number, {digitalSignature}),
                                            "CKAIDHEX:01", L"old", AT_SIGNATURE));
    const Bytes current = userCertificate(1, {digitalSignature});
    addWithKey(current, {0x01}, "current");
    expectDone(L"sync");
    EXPECT_THAT(seenByOthers(),
                ElementsAre(registered(current, "CKAIDHEX:01", L"current", AT_SIGNATURE)));
}

TEST_F(EndToEnd, SaysThatACertificateIsPresentButNotOurs) {
    const StoreEntry theirs{userCertificate(1, {digitalSignature}), {}, {}, {}};
    addToStoreInOtherProcess(store.name(), theirs);
    addWithKey(theirs.encoded, {0x01}, "one");
    const Outcome outcome = run(L"sync");
    EXPECT_EQ(outcome.exitCode, 11);
    EXPECT_THAT(outcome.errors, HasSubstr("left alone"));
    EXPECT_THAT(seenByOthers(), ElementsAre(theirs));
}

TEST_F(EndToEnd, TriesAWrongPinOnceAndKeepsTheStore) {
    const Bytes one = userCertificate(1, {digitalSignature});
    addWithKey(one, {0x01}, "one");
    expectDone(L"sync");
    token.removeCertificate(one);
    pin = "wrong";
    const Outcome outcome = run(L"sync");
    EXPECT_EQ(outcome.exitCode, 5);
    EXPECT_THAT(outcome.errors, HasSubstr("(Pkcs11Error_CryptokiError: CRYPTOKY_ERROR_CODE=160)"));
    EXPECT_THAT(seenByOthers(), ElementsAre(registered(one, "CKAIDHEX:01", L"one", AT_SIGNATURE)));
}

TEST_F(EndToEnd, ShowsTokenAndStoreSideBySide) {
    addWithKey(userCertificate(1, {digitalSignature}), {0x01}, "one");
    expectDone(L"sync");
    addWithKey(userCertificate(2, {digitalSignature}), {0x02}, "two");
    const Outcome outcome = run(L"status");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.output, HasSubstr("\nin step  CKAIDHEX:01  with key  one"));
    EXPECT_THAT(outcome.output, HasSubstr("\nmissing  CKAIDHEX:02  with key  two"));
}

} // namespace
} // namespace testsupport
