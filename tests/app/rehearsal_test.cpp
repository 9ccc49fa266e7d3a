// What a synchronisation would do is what it then does.
#include "rehearsal.h"

#include "memoryregistry.h"
#include "synchronise.h"

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
    std::wstring subject;
    friend bool operator==(const Told&, const Told&) = default;
};
void PrintTo(const Told& told, std::ostream* out) {
    *out << static_cast<int>(told.kind) << " " << testing::PrintToString(told.container) << " "
         << testing::PrintToString(told.subject);
}

class Rehearsing : public testing::Test {
protected:
    std::vector<Told> tellOf(CspRegistry& registry) const {
        std::vector<Told> told;
        synchronise(wanted, registry, {[&](const SyncEvent& event) {
                        told.push_back(
                            {event.kind, event.container.c_str(), subjectText(event.certificate)});
                    }});
        return told;
    }

    /// Rehearses, expects that nothing was changed and that the real run tells the same.
    std::vector<Told> expectRehearsalToBeRight() {
        Rehearsal rehearsal(store);
        std::vector<Told> told = tellOf(rehearsal);
        EXPECT_THAT(store.changes, IsEmpty());
        EXPECT_EQ(tellOf(store), told);
        return told;
    }

    WantedMap wanted;
    MemoryRegistry store;
};

TEST_F(Rehearsing, TellsOfNothingWhereNothingDiffers) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"A", numbered(1));
    EXPECT_THAT(expectRehearsalToBeRight(), IsEmpty());
}

TEST_F(Rehearsing, TellsOfAdditionsAndRemovals) {
    wanted[L"A"] = wantedOf(numbered(1));
    wanted[L"C"] = wantedOf(numbered(3), L"", false);
    store.addOurs(L"B", numbered(2));
    EXPECT_THAT(expectRehearsalToBeRight(), ElementsAre(Told{Kind::added, L"A", L"CN=Holder 1"},
                                                        Told{Kind::added, L"C", L"CN=Holder 3"},
                                                        Told{Kind::removed, L"B", L"CN=Holder 2"}));
}

TEST_F(Rehearsing, TellsOfACertificateThatIsReplaced) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    EXPECT_THAT(expectRehearsalToBeRight(), ElementsAre(Told{Kind::added, L"A", L"CN=Holder 2"},
                                                        Told{Kind::removed, L"A", L"CN=Holder 1"}));
}

TEST_F(Rehearsing, TellsOfACertificateThatIsRebound) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    EXPECT_THAT(expectRehearsalToBeRight(), ElementsAre(Told{Kind::rebound, L"A", L"CN=Holder 1"}));
}

TEST_F(Rehearsing, TellsOfWhatIsInTheWay) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.entries.push_back({numbered(1), {}, {}});
    EXPECT_THAT(expectRehearsalToBeRight(), ElementsAre(Told{Kind::notOurs, L"A", L"CN=Holder 1"}));
}

TEST_F(Rehearsing, TellsOfAMalformedCertificate) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.onCheck = [](const WantedItem&) { throw Failure(ExitCode::certificate, L"malformed"); };
    store.onAdd = store.onCheck;
    Rehearsal rehearsal(store);
    EXPECT_THAT(tellOf(rehearsal), ElementsAre(Told{Kind::unusable, L"A", L"CN=Holder 1"}));
}

TEST_F(Rehearsing, TellsOfACertificateThatNoStoreCanHold) {
    wanted[L"A"] = wantedOf(numbered(1));
    wanted[L"B"] = wantedOf(numbered(2));
    store.refused = numbered(1);
    store.addOurs(L"A", numbered(3));
    EXPECT_THAT(expectRehearsalToBeRight(), ElementsAre(Told{Kind::unusable, L"A", L"CN=Holder 1"},
                                                        Told{Kind::added, L"B", L"CN=Holder 2"}));
}

TEST_F(Rehearsing, TellsOfAllPredecessors) {
    wanted[L"A"] = wantedOf(numbered(9));
    store.addOurs(L"A", numbered(1));
    store.addOurs(L"A", numbered(2));
    EXPECT_THAT(expectRehearsalToBeRight(), ElementsAre(Told{Kind::added, L"A", L"CN=Holder 9"},
                                                        Told{Kind::removed, L"A", L"CN=Holder 1"},
                                                        Told{Kind::removed, L"A", L"CN=Holder 2"}));
}

} // namespace
} // namespace updater
