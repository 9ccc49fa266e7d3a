// Following a token: it appears, changes, fails and goes.
#include "storelock.h"
#include "updatertest.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace updater {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Watching : public UpdaterTest {
protected:
    Watching() {
        line("pulledwhile " + path("pulled"));
        line("objectsfrom " + path("objects"));
        putOnToken({});
    }

    std::string path(const char* name) const { return (folder.path() / name).string(); }

    /// Has certificates with these numbers, and their keys, on the token, and nothing else.
    void putOnToken(const std::vector<int>& numbers) {
        std::string statements;
        for (const int number : numbers) {
            const std::string id = "0" + std::to_string(number);
            statements +=
                certificateStatement(numbered(number), id) + "\n" + keyStatement(id) + "\n";
        }
        folder.replace("objects", statements);
    }
    void pull() { folder.write("pulled", ""); }
    void putBack() { std::filesystem::remove(folder.path() / "pulled"); }

    testsupport::Start watch(const std::vector<std::wstring>& more = {}) const {
        std::vector<std::wstring> arguments = commandLine(L"watch", {L"--interval", L"0.1"});
        arguments.insert(arguments.end(), more.begin(), more.end());
        return start(arguments);
    }
};

TEST_F(Watching, FollowsTheTokenUntilCtrlC) {
    putOnToken({1});
    testsupport::RunningUpdater updater(watch());
    updater.waitForOutput("1 added\n");
    EXPECT_THAT(seenByOthers(), ElementsAre(registered(numbered(1), L"CKAIDHEX:01", L"Holder 1")));

    putOnToken({1, 2});
    updater.waitForOutput("1 added\n", 2);
    putOnToken({2});
    updater.waitForOutput("1 removed\n");
    EXPECT_THAT(seenByOthers(), ElementsAre(registered(numbered(2), L"CKAIDHEX:02", L"Holder 2")));

    updater.interrupt();
    const Outcome outcome = updater.waitForEnd();
    EXPECT_THAT(outcome, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(outcome.output, EndsWith("stopped\n"));
    EXPECT_THAT(calls(), EndsWith("C_CloseSession 0\nC_Finalize 0\n"));
    EXPECT_EQ(callsOf("C_Login"), 1) << "one login for as long as the token is there";
}

TEST_F(Watching, WaitsForATokenAndForItsReturn) {
    putOnToken({1});
    pull();
    testsupport::RunningUpdater updater(watch());
    updater.waitForOutput("there is no token; waiting for one\n");
    putBack();
    updater.waitForOutput("1 added\n");
    pull();
    updater.waitForOutput("the token is gone\n");
    EXPECT_THAT(seenByOthers(), ElementsAre(registered(numbered(1), L"CKAIDHEX:01", L"Holder 1")))
        << "not asked to clean up";
    putOnToken({2});
    putBack();
    updater.waitForOutput("1 added, 1 removed\n");
    updater.interrupt();
    EXPECT_THAT(updater.waitForEnd(), EndsWithCode(0, IsEmpty()));
    EXPECT_EQ(callsOf("C_Login"), 2);
}

TEST_F(Watching, CleansUpWhenTheTokenLeavesIfAsked) {
    const StoreEntry foreign = bare(numbered(9));
    store.add(foreign);
    putOnToken({1});
    testsupport::RunningUpdater updater(watch({L"--clean"}));
    updater.waitForOutput("1 added\n");
    pull();
    updater.waitForOutput("removed what was registered for 1 container\n");
    EXPECT_THAT(seenByOthers(), ElementsAre(foreign));
    putBack();
    updater.waitForOutput("1 added\n", 2);
    updater.interrupt();
    EXPECT_EQ(updater.waitForEnd().exitCode, 0);
}

/// Something that makes every look at the store fail, until it is removed.
StoreEntry unreadable() {
    StoreEntry entry = bare(numbered(9));
    entry.korvaneCspRef = testsupport::fromHex("C3");
    return entry;
}

TEST_F(Watching, CleansUpAgainIfThatFailed) {
    putOnToken({1});
    testsupport::RunningUpdater updater(watch({L"--clean"}));
    updater.waitForOutput("1 added\n");
    store.add(unreadable());
    pull();
    EXPECT_THAT(updater.waitForErrors("the next try is in 1 s"), HasSubstr("not UTF-8"));
    updater.waitForErrors("the next try is in 2 s");
    EXPECT_THAT(store.entries(), testing::SizeIs(2));
    store.remove(unreadable().encoded);
    updater.waitForOutput("removed what was registered for 1 container\n");
    EXPECT_THAT(seenByOthers(), IsEmpty());
    updater.interrupt();
    const Outcome outcome = updater.waitForEnd();
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.errors, Not(HasSubstr("was not removed")));
}

