// The commands, run as a person runs them, on a scripted token.
#include "updatertest.h"

#include <algorithm>

namespace updater {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class Sync : public UpdaterTest {};
class Status : public UpdaterTest {};
class List : public UpdaterTest {};
class Clean : public UpdaterTest {};

TEST_F(Sync, RegistersWhatHasAKeyOnTheToken) {
    certificateWithKey(numbered(1), "01A2FF", "Anna%20\xC3\xA4");
    certificateWithKey(numbered(2), "02");
    certificate(numbered(3), "03", "other");
    EXPECT_THAT(run(L"sync"), EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(seenByOthers(),
                UnorderedElementsAre(registered(numbered(1), L"CKAIDHEX:01A2FF", L"Anna \u00E4"),
                                     registered(numbered(2), L"CKAIDHEX:02", L"Holder 2")));
}

TEST_F(Sync, TellsEachChange) {
    certificateWithKey(numbered(1), "01");
    store.add(registered(numbered(2), L"CKAIDHEX:02", L"gone"));
    const Outcome outcome = run(L"sync");
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, StartsWith("added    CKAIDHEX:01  CN=Holder 1, "));
    EXPECT_THAT(outcome.output, HasSubstr("\nremoved  CKAIDHEX:02  CN=Holder 2, "));
}

TEST_F(Sync, HasNothingToDoTheSecondTime) {
    certificateWithKey(numbered(1), "01");
    run(L"sync");
    const auto before = store.entries();
    const Outcome outcome = run(L"sync");
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_EQ(outcome.output, "nothing to do: the store is in step with the token\n");
    EXPECT_EQ(store.entries(), before);
}

TEST_F(Sync, RemovesWhatIsNoLongerOnTheToken) {
    store.add(registered(numbered(1), L"CKAIDHEX:01", L"one"));
    EXPECT_THAT(run(L"sync"), EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), IsEmpty());
}

TEST_F(Sync, ReplacesAllPredecessorsOfAChangedCertificate) {
    certificateWithKey(numbered(9), "01");
    store.add(registered(numbered(1), L"CKAIDHEX:01", L"old"));
    store.add(registered(numbered(2), L"CKAIDHEX:01", L"older"));
    EXPECT_THAT(run(L"sync"), EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), ElementsAre(registered(numbered(9), L"CKAIDHEX:01", L"Holder 9")));
}

TEST_F(Sync, LeavesEntriesAloneThatItDidNotRegister) {
    StoreEntry foreign = registered(numbered(5), L"CKAIDHEX:05", L"foreign");
    foreign.korvaneCspRef.reset();
    StoreEntry ofOtherCsp = registered(numbered(6), L"CKAIDHEX:06", L"other CSP");
    ofOtherCsp.keyProvInfo->provider = L"Other CSP";
    ofOtherCsp.korvaneCspRef = record("CKAIDHEX:06", "Other CSP");
    const std::vector<StoreEntry> others{bare(numbered(4)), foreign, ofOtherCsp};
    for (const StoreEntry& entry : others)
        store.add(entry);
    certificateWithKey(numbered(1), "01");
    EXPECT_THAT(run(L"sync"), EndsWithCode(0, IsEmpty()));
    emptyToken();
    EXPECT_THAT(run(L"sync"), EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), testing::UnorderedElementsAreArray(others));
}

TEST_F(Sync, SaysThatAnEntryIsInTheWayThatIsNotOurs) {
    store.add(bare(numbered(1)));
    certificateWithKey(numbered(1), "01");
    certificateWithKey(numbered(2), "02");
    const Outcome outcome = run(L"sync");
    EXPECT_THAT(outcome, EndsWithCode(11, AllOf(HasSubstr("CN=Holder 1"), HasSubstr("left alone"),
                                                HasSubstr("CKAIDHEX:01"))));
    EXPECT_THAT(outcome.output, StartsWith("added  CKAIDHEX:02"));
    EXPECT_THAT(store.entries(),
                UnorderedElementsAre(bare(numbered(1)),
                                     registered(numbered(2), L"CKAIDHEX:02", L"Holder 2")));
}

