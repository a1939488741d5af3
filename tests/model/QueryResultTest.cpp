#include "model/QueryResult.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "model/ContainerInternal.h"
#include "model/ObjectInternal.h"
#include "model/QueryResultInternal.h"
#include "tests/support/Fakes.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

using Entries = std::vector<std::shared_ptr<Item>>;

constexpr unsigned long Folder = 7;
constexpr unsigned long Last = std::numeric_limits<unsigned long>::max();
constexpr std::uint32_t Most = std::numeric_limits<std::uint32_t>::max();

std::vector<std::string> names(const Entries& entries) {
    std::vector<std::string> names;
    for (const std::shared_ptr<Item>& entry : entries) {
        names.push_back(entry ? entry->name() : "(empty pointer)");
    }
    return names;
}

std::vector<std::string> names(const QueryResult& result) { return names(result.items()); }

std::vector<std::string> names(const QueryResult& result, unsigned long offset,
                               unsigned long count) {
    return names(result.page(offset, count));
}

/// A listing of one folder, with a handful of entries to fill it from.
class QueryResultTest : public ::testing::Test {
  protected:
    void deliver(unsigned long offset, unsigned long count, unsigned long total,
                 const Entries& entries) {
        result.addPage(offset, count);
        result.totalCount(total);
        result.addItems(offset, entries);
    }

    /// The listing a, b, c, d, delivered in two pages.
    void deliverFour() {
        deliver(0, 2, 4, {a, b});
        deliver(2, 2, 4, {c, d});
    }

    bool loaded(std::uint32_t offset, std::uint32_t count) const {
        return result.isPageLoaded(folderFilter(Folder, offset, count));
    }
    bool current(std::uint32_t offset, std::uint32_t count) const {
        return result.isPageCurrent(folderFilter(Folder, offset, count));
    }

    QueryResultInternal result{folderFilter(Folder)};
    std::shared_ptr<ObjectInternal> a = makeObject(1, Folder, "a");
    std::shared_ptr<ObjectInternal> b = makeObject(2, Folder, "b");
    std::shared_ptr<ObjectInternal> c = makeObject(3, Folder, "c");
    std::shared_ptr<ObjectInternal> d = makeObject(4, Folder, "d");
    std::shared_ptr<ObjectInternal> e = makeObject(5, Folder, "e");
    std::shared_ptr<ObjectInternal> x = makeObject(24, Folder, "x");
};

// Which pages have been delivered.

TEST_F(QueryResultTest, AFreshResultHoldsNothing) {
    EXPECT_THAT(result.items(), IsEmpty());
    EXPECT_THAT(result.page(0, Last), IsEmpty());
    EXPECT_EQ(result.count(), 0u);
    EXPECT_EQ(result.totalCount(), 0u);
    EXPECT_EQ(result.itemByName(""), nullptr);
}

TEST_F(QueryResultTest, AFreshResultHasNoPage) {
    for (const std::uint32_t offset : {0u, 1u, 100u, Most}) {
        for (const std::uint32_t count : {0u, 1u, 100u, Most}) {
            EXPECT_FALSE(loaded(offset, count)) << offset << ", " << count;
        }
        EXPECT_FALSE(current(offset, 1)) << offset;
    }
}

TEST_F(QueryResultTest, AnAddedPageIsLoaded) {
    result.addPage(10, 5);
    EXPECT_TRUE(loaded(10, 5));
    EXPECT_FALSE(loaded(9, 5));
    EXPECT_FALSE(loaded(10, 6));
}

TEST_F(QueryResultTest, PagesThatCoverAnotherLoadIt) {
    result.addPage(4, 4);
    result.addPage(0, 2);
    EXPECT_TRUE(loaded(5, 2));
    EXPECT_FALSE(loaded(1, 4));
    result.addPage(2, 2);
    EXPECT_TRUE(loaded(1, 4));
    EXPECT_TRUE(loaded(0, 8));
    EXPECT_FALSE(loaded(0, 9));
}

TEST_F(QueryResultTest, PositionsBehindTheTotalNeedNoCover) {
    deliver(0, 3, 3, {a, b, c});
    EXPECT_TRUE(loaded(0, 100));
    EXPECT_TRUE(loaded(2, Most));
    EXPECT_FALSE(loaded(3, 1));
    EXPECT_FALSE(loaded(100, 1));
}

TEST_F(QueryResultTest, APageOfNothingIsLoadedByItselfAlone) {
    result.addPage(0, 10);
    EXPECT_FALSE(loaded(5, 0));
    EXPECT_FALSE(loaded(0, 0));
    result.addPage(5, 0);
    EXPECT_TRUE(loaded(5, 0));
    EXPECT_FALSE(loaded(6, 0));
}

TEST_F(QueryResultTest, APageOfNothingCoversNothing) {
    result.addPage(5, 0);
    EXPECT_FALSE(loaded(5, 1));
    EXPECT_FALSE(loaded(0, 5));
}

TEST_F(QueryResultTest, TheLargestPageIsLoadedByItsEqual) {
    result.addPage(Most, Most);
    EXPECT_TRUE(loaded(Most, Most));
    EXPECT_FALSE(loaded(0, 1));
    EXPECT_FALSE(loaded(Most - 1, 1));
}

TEST_F(QueryResultTest, CoverIsCountedBeyondThirtyTwoBits) {
    result.addPage(0, Most);
    EXPECT_FALSE(loaded(Most, Most));
    result.addPage(Most, Most - 1ul);
    EXPECT_FALSE(loaded(Most, Most));
    result.addPage(2ul * Most - 1, 1);
    EXPECT_TRUE(loaded(Most, Most));
}

TEST_F(QueryResultTest, APageAtTheEndOfAllPositionsDoesNotWrap) {
    result.addPage(Last, 10);
    result.addPage(Last - 1, Last);
    for (const std::uint32_t offset : {0u, 1u, 8u}) {
        EXPECT_FALSE(loaded(offset, 1)) << offset;
    }
}

TEST_F(QueryResultTest, ADeliveredPageStaysLoaded) {
    deliverFour();
    result.removeItem(a->id());
    result.removeItemByName(b);
    result.addItem(x, true);
    result.invalidate();
    deliver(0, 2, 1, {c});
    deliver(0, 2, 90, {c, e});
    EXPECT_TRUE(loaded(0, 2));
    EXPECT_TRUE(loaded(2, 2));
    EXPECT_TRUE(loaded(1, 3));
}

