// Token and store compared.
#include "plan.h"

#include "memoryregistry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace updater {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Line {
    std::wstring container;
    State state;
    friend bool operator==(const Line&, const Line&) = default;
};
void PrintTo(const Line& line, std::ostream* out) {
    *out << testing::PrintToString(line.container) << " state " << static_cast<int>(line.state);
}

std::vector<Line> linesOf(const std::vector<Row>& rows) {
    std::vector<Line> lines;
    for (const Row& row : rows)
        lines.push_back({row.container.c_str(), row.state});
    return lines;
}

class Comparison : public testing::Test {
protected:
    std::vector<Line> compared() { return linesOf(compare(wanted, store)); }

    WantedMap wanted;
    MemoryRegistry store;
};

TEST_F(Comparison, OfNothingWithNothingIsEmpty) {
    EXPECT_THAT(compared(), IsEmpty());
}

TEST_F(Comparison, FindsWhatIsMissing) {
    wanted[L"A"] = wantedOf(numbered(1));
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::missing}));
}

TEST_F(Comparison, FindsWhatIsInStep) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"A", numbered(1));
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::inStep}));
}

TEST_F(Comparison, FindsWhatIsStale) {
    store.addOurs(L"A", numbered(1));
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::stale}));
}

TEST_F(Comparison, ShowsAChangedCertificateWithItsPredecessor) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    const auto rows = compare(wanted, store);
    ASSERT_THAT(linesOf(rows), ElementsAre(Line{L"A", State::changed}));
    EXPECT_TRUE(isSame(rows[0].onToken->certificate, numbered(2)));
    EXPECT_TRUE(isSame(*rows[0].inStore, numbered(1)));
}

TEST_F(Comparison, TellsAPredecessorThatWasLeftBehind) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.addOurs(L"A", numbered(1));
    store.addOurs(L"A", numbered(2));
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::inStep}, Line{L"A", State::stale}));
}

TEST_F(Comparison, LeavesACertificateWithoutOurRecordAlone) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.entries.push_back({numbered(1), {}, {}});
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::notOurs}));
}

TEST_F(Comparison, LeavesACertificateAloneThatSomebodyElseBoundToTheContainer) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.entries.push_back({numbered(1), {}, L"A"});
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::notOurs}));
}

TEST_F(Comparison, TellsForeignEntriesForTheCspFromStaleOnes) {
    store.entries.push_back({numbered(1), {}, L"A"});
    store.entries.push_back({numbered(2), L"B", L"B"});
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::foreign}, Line{L"B", State::stale}));
}

TEST_F(Comparison, DoesNotTakeAForeignEntryForThePredecessorOfAMissingOne) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.entries.push_back({numbered(1), {}, L"A"});
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::missing}, Line{L"A", State::foreign}));
}

TEST_F(Comparison, FindsWhatIsRecordedForAnotherContainer) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::boundOtherwise}));
}

TEST_F(Comparison, FindsARecordWithoutAKeyBinding) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.entries.push_back({numbered(1), L"A", {}});
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::boundOtherwise}));
}

TEST_F(Comparison, FindsARecordThatDisagreesWithTheKeyBinding) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.entries.push_back({numbered(1), L"A", L"B"});
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::boundOtherwise}));
}

TEST_F(Comparison, ChoosesTheFirstOfTwoContainersWithOneCertificate) {
    wanted[L"A"] = wantedOf(numbered(1));
    wanted[L"B"] = wantedOf(numbered(1));
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::missing}, Line{L"B", State::duplicate}));
}

TEST_F(Comparison, KeepsTheContainerThatACertificateIsRegisteredForAlready) {
    wanted[L"A"] = wantedOf(numbered(1));
    wanted[L"B"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(1));
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::duplicate}, Line{L"B", State::inStep}));
}

TEST_F(Comparison, FindsWhatNoStoreCanHold) {
    wanted[L"A"] = wantedOf(numbered(1));
    wanted[L"B"] = wantedOf(numbered(2));
    store.refused = numbered(1);
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::unusable}, Line{L"B", State::missing}));
}

TEST_F(Comparison, CallsACertificateThatNoStoreCanHoldUnusableForEachContainer) {
    wanted[L"A"] = wantedOf(numbered(1));
    wanted[L"B"] = wantedOf(numbered(1));
    store.refused = numbered(1);
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::unusable}, Line{L"B", State::unusable}));
}

TEST_F(Comparison, ShowsWhatStaysRegisteredBesideWhatNoStoreCanHold) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.refused = numbered(2);
    store.addOurs(L"A", numbered(1));
    const auto rows = compare(wanted, store);
    ASSERT_THAT(linesOf(rows), ElementsAre(Line{L"A", State::unusable}));
    EXPECT_TRUE(isSame(rows[0].onToken->certificate, numbered(2)));
    EXPECT_TRUE(isSame(*rows[0].inStore, numbered(1)));
}

TEST_F(Comparison, ShowsAForeignEntryBesideWhatNoStoreCanHold) {
    wanted[L"A"] = wantedOf(numbered(2));
    store.refused = numbered(2);
    store.entries.push_back({numbered(1), {}, L"A"});
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::unusable}, Line{L"A", State::foreign}));
}

TEST_F(Comparison, GoesByTheOrderOfTheContainers) {
    wanted[L"C"] = wantedOf(numbered(3));
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(2));
    store.addOurs(L"D", numbered(4));
    EXPECT_THAT(compared(), ElementsAre(Line{L"A", State::missing}, Line{L"B", State::stale},
                                        Line{L"C", State::missing}, Line{L"D", State::stale}));
}

TEST_F(Comparison, ChangesNothing) {
    wanted[L"A"] = wantedOf(numbered(1));
    store.addOurs(L"B", numbered(2));
    compared();
    EXPECT_THAT(store.changes, IsEmpty());
}

} // namespace
} // namespace updater