TEST_F(Sync, BindsAnewWhatIsRegisteredForAnotherContainer) {
    store.add(registered(numbered(1), L"CKAIDHEX:07", L"name"));
    certificateWithKey(numbered(1), "01", "name");
    const Outcome outcome = run(L"sync");
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, StartsWith("rebound  CKAIDHEX:01"));
    EXPECT_THAT(store.entries(), ElementsAre(registered(numbered(1), L"CKAIDHEX:01", L"name")));
}

TEST_F(Sync, TakesBackACertificateThatItCannotRegisterWholly) {
    using namespace testsupport;
    const Bytes malformed = CertBuilder().extensions({extension("2.5.29.15", integer(1))}).build();
    certificateWithKey(malformed, "01");
    certificateWithKey(numbered(2), "02");
    EXPECT_THAT(run(L"sync"),
                EndsWithCode(6, AllOf(HasSubstr("CKAIDHEX:01"), HasSubstr("malformed"),
                                      HasSubstr("(QuorError_Asn1_Decode: "))));
    EXPECT_THAT(store.entries(), ElementsAre(registered(numbered(2), L"CKAIDHEX:02", L"Holder 2")));
}

TEST_F(Sync, ShowsNothingThatCouldSteerATerminal) {
    using namespace testsupport;
    certificateWithKey(CertBuilder().names("Eve\x1B[2J\nadded", "Issuer").build(), "01");
    const Outcome outcome = run(L"sync");
    EXPECT_THAT(outcome.output, HasSubstr("Eve\xEF\xBF\xBD[2J"));
    EXPECT_THAT(outcome.output, Not(HasSubstr("\nadded ")));
}

/// An entry of a certificate without a key.
StoreEntry registeredWithoutKey(const Bytes& encoded, const std::wstring& container,
                                const std::wstring& friendlyName) {
    StoreEntry entry = registered(encoded, container, friendlyName);
    entry.keyProvInfo.reset();
    return entry;
}

Bytes authority() {
    return CertBuilder()
        .names("Authority", "Root")
        .extensions({testsupport::basicConstraints(true)})
        .build();
}

class SyncOfOtherClasses : public UpdaterTest {
protected:
    SyncOfOtherClasses() {
        certificateWithKey(numbered(1), "01");
        certificate(authority(), "02", "CA");
        certificate(numbered(3), "03");
        certificate(CertBuilder().names("Root", "Root").build(), "04");
    }

    const StoreEntry withKey = registered(numbered(1), L"CKAIDHEX:01", L"Holder 1");
    const StoreEntry ca = registeredWithoutKey(authority(), L"CKAIDHEX:02", L"CA");
    const StoreEntry other = registeredWithoutKey(numbered(3), L"CKAIDHEX:03", L"Holder 3");
};

TEST_F(SyncOfOtherClasses, RegistersThemWithoutAKeyIfItIsAsked) {
    EXPECT_THAT(run(L"sync", {L"--ca"}), EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), UnorderedElementsAre(withKey, ca));
    EXPECT_THAT(run(L"sync", {L"--ca", L"--other"}), EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), UnorderedElementsAre(withKey, ca, other));
    const Outcome again = run(L"sync", {L"--ca", L"--other"});
    EXPECT_EQ(again.output, "nothing to do: the store is in step with the token\n");
}

TEST_F(SyncOfOtherClasses, RemovesThemIfItIsNotAskedAnyMore) {
    run(L"sync", {L"--ca", L"--other"});
    EXPECT_THAT(run(L"status").output,
                HasLine("stale +CKAIDHEX:02 +CA +CA +CN=Authority, .* the same"));
    EXPECT_THAT(run(L"sync"), EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), ElementsAre(withKey));
}

TEST_F(SyncOfOtherClasses, BindsACertificateAnewWhoseKeyLeftTheToken) {
    run(L"sync");
    emptyToken();
    certificate(numbered(1), "01");
    const Outcome outcome = run(L"sync", {L"--other"});
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, StartsWith("rebound  CKAIDHEX:01"));
    EXPECT_THAT(store.entries(),
                ElementsAre(registeredWithoutKey(numbered(1), L"CKAIDHEX:01", L"Holder 1")));
}

TEST_F(SyncOfOtherClasses, AreShownAsWantedByStatusToo) {
    const std::string output = run(L"status", {L"--ca"}).output;
    EXPECT_THAT(output, HasLine("missing +CKAIDHEX:02 +CA .*"));
    EXPECT_THAT(output, HasLine("token only +CKAIDHEX:03 +other .*"));
    EXPECT_THAT(output, HasLine("token only +CKAIDHEX:04 +self-signed .*"));
}