// Which pages may be shown as the truth.

TEST_F(QueryResultTest, ADeliveredPageIsCurrent) {
    deliver(0, 2, 4, {a, b});
    EXPECT_TRUE(current(0, 2));
    EXPECT_TRUE(current(1, 1));
    EXPECT_FALSE(current(1, 2));
    EXPECT_FALSE(current(2, 2));
}

TEST_F(QueryResultTest, OnlyPositionsBeforeTheTotalNeedBeHeld) {
    deliver(0, 3, 3, {a, b, c});
    EXPECT_TRUE(current(0, 100));
    EXPECT_TRUE(current(2, Most));
}

TEST_F(QueryResultTest, APageHoldsNothingBehindTheTotal) {
    deliver(0, 10, 3, {a, b, c});
    result.addItem(x, false);
    deliver(0, 1, 4, {a});  // Explained by the addition, so the other holds stay.
    EXPECT_TRUE(current(0, 3));
    EXPECT_FALSE(current(3, 1));
}

TEST_F(QueryResultTest, APageIsCurrentOnceItsEntriesAreThere) {
    result.addPage(0, 2);
    EXPECT_TRUE(loaded(0, 2));
    EXPECT_FALSE(current(0, 2));
    result.totalCount(2);
    EXPECT_FALSE(current(0, 2));
    result.addItems(0, {a, b});
    EXPECT_TRUE(current(0, 2));
}

TEST_F(QueryResultTest, NoPageIsCurrentBehindAnUnexplainedTotalThatIsNotYetJudged) {
    deliverFour();
    result.addPage(0, 2);
    result.totalCount(9);
    EXPECT_FALSE(current(0, 2));
    EXPECT_FALSE(current(2, 2));
    EXPECT_TRUE(loaded(2, 2));
    result.addItems(0, {a, b});
    EXPECT_TRUE(current(0, 2));
}

TEST_F(QueryResultTest, InvalidatingLeavesEntriesAndLoadedPages) {
    deliverFour();
    result.invalidate();
    EXPECT_FALSE(current(0, 2));
    EXPECT_FALSE(current(2, 2));
    EXPECT_TRUE(loaded(0, 4));
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "d"));
    EXPECT_EQ(result.totalCount(), 4u);
}

TEST_F(QueryResultTest, AnInvalidatedPageIsCurrentOnceDeliveredAgain) {
    deliverFour();
    result.invalidate();
    deliver(2, 2, 4, {c, d});
    EXPECT_FALSE(current(0, 2));
    EXPECT_TRUE(current(2, 2));
}

// Removals.

TEST_F(QueryResultTest, RemovedEntryLeavesEveryPageWhole) {
    deliverFour();
    result.removeItem(a->id());
    EXPECT_THAT(names(result, 0, 2), ElementsAre("b", "c"));
    EXPECT_THAT(names(result, 2, 2), ElementsAre("d"));
    EXPECT_TRUE(current(0, 3));
}

TEST_F(QueryResultTest, AfterARemovalTheLastPageIsLoadedAgain) {
    deliverFour();
    result.removeItem(b->id());
    EXPECT_EQ(result.totalCount(), 4u);
    EXPECT_TRUE(current(0, 2));
    EXPECT_FALSE(current(2, 2));
    deliver(2, 2, 3, {d});
    EXPECT_TRUE(current(0, 2));
    EXPECT_TRUE(current(2, 2));
    EXPECT_THAT(names(result), ElementsAre("a", "c", "d"));
}

TEST_F(QueryResultTest, NothingIsSkippedWhenAnEntryLeavesBetweenTwoPages) {
    deliver(0, 2, 5, {a, b});
    result.removeItem(a->id());
    deliver(2, 2, 4, {d, e});  // The service has moved on: c stands at 1 now.
    EXPECT_FALSE(current(0, 2));
    deliver(0, 2, 4, {b, c});
    EXPECT_TRUE(current(0, 4));
    EXPECT_THAT(names(result), ElementsAre("b", "c", "d", "e"));
}

TEST_F(QueryResultTest, AnUnknownIdRemovesNothing) {
    deliverFour();
    result.removeItem(99);
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "d"));
    EXPECT_TRUE(current(0, 4));
}

TEST_F(QueryResultTest, RemovingAnEntryWithoutHoldShiftsNothing) {
    deliver(0, 1, 4, {a});
    deliver(3, 1, 4, {d});
    result.invalidate();
    deliver(3, 1, 4, {d});
    result.removeItem(a->id());
    EXPECT_THAT(names(result, 0, 1), IsEmpty());
    EXPECT_THAT(names(result, 3, 1), ElementsAre("d"));
}

TEST_F(QueryResultTest, RemovingByIdTakesEveryOccurrence) {
    deliver(0, 4, 4, {a, b, a, c});
    result.removeItem(a->id());
    EXPECT_THAT(names(result), ElementsAre("b", "c"));
    EXPECT_EQ(result.count(), 2u);
}

TEST_F(QueryResultTest, ANameThatIsNotThereRemovesNothing) {
    deliverFour();
    EXPECT_FALSE(result.removeItemByName(x));
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "d"));
    EXPECT_TRUE(current(0, 4));
    EXPECT_EQ(result.totalCount(), 4u);
}

TEST_F(QueryResultTest, RemovingByNamePrefersTheEntryItself) {
    b->name("a");
    deliver(0, 2, 2, {a, b});
    EXPECT_TRUE(result.removeItemByName(b));
    EXPECT_THAT(result.items(), ElementsAre(a));
}

TEST_F(QueryResultTest, RemovingByNameTakesTheFirstOfSeveral) {
    b->name("n");
    c->name("n");
    x->name("n");
    deliver(0, 3, 3, {a, b, c});
    EXPECT_TRUE(result.removeItemByName(x));
    EXPECT_THAT(result.items(), ElementsAre(a, c));
}

