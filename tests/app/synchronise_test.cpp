// Bringing a store into step.
#include "synchronise.h"

#include "memoryregistry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace updater {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Kind = SyncEvent::Kind;

struct Told {
    Kind kind;
    std::wstring container;
    friend bool operator==(const Told&, const Told&) = default;
};
void PrintTo(const Told& told, std::ostream* out) {
    *out << static_cast<int>(told.kind) << " " << testing::PrintToString(told.container);
}

class Synchronising : public testing::Test {
protected:
    std::vector<Told> run() {
        std::vector<Told> told;
        synchronise(wanted, store, {[&](const SyncEvent& event) {
                        told.push_back({event.kind, event.container.c_str()});
                    }});
        return told;
    }

    bool has(int number) { return store.isPresent(numbered(number)); }

    WantedMap wanted;
    MemoryRegistry store;
};

TEST_F(Synchronising, WritesNothingIfNothingDiffers) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"A", numbered(1));
    store.entries.push_back({numbered(9), {}, {}});
    EXPECT_THAT(run(), IsEmpty());
    EXPECT_THAT(store.changes, IsEmpty());
}

TEST_F(Synchronising, AddsBeforeItRemoves) {
    wanted[L"B"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::added, L"B"}, Told{Kind::removed, L"A"}));
    EXPECT_THAT(store.changes, ElementsAre(L"add B", L"remove CN=Holder 1"));
}

TEST_F(Synchronising, ReplacesAChangedCertificate) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::added, L"A"}, Told{Kind::removed, L"A"}));
    EXPECT_TRUE(store.isInStep(L"A", wantedOf(numbered(2))));
    EXPECT_FALSE(has(1));
}

TEST_F(Synchronising, RemovesAllPredecessors) {
    wanted[L"A"] = wantedOf(numbered(4));
    for (const int number : {1, 2, 3})
        store.addOurs(L"A", numbered(number));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::added, L"A"}, Told{Kind::removed, L"A"},
                                   Told{Kind::removed, L"A"}, Told{Kind::removed, L"A"}));
    EXPECT_THAT(store.changes, ElementsAre(L"add A", L"remove CN=Holder 1", L"remove CN=Holder 2",
                                           L"remove CN=Holder 3"));
    EXPECT_TRUE(store.isInStep(L"A", wantedOf(numbered(4))));
}

TEST_F(Synchronising, RemovesAPredecessorThatAnInterruptedRunLeftBehind) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(2));
    store.addOurs(L"A", numbered(1));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::removed, L"A"}));
    EXPECT_THAT(store.changes, ElementsAre(L"remove CN=Holder 1"));
}

TEST_F(Synchronising, RemovesAllStaleEntriesOfAContainerThatIsNoLongerOnTheToken) {
    for (const int number : {1, 2, 3})
        store.addOurs(L"A", numbered(number));
    run();
    EXPECT_THAT(store.entries, IsEmpty());
}

TEST_F(Synchronising, LeavesOutWhatNoStoreCanHoldAndKeepsWhatIsRegisteredForItsContainer) {
    wanted[L"A"] = wantedOf(numbered(2));
    wanted[L"B"] = wantedOf(numbered(3));
    store.refused = numbered(2);
    store.addOurs(L"A", numbered(1));
    store.addOurs(L"A", numbered(4));
    store.addOurs(L"C", numbered(5));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::unusable, L"A"}, Told{Kind::added, L"B"},
                                   Told{Kind::removed, L"C"}));
    EXPECT_TRUE(has(1));
    EXPECT_TRUE(has(4));
}

TEST_F(Synchronising, LeavesOutForEachContainerWhatNoStoreCanHold) {
    wanted[L"A"] = wantedOf(numbered(1));
    wanted[L"B"] = wantedOf(numbered(1));
    store.refused = numbered(1);
    store.addOurs(L"B", numbered(2));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::unusable, L"A"}, Told{Kind::unusable, L"B"}));
    EXPECT_TRUE(has(2));
}

TEST_F(Synchronising, NeverTouchesWhatItDidNotRegister) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.entries.push_back({numbered(1), {}, {}});
    store.entries.push_back({numbered(2), {}, L"B"});
    EXPECT_THAT(run(), ElementsAre(Told{Kind::notOurs, L"A"}));
    EXPECT_THAT(store.changes, IsEmpty());
}