TEST_F(Sync, RehearsesWithoutChangingAnything) {
    certificateWithKey(numbered(1), "01");
    certificateWithKey(numbered(2), "02");
    store.add(registered(numbered(3), L"CKAIDHEX:03", L"gone"));
    store.add(registered(numbered(12), L"CKAIDHEX:02", L"old"));
    const auto before = store.entries();
    const Outcome outcome = run(L"sync", {L"--dry-run"});
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, HasLine("to add     CKAIDHEX:01  CN=Holder 1, .*"));
    EXPECT_THAT(outcome.output, HasLine("to remove  CKAIDHEX:03  CN=Holder 3, .*"));
    EXPECT_THAT(outcome.output, HasSubstr("\n2 to add, 2 to remove; nothing was changed\n"));
    EXPECT_EQ(store.entries(), before);

    const Outcome real = run(L"sync");
    EXPECT_THAT(real.output, HasSubstr("\n2 added, 2 removed\n"));
}

TEST_F(Sync, RefusesACspThatIsNotInstalledUnlessItIsMeant) {
    certificateWithKey(numbered(1), "01");
    std::vector<std::wstring> arguments{
        L"sync",      L"--csp",    L"T\u00EBst CSQ", L"--store",
        store.name(), L"--module", module,           L"--allow-unsigned-module",
        L"--pin-env", L"TEST_PIN", L"--quiet"};
    EXPECT_THAT(runWith(arguments),
                EndsWithCode(2, AllOf(HasSubstr("no CSP \"T\xC3\xABst CSQ\" is installed"),
                                      HasSubstr("did you mean \"T\xC3\xABst CSP\"?"),
                                      HasSubstr("--allow-missing-csp"))));
    EXPECT_THAT(store.entries(), IsEmpty());
    arguments.push_back(L"--allow-missing-csp");
    EXPECT_THAT(runWith(arguments), EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), SizeIs(1));
}

TEST_F(Sync, TellsByItsExitCodeWhatADryRunWouldChangeIfAsked) {
    certificateWithKey(numbered(1), "01");
    EXPECT_EQ(run(L"sync", {L"--dry-run"}).exitCode, 0u);
    EXPECT_EQ(run(L"sync", {L"--dry-run", L"--exit-code"}).exitCode, 12u);
    EXPECT_EQ(run(L"status", {L"--exit-code"}).exitCode, 12u);
    EXPECT_EQ(run(L"sync").exitCode, 0u);
    EXPECT_EQ(run(L"sync", {L"--dry-run", L"--exit-code"}).exitCode, 0u);
    EXPECT_EQ(run(L"status", {L"--exit-code"}).exitCode, 0u);
    certificate(numbered(2), "02");
    EXPECT_EQ(run(L"status", {L"--exit-code"}).exitCode, 0u) << "what is not asked for";
    store.add(registered(numbered(3), L"CKAIDHEX:03", L"gone"));
    EXPECT_EQ(run(L"status", {L"--exit-code"}).exitCode, 12u);
}

TEST_F(Sync, SaysNothingIfItIsToBeQuietAndStepsIfItIsToBeVerbose) {
    certificateWithKey(numbered(1), "01");
    const Outcome quiet = run(L"sync", {L"--quiet"});
    EXPECT_THAT(quiet, EndsWithCode(0, IsEmpty()));
    EXPECT_EQ(quiet.output, "");
    EXPECT_THAT(store.entries(), SizeIs(1));
    const Outcome verbose = run(L"sync", {L"--verbose"});
    EXPECT_THAT(
        verbose,
        EndsWithCode(0, AllOf(HasSubstr("loading the module"), HasSubstr("logging in to the token"),
                              HasSubstr("read 1 certificate with a private key"))));
    EXPECT_EQ(verbose.output, "nothing to do: the store is in step with the token\n");
}

TEST_F(Sync, QuietlyStillSaysWhatWentWrong) {
    pin = L"4321";
    EXPECT_THAT(run(L"sync", {L"--quiet"}), EndsWithCode(5, HasSubstr("refused the PIN")));
}