TEST_F(QueryResultTest, RemovingAnEmptyPointerByNameRemovesNothing) {
    a->name("");
    deliver(0, 2, 2, {a, b});
    EXPECT_FALSE(result.removeItemByName(nullptr));
    EXPECT_EQ(result.count(), 2u);
}

TEST_F(QueryResultTest, RemovingByNameClosesTheGap) {
    deliverFour();
    EXPECT_TRUE(result.removeItemByName(b));
    EXPECT_THAT(names(result), ElementsAre("a", "c", "d"));
    result.removeItem(99);
    EXPECT_THAT(names(result, 0, 2), ElementsAre("a", "c"));
    EXPECT_TRUE(current(0, 3));
    EXPECT_FALSE(current(3, 1));
}

// Replacements in place.

TEST_F(QueryResultTest, AReplacementTakesThePlaceOfItsNamesake) {
    deliverFour();
    x->name("b");
    ASSERT_TRUE(result.removeItemByName(x));
    result.addItem(x, true);
    EXPECT_THAT(result.items(), ElementsAre(a, x, c, d));
    EXPECT_THAT(result.page(1, 1), ElementsAre(x));
    EXPECT_THAT(result.page(2, 2), ElementsAre(c, d));
}

TEST_F(QueryResultTest, AReplacedPositionIsNoLongerHeld) {
    deliverFour();
    x->name("b");
    result.removeItemByName(x);
    result.addItem(x, true);
    EXPECT_FALSE(current(0, 2));
    EXPECT_FALSE(current(1, 1));
    EXPECT_TRUE(current(0, 1));
    EXPECT_TRUE(current(2, 2));
}

TEST_F(QueryResultTest, AnEntryThatReplacesItselfKeepsItsPosition) {
    deliverFour();
    ASSERT_TRUE(result.removeItemByName(b));
    result.addItem(b, true);
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "d"));
    EXPECT_TRUE(current(0, 4));
}

TEST_F(QueryResultTest, AnotherEditInBetweenForgetsTheVacatedPlace) {
    deliverFour();
    x->name("c");
    ASSERT_TRUE(result.removeItemByName(x));
    result.removeItem(a->id());
    result.addItem(x, true);
    EXPECT_THAT(result.items(), ElementsAre(x, b, d));
}

TEST_F(QueryResultTest, AnAdditionToTheEndLeavesTheVacatedPlaceAlone) {
    deliverFour();
    x->name("b");
    ASSERT_TRUE(result.removeItemByName(x));
    result.addItem(x, false);
    EXPECT_THAT(result.items(), ElementsAre(a, c, d, x));
}

TEST_F(QueryResultTest, TheVacatedPlaceIsTakenOnce) {
    deliverFour();
    x->name("b");
    ASSERT_TRUE(result.removeItemByName(x));
    result.addItem(x, true);
    result.addItem(e, true);
    EXPECT_THAT(result.items(), ElementsAre(e, a, x, c, d));
}

// Local additions.

TEST_F(QueryResultTest, AnAdditionGoesToTheFrontOrToTheEnd) {
    deliver(0, 2, 2, {a, b});
    result.addItem(x, true);
    result.addItem(e, false);
    EXPECT_THAT(names(result), ElementsAre("x", "a", "b", "e"));
    EXPECT_EQ(result.count(), 4u);
    EXPECT_EQ(result.totalCount(), 2u);
}

TEST_F(QueryResultTest, AnAdditionHasNoPositionInTheListing) {
    deliverFour();
    result.addItem(x, true);
    EXPECT_THAT(names(result, 1, 2), ElementsAre("b", "c"));
    EXPECT_TRUE(current(0, 4));
}

TEST_F(QueryResultTest, AdditionsAtTheFrontComeWithTheFirstPage) {
    deliverFour();
    result.addItem(x, true);
    EXPECT_THAT(names(result, 0, 2), ElementsAre("x", "a", "b"));
    EXPECT_THAT(names(result, 2, 2), ElementsAre("c", "d"));
}

TEST_F(QueryResultTest, AdditionsAtTheEndComeWithTheLastPage) {
    deliverFour();
    result.addItem(x, false);
    EXPECT_THAT(names(result, 0, 2), ElementsAre("a", "b"));
    EXPECT_THAT(names(result, 2, 2), ElementsAre("c", "d", "x"));
    EXPECT_THAT(names(result, 3, Last), ElementsAre("d", "x"));
}

TEST_F(QueryResultTest, AnAdditionSurvivesAPage) {
    result.addItem(x, true);
    result.addItem(e, false);
    deliverFour();
    EXPECT_THAT(names(result), ElementsAre("x", "a", "b", "c", "d", "e"));
}

TEST_F(QueryResultTest, AnEntryAlreadyPresentStaysWhereItIs) {
    deliverFour();
    result.addItem(c, true);
    result.addItem(b, false);
    result.addItem(makeObject(a->id(), Folder, "another object of that id"), false);
    EXPECT_THAT(result.items(), ElementsAre(a, b, c, d));
}

TEST_F(QueryResultTest, AnEmptyPointerIsNotAdded) {
    result.addItem(nullptr, true);
    result.addItem(nullptr, false);
    EXPECT_THAT(result.items(), IsEmpty());
    EXPECT_EQ(result.count(), 0u);
}

TEST_F(QueryResultTest, AnEmptyPointerDoesNotTakeAVacatedPlace) {
    deliver(0, 2, 2, {a, b});
    ASSERT_TRUE(result.removeItemByName(a));
    result.addItem(nullptr, true);
    EXPECT_THAT(result.items(), ElementsAre(b));
}

TEST_F(QueryResultTest, AnAdditionMovesToThePositionItIsDeliveredAt) {
    deliver(0, 2, 2, {a, c});
    result.addItem(b, false);
    deliver(0, 3, 3, {a, b, c});
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c"));
    EXPECT_EQ(result.count(), 3u);
}

TEST_F(QueryResultTest, AnAdditionCanBeRemoved) {
    deliver(0, 2, 2, {a, b});
    result.addItem(x, true);
    result.addItem(e, false);
    result.removeItem(x->id());
    EXPECT_TRUE(result.removeItemByName(e));
    EXPECT_THAT(names(result), ElementsAre("a", "b"));
    EXPECT_TRUE(current(0, 2));
}