TEST_F(Watching, SaysThatItEndsBeforeItCouldCleanUp) {
    putOnToken({1});
    testsupport::RunningUpdater updater(watch({L"--clean"}));
    updater.waitForOutput("1 added\n");
    store.add(unreadable());
    pull();
    updater.waitForErrors("the next try is in 1 s");
    updater.interrupt();
    EXPECT_THAT(updater.waitForEnd(),
                EndsWithCode(0, EndsWith("warning: what is registered for the CSP was not removed; "
                                         "run clean\n")));
    EXPECT_THAT(store.entries(), testing::SizeIs(2));
}

TEST_F(Watching, SaysThatItCouldNotCleanUpBeforeItGivesUp) {
    putOnToken({1});
    line("failwhile " + path("locked") + " C_Login 0xA4");
    testsupport::RunningUpdater updater(watch({L"--clean"}));
    updater.waitForOutput("1 added\n");
    store.add(unreadable());
    pull();
    updater.waitForErrors("the next try is in 1 s");
    folder.write("locked", "");
    putBack();
    EXPECT_THAT(updater.waitForEnd(),
                EndsWithCode(5, AllOf(HasSubstr("the PIN is locked"),
                                      HasSubstr("was not removed; run clean"))));
    EXPECT_THAT(store.entries(), testing::SizeIs(2));
}

TEST_F(Watching, GoesOnAtOnceWithATokenThatReturnsBeforeItCouldCleanUp) {
    putOnToken({1});
    line("failwhile " + path("faulty") + " C_FindObjectsInit 0x30");
    testsupport::RunningUpdater updater(watch({L"--clean"}));
    updater.waitForOutput("1 added\n");
    store.add(unreadable());
    pull();
    updater.waitForErrors("the next try is in 2 s");
    folder.write("faulty", "");
    putBack();
    // The delays begin anew for the token that has returned.
    updater.waitForErrors("the next try is in 1 s", 2);
    std::filesystem::remove(folder.path() / "faulty");
    updater.waitForOutput("the token is present\n", 2);
    store.remove(unreadable().encoded);
    updater.waitForOutput("nothing to do: the store is in step with the token\n");
    updater.interrupt();
    EXPECT_THAT(updater.waitForEnd().exitCode, 0);
    EXPECT_THAT(store.entries(), ElementsAre(registered(numbered(1), L"CKAIDHEX:01", L"Holder 1")));
}

TEST_F(Watching, TriesARefusedPinOnceAndEnds) {
    putOnToken({1});
    pin = L"4321";
    testsupport::RunningUpdater updater(watch());
    EXPECT_THAT(updater.waitForEnd(), EndsWithCode(5, HasSubstr("the token refused the PIN")));
    EXPECT_EQ(callsOf("C_Login"), 1);
    EXPECT_THAT(store.entries(), IsEmpty());
}

TEST_F(Watching, DoesNotTryThePinAgainWhateverTheLoginAnswers) {
    putOnToken({1});
    // A vendor's own code may mean a wrong PIN.
    line("fail C_Login 1 0x80000005");
    testsupport::RunningUpdater updater(watch());
    EXPECT_THAT(updater.waitForEnd(), EndsWithCode(10, HasSubstr("the login to the token failed")));
    EXPECT_EQ(callsOf("C_Login"), 1);
}

TEST_F(Watching, EndsAtAPinThatIsRefusedWhenTheTokenReturns) {
    putOnToken({1});
    line("failwhile " + path("locked") + " C_Login 0xA4");
    testsupport::RunningUpdater updater(watch());
    updater.waitForOutput("1 added\n");
    pull();
    updater.waitForOutput("the token is gone\n");
    folder.write("locked", "");
    putBack();
    EXPECT_THAT(updater.waitForEnd(), EndsWithCode(5, HasSubstr("the PIN is locked")));
    EXPECT_EQ(callsOf("C_Login"), 2);
}

TEST_F(Watching, ReportsAFaultAndTriesAgainAfterALongerDelayEachTime) {
    putOnToken({1});
    line("failwhile " + path("faulty") + " C_FindObjectsInit 0x30");
    folder.write("faulty", "");
    testsupport::RunningUpdater updater(watch());
    updater.waitForErrors("CKR_DEVICE_ERROR");
    updater.waitForErrors("the next try is in 1 s");
    updater.waitForErrors("the next try is in 2 s");
    std::filesystem::remove(folder.path() / "faulty");
    updater.waitForOutput("1 added\n");

    // Once it worked again, the delay begins anew.
    folder.write("faulty", "");
    updater.waitForErrors("the next try is in 1 s", 2);
    updater.interrupt();
    EXPECT_EQ(updater.waitForEnd().exitCode, 0);
}