TEST_F(Status, SetsTokenAndStoreSideBySide) {
    certificateWithKey(numbered(1), "01", "first");
    certificateWithKey(numbered(2), "02");
    certificateWithKey(numbered(3), "03");
    certificateWithKey(numbered(4), "04");
    certificate(numbered(5), "05");
    store.add(registered(numbered(1), L"CKAIDHEX:01", L"first"));
    store.add(registered(numbered(13), L"CKAIDHEX:03", L"old"));
    store.add(bare(numbered(4)));
    store.add(registered(numbered(6), L"CKAIDHEX:06", L"gone"));
    const auto before = store.entries();

    const Outcome outcome = run(L"status");
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output,
                HasLine("in step +CKAIDHEX:01 +with key +first +CN=Holder 1, [^ ]+ to "
                        "[^ ]+ +the same"));
    EXPECT_THAT(outcome.output,
                HasLine("missing +CKAIDHEX:02 +with key +Holder 2 +CN=Holder 2, .* -"));
    EXPECT_THAT(outcome.output, HasLine("changed +CKAIDHEX:03 +with key +Holder 3 +CN=Holder 3, .* "
                                        "CN=Holder 13, .*"));
    EXPECT_THAT(outcome.output,
                HasLine("not ours +CKAIDHEX:04 +with key +Holder 4 +CN=Holder 4, .*"));
    EXPECT_THAT(outcome.output,
                HasLine("token only +CKAIDHEX:05 +other +Holder 5 +CN=Holder 5, .*"));
    EXPECT_THAT(outcome.output, HasLine("stale +CKAIDHEX:06 +- +- +- +CN=Holder 6, .*"));
    EXPECT_EQ(store.entries(), before);
}

TEST_F(Status, TellsTheClassesApart) {
    using namespace testsupport;
    certificateWithKey(CertBuilder().names("Self", "Self").build(), "01");
    certificateWithKey(
        CertBuilder().names("Authority", "Issuer").extensions({basicConstraints(true)}).build(),
        "02");
    certificate(CertBuilder().names("Root", "Root").build(), "03");
    const Outcome outcome = run(L"status");
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, HasLine("missing +CKAIDHEX:01 +self-signed +Self +CN=Self, .*"));
    EXPECT_THAT(outcome.output, HasLine("missing +CKAIDHEX:02 +CA +Authority +CN=Authority, .*"));
    EXPECT_THAT(outcome.output, HasLine("token only +CKAIDHEX:03 +self-signed +Root +CN=Root, .*"));
}

TEST_F(Status, SaysThatThereIsNothing) {
    const Outcome outcome = run(L"status");
    EXPECT_THAT(outcome, EndsWithCode(0, HasSubstr("there is no certificate")));
    EXPECT_EQ(outcome.output, "");
}

TEST_F(List, TellsOursFromOthers) {
    store.add(registered(numbered(1), L"CKAIDHEX:01", L"one"));
    StoreEntry foreign = registered(numbered(2), L"CKAIDHEX:02", L"two");
    foreign.korvaneCspRef.reset();
    store.add(foreign);
    store.add(bare(numbered(3)));
    const Outcome outcome = run(L"list");
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, HasLine("CKAIDHEX:01 +ours +.* CN=Holder 1"));
    EXPECT_THAT(outcome.output, HasLine("CKAIDHEX:02 +not ours +.* CN=Holder 2"));
    EXPECT_THAT(outcome.output, Not(HasSubstr("Holder 3")));
}

TEST_F(List, SaysWhichCspWasPerhapsMeant) {
    const auto list = [&](const wchar_t* csp, const wchar_t* last) {
        return runWith({L"list", L"--csp", csp, L"--store", store.name(), last});
    };
    EXPECT_THAT(list(L"T\u00EBst CPS", L"--verbose"),
                EndsWithCode(0, HasSubstr("did you mean \"T\xC3\xABst CSP\"?")));
    EXPECT_THAT(list(L"No Such CSP", L"--quiet"), EndsWithCode(0, IsEmpty()));
}