TEST_F(QueryResultTest, AnAdditionLeavesOnceTheTotalThatCountedItIsFilledByOthers) {
    deliver(0, 2, 2, {a, b});
    result.addItem(x, false);
    x->idLoaded(true);
    deliver(0, 3, 3, {a, b, c});
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c"));
}

TEST_F(QueryResultTest, AnAdditionWithoutAServerIdStays) {
    deliver(0, 2, 2, {a, b});
    result.addItem(x, false);
    deliver(0, 3, 3, {a, b, c});
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "x"));
}

TEST_F(QueryResultTest, AnAdditionThatNoTotalHasCountedStays) {
    deliver(0, 2, 2, {a, b});
    result.addItem(x, false);
    deliver(0, 2, 2, {a, b});
    x->idLoaded(true);
    EXPECT_THAT(names(result), ElementsAre("a", "b", "x"));
    EXPECT_TRUE(current(0, 2));
}

// Where a delivery goes.

TEST_F(QueryResultTest, PagesStandInTheirOrderWhateverOrderTheyArriveIn) {
    deliver(2, 2, 5, {c, d});
    deliver(4, 2, 5, {e});
    deliver(0, 2, 5, {a, b});
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "d", "e"));
}

TEST_F(QueryResultTest, APageHandsOutItsPositionsAlone) {
    deliver(2, 2, 6, {c, d});
    EXPECT_THAT(names(result, 0, 2), IsEmpty());
    EXPECT_THAT(names(result, 1, 2), ElementsAre("c"));
    EXPECT_THAT(names(result, 3, 1), ElementsAre("d"));
    EXPECT_THAT(names(result, 3, 0), IsEmpty());
    EXPECT_THAT(names(result, 0, Last), ElementsAre("c", "d"));
}

TEST_F(QueryResultTest, WhatIsNotDeliveredAgainLeavesItsPage) {
    deliverFour();
    deliver(0, 2, 4, {a, e});
    EXPECT_THAT(names(result), ElementsAre("a", "e", "c", "d"));
    EXPECT_EQ(result.itemByName("b"), nullptr);
}

TEST_F(QueryResultTest, AnEmptyDeliveryEmptiesItsPage) {
    deliverFour();
    deliver(2, 2, 2, {});
    EXPECT_THAT(names(result), ElementsAre("a", "b"));
}

TEST_F(QueryResultTest, AnEntryThatArrivesAgainMoves) {
    deliverFour();
    deliver(0, 2, 4, {d, a});
    EXPECT_THAT(names(result), ElementsAre("d", "a", "c"));
    EXPECT_TRUE(current(0, 3));
    EXPECT_FALSE(current(3, 1));
}

TEST_F(QueryResultTest, AnotherObjectOfTheSameIdIsTheSameEntry) {
    deliverFour();
    const auto newer = makeObject(d->id(), Folder, "newer");
    deliver(0, 2, 4, {newer, a});
    EXPECT_THAT(result.items(), ElementsAre(newer, a, c));
}

TEST_F(QueryResultTest, EntriesWithoutIdAreTheSameOnlyAsTheSameObject) {
    a->id(0);
    b->id(0);
    deliver(0, 2, 3, {a, b});
    deliver(2, 1, 3, {a});
    EXPECT_THAT(result.items(), ElementsAre(b, a));
}

TEST_F(QueryResultTest, KeyValueEntriesOfOneIdAreDifferent) {
    const auto colour = makeObject(9, Folder, "colour");
    const auto size = makeObject(9, Folder, "size");
    colour->type(16);
    size->type(16);
    deliver(0, 1, 2, {colour});
    deliver(1, 1, 2, {size});
    EXPECT_THAT(result.items(), ElementsAre(colour, size));
    deliver(0, 1, 2, {size});
    EXPECT_THAT(result.items(), ElementsAre(size));
}

TEST_F(QueryResultTest, RemovingAKeyValueIdTakesAllOfThem) {
    b->id(a->id());
    a->type(16);
    b->type(16);
    deliver(0, 3, 3, {a, b, c});
    result.removeItem(a->id());
    EXPECT_THAT(result.items(), ElementsAre(c));
}

TEST_F(QueryResultTest, RepetitionsInsideOneDeliveryStay) {
    deliver(0, 4, 4, {a, b, a, c});
    EXPECT_THAT(names(result), ElementsAre("a", "b", "a", "c"));
    EXPECT_EQ(result.count(), 4u);
    deliver(0, 4, 2, {a, b});
    EXPECT_THAT(names(result), ElementsAre("a", "b"));
}

TEST_F(QueryResultTest, AnEmptyPointerKeepsItsPosition) {
    deliver(0, 3, 3, {a, nullptr, c});
    EXPECT_THAT(names(result), ElementsAre("a", "c"));
    EXPECT_EQ(result.count(), 2u);
    EXPECT_THAT(names(result, 1, 1), IsEmpty());
    EXPECT_THAT(names(result, 2, 1), ElementsAre("c"));
    EXPECT_TRUE(current(0, 3));
}

TEST_F(QueryResultTest, ADeliveryLongerThanItsPagePushesNothingOutOfTheNext) {
    deliver(2, 2, 4, {c, d});
    deliver(0, 2, 4, {a, b, x});
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "d"));
    EXPECT_TRUE(current(0, 4));
}

TEST_F(QueryResultTest, ADeliveryLongerThanItsPageFillsVacantPositions) {
    deliver(0, 2, 4, {a, b, c});
    EXPECT_THAT(names(result, 2, 1), ElementsAre("c"));
    EXPECT_FALSE(current(2, 1));
}

TEST_F(QueryResultTest, ADeliveryWithoutAPageOfItsOwnIsAsLongAsItsEntries) {
    deliver(0, 4, 6, {a, b, c, d});
    result.addItems(1, {x, e});
    EXPECT_THAT(names(result), ElementsAre("a", "x", "e", "d"));
}

TEST_F(QueryResultTest, APageOfNothingLeavesTheListingAsItIs) {
    deliverFour();
    deliver(1, 0, 4, {});
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "d"));
    EXPECT_TRUE(current(0, 4));
}