TEST_F(Watching, DoesNotWriteToTheStoreAfterAFaultThatChangedNothing) {
    putOnToken({1});
    line("failwhile " + path("faulty") + " C_FindObjectsInit 0x30");
    testsupport::RunningUpdater updater(watch());
    updater.waitForOutput("1 added\n");
    folder.write("faulty", "");
    updater.waitForErrors("the next try is in 1 s");
    std::filesystem::remove(folder.path() / "faulty");
    putOnToken({1, 2});
    const std::string output = updater.waitForOutput("1 added\n", 2);
    EXPECT_THAT(output, Not(HasSubstr("nothing to do")));
    updater.interrupt();
    EXPECT_EQ(updater.waitForEnd().exitCode, 0);
}

TEST_F(Watching, TakesALostSessionForAPulledTokenOnce) {
    putOnToken({1});
    line("failwhile " + path("lost") + " C_FindObjectsInit 0xB3");
    testsupport::RunningUpdater updater(watch());
    updater.waitForOutput("1 added\n");
    folder.write("lost", "");
    // The first answer of this kind was silent: it may have come from a pulled token.
    EXPECT_THAT(updater.waitForErrors("the next try is in 1 s"),
                HasSubstr("CKR_SESSION_HANDLE_INVALID"));
    EXPECT_GE(callsOf("C_Login"), 2);
    pull();
    updater.waitForOutput("the token is gone\n");
    std::filesystem::remove(folder.path() / "lost");
    putBack();
    updater.waitForOutput("the token is present\n", 2);
    updater.interrupt();
    EXPECT_EQ(updater.waitForEnd().exitCode, 0);
}

TEST_F(Watching, DoesNotWaitOutTheDelayOfAFaultThatLeftWithItsToken) {
    putOnToken({1});
    line("failwhile " + path("faulty") + " C_FindObjectsInit 0x30");
    folder.write("faulty", "");
    testsupport::RunningUpdater updater(watch({L"--clean"}));
    updater.waitForErrors("the next try is in 8 s");
    pull();
    std::filesystem::remove(folder.path() / "faulty");
    updater.waitForOutput("there is no token; waiting for one\n");
    putBack();
    updater.waitForOutput("1 added\n");
    pull();
    updater.waitForOutput("the token is gone\n");
    folder.write("faulty", "");
    putBack();
    updater.waitForErrors("the next try is in 1 s", 2);
    EXPECT_THAT(updater.errors(), Not(HasSubstr("in 16 s"))) << "the delay began anew";
    updater.interrupt();
    EXPECT_EQ(updater.waitForEnd().exitCode, 0);
}

TEST_F(Watching, WaitsForAModuleThatDoesNotStartYet) {
    putOnToken({1});
    line("failwhile " + path("notready") + " C_Initialize 0x30");
    folder.write("notready", "");
    testsupport::RunningUpdater updater(watch());
    EXPECT_THAT(updater.waitForErrors("the next try is in 1 s"), HasSubstr("does not start"));
    std::filesystem::remove(folder.path() / "notready");
    updater.waitForOutput("1 added\n");
    updater.interrupt();
    EXPECT_EQ(updater.waitForEnd().exitCode, 0);
}

TEST_F(Watching, EndsAtOnceIfTheModuleCannotBeLoaded) {
    module = folder.write("text.dll", "This is no library.").wstring();
    testsupport::RunningUpdater updater(watch());
    EXPECT_THAT(updater.waitForEnd(), EndsWithCode(3, HasSubstr("cannot be loaded")));
}

TEST_F(Watching, EndsAtOnceIfTheModuleIsNotTrusted) {
    allowUnsignedModule = false;
    testsupport::RunningUpdater updater(watch());
    EXPECT_THAT(updater.waitForEnd(), EndsWithCode(8, HasSubstr("was not loaded")));
    EXPECT_EQ(calls(), "");
}

TEST_F(Watching, EndsInOrderAtCtrlCWhileAnotherRunHasTheStore) {
    putOnToken({1});
    const Output silent("", {.quiet = true});
    const Interruption interruption;
    const StoreLock lock(store.name(), interruption, silent);
    testsupport::RunningUpdater updater(watch());
    updater.waitForErrors("waiting for another run");
    updater.interrupt();
    const Outcome outcome = updater.waitForEnd();
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.output, EndsWith("stopped\n"));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("interrupted")));
    EXPECT_THAT(seenByOthers(), IsEmpty());
}