TEST_F(List, GoesThroughAllInstalledCspsWithoutAName) {
    const testsupport::InstalledCsp second(L"Second CSP of " + store.name());
    StoreEntry ofSecond = registered(numbered(2), L"CKAIDHEX:02", L"two");
    ofSecond.keyProvInfo->provider = second.name();
    const std::string secondName(second.name().begin(), second.name().end());
    ofSecond.korvaneCspRef = record("CKAIDHEX:02", secondName);
    StoreEntry ofUnknown = registered(numbered(3), L"CKAIDHEX:03", L"three");
    ofUnknown.keyProvInfo->provider = L"Not installed";
    ofUnknown.korvaneCspRef = record("CKAIDHEX:03", "Not installed");
    store.add(registered(numbered(1), L"CKAIDHEX:01", L"one"));
    store.add(ofSecond);
    store.add(ofUnknown);
    const Outcome outcome = runWith({L"list", L"--store", store.name()});
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, StartsWith("CSP "));
    EXPECT_THAT(outcome.output,
                HasLine(std::string(testCspUtf8) + " +CKAIDHEX:01 +ours +.* CN=Holder 1"));
    EXPECT_THAT(outcome.output, HasLine(secondName + " +CKAIDHEX:02 +ours +.* CN=Holder 2"));
    EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 3);
}

TEST_F(List, SaysThatNothingIsRegistered) {
    const Outcome outcome = run(L"list");
    EXPECT_THAT(outcome, EndsWithCode(0, HasSubstr("nothing is registered")));
    EXPECT_EQ(outcome.output, "");
}

TEST_F(Clean, RemovesWhatIsOursAndNothingElse) {
    store.add(registered(numbered(1), L"CKAIDHEX:01", L"one"));
    store.add(registered(numbered(2), L"CKAIDHEX:02", L"two"));
    store.add(registered(numbered(12), L"CKAIDHEX:02", L"hidden"));
    StoreEntry foreign = registered(numbered(3), L"CKAIDHEX:03", L"three");
    foreign.korvaneCspRef.reset();
    store.add(foreign);
    store.add(bare(numbered(4)));
    const Outcome outcome = run(L"clean");
    EXPECT_THAT(outcome, EndsWithCode(0, HasSubstr("entries for 1 container stay")));
    EXPECT_EQ(outcome.output, "removed what was registered for 2 containers\n");
    EXPECT_THAT(store.entries(), UnorderedElementsAre(foreign, bare(numbered(4))));
}

TEST_F(Clean, SaysThatThereWasNothing) {
    const Outcome outcome = run(L"clean");
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_EQ(outcome.output, "nothing is left that this program registered\n");
}

TEST_F(Clean, EndsAtARecordThatIsNotUtf8) {
    StoreEntry broken = registered(numbered(1), L"CKAIDHEX:01", L"one");
    broken.korvaneCspRef = testsupport::fromHex("41 FF 0A");
    store.add(broken);
    EXPECT_THAT(run(L"clean"),
                EndsWithCode(7, AllOf(HasSubstr("not UTF-8"),
                                      HasSubstr("BufferError_InvalidEncodingUnit"))));
    EXPECT_THAT(store.entries(), ElementsAre(broken));
}

TEST_F(Sync, NamesWhatCannotBeReadAndGoesOn) {
    StoreEntry broken = bare(numbered(1));
    broken.korvaneCspRef = testsupport::fromHex("C3");
    store.add(broken);
    // Windows takes a version that is written although it has its default; DER forbids it.
    StoreEntry malformed = registered(
        CertBuilder().version(testsupport::explicitly(0, testsupport::integer(0))).build(),
        L"CKAIDHEX:03", L"old");
    store.add(malformed);
    StoreEntry ofOthers = malformed;
    ofOthers.encoded = CertBuilder()
                           .serialNumber(7)
                           .version(testsupport::explicitly(0, testsupport::integer(0)))
                           .build();
    ofOthers.keyProvInfo.reset();
    ofOthers.korvaneCspRef.reset();
    store.add(ofOthers);
    certificateWithKey(numbered(2), "02");
    const Outcome outcome = run(L"sync");
    EXPECT_THAT(outcome, EndsWithCode(0, AllOf(HasSubstr("CN=Holder 1, thumbprint "),
                                               HasSubstr("BufferError_InvalidEncodingUnit"),
                                               HasSubstr("(unreadable), thumbprint "),
                                               HasSubstr("QuorError_Asn1_Decode"))));
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 2)
        << "what is not bound to the CSP is nobody's business";
    EXPECT_THAT(store.entries(), SizeIs(4));
}