TEST_F(QueryResultTest, FarPositionsCostNoMemory) {
    Entries entries;
    for (unsigned long far = 1; far <= 1000; ++far) {
        entries.push_back(makeObject(far, Folder, std::to_string(far)));
        deliver(far << 50U, 1, Last, {entries.back()});
    }
    EXPECT_EQ(result.items(), entries);
    EXPECT_EQ(result.page(500ul << 50U, 1), Entries{entries[499]});
    EXPECT_THAT(result.page((500ul << 50U) + 1, (1ul << 50U) - 1), IsEmpty());
    result.removeItem(1);
    entries.erase(entries.begin());
    EXPECT_EQ(result.items(), entries);
    EXPECT_EQ(result.page((500ul << 50U) - 1, 1), Entries{entries[498]});
}

TEST_F(QueryResultTest, TheLastPositionOfAllDoesNotWrap) {
    deliver(Last - 1, Last, 0, {a});
    EXPECT_THAT(names(result, 0, 100), IsEmpty());
    EXPECT_THAT(names(result, Last - 1, Last), ElementsAre("a"));
    EXPECT_THAT(names(result, Last - 1, 1), ElementsAre("a"));
    EXPECT_FALSE(current(0, 1));
}

TEST_F(QueryResultTest, AnEntryAppearsInAPageThatReachesBeyondAllPositions) {
    deliver(5, 1, 6, {a});
    EXPECT_THAT(names(result, 1, Last), ElementsAre("a"));
    EXPECT_THAT(names(result, 6, Last), IsEmpty());
}

// Folders and documents that arrive apart.

TEST_F(QueryResultTest, FoldersStandBeforeDocumentsWhicheverArrivesFirst) {
    const auto f = makeContainer(31, Folder, "f");
    const auto g = makeContainer(32, Folder, "g");
    for (const bool foldersFirst : {true, false}) {
        QueryResultInternal halves{folderFilter(Folder)};
        for (const bool folders : {foldersFirst, !foldersFirst}) {
            halves.addPage(0, 4);
            halves.totalCount(4);
            if (folders) {
                halves.addItems(0, {f, g}, PagePart::Folders);
            } else {
                halves.addItems(0, {a, b}, PagePart::Documents);
            }
        }
        EXPECT_THAT(names(halves), ElementsAre("f", "g", "a", "b")) << foldersFirst;
        EXPECT_THAT(names(halves, 2, 1), ElementsAre("a")) << foldersFirst;
    }
}

TEST_F(QueryResultTest, ADeliveryOfFoldersTakesOnlyFoldersAway) {
    const auto f = makeContainer(31, Folder, "f");
    const auto g = makeContainer(32, Folder, "g");
    deliver(0, 4, 4, {f, g, a, b});
    result.addPage(0, 4);
    result.totalCount(3);
    result.addItems(0, {g}, PagePart::Folders);
    EXPECT_THAT(names(result), ElementsAre("g", "a", "b"));
}

TEST_F(QueryResultTest, ADeliveryOfDocumentsTakesOnlyDocumentsAway) {
    const auto f = makeContainer(31, Folder, "f");
    const auto g = makeContainer(32, Folder, "g");
    deliver(0, 4, 4, {f, g, a, b});
    result.addPage(0, 4);
    result.totalCount(3);
    result.addItems(0, {b}, PagePart::Documents);
    EXPECT_THAT(names(result), ElementsAre("f", "g", "b"));
}

// Totals.

TEST_F(QueryResultTest, AnUnexplainedTotalLeavesOnlyItsOwnPageHeld) {
    deliverFour();
    deliver(0, 2, 5, {a, b});
    EXPECT_TRUE(current(0, 2));
    EXPECT_FALSE(current(2, 1));
    EXPECT_FALSE(current(3, 1));
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "d"));
}

TEST_F(QueryResultTest, ASmallerTotalIsUnexplainedToo) {
    deliverFour();
    deliver(0, 2, 3, {a, b});
    EXPECT_TRUE(current(0, 2));
    EXPECT_FALSE(current(2, 1));
}

TEST_F(QueryResultTest, TheFirstTotalTakesNoHoldAway) {
    result.addItems(0, {a, b});
    deliver(2, 2, 4, {c, d});
    EXPECT_TRUE(current(0, 4));
}

TEST_F(QueryResultTest, ALocalRemovalExplainsASmallerTotal) {
    deliverFour();
    result.removeItem(d->id());
    deliver(0, 2, 3, {a, b});
    EXPECT_TRUE(current(0, 4));
}

TEST_F(QueryResultTest, ALocalRemovalAlsoExplainsTheOldTotal) {
    deliverFour();
    result.removeItem(d->id());
    deliver(0, 2, 4, {a, b});  // The service has not heard of it yet.
    EXPECT_TRUE(current(0, 3));
    EXPECT_FALSE(current(3, 1));
}

TEST_F(QueryResultTest, OneLocalRemovalDoesNotExplainTwo) {
    deliverFour();
    result.removeItem(d->id());
    deliver(0, 1, 2, {a});
    EXPECT_TRUE(current(0, 1));
    EXPECT_FALSE(current(1, 1));
}

TEST_F(QueryResultTest, ALocalRemovalExplainsOnlyTheNextTotal) {
    deliverFour();
    result.removeItem(d->id());
    deliver(0, 1, 3, {a});
    deliver(0, 1, 2, {a});
    EXPECT_TRUE(current(0, 1));
    EXPECT_FALSE(current(1, 1));
}

TEST_F(QueryResultTest, ALocalAdditionExplainsALargerTotal) {
    deliverFour();
    result.addItem(e, false);
    deliver(0, 2, 5, {a, b});
    EXPECT_TRUE(current(0, 4));
    EXPECT_FALSE(current(4, 1));
}

TEST_F(QueryResultTest, ALocalAdditionExplainsALargerTotalUntilItsIdIsKnown) {
    deliverFour();
    result.addItem(e, false);
    deliver(0, 2, 4, {a, b});
    e->idLoaded(true);
    deliver(0, 2, 5, {a, b});
    EXPECT_TRUE(current(0, 4));
    deliver(0, 2, 6, {a, b});
    EXPECT_TRUE(current(0, 2));
    EXPECT_FALSE(current(2, 1));
}

