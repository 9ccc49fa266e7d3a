// Runs that are long, killed, broken off, side by side, or lose their token on the way.
#include "storelock.h"
#include "updatertest.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace updater {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::EndsWith;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSubsetOf;
using testing::Lt;
using testing::SizeIs;
using testing::UnorderedElementsAreArray;

constexpr int many = 1000;

std::string idOf(int number) {
    return testsupport::toHex(
        Bytes{static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)});
}

StoreEntry entryOf(int number) {
    const std::string id = idOf(number);
    return registered(numbered(number), L"CKAIDHEX:" + std::wstring(id.begin(), id.end()),
                      L"Holder " + std::to_wstring(number));
}

class Runs : public UpdaterTest {
protected:
    void fillToken(int count) {
        for (int number = 1; number <= count; ++number) {
            certificateWithKey(numbered(number), idOf(number));
            wanted_.push_back(entryOf(number));
        }
    }
    void expectStoreToBeInStep() const {
        EXPECT_THAT(seenByOthers(), UnorderedElementsAreArray(wanted_));
    }

    /// What became of a run that was ended in the midst of its work. One that was done before it
    /// heard of that is made again, from an empty store.
    template <class End>
    Outcome brokenOff(End end) {
        for (int attempt = 0; attempt != 10; ++attempt) {
            testsupport::Start sync = start(commandLine(L"sync", {L"--verbose"}));
            // Where stores have the compatibility layer, they wait for the end.
            sync.environment[L"CSU_STORE_WAITS_AT"] = std::to_wstring(many / 2);
            testsupport::RunningUpdater updater(sync);
            updater.waitForErrors(" added ");
            try {
                end(updater);
            } catch (const std::runtime_error&) {
                // It has ended.
            }
            Outcome outcome = updater.waitForEnd();
            if (outcome.exitCode != 0)
                return outcome;
            run(L"clean");
        }
        ADD_FAILURE() << "it was always too fast";
        return {};
    }

    std::vector<StoreEntry> wanted_;
};

TEST_F(Runs, RegisterAndRemoveAThousandCertificates) {
    fillToken(many);
    const Outcome first = run(L"sync");
    EXPECT_THAT(first, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(first.output, EndsWith("\n1000 added\n"));
    expectStoreToBeInStep();
    const Outcome second = run(L"sync");
    EXPECT_THAT(second, EndsWithCode(0, IsEmpty()));
    EXPECT_EQ(second.output, "nothing to do: the store is in step with the token\n");
    const Outcome cleaning = run(L"clean");
    EXPECT_THAT(cleaning, EndsWithCode(0, IsEmpty()));
    EXPECT_THAT(seenByOthers(), IsEmpty());
}

TEST_F(Runs, EndInOrderAtCtrlCAndAreFinishedByTheNext) {
    fillToken(many);
    const Outcome outcome = brokenOff([](testsupport::RunningUpdater& run) { run.interrupt(); });
    EXPECT_THAT(outcome, EndsWithCode(11, HasSubstr("interrupted; what was done")));
    EXPECT_THAT(seenByOthers(), AllOf(IsSubsetOf(wanted_), SizeIs(AllOf(Ge(1), Lt(many)))))
        << "nothing is registered by half";
    EXPECT_THAT(run(L"sync"), EndsWithCode(0, IsEmpty()));
    expectStoreToBeInStep();
}

TEST_F(Runs, ThatWereKilledLeaveNothingThatTheNextCannotTell) {
    fillToken(many);
    const Outcome outcome = brokenOff([](testsupport::RunningUpdater& run) { run.kill(); });
    EXPECT_EQ(outcome.exitCode, testsupport::RunningProgram::killedExitCode);
    EXPECT_THAT(seenByOthers(), SizeIs(AllOf(Ge(1), Lt(many))));

    // One certificate at most was being registered. If that was half done, the next run says so
    // and leaves it alone, since it cannot tell it from another program's.
    const Outcome next = run(L"sync");
    EXPECT_THAT(next.exitCode, AnyOf(0, 11));
    std::vector<StoreEntry> halfDone;
    for (const StoreEntry& entry : seenByOthers())
        if (std::find(wanted_.begin(), wanted_.end(), entry) == wanted_.end())
            halfDone.push_back(entry);
    EXPECT_THAT(halfDone, SizeIs(next.exitCode == 0 ? 0 : 1));
    EXPECT_THAT(seenByOthers(), SizeIs(many));

    // Once that is removed, as it says, all is in step.
    for (const StoreEntry& entry : halfDone)
        store.remove(entry.encoded);
    EXPECT_THAT(run(L"sync"), EndsWithCode(0, IsEmpty()));
    expectStoreToBeInStep();
}

TEST_F(Runs, SideBySideDoTheWorkOnce) {
    fillToken(100);
    const testsupport::Start sync = start(commandLine(L"sync", {L"--json"}));
    testsupport::RunningUpdater one(sync);
    testsupport::RunningUpdater other(sync);
    std::size_t additions = 0;
    for (testsupport::RunningUpdater* const updater : {&one, &other}) {
        const Outcome outcome = updater->waitForEnd();
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
        const auto document = nlohmann::json::parse(outcome.output);
        EXPECT_THAT(document.at("errors"), IsEmpty());
        additions += document.at("sync").at("changes").size();
    }
    EXPECT_EQ(additions, 100u);
    expectStoreToBeInStep();
}

TEST_F(Runs, WaitWhileAnotherOneChangesTheStore) {
    fillToken(1);
    const Output silent("", {.quiet = true});
    const Interruption interruption;
    auto lock = std::make_unique<StoreLock>(store.name(), interruption, silent);
    testsupport::RunningUpdater updater(start(commandLine(L"sync")));
    updater.waitForErrors("waiting for another run");
    EXPECT_EQ(updater.output(), "");
    EXPECT_THAT(run(L"sync", {L"--dry-run"}).output, EndsWith("1 to add; nothing was changed\n"))
        << "what changes nothing does not wait";
    lock.reset();
    EXPECT_THAT(updater.waitForEnd().output, EndsWith("1 added\n"));
    expectStoreToBeInStep();
}

TEST_F(Runs, EndAtCtrlCWhileTheyWaitForAnotherOne) {
    fillToken(1);
    const Output silent("", {.quiet = true});
    const Interruption interruption;
    const StoreLock lock(store.name(), interruption, silent);
    testsupport::RunningUpdater updater(start(commandLine(L"sync")));
    updater.waitForErrors("waiting for another run");
    updater.interrupt();
    EXPECT_THAT(updater.waitForEnd(), EndsWithCode(11, HasSubstr("interrupted while another run")));
    EXPECT_THAT(seenByOthers(), IsEmpty());
}

TEST_F(Runs, ChangeNothingWhereverTheTokenIsPulled) {
    fillToken(3);
    const StoreEntry before = entryOf(99);
    store.add(before);
    std::size_t phases = 0;
    for (std::size_t call = 1;; ++call) {
        SCOPED_TRACE("pulled at call " + std::to_string(call));
        ASSERT_LT(call, 200u);
        lastLine = "pulledat " + std::to_string(call);
        const Outcome outcome = run(L"sync");
        if (outcome.exitCode == 0)
            break;
        ++phases;
        EXPECT_EQ(outcome.exitCode, 4);
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(store.entries(), testing::ElementsAre(before));
    }
    EXPECT_GT(phases, 20u);
    expectStoreToBeInStep();
}

} // namespace
} // namespace updater