TEST_F(Sync, DoesNotTakeARecordWithoutASecondLineForItsOwn) {
    StoreEntry oneLine = bare(numbered(1));
    oneLine.korvaneCspRef = testsupport::fromText("CKAIDHEX:01\n");
    StoreEntry empty = bare(numbered(2));
    empty.korvaneCspRef = Bytes{};
    store.add(oneLine);
    store.add(empty);
    certificateWithKey(numbered(1), "01");
    certificateWithKey(numbered(2), "02");
    EXPECT_THAT(run(L"sync"), EndsWithCode(11, AllOf(HasSubstr("(CKAIDHEX:01) is in the store"),
                                                     HasSubstr("(CKAIDHEX:02) is in the store"))));
    EXPECT_THAT(store.entries(), UnorderedElementsAre(oneLine, empty));
}

class Csps : public UpdaterTest {};

TEST_F(Csps, AreListedOneALine) {
    const Outcome outcome = runWith({L"csps"});
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, HasLine(testCspUtf8));
    EXPECT_THAT(outcome.output, HasLine("Microsoft Enhanced Cryptographic Provider v1\\.0"));
}

class Grant : public UpdaterTest {};

TEST_F(Grant, TellsOfEachPath) {
    const std::wstring file = folder.write("file", "text").wstring();
    const Outcome outcome = runWith({L"grant", file, file + L"-none", folder.path().wstring()});
    EXPECT_THAT(outcome,
                EndsWithCode(9, AllOf(HasSubstr("it does not exist"),
                                      HasSubstr("(CertStoreUpdaterError_InvalidConfiguration: "
                                                "Method=GetFileSecurity, error=2)"))));
    EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 2);
    EXPECT_THAT(outcome.output, HasLine("granted  .*file"));
}

TEST_F(Grant, GoesIntoFolders) {
    folder.write("file", "text");
    const Outcome outcome = runWith({L"grant", folder.path().wstring(), L"--recursive"});
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_EQ(outcome.output, "granted  " + folder.path().string() + "\n");
}

class Program : public UpdaterTest {};

TEST_F(Program, HelpsOnStandardOutput) {
    const Outcome outcome = runWith({L"--help"});
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, HasSubstr("Exit codes:"));
}

TEST_F(Program, ComplainsOnStandardError) {
    const Outcome outcome = runWith({L"clean", L"--csp", L""});
    EXPECT_THAT(outcome, EndsWithCode(2, StartsWith("certstoreupdate: --csp must not be empty")));
    EXPECT_EQ(outcome.output, "");
}

TEST_F(Program, SaysThatAStoreCannotBeOpened) {
    // No store has a name of 260 characters or more, here or on Windows.
    const std::wstring name(300, L'x');
    EXPECT_THAT(
        runWith({L"list", L"--csp", testCsp, L"--store", name}),
        EndsWithCode(7, AllOf(HasSubstr("cannot be opened"),
                              HasSubstr("(CertStoreUpdaterError_OpenSystemStore: STORE="))));
}

TEST_F(Program, TakesThePinFromAFile) {
    certificateWithKey(numbered(1), "01");
    const auto file = folder.write("pin", "1234\r\n");
    EXPECT_THAT(runWith({L"sync", L"--csp", testCsp, L"--store", store.name(), L"--module", module,
                         L"--allow-unsigned-module", L"--pin-file", file.wstring()}),
                EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), SizeIs(1));
}

TEST_F(Program, TakesThePinFromStandardInput) {
    certificateWithKey(numbered(1), "01");
    EXPECT_THAT(runWith({L"sync", L"--csp", testCsp, L"--store", store.name(), L"--module", module,
                         L"--allow-unsigned-module", L"--pin-stdin"},
                        "1234\n"),
                EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(store.entries(), SizeIs(1));
}

TEST_F(Program, DoesNotAskForThePinWhereThereIsNoConsole) {
    EXPECT_THAT(runWith({L"sync", L"--csp", testCsp, L"--store", store.name(), L"--module", module,
                         L"--allow-unsigned-module"},
                        "1234\n"),
                EndsWithCode(2, HasSubstr("--pin-stdin")));
    EXPECT_THAT(calls(), Not(HasSubstr("C_Login")));
}

} // namespace
} // namespace updater