TEST_F(QueryResultTest, WhatAMergeAddsBeforeItsPageExplainsNoTotal) {
    deliverFour();
    result.addPage(4, 1);
    result.totalCount(5);
    EXPECT_FALSE(result.removeItemByName(e));
    result.addItem(e, false);
    EXPECT_FALSE(current(0, 2));
    result.addItems(4, {e});
    EXPECT_FALSE(current(0, 2));
    EXPECT_FALSE(current(2, 2));
    EXPECT_TRUE(current(4, 1));
}

TEST_F(QueryResultTest, APositionThatWasBehindTheTotalIsNotHeldWhenTheListingGrows) {
    deliver(3, 1, 4, {d});
    result.addItems(0, {a});
    result.invalidate();
    deliver(3, 1, 4, {d});
    result.removeItem(a->id());
    deliver(3, 1, 3, {});  // Explained by the removal; d stands before it now.
    result.addItem(e, false);
    deliver(0, 1, 4, {b});  // Explained by the addition.
    EXPECT_TRUE(current(0, 1));
    EXPECT_FALSE(current(3, 1));
}

TEST_F(QueryResultTest, EntriesBehindTheTotalLeaveOnceAllBeforeItAreHeld) {
    deliverFour();
    deliver(0, 2, 3, {a, b});
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "d"));  // Totals hide nothing.
    deliver(2, 2, 3, {c});
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c"));
}

TEST_F(QueryResultTest, ATotalThatItsDeliveryContradictsIsStoredButNotBelieved) {
    deliverFour();
    deliver(0, 2, 1, {a, b});
    EXPECT_EQ(result.totalCount(), 1u);
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c", "d"));
    EXPECT_TRUE(current(0, 2));
    EXPECT_TRUE(current(2, 2));
}

TEST_F(QueryResultTest, ATotalOfNothingBesideEntriesIsNotBelieved) {
    deliver(0, 3, 0, {a, b, c});
    EXPECT_EQ(result.totalCount(), 0u);
    EXPECT_THAT(names(result), ElementsAre("a", "b", "c"));
    EXPECT_TRUE(current(0, 3));
}

TEST_F(QueryResultTest, ABelievableTotalIsMeasuredAgainstTheLastBelievedOne) {
    deliverFour();
    deliver(0, 2, 1, {a, b});
    deliver(2, 1, 4, {c});
    EXPECT_TRUE(current(0, 4));
    deliver(2, 1, 5, {c});
    EXPECT_TRUE(current(2, 1));
    EXPECT_FALSE(current(0, 1));
}

// Namesakes on different pages.

/// Two entries of one name on different pages, both known to the store, and a merge that refreshes
/// one of them by name before it delivers the page.
TEST_F(QueryResultTest, NamesakesOnDifferentPagesDoNotEvictEachOther) {
    d->name("a");
    deliver(0, 2, 4, {a, b});
    result.addPage(2, 2);
    result.totalCount(4);
    ASSERT_TRUE(result.removeItemByName(d));  // Finds a, since d is not there.
    result.addItem(d, true);
    result.addItems(2, {c, d});
    EXPECT_THAT(result.items(), ElementsAre(a, b, c, d));
}

TEST_F(QueryResultTest, AnEntryThatCameBackIsToBeLoadedAgain) {
    d->name("a");
    deliver(0, 2, 4, {a, b});
    result.addPage(2, 2);
    result.totalCount(4);
    result.removeItemByName(d);
    result.addItem(d, true);
    result.addItems(2, {c, d});
    EXPECT_FALSE(current(0, 1));
    EXPECT_TRUE(current(1, 3));
    deliver(0, 2, 4, {a, b});
    EXPECT_TRUE(current(0, 4));
}

TEST_F(QueryResultTest, AnEvictedAdditionComesBackToo) {
    x->name("d");
    deliver(0, 2, 4, {a, b});
    result.addItem(x, false);
    result.addPage(2, 2);
    result.totalCount(4);
    ASSERT_TRUE(result.removeItemByName(d));
    result.addItem(d, true);
    result.addItems(2, {c, d});
    EXPECT_THAT(result.items(), UnorderedElementsAre(a, b, c, d, x));
}

// Ids and names that change in place.

TEST_F(QueryResultTest, AnEntryIsRemovedByTheIdItHasNow) {
    deliverFour();
    b->id(200);
    result.removeItem(2);
    EXPECT_EQ(result.count(), 4u);
    result.removeItem(200);
    EXPECT_THAT(names(result), ElementsAre("a", "c", "d"));
}

TEST_F(QueryResultTest, AnEntryThatGetsItsFirstIdIsRemovedByIt) {
    b->id(0);
    deliverFour();
    result.addItem(x, true);
    x->id(0);
    b->id(200);
    x->id(300);
    result.removeItem(24);
    EXPECT_EQ(result.count(), 5u);
    result.removeItem(200);
    result.removeItem(300);
    EXPECT_THAT(names(result), ElementsAre("a", "c", "d"));
}

TEST_F(QueryResultTest, EntriesThatSwapTheirIdsAreFound) {
    deliverFour();
    a->id(2);
    b->id(1);
    result.removeItem(1);
    EXPECT_THAT(names(result), ElementsAre("a", "c", "d"));
}

TEST_F(QueryResultTest, AnEntryArrivesAgainUnderTheIdItHasNow) {
    deliverFour();
    d->id(400);
    const auto newer = makeObject(400, Folder, "newer");
    deliver(0, 1, 4, {newer});
    EXPECT_THAT(result.items(), ElementsAre(newer, b, c));
    const auto other = makeObject(4, Folder, "other");
    deliver(3, 1, 4, {other});
    EXPECT_THAT(result.items(), ElementsAre(newer, b, c, other));
}

TEST_F(QueryResultTest, AnEntryIsFoundByTheNameItHasNow) {
    deliverFour();
    EXPECT_EQ(result.itemByName("b"), b);
    b->name("renamed");
    EXPECT_EQ(result.itemByName("b"), nullptr);
    EXPECT_EQ(result.itemByName("renamed"), b);
    b->name("a");
    EXPECT_EQ(result.itemByName("a"), a);
    EXPECT_EQ(result.itemByName("renamed"), nullptr);
}

