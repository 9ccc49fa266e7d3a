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

TEST_F(Synchronising, ReplacesAChangedCertificateThatItsSuccessorHidesFromTheListing) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.newestFirst = true;
    store.addOurs(L"A", numbered(1));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::added, L"A"}, Told{Kind::removed, L"A"}));
    EXPECT_FALSE(has(1));
}

TEST_F(Synchronising, RemovesPredecessorsThatOneHidAfterTheOther) {
    wanted[L"A"] = wantedOf(numbered(4));
    for (const int number : {1, 2, 3})
        store.addOurs(L"A", numbered(number));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::added, L"A"}, Told{Kind::removed, L"A"},
                                   Told{Kind::removed, L"A"}, Told{Kind::removed, L"A"}));
    EXPECT_EQ(store.entries.size(), 1u);
    EXPECT_TRUE(store.isInStep(L"A", wantedOf(numbered(4))));
}

TEST_F(Synchronising, RemovesPredecessorsThatTheSuccessorHides) {
    wanted[L"A"] = wantedOf(numbered(4), L"label");
    store.newestFirst = true;
    for (const int number : {1, 2, 3})
        store.addOurs(L"A", numbered(number));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::added, L"A"}, Told{Kind::removed, L"A"},
                                   Told{Kind::removed, L"A"}, Told{Kind::removed, L"A"}));
    EXPECT_EQ(store.entries.size(), 1u);
    EXPECT_TRUE(store.isInStep(L"A", wantedOf(numbered(4))));
}

TEST_F(Synchronising, PutsASuccessorBackThoughTheStoreFailsOnce) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    int additions = 0;
    store.onAdd = [&](const WantedItem&) {
        if (++additions == 2)
            throw Failure(ExitCode::store, L"for once");
    };
    run();
    EXPECT_TRUE(store.isInStep(L"A", wantedOf(numbered(2))));
}

TEST_F(Synchronising, PutsASuccessorBackIfTheListingFailsWhileItIsOut) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    store.onList = [&] {
        if (!has(1) && !has(2))
            throw Failure(ExitCode::store, L"unreadable");
    };
    EXPECT_THROW(run(), Failure);
    EXPECT_TRUE(store.isInStep(L"A", wantedOf(numbered(2))));
}

TEST_F(Synchronising, TellsTheFirstFaultIfASuccessorCannotBePutBack) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    int additions = 0;
    store.onAdd = [&](const WantedItem& added) {
        if (++additions == 2) {
            store.entries.push_back({added.item.certificate, {}, {}});
            throw Failure(ExitCode::store, L"the first fault");
        }
    };
    try {
        run();
        FAIL() << "the registration is incomplete";
    } catch (const Failure& failure) {
        EXPECT_THAT(failure.line(), testing::HasSubstr(L"the first fault"));
    }
}

TEST_F(Synchronising, LooksBehindNothingThatItDidNotReplace) {
    wanted[L"A"] = wantedOf(numbered(1));
    wanted[L"B"] = wantedOf(numbered(2));
    store.addOurs(L"B", numbered(2));
    store.entries.push_back({numbered(3), {}, L"A"});
    run();
    EXPECT_THAT(store.changes, ElementsAre(L"add A"));
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

TEST_F(Synchronising, BindsAnewWhatIsOursForAnotherContainer) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    EXPECT_THAT(run(), ElementsAre(Told{Kind::boundAnew, L"A"}));
    EXPECT_TRUE(store.isInStep(L"A", wantedOf(numbered(1))));
    EXPECT_THAT(run(), IsEmpty());
}

TEST_F(Synchronising, BindsAnewThoughTheStoreFailsOnce) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    int additions = 0;
    store.onAdd = [&](const WantedItem&) {
        if (++additions == 1)
            throw Failure(ExitCode::store, L"for once");
    };
    EXPECT_THAT(run(), ElementsAre(Told{Kind::boundAnew, L"A"}));
    EXPECT_TRUE(store.isInStep(L"A", wantedOf(numbered(1))));
}

TEST_F(Synchronising, KeepsABindingOfACertificateThatCouldNotBeAddedAgain) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    store.onCheck = [](const WantedItem&) { throw Failure(ExitCode::certificate, L"malformed"); };
    EXPECT_THAT(run(), ElementsAre(Told{Kind::unusable, L"A"}));
    EXPECT_THAT(store.changes, IsEmpty());
}

TEST_F(Synchronising, LeavesABindingThatTheStoreKeeps) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    store.refusesRemovals = true;
    EXPECT_THAT(run(), ElementsAre(Told{Kind::removalRefused, L"A"}));
    EXPECT_EQ(store.changes.size(), 1u);
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

TEST_F(Synchronising, GivesUpIfEntriesKeepAppearing) {
    int next = 1;
    store.addOurs(L"A", numbered(next));
    store.onRemoved = [&] { store.addOurs(L"A", numbered(++next)); };
    try {
        run();
        FAIL() << "it must not go on for ever";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::incomplete);
    }
}

} // namespace
} // namespace updater