TEST_F(Synchronising, KeepsAPredecessorWhoseSuccessorIsNotOurs) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    store.entries.push_back({numbered(2), {}, {}});
    EXPECT_THAT(run(), ElementsAre(Told{Kind::notOurs, L"A"}));
    EXPECT_TRUE(has(1));
}

TEST_F(Synchronising, NoticesThatAnAdditionWasRefused) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    store.refusesAdditions = true;
    EXPECT_THAT(run(), ElementsAre(Told{Kind::addRefused, L"A"}));
    EXPECT_TRUE(has(1)) << "what was registered before is kept";
}

TEST_F(Synchronising, NoticesThatSomebodyElseAddedTheCertificateMeanwhile) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.onAdd = [this](const WantedItem& added) {
        store.entries.push_back({added.item.certificate, {}, {}});
    };
    EXPECT_THAT(run(), ElementsAre(Told{Kind::notOurs, L"A"}));
}

TEST_F(Synchronising, TriesARefusedRemovalOnce) {
    store.addOurs(L"A", numbered(1));
    store.addOurs(L"B", numbered(2));
    store.refusesRemovals = true;
    EXPECT_THAT(run(),
                ElementsAre(Told{Kind::removalRefused, L"A"}, Told{Kind::removalRefused, L"B"}));
    EXPECT_EQ(store.changes.size(), 2u);
}

TEST_F(Synchronising, RebindsWhatIsOursForAnotherContainer) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::rebound, L"A"}));
    EXPECT_THAT(store.changes, ElementsAre(L"rebind A")) << "it stays in the store";
    EXPECT_TRUE(store.isInStep(L"A", wantedOf(numbered(1))));
    EXPECT_THAT(run(), IsEmpty());
}

TEST_F(Synchronising, RebindsInTheNextRunWhatCouldNotBeReboundInThis) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    store.onRebind = [] { throw Failure(ExitCode::store, L"no"); };
    EXPECT_THROW(run(), Failure);
    EXPECT_TRUE(has(1));
    store.onRebind = nullptr;
    EXPECT_THAT(run(), ElementsAre(Told{Kind::rebound, L"A"}));
}

TEST_F(Synchronising, NoticesThatSomebodyElseRemovedTheCertificateMeanwhile) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    store.onRebind = [this] { store.entries.clear(); };
    EXPECT_THAT(run(), ElementsAre(Told{Kind::addRefused, L"A"}));
}

TEST_F(Synchronising, KeepsABindingOfACertificateThatCannotBeUsed) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    store.onCheck = [](const WantedItem&) { throw Failure(ExitCode::certificate, L"malformed"); };
    EXPECT_THAT(run(), ElementsAre(Told{Kind::unusable, L"A"}));
    EXPECT_THAT(store.changes, IsEmpty());
}

TEST_F(Synchronising, RegistersOneCertificateOfTwoContainersOnce) {
    wanted[L"A"] = wantedOf(numbered(1));
    wanted[L"B"] = wantedOf(numbered(1));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::added, L"A"}));
    EXPECT_THAT(run(), IsEmpty());
}

TEST_F(Synchronising, LeavesOutAMalformedCertificateAndGoesOn) {
    wanted[L"A"] = wantedOf(numbered(1));
    wanted[L"B"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(3));
    store.addOurs(L"C", numbered(4));
    store.onAdd = [](const WantedItem& added) {
        if (isSame(added.item.certificate, numbered(1)))
            throw Failure(ExitCode::certificate, L"malformed");
    };
    EXPECT_THAT(run(), ElementsAre(Told{Kind::unusable, L"A"}, Told{Kind::added, L"B"},
                                   Told{Kind::removed, L"C"}));
    EXPECT_TRUE(has(3)) << "what was registered before is kept";
}

TEST_F(Synchronising, EndsWithoutRemovingAnythingIfTheStoreFails) {
    wanted[L"B"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    store.onAdd = [](const WantedItem&) { throw Failure(ExitCode::store, L"no"); };
    EXPECT_THROW(run(), Failure);
    EXPECT_TRUE(has(1));
}

} // namespace
} // namespace updater