TEST_F(QueryResultTest, ANameFindsTheFirstOfItsEntries) {
    d->name("n");
    b->name("n");
    deliverFour();
    EXPECT_EQ(result.itemByName("n"), b);
    result.removeItem(b->id());
    EXPECT_EQ(result.itemByName("n"), d);
    x->name("n");
    result.addItem(x, true);
    EXPECT_EQ(result.itemByName("n"), x);
}

TEST_F(QueryResultTest, ANameIsComparedByteForByte) {
    a->name(std::string("n\0n", 3));
    deliverFour();
    EXPECT_EQ(result.itemByName("n"), nullptr);
    EXPECT_EQ(result.itemByName(std::string("n\0n", 3)), a);
    EXPECT_EQ(result.itemByName("B"), nullptr);
}

TEST_F(QueryResultTest, RemovingByNameAsksForTheNameOfNow) {
    deliverFour();
    b->name("renamed");
    x->name("b");
    EXPECT_FALSE(result.removeItemByName(x));
    x->name("renamed");
    EXPECT_TRUE(result.removeItemByName(x));
    EXPECT_THAT(names(result), ElementsAre("a", "c", "d"));
}

// Copies.

TEST(QueryResultCopyTest, PassesTheFilterOnThroughPlainCopies) {
    FilterInternal filter = folderFilter(Folder, 3, 5);
    filter.setQuery("text");
    QueryResultInternal result(filter);
    const auto a = makeObject(1, Folder, "a");
    const auto b = makeObject(2, Folder, "b");
    result.addPage(0, 2);
    result.totalCount(9);
    result.addItems(0, {a, b});
    result.addItem(makeObject(3, Folder, "added"), true);

    const QueryResult plain(result);
    const QueryResult again(plain);
    QueryResult assigned;
    assigned = again;
    QueryResultInternal copy(assigned);

    EXPECT_EQ(copy.filter().getQuery(), "text");
    EXPECT_EQ(copy.filter().getOffset(), 3u);
    EXPECT_EQ(copy.filter().getCount(), 5u);
    EXPECT_THAT(copy.filter().getDataId(), ElementsAre(Folder));
    EXPECT_EQ(copy.items(), result.items());
    EXPECT_EQ(copy.totalCount(), 9u);
    EXPECT_TRUE(copy.isPageLoaded(folderFilter(Folder, 0, 2)));
    EXPECT_TRUE(copy.isPageCurrent(folderFilter(Folder, 0, 2)));
    EXPECT_FALSE(copy.isPageLoaded(folderFilter(Folder, 2, 2)));
    EXPECT_EQ(copy.itemByName("b"), b);
}

TEST(QueryResultCopyTest, HasADefaultFilterWhereNoneIsRemembered) {
    QueryResult plain;
    const QueryResultInternal copy(plain);
    EXPECT_TRUE(copy.filter().equals(FilterInternal()));
    EXPECT_THAT(copy.items(), IsEmpty());
    EXPECT_FALSE(copy.isPageLoaded(FilterInternal()));
}

TEST(QueryResultCopyTest, IsIndependentOfItsSource) {
    QueryResultInternal result(folderFilter(Folder));
    const auto a = makeObject(1, Folder, "a");
    const auto b = makeObject(2, Folder, "b");
    result.addPage(0, 2);
    result.totalCount(2);
    result.addItems(0, {a, b});
    QueryResultInternal copy(result);

    result.removeItem(1);
    result.invalidate();
    result.addPage(2, 2);
    EXPECT_THAT(copy.items(), ElementsAre(a, b));
    EXPECT_TRUE(copy.isPageCurrent(folderFilter(Folder, 0, 2)));
    EXPECT_FALSE(copy.isPageLoaded(folderFilter(Folder, 2, 2)));

    copy.removeItem(2);
    copy.totalCount(7);
    EXPECT_THAT(copy.items(), ElementsAre(a));
    EXPECT_THAT(result.items(), ElementsAre(b));
    EXPECT_EQ(result.totalCount(), 2u);
}

TEST(QueryResultCopyTest, SharesItsEntries) {
    QueryResultInternal result(folderFilter(Folder));
    const auto a = makeObject(1, Folder, "a");
    result.addItems(0, {a});
    const QueryResult copy(result);
    a->name("renamed");
    EXPECT_EQ(copy.itemByName("renamed"), a);
    EXPECT_EQ(copy.itemByName("a"), nullptr);
}

TEST(QueryResultCopyTest, RemembersWhatItIsToldToExplain) {
    QueryResultInternal result(folderFilter(Folder));
    const auto a = makeObject(1, Folder, "a");
    const auto b = makeObject(2, Folder, "b");
    const auto c = makeObject(3, Folder, "c");
    result.addPage(0, 3);
    result.totalCount(3);
    result.addItems(0, {a, b, c});
    result.removeItem(3);
    QueryResultInternal copy(result);
    copy.addPage(0, 1);
    copy.totalCount(2);
    copy.addItems(0, {a});
    EXPECT_TRUE(copy.isPageCurrent(folderFilter(Folder, 0, 2)));
}

TEST(QueryResultCopyTest, SurvivesAssigningAResultToItself) {
    QueryResultInternal result(folderFilter(Folder));
    const auto a = makeObject(1, Folder, "a");
    result.addItems(0, {a});
    QueryResult plain(result);
    const QueryResult& same = plain;
    plain = same;
    EXPECT_THAT(plain.items(), ElementsAre(a));
}

TEST(QueryResultCopyTest, SnapshotIsTheCallersOwn) {
    QueryResultInternal result(folderFilter(Folder));
    const auto a = makeObject(1, Folder, "a");
    result.addItems(0, {a});
    Entries snapshot = result.items();
    result.removeItem(1);
    EXPECT_THAT(snapshot, ElementsAre(a));
    result.addItem(a, true);
    snapshot.clear();
    EXPECT_EQ(result.count(), 1u);
}

TEST(QueryResultTypeTest, IsAConcreteValueAndTheVirtualBaseOfItsImplementation) {
    static_assert(std::is_copy_constructible_v<QueryResult>);
    static_assert(std::is_copy_assignable_v<QueryResult>);
    static_assert(std::has_virtual_destructor_v<QueryResult>);
    const std::shared_ptr<QueryResult> result =
        std::make_shared<QueryResultInternal>(folderFilter(Folder));
    EXPECT_NE(dynamic_cast<QueryResultInternal*>(result.get()), nullptr);
    const QueryResult plain;
    EXPECT_EQ(typeid(plain), typeid(QueryResult));
}