TEST_F(Watching, EndsAtOnceAtASecondCtrlC) {
    putOnToken({1});
    line("hangwhile " + path("hanging") + " C_FindObjects");
    folder.write("hanging", "");
    testsupport::RunningUpdater updater(watch());
    updater.waitForErrors("C_FindObjects hangs");
    updater.interrupt();
    updater.interrupt();
    const Outcome outcome = updater.waitForEnd();
    EXPECT_EQ(outcome.exitCode, testsupport::exitCodeOfUnhandledCtrlC());
    EXPECT_THAT(outcome.output, Not(HasSubstr("stopped")));
    EXPECT_THAT(calls(), Not(HasSubstr("C_Finalize")));
    EXPECT_THAT(seenByOthers(), IsEmpty());
}

TEST_F(Watching, TellsProgramsOfWhatCouldNotBeDoneToo) {
    using namespace testsupport;
    const Bytes malformed = CertBuilder().extensions({extension("2.5.29.15", integer(1))}).build();
    folder.replace("objects", certificateStatement(numbered(3), "03") + "\n" + keyStatement("03") +
                                  "\n" + certificateStatement(malformed, "04") + "\n" +
                                  keyStatement("04") + "\n");
    testsupport::RunningUpdater updater(watch({L"--json"}));
    const std::string output = updater.waitForOutput("\"synchronised\"");
    updater.interrupt();
    EXPECT_EQ(updater.waitForEnd().exitCode, 0);

    EXPECT_LT(output.find("\"error\""), output.find("\"synchronised\""));
    const auto result =
        nlohmann::json::parse(output.substr(output.find("{\"event\":\"synchronised\"")));
    EXPECT_EQ(result.at("sync").at("changes").size(), 1u);
    EXPECT_EQ(result.at("sync").at("problems").at(0).at("problem"), "unusable");
    EXPECT_THAT(seenByOthers(), ElementsAre(registered(numbered(3), L"CKAIDHEX:03", L"Holder 3")));
}

TEST_F(Watching, TellsProgramsInALineOfWhatEndsItAtTheBeginning) {
    for (const std::wstring option : {L"--nonsense", L"--pin-file=none"}) {
        const Outcome outcome =
            runWith({L"watch", L"--module", module, L"--allow-unsigned-module", L"--csp", testCsp,
                     L"--store", store.name(), L"--json", option});
        EXPECT_EQ(outcome.exitCode, 2);
        const std::size_t lineBegin = outcome.output.rfind("{\"event\":");
        ASSERT_NE(lineBegin, std::string::npos) << outcome.output;
        const std::string line = outcome.output.substr(lineBegin);
        EXPECT_EQ(violationsOfSchema(line), "") << line;
        EXPECT_EQ(nlohmann::json::parse(line).at("error").at("exitCode"), 2);
    }
}

TEST_F(Watching, TellsProgramsFirstThatItWatches) {
    std::vector<std::wstring> arguments = commandLine(L"watch", {L"--json"});
    std::replace(arguments.begin(), arguments.end(), std::wstring(testCsp), std::wstring(L"none"));
    testsupport::RunningUpdater updater(start(arguments));
    const Outcome outcome = updater.waitForEnd();
    EXPECT_THAT(outcome, EndsWithCode(2, HasSubstr("no CSP \"none\" is installed")));
    EXPECT_THAT(outcome.output, testing::StartsWith("{\"event\":\"watching\""));
}

TEST_F(Watching, TellsProgramsOfEachEventInALine) {
    putOnToken({1});
    line("failwhile " + path("faulty") + " C_FindObjectsInit 0x30");
    testsupport::RunningUpdater updater(watch({L"--json", L"--clean"}));
    updater.waitForOutput("\"synchronised\"");
    folder.write("faulty", "");
    updater.waitForOutput("\"error\"");
    pull();
    std::filesystem::remove(folder.path() / "faulty");
    updater.waitForOutput("\"cleaned\"");
    updater.interrupt();
    const Outcome outcome = updater.waitForEnd();
    EXPECT_EQ(outcome.exitCode, 0);

    std::vector<std::string> events;
    std::istringstream lines(outcome.output);
    for (std::string text; std::getline(lines, text);) {
        EXPECT_EQ(violationsOfSchema(text), "") << text;
        events.push_back(nlohmann::json::parse(text).at("event"));
    }
    events.erase(std::unique(events.begin(), events.end()), events.end());
    EXPECT_THAT(events, ElementsAre("watching", "token-present", "synchronised", "error",
                                    "token-gone", "cleaned", "stopped"));
}

} // namespace
} // namespace updater