// Large listings and several threads.

class LargeQueryResultTest : public ::testing::Test {
  protected:
    static constexpr unsigned long Size = 20000;
    static constexpr unsigned long PageSize = 100;

    static Entries makeEntries() {
        Entries entries;
        for (unsigned long number = 1; number <= Size; ++number) {
            entries.push_back(makeObject(number, Folder, std::to_string(number)));
        }
        return entries;
    }

    Entries pageOf(unsigned long offset) const {
        const unsigned long begin = std::min<unsigned long>(offset, listing.size());
        const unsigned long end = std::min<unsigned long>(begin + PageSize, listing.size());
        return {listing.begin() + static_cast<std::ptrdiff_t>(begin),
                listing.begin() + static_cast<std::ptrdiff_t>(end)};
    }

    void load(unsigned long offset) {
        result.addPage(offset, PageSize);
        result.totalCount(listing.size());
        result.addItems(offset, pageOf(offset));
    }

    /// Removes an entry by id from the listing and the result.
    void removeAnywhere() {
        const std::size_t at =
            std::uniform_int_distribution<std::size_t>(0, listing.size() - 1)(random);
        result.removeItem(listing[at]->id());
        listing.erase(listing.begin() + static_cast<std::ptrdiff_t>(at));
    }

    void loadWhatIsNotCurrent() {
        for (unsigned long offset = 0; offset < listing.size(); offset += PageSize) {
            if (!result.isPageCurrent(folderFilter(Folder, static_cast<std::uint32_t>(offset),
                                                   static_cast<std::uint32_t>(PageSize)))) {
                load(offset);
            }
        }
    }

    Entries listing = makeEntries();
    QueryResultInternal result{folderFilter(Folder)};
    std::mt19937 random{20000};
};

TEST_F(LargeQueryResultTest, IsWholeWhileItIsEmptiedAtRandom) {
    for (unsigned long offset = 0; offset < Size; offset += PageSize) {
        load(offset);
    }
    ASSERT_EQ(result.items(), listing);
    for (unsigned long step = 1; step <= Size; ++step) {
        removeAnywhere();
        if (step % 1000 == 0) {
            ASSERT_EQ(result.items(), listing) << step;
            ASSERT_EQ(result.count(), listing.size()) << step;
            ASSERT_EQ(result.page(1000, PageSize), pageOf(1000)) << step;
        }
    }
}

TEST_F(LargeQueryResultTest, IsWholeWhenEntriesLeaveWhileItFills) {
    for (unsigned long offset = 0; offset < listing.size(); offset += PageSize) {
        load(offset);
        for (int removals = 0; removals < 20; ++removals) {
            removeAnywhere();
        }
    }
    for (int round = 0; round < 3; ++round) {
        loadWhatIsNotCurrent();
    }
    EXPECT_EQ(result.items(), listing);
}

TEST_F(LargeQueryResultTest, FindsEveryEntryByNameAndId) {
    for (unsigned long offset = 0; offset < Size; offset += PageSize) {
        load(offset);
    }
    for (const std::shared_ptr<Item>& entry : listing) {
        ASSERT_EQ(result.itemByName(entry->name()), entry);
    }
    for (const std::shared_ptr<Item>& entry : listing) {
        ASSERT_TRUE(result.removeItemByName(entry));
        result.addItem(entry, true);
    }
    EXPECT_EQ(result.items(), listing);
}

/// Edits a listing of 20 entries in every way, ending as it began.
void editInEveryWay(QueryResultInternal& result, const Entries& listing,
                    const std::shared_ptr<Item>& addition) {
    const Entries firstHalf(listing.begin(), listing.begin() + 10);
    result.removeItem(listing[3]->id());
    if (result.removeItemByName(listing[15])) {
        result.addItem(listing[15], true);
    }
    result.addItem(addition, false);
    result.removeItem(addition->id());
    result.invalidate();
    result.addPage(0, 10);
    result.totalCount(20);
    result.addItems(0, firstHalf);
    result.addPage(10, 10);
    result.totalCount(20);
    result.addItems(10, Entries(listing.begin() + 10, listing.end()));
}

TEST(QueryResultThreadTest, AReaderSeesWholeSnapshotsWhileAnotherThreadEdits) {
    Entries listing;
    for (unsigned long id = 1; id <= 20; ++id) {
        listing.push_back(makeObject(id, Folder, std::to_string(id)));
    }
    QueryResultInternal result(folderFilter(Folder));
    const auto addition = makeObject(99, Folder, "addition");
    editInEveryWay(result, listing, addition);

    std::atomic<bool> stop = false;
    std::atomic<unsigned long> reads = 0;
    std::atomic<unsigned long> faults = 0;
    std::thread reader([&] {
        while (!stop || reads == 0) {
            const Entries entries = result.items();
            const bool hasEmpty =
                std::find(entries.begin(), entries.end(), nullptr) != entries.end();
            const bool isWhole =
                entries.size() >= 18 && entries.size() <= 21 && entries.front() == listing.front();
            const bool isLoaded = result.isPageLoaded(folderFilter(Folder, 0, 10));
            (void)result.isPageCurrent(folderFilter(Folder, 10, 10));
            const Entries page = result.page(0, 5);
            const bool isTotal = result.totalCount() == 20 && result.count() >= 18;
            const QueryResult copy(result);
            const bool isFound = copy.itemByName("1") == listing.front();
            if (hasEmpty || !isWhole || !isLoaded || page.size() > 5 || !isTotal || !isFound) {
                ++faults;
            }
            ++reads;
        }
    });
    for (int round = 0; round < 2000; ++round) {
        editInEveryWay(result, listing, addition);
    }
    stop = true;
    reader.join();
    EXPECT_EQ(faults, 0u);
    EXPECT_EQ(result.items(), listing);
    EXPECT_TRUE(result.isPageCurrent(folderFilter(Folder, 0, 20)));
}

}  // namespace
}  // namespace Ormek::Testing
