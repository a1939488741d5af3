#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "model/QueryResultInternal.h"
#include "tests/support/Fakes.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using Entry = std::shared_ptr<Item>;

static_assert(!std::is_copy_assignable_v<QueryResultInternal>, "the filter never changes");

class ListingEdgesTest : public ::testing::Test {
  protected:
    static std::shared_ptr<ObjectInternal> entry(unsigned long id) {
        auto object = makeObject(id, 7, "e" + std::to_string(id));
        object->idLoaded(true);
        return object;
    }

    void deliver(std::uint32_t offset, std::uint32_t count, unsigned long total,
                 const std::vector<Entry>& entries) {
        result.addPage(offset, count);
        result.totalCount(total);
        result.addItems(offset, entries);
    }

    bool current(std::uint32_t offset, std::uint32_t count) const {
        return result.isPageCurrent(folderFilter(7, offset, count));
    }

    static std::vector<unsigned long> ids(const std::vector<Entry>& entries) {
        std::vector<unsigned long> all;
        for (const Entry& one : entries) {
            all.push_back(one->id());
        }
        return all;
    }

    QueryResultInternal result{folderFilter(7)};
};

TEST_F(ListingEdgesTest, AdditionThatTheTotalCountsIsShownInItsOwnPageOnly) {
    deliver(0, 2, 10, {entry(1), entry(2)});
    const auto known = entry(5);
    result.addItem(known, false);
    deliver(8, 2, 10, {entry(9), entry(10)});
    EXPECT_THAT(ids(result.page(8, 2)), ElementsAre(9, 10));
    deliver(4, 2, 10, {known, entry(6)});
    EXPECT_THAT(ids(result.page(4, 2)), ElementsAre(5, 6));
}

TEST_F(ListingEdgesTest, AdditionThatGotTheIdOfADeliveredEntryIsNotThereTwice) {
    deliver(0, 10, 1, {entry(1)});
    const auto local = makeObject(99, 7, "new");
    result.addItem(local, false);
    deliver(0, 10, 2, {entry(1), entry(10)});
    local->id(10);
    local->idLoaded(true);
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 10));
    EXPECT_THAT(ids(result.page(0, 10)), ElementsAre(1, 10));
    EXPECT_EQ(result.count(), 2U);
}

TEST_F(ListingEdgesTest, AdditionsComeWithTheFirstAndTheLastPageHoweverManyThereAre) {
    for (const unsigned long id : {12UL, 11UL, 10UL}) {
        result.addItem(makeObject(id, 7, "new"), true);
    }
    for (const unsigned long id : {20UL, 21UL, 22UL}) {
        result.addItem(makeObject(id, 7, "new"), false);
    }
    EXPECT_THAT(ids(result.page(0, 1)), ElementsAre(10, 11, 12, 20, 21, 22));
    EXPECT_THAT(ids(result.page(1, 1)), ElementsAre());
    deliver(0, 2, 2, {entry(1), entry(2)});
    EXPECT_THAT(ids(result.page(0, 1)), ElementsAre(10, 11, 12, 1));
    EXPECT_THAT(ids(result.page(1, 1)), ElementsAre(2, 20, 21, 22));
    EXPECT_THAT(ids(result.page(2, 1)), ElementsAre());
    EXPECT_THAT(ids(result.page(0, 2)), ElementsAre(10, 11, 12, 1, 2, 20, 21, 22));
}

TEST_F(ListingEdgesTest, SecondHalfOfAPageFindsItAsLongAsTheFirst) {
    result.addPage(0, 5);
    result.totalCount(5);
    const auto folder = [](unsigned long id) { return makeContainer(id, 7, "f"); };
    result.addItems(0, {folder(1), folder(2), folder(3)}, PagePart::Folders);
    result.addItems(0, {entry(4), entry(5)}, PagePart::Documents);
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(ListingEdgesTest, TotalThatABlockedEntryContradictsIsNotBelieved) {
    std::vector<Entry> five;
    for (unsigned long id = 1; id <= 5; ++id) {
        five.push_back(entry(id));
    }
    deliver(0, 2, 5, {five[0], five[1]});
    deliver(2, 3, 5, {five[2], five[3], five[4]});
    deliver(0, 2, 2, {five[0], five[1], five[3]});
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(ListingEdgesTest, RemovedAdditionThatWasCountedExplainsTheTotal) {
    const auto one = entry(1);
    deliver(0, 1, 2, {one});
    deliver(1, 1, 2, {entry(2)});
    const auto added = entry(3);
    result.addItem(added, false);
    deliver(0, 1, 3, {one});
    result.removeItem(3);
    deliver(0, 1, 2, {one});
    EXPECT_TRUE(current(1, 1));
}

TEST_F(ListingEdgesTest, EvictedEntryComesBackToWhereItsPlaceHasMoved) {
    std::vector<Entry> all;
    for (unsigned long id = 1; id <= 6; ++id) {
        all.push_back(entry(id));
    }
    deliver(0, 6, 6, all);
    const auto namesake = makeObject(50, 7, "e6");
    result.addPage(0, 1);
    result.totalCount(6);
    ASSERT_TRUE(result.removeItemByName(namesake));
    result.addItem(namesake, true);
    result.removeItem(3);
    result.addItems(0, {namesake});
    EXPECT_THAT(ids(result.items()), ElementsAre(50, 2, 4, 5, 6));
    EXPECT_THAT(ids(result.page(4, 1)), ElementsAre(6));
}

TEST_F(ListingEdgesTest, EvictedEntryComesBackToItsPlaceWhenOneBehindItLeaves) {
    std::vector<Entry> all;
    for (unsigned long id = 1; id <= 6; ++id) {
        all.push_back(entry(id));
    }
    deliver(0, 6, 6, all);
    const auto namesake = makeObject(50, 7, "e3");
    result.addPage(0, 1);
    result.totalCount(6);
    ASSERT_TRUE(result.removeItemByName(namesake));
    result.addItem(namesake, true);
    result.removeItem(5);
    result.addItems(0, {namesake});
    EXPECT_THAT(ids(result.items()), ElementsAre(50, 2, 3, 4, 6));
    EXPECT_THAT(ids(result.page(2, 1)), ElementsAre(3));
}

TEST_F(ListingEdgesTest, EvictedEntryThatComesBackToTheEndIsTheLast) {
    std::vector<Entry> all;
    for (unsigned long id = 1; id <= 6; ++id) {
        all.push_back(entry(id));
    }
    deliver(0, 6, 6, all);
    result.addItem(entry(9), false);
    const auto namesake = makeObject(50, 7, "e6");
    result.addPage(0, 1);
    result.totalCount(0);  // Not believed: the listing ends with its last entry.
    ASSERT_TRUE(result.removeItemByName(namesake));
    result.addItem(namesake, true);
    result.addItems(0, {namesake});
    EXPECT_THAT(ids(result.page(4, 1)), ElementsAre(5));
    EXPECT_THAT(ids(result.page(5, 1)), ElementsAre(6, 9));
}

TEST_F(ListingEdgesTest, RemovedAdditionThatWasCountedExplainsNoMoreThanItself) {
    for (const bool front : {true, false}) {
        const Entry one = entry(1);
        deliver(0, 1, 5, {one});
        deliver(1, 1, 5, {entry(2)});
        result.addItem(entry(3), front);
        deliver(0, 1, 6, {one});
        deliver(1, 1, 6, {entry(2)});
        result.removeItem(3);
        deliver(0, 1, 4, {one});
        EXPECT_FALSE(current(1, 1));
        result.invalidate();
    }
}

TEST_F(ListingEdgesTest, RemovedAdditionThatWasNotCountedExplainsNothing) {
    for (const bool front : {true, false}) {
        const Entry one = entry(1);
        deliver(0, 1, 5, {one});
        deliver(1, 1, 5, {entry(2)});
        result.addItem(entry(3), front);
        result.removeItem(3);
        deliver(0, 1, 4, {one});
        EXPECT_FALSE(current(1, 1));
        result.invalidate();
    }
}

TEST_F(ListingEdgesTest, AdditionIsRemovedByNameAtEitherEnd) {
    for (const bool front : {true, false}) {
        const Entry added = entry(3);
        result.addItem(added, front);
        EXPECT_TRUE(result.removeItemByName(added));
        EXPECT_EQ(result.count(), 0U);
        result.addItem(added, front);
        EXPECT_TRUE(result.removeItemByName(makeObject(4, 7, "e3")));
        EXPECT_EQ(result.count(), 0U);
        EXPECT_FALSE(result.removeItemByName(added));
    }
}

TEST_F(ListingEdgesTest, CountedAdditionThatIsRemovedByNameExplainsTheTotal) {
    const Entry one = entry(1);
    const Entry added = entry(3);
    deliver(0, 1, 5, {one});
    deliver(1, 1, 5, {entry(2)});
    result.addItem(added, false);
    deliver(0, 1, 6, {one});
    ASSERT_TRUE(result.removeItemByName(added));
    deliver(0, 1, 5, {one});
    EXPECT_TRUE(current(1, 1));
    result.addItem(makeObject(4, 7, "new"), false);
    ASSERT_TRUE(result.removeItemByName(makeObject(4, 7, "new")));
    deliver(0, 1, 4, {one});
    EXPECT_FALSE(current(1, 1)) << "nobody had counted it";
}

TEST_F(ListingEdgesTest, AdditionThatIsRemovedAndPutBackIsStillNotCounted) {
    const Entry one = entry(1);
    const Entry added = entry(3);
    deliver(0, 1, 5, {one});
    deliver(1, 1, 5, {entry(2)});
    result.addItem(added, false);
    ASSERT_TRUE(result.removeItemByName(added));
    result.addItem(added, true);
    deliver(0, 1, 6, {one});
    EXPECT_TRUE(current(1, 1)) << "one more, which is the addition";
    deliver(0, 1, 5, {one});
    EXPECT_FALSE(current(1, 1)) << "it was counted now";
}

TEST_F(ListingEdgesTest, AdditionThatWasNotCountedAndIsReplacedExplainsNoSmallerTotal) {
    const Entry one = entry(1);
    deliver(0, 1, 5, {one});
    deliver(1, 1, 5, {entry(2)});
    result.addItem(makeObject(3, 7, "new"), false);
    result.replaceItem(makeObject(4, 7, "new"), true);
    deliver(0, 1, 4, {one});
    EXPECT_FALSE(current(1, 1));
}

TEST_F(ListingEdgesTest, NamesakeThatReplacesACountedAdditionIsNotCounted) {
    const Entry one = entry(1);
    deliver(0, 1, 5, {one});
    deliver(1, 1, 5, {entry(2)});
    result.addItem(entry(3), false);
    deliver(0, 1, 6, {one});
    result.replaceItem(makeObject(4, 7, "e3"), true);
    deliver(0, 1, 7, {one});
    EXPECT_TRUE(current(1, 1));
}

TEST_F(ListingEdgesTest, ReplacingTheLastEntryDoesNotMoveTheEndOfTheListing) {
    deliver(0, 3, 3, {entry(1), entry(2), entry(3)});
    result.addItem(entry(9), false);
    result.invalidate();
    deliver(0, 1, 0, {entry(1)});  // Not believed: the listing ends with its last entry.
    result.replaceItem(makeObject(50, 7, "e3"), true);
    EXPECT_THAT(ids(result.page(2, 1)), ElementsAre(50, 9));
}

TEST_F(ListingEdgesTest, ReplacingACountedAdditionExplainsNothing) {
    const Entry one = entry(1);
    const Entry added = entry(3);
    deliver(0, 1, 5, {one});
    deliver(1, 1, 5, {entry(2)});
    result.addItem(added, false);
    deliver(0, 1, 6, {one});
    ASSERT_TRUE(result.removeItemByName(added));
    result.addItem(added, true);
    deliver(0, 1, 5, {one});
    EXPECT_FALSE(current(1, 1));
}

TEST_F(ListingEdgesTest, ReplacingAtAPositionExplainsNothing) {
    for (const bool held : {true, false}) {
        deliver(0, 2, 4, {entry(1), entry(2)});
        if (!held) {
            result.invalidate();
        }
        deliver(2, 2, 4, {entry(3), entry(4)});
        const auto namesake = makeObject(50, 7, "e1");
        ASSERT_TRUE(result.removeItemByName(namesake));
        result.addItem(namesake, true);
        deliver(1, 1, 3, {entry(2)});
        EXPECT_FALSE(current(2, 1)) << held;
        result.removeItem(50);
        result.invalidate();
    }
}

TEST_F(ListingEdgesTest, SecondEvictionLeavesThePlaceOfTheFirst) {
    std::vector<Entry> all;
    for (unsigned long id = 1; id <= 6; ++id) {
        all.push_back(entry(id));
    }
    deliver(0, 6, 6, all);
    const std::vector<Entry> namesakes = {makeObject(60, 7, "e6"), makeObject(30, 7, "e3")};
    result.addPage(0, 2);
    result.totalCount(6);
    for (const Entry& namesake : namesakes) {
        ASSERT_TRUE(result.removeItemByName(namesake));
        result.addItem(namesake, true);
    }
    result.addItems(0, namesakes);
    EXPECT_THAT(ids(result.items()), ElementsAre(60, 30, 3, 4, 5, 6));
}

TEST_F(ListingEdgesTest, RestoringWithoutARemovalExplainsNothing) {
    deliver(0, 2, 4, {entry(1), entry(2)});
    deliver(2, 2, 4, {entry(3), entry(4)});
    result.restoreItem(entry(9), 4);
    deliver(0, 1, 3, {entry(1)});
    EXPECT_FALSE(current(1, 1));
}

TEST_F(ListingEdgesTest, ReplacingKeepsThePlaceOfANamesakeAndAddsAStranger) {
    const Entry one = entry(1);
    deliver(0, 2, 2, {one, entry(2)});
    result.replaceItem(one, true);
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2));
    EXPECT_TRUE(current(0, 2));
    result.replaceItem(makeObject(50, 7, "e2"), false);
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 50));
    result.replaceItem(entry(8), true);
    result.replaceItem(entry(9), false);
    EXPECT_THAT(ids(result.items()), ElementsAre(8, 1, 50, 9));
    for (const Entry& standing : result.items()) {
        result.replaceItem(standing, true);
        result.replaceItem(standing, false);
    }
    result.replaceItem(nullptr, true);
    EXPECT_THAT(ids(result.items()), ElementsAre(8, 1, 50, 9));
}

TEST_F(ListingEdgesTest, CountedAdditionLeavesEitherEndOnceOthersFillTheTotal) {
    for (const bool front : {true, false}) {
        result.addItem(entry(9), front);
        deliver(0, 2, 2, {entry(1), entry(2)});
        EXPECT_THAT(ids(result.items()), ElementsAre(1, 2));
    }
}

TEST_F(ListingEdgesTest, TotalIsMeasuredAgainstTheOneBeforeAContradictedOne) {
    deliver(0, 2, 4, {entry(1), entry(2)});
    deliver(2, 2, 4, {entry(3), entry(4)});
    deliver(0, 2, 1, {entry(1), entry(2)});
    deliver(0, 2, 7, {entry(1), entry(2)});
    EXPECT_FALSE(current(2, 2));
}

TEST_F(ListingEdgesTest, PageThatWasAnnouncedButNotDeliveredIsNotCurrent) {
    result.addPage(0, 10);
    result.totalCount(0);
    EXPECT_FALSE(current(0, 10));
    result.addItems(0, {});
    EXPECT_TRUE(current(0, 10));
}

TEST_F(ListingEdgesTest, EmptyListingThatIsInvalidatedIsNotCurrentEither) {
    deliver(0, 10, 0, {});
    EXPECT_TRUE(current(0, 10));
    result.invalidate();
    EXPECT_FALSE(current(0, 10));
    EXPECT_FALSE(current(5, 1));
    EXPECT_TRUE(result.isPageLoaded(folderFilter(7, 0, 10)));
    deliver(0, 10, 0, {});
    EXPECT_TRUE(current(0, 10));
}

TEST_F(ListingEdgesTest, PageBehindTheEndIsNotCurrentAfterAnInvalidation) {
    deliver(0, 2, 2, {entry(1), entry(2)});
    EXPECT_TRUE(current(2, 5));
    result.invalidate();
    EXPECT_FALSE(current(2, 5));
    deliver(0, 2, 2, {entry(1), entry(2)});
    EXPECT_TRUE(current(2, 5));
}

TEST_F(ListingEdgesTest, PageOverAFarGapIsPlacedAtOnce) {
    deliver(2'000'000'000, 1, 4'000'000'000, {entry(1)});
    deliver(0, 4'000'000'000, 4'000'000'000, {entry(2)});
    EXPECT_THAT(ids(result.items()), ElementsAre(2));
}

TEST_F(ListingEdgesTest, PositionIsToldOfAnEntryThatIsHeldOnly) {
    const auto second = entry(2);
    deliver(0, 2, 5, {entry(1), second});
    deliver(3, 1, 5, {entry(4)});
    const auto added = entry(9);
    result.addItem(added, false);
    EXPECT_EQ(result.heldPositionOf(2), 1U);
    EXPECT_EQ(result.heldPositionOf(4), 3U);
    EXPECT_FALSE(result.heldPositionOf(9));
    EXPECT_FALSE(result.heldPositionOf(4711));
    EXPECT_FALSE(result.heldPositionOf(0));
    result.removeItem(1);
    EXPECT_EQ(result.heldPositionOf(2), 0U);
    EXPECT_EQ(result.heldPositionOf(4), 2U);
    second->id(22);
    EXPECT_EQ(result.heldPositionOf(22), 0U);
    EXPECT_FALSE(result.heldPositionOf(2));
    result.invalidate();
    EXPECT_FALSE(result.heldPositionOf(22));
}

TEST_F(ListingEdgesTest, EntriesAreContainedWhereverTheyStand) {
    deliver(0, 1, 5, {entry(1)});
    result.addItem(entry(8), true);
    const auto local = makeObject(99, 7, "new");
    result.addItem(local, false);
    for (const unsigned long id : {1UL, 8UL, 99UL}) {
        EXPECT_TRUE(result.contains(id)) << id;
    }
    EXPECT_FALSE(result.contains(2));
    EXPECT_FALSE(result.contains(0));
    local->id(100);
    EXPECT_TRUE(result.contains(100));
    EXPECT_FALSE(result.contains(99));
    result.invalidate();
    EXPECT_TRUE(result.contains(1));
    result.removeItem(1);
    EXPECT_FALSE(result.contains(1));
}

TEST_F(ListingEdgesTest, RestoredEntryStandsWhereItStoodAndItsPositionIsNotHeld) {
    std::vector<Entry> all;
    for (unsigned long id = 1; id <= 5; ++id) {
        all.push_back(entry(id));
    }
    deliver(0, 5, 5, all);
    result.removeItem(3);
    result.restoreItem(all[2], 2);
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(ids(result.page(1, 3)), ElementsAre(2, 3, 4));
    EXPECT_TRUE(current(0, 2));
    EXPECT_FALSE(current(2, 1));
    EXPECT_TRUE(current(3, 2));
    EXPECT_FALSE(result.heldPositionOf(3));
    EXPECT_EQ(result.heldPositionOf(5), 4U);
    deliver(2, 1, 5, {all[2]});
    EXPECT_TRUE(current(0, 5));
}

TEST_F(ListingEdgesTest, RemovalThatWasUndoneExplainsNoSmallerTotal) {
    const std::vector<Entry> all = {entry(1), entry(2), entry(3), entry(4)};
    deliver(0, 2, 4, {all[0], all[1]});
    deliver(2, 2, 4, {all[2], all[3]});
    result.removeItem(1);
    result.restoreItem(all[0], 0);
    deliver(0, 2, 3, {all[0], all[1]});
    EXPECT_FALSE(current(2, 1)) << "somebody else has removed one";
    result.removeItem(2);
    deliver(0, 1, 2, {all[0]});
    EXPECT_TRUE(current(0, 1));
}

TEST_F(ListingEdgesTest, EntryThatIsThereOrIsNoneIsNotRestored) {
    const auto first = entry(1);
    deliver(0, 2, 2, {first, entry(2)});
    const auto added = entry(3);
    result.addItem(added, false);
    result.restoreItem(first, 1);
    result.restoreItem(added, 0);
    result.restoreItem(nullptr, 0);
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2, 3));
    EXPECT_TRUE(current(0, 2));
}

TEST_F(ListingEdgesTest, EntryIsRestoredBehindTheEndAndIntoAnEmptyListing) {
    result.restoreItem(entry(1), 0);
    EXPECT_THAT(ids(result.items()), ElementsAre(1));
    result.restoreItem(entry(2), 700);
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2));
    EXPECT_THAT(ids(result.page(700, 1)), ElementsAre(2));
    EXPECT_FALSE(current(700, 1));
}

TEST_F(ListingEdgesTest, RestoringBetweenThePagesMovesWhatStandsBehind) {
    deliver(0, 2, 6, {entry(1), entry(2)});
    deliver(4, 2, 6, {entry(5), entry(6)});
    result.restoreItem(entry(3), 2);
    EXPECT_EQ(result.heldPositionOf(5), 5U);
    EXPECT_EQ(result.heldPositionOf(6), 6U);
    EXPECT_TRUE(current(0, 2));
    EXPECT_FALSE(current(4, 1));
}

TEST_F(ListingEdgesTest, RestoringWhileAPageIsMergedMovesWhatItEvicted) {
    std::vector<Entry> all;
    for (unsigned long id = 1; id <= 6; ++id) {
        all.push_back(entry(id));
    }
    deliver(0, 6, 6, all);
    result.removeItem(3);
    const auto namesake = makeObject(50, 7, "e6");
    result.addPage(0, 1);
    result.totalCount(6);
    ASSERT_TRUE(result.removeItemByName(namesake));
    result.addItem(namesake, true);
    result.restoreItem(all[2], 2);
    result.addItems(0, {namesake});
    EXPECT_THAT(ids(result.items()), ElementsAre(50, 2, 3, 4, 5, 6));
    EXPECT_THAT(ids(result.page(5, 1)), ElementsAre(6));
}

TEST_F(ListingEdgesTest, ReplacingEveryEntryFromTheEndKeepsThemInPlace) {
    std::vector<Entry> all;
    std::vector<unsigned long> expected;
    for (unsigned long id = 1; id <= 5000; ++id) {
        all.push_back(entry(id));
        expected.push_back(id);
    }
    deliver(0, 5000, 5000, all);
    for (auto one = all.rbegin(); one != all.rend(); ++one) {
        result.addItem(*one, result.removeItemByName(*one));
    }
    EXPECT_EQ(ids(result.items()), expected);
    EXPECT_TRUE(current(0, 5000));
}

TEST_F(ListingEdgesTest, DocumentThatWasAFolderIsThereOnce) {
    deliver(0, 3, 2, {makeContainer(1, 7, "f"), makeContainer(5, 7, "e5")});
    result.addPage(0, 3);
    result.totalCount(3);
    result.addItems(0, {nullptr, entry(5)}, PagePart::Documents);
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 5));
}

TEST_F(ListingEdgesTest, CountedAdditionWhoseIdIsTakenBackIsShownAtTheEndAgain) {
    deliver(0, 1, 10, {entry(1)});
    const auto added = entry(2);
    result.addItem(added, false);
    deliver(0, 1, 10, {entry(1)});
    EXPECT_THAT(ids(result.page(9, 1)), ElementsAre());
    added->idLoaded(false);
    EXPECT_THAT(ids(result.page(9, 1)), ElementsAre(2));
    std::vector<Entry> ten;
    for (unsigned long id = 11; id <= 20; ++id) {
        ten.push_back(entry(id));
    }
    deliver(0, 10, 10, ten);
    EXPECT_EQ(result.items().back(), added);
    EXPECT_EQ(result.count(), 11U);
}

TEST_F(ListingEdgesTest, OnlyThePageThatIsAnnouncedIsNotCurrentMeanwhile) {
    deliver(0, 2, 6, {entry(1), entry(2)});
    deliver(2, 2, 6, {entry(3), entry(4)});
    deliver(4, 2, 6, {entry(5), entry(6)});
    result.addPage(2, 2);
    EXPECT_TRUE(current(0, 2));
    EXPECT_FALSE(current(1, 2));
    EXPECT_FALSE(current(2, 2));
    EXPECT_FALSE(current(3, 2));
    EXPECT_TRUE(current(4, 2));
}

TEST_F(ListingEdgesTest, PagesOfNothingAreRememberedEachByItself) {
    for (const std::uint32_t offset : {5U, 9U, 5U, 3U, 9U}) {
        result.addPage(offset, 0);
    }
    for (std::uint32_t offset = 0; offset < 12; ++offset) {
        const bool wasAdded = offset == 3 || offset == 5 || offset == 9;
        EXPECT_EQ(result.isPageLoaded(folderFilter(7, offset, 0)), wasAdded) << offset;
    }
}

TEST_F(ListingEdgesTest, DeliveryBehindTheLastPositionThereIsIsCutOff) {
    const unsigned long last = std::numeric_limits<unsigned long>::max();
    result.addItems(last - 2, {entry(1), entry(2), entry(3), entry(4)});
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2));
    EXPECT_THAT(ids(result.page(last - 2, 5)), ElementsAre(1, 2));
}

TEST_F(ListingEdgesTest, DeliveryLongerThanItsPageKeepsWhatStandsBehindIt) {
    const auto four = entry(4);
    deliver(2, 3, 5, {entry(3), four, entry(5)});
    deliver(0, 2, 5, {entry(1), entry(2), nullptr, four, entry(6), entry(7)});
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2, 3, 4, 5, 7));
    EXPECT_THAT(ids(result.page(3, 1)), ElementsAre(4));
}

TEST_F(ListingEdgesTest, DeliveryLongerThanItsPageBringsWhatIsNewBehindIt) {
    deliver(2, 1, 5, {entry(3)});
    const auto again = entry(3);
    deliver(0, 2, 5, {entry(1), entry(2), again, nullptr, entry(5)});
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2, 3, 5));
    EXPECT_EQ(result.items()[2], again);
    EXPECT_THAT(ids(result.page(4, 1)), ElementsAre(5));
}

TEST_F(ListingEdgesTest, DeliveryWithoutATotalOfItsOwnCountsNoAddition) {
    deliver(0, 1, 2, {entry(1)});
    result.addItem(entry(9), false);
    result.addItems(1, {entry(2)});
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2, 9));
}

TEST_F(ListingEdgesTest, VacatedPlaceIsForgottenWithWhateverComesNext) {
    const std::vector<std::function<void(QueryResultInternal&)>> others = {
        [](auto& listing) { listing.invalidate(); },
        [](auto& listing) { listing.addPage(7, 1); },
        [](auto& listing) { listing.totalCount(3); },
        [](auto& listing) { listing.addItems(7, {}); },
        [](auto& listing) { listing.addItem(entry(8), false); },
        [](auto& listing) { listing.addItem(entry(1), false); },
        [](auto& listing) { listing.removeItem(0); },
        [](auto& listing) { listing.removeItem(4711); },
        [](auto& listing) { listing.removeItemByName(nullptr); },
        [](auto& listing) { listing.removeItemByName(entry(4711)); },
        [](auto& listing) { listing.restoreItem(nullptr, 0); },
        [](auto& listing) { listing.restoreItem(entry(8), 0); },
        [](auto& listing) { listing.replaceItem(listing.items().front(), true); },
    };
    for (std::size_t number = 0; number < others.size(); ++number) {
        QueryResultInternal listing(folderFilter(7));
        const Entry second = entry(2);
        listing.addItems(0, {entry(1), second, entry(3)});
        ASSERT_TRUE(listing.removeItemByName(second));
        others[number](listing);
        listing.addItem(entry(9), true);
        EXPECT_EQ(listing.items().front()->id(), 9u) << number;
    }
}

TEST_F(ListingEdgesTest, DeliveryLongerThanItsPageLeavesHeldWhatStandsWhereItBringsIt) {
    const Entry three = entry(3);
    const Entry four = entry(4);
    deliver(2, 2, 4, {three, four});
    deliver(0, 2, 4, {entry(1), entry(2), three, four});
    EXPECT_TRUE(current(0, 4));
}

TEST_F(ListingEdgesTest, AdditionThatWasDeliveredOnceLeavesWithItsPage) {
    for (const bool front : {true, false}) {
        const Entry added = entry(5);
        result.addItem(added, front);
        deliver(0, 2, 9, {added, entry(6)});
        EXPECT_THAT(ids(result.items()), ElementsAre(5, 6));
        deliver(0, 2, 9, {entry(6), entry(7)});
        EXPECT_THAT(ids(result.items()), ElementsAre(6, 7));
    }
}

TEST_F(ListingEdgesTest, EvictedEntryDoesNotComeBackIntoThePageThatIsDelivered) {
    for (const unsigned long place : {0UL, 1UL}) {
        deliver(0, 2, 4, {entry(1), entry(2)});
        deliver(2, 2, 4, {entry(3), entry(4)});
        const auto namesake = makeObject(50, 7, "e" + std::to_string(place + 1));
        result.addPage(0, 2);
        result.totalCount(4);
        ASSERT_TRUE(result.removeItemByName(namesake));
        result.addItem(namesake, true);
        std::vector<Entry> page(2);
        page[1 - place] = namesake;
        result.addItems(0, page);
        EXPECT_THAT(ids(result.items()), ElementsAre(50, 3, 4));
    }
}

TEST_F(ListingEdgesTest, EvictedEntryComesBackDirectlyBehindThePageThatIsDelivered) {
    deliver(0, 2, 4, {entry(1), entry(2)});
    deliver(2, 2, 4, {entry(3), entry(4)});
    const auto namesake = makeObject(50, 7, "e3");
    result.addPage(0, 2);
    result.totalCount(4);
    ASSERT_TRUE(result.removeItemByName(namesake));
    result.addItem(namesake, true);
    result.addItems(0, {namesake, entry(2)});
    EXPECT_THAT(ids(result.items()), ElementsAre(50, 2, 3, 4));
}

TEST_F(ListingEdgesTest, NothingDeliveredBehindTheTotalContradictsIt) {
    deliver(0, 4, 2, {entry(1), entry(2), nullptr, nullptr});
    EXPECT_TRUE(current(0, 4));
    deliver(0, 4, 2, {entry(1), entry(2), nullptr, entry(3)});
    EXPECT_FALSE(current(0, 5));
}

TEST_F(ListingEdgesTest, EntryThatIsThereIsNotAddedAgainWhereverItIs) {
    deliver(0, 1, 1, {entry(1)});
    result.addItem(entry(2), true);
    result.addItem(entry(3), false);
    for (const bool front : {true, false}) {
        for (const unsigned long id : {1UL, 2UL, 3UL}) {
            result.addItem(entry(id), front);
        }
    }
    EXPECT_THAT(ids(result.items()), ElementsAre(2, 1, 3));
}

TEST_F(ListingEdgesTest, EntryThatStandsElsewhereDoesNotTakeThePlaceOfItsNamesake) {
    deliver(0, 2, 2, {entry(1), entry(2)});
    const auto renamed = makeObject(2, 7, "e1");
    EXPECT_TRUE(result.removeItemByName(renamed));
    result.addItem(renamed, true);
    EXPECT_THAT(ids(result.items()), ElementsAre(2));
    EXPECT_NE(result.items().front(), renamed);
}

TEST_F(ListingEdgesTest, EntryIsNotRemovedByNameForItsIdAlone) {
    deliver(0, 1, 1, {entry(1)});
    EXPECT_FALSE(result.removeItemByName(makeObject(1, 7, "another name")));
    EXPECT_THAT(ids(result.items()), ElementsAre(1));
}

TEST_F(ListingEdgesTest, EntriesWithoutAnIdAreNotRemovedById) {
    result.addItem(makeObject(0, 7, "new"), true);
    result.addItem(makeObject(0, 7, "newer"), false);
    result.removeItem(0);
    EXPECT_EQ(result.count(), 2U);
}

TEST_F(ListingEdgesTest, EvictedEntryStaysAwayFromAPlaceThatIsTakenMeanwhile) {
    deliver(2, 1, 4, {entry(3)});
    const auto namesake = makeObject(50, 7, "e3");
    result.addPage(0, 1);
    result.totalCount(4);
    ASSERT_TRUE(result.removeItemByName(namesake));
    result.addItem(namesake, true);
    result.addItems(0, {entry(1), namesake});
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 50, 3));
}

TEST_F(ListingEdgesTest, EvictedEntryComesBackWhenItsNamesakeIsRemoved) {
    deliver(0, 3, 3, {entry(1), entry(2), entry(3)});
    result.addPage(0, 1);
    result.totalCount(3);
    result.replaceItem(makeObject(50, 7, "e3"), true);
    result.removeItem(50);
    result.addItems(0, {entry(1)});
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2, 3));
}

TEST_F(ListingEdgesTest, EvictedEntryComesBackBehindWhatIsRestoredInItsPlace) {
    deliver(0, 3, 3, {entry(1), entry(2), entry(3)});
    const auto namesake = makeObject(50, 7, "e3");
    result.addPage(0, 1);
    result.totalCount(4);
    result.replaceItem(namesake, true);
    result.restoreItem(entry(9), 2);
    result.addItems(0, {namesake});
    EXPECT_THAT(ids(result.items()), ElementsAre(50, 2, 9, 3));
}

TEST_F(ListingEdgesTest, EntryThatAnAbandonedPageEvictedStaysAway) {
    const std::vector<Entry> all{entry(1), entry(2), entry(3)};
    deliver(0, 3, 3, all);
    const auto namesake = makeObject(50, 7, "e3");
    result.addPage(0, 1);
    ASSERT_TRUE(result.removeItemByName(namesake));
    result.addItem(namesake, true);
    deliver(0, 1, 3, {namesake});
    EXPECT_THAT(ids(result.items()), ElementsAre(50, 2));
}

TEST_F(ListingEdgesTest, AdditionsComeBehindTheLastEntryThatIsLeft) {
    const Entry far = entry(3);
    result.addItems(0, {entry(1), entry(2)});
    result.addItems(10, {far});
    result.addItem(entry(4), false);
    result.removeItem(3);
    EXPECT_THAT(ids(result.page(0, 5)), ElementsAre(1, 2, 4));
}

TEST_F(ListingEdgesTest, OnlyEntryThatIsRemovedByNameComesBack) {
    const Entry only = entry(1);
    result.addItems(0, {only});
    result.invalidate();
    ASSERT_TRUE(result.removeItemByName(only));
    result.addItem(only, true);
    EXPECT_THAT(ids(result.items()), ElementsAre(1));
}

TEST_F(ListingEdgesTest, OnlyEntryThatIsEvictedComesBack) {
    result.addItems(0, {entry(1)});
    result.addPage(5, 1);
    result.replaceItem(makeObject(50, 7, "e1"), false);
    result.removeItem(50);
    result.addItems(5, {entry(2)});
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 2));
}

TEST_F(ListingEdgesTest, PositionThatAnEntryLeavesForAnotherOfItsPageIsHeld) {
    const Entry last = entry(3);
    deliver(0, 3, 3, {entry(1), entry(2), last});
    result.restoreItem(entry(9), 1);
    result.addItems(3, {entry(4), last});
    EXPECT_EQ(result.heldPositionOf(4), 3U);
}

TEST_F(ListingEdgesTest, EntryIsFoundByNameWhereverItStands) {
    deliver(0, 1, 1, {entry(1)});
    result.addItem(entry(2), true);
    result.addItem(entry(3), false);
    for (const unsigned long id : {1UL, 2UL, 3UL}) {
        const Entry found = result.itemByName("e" + std::to_string(id));
        ASSERT_TRUE(found) << id;
        EXPECT_EQ(found->id(), id);
    }
    EXPECT_FALSE(result.itemByName("e4"));
}

TEST_F(ListingEdgesTest, EvictedEntryDoesNotComeBackWhereItsNamesakeStays) {
    deliver(2, 1, 4, {entry(3)});
    const auto namesake = makeObject(50, 7, "e3");
    result.addPage(0, 1);
    result.totalCount(4);
    ASSERT_TRUE(result.removeItemByName(namesake));
    result.addItem(namesake, true);
    result.addItems(0, {entry(1)});
    EXPECT_THAT(ids(result.items()), ElementsAre(1, 50));
}

}  // namespace
}  // namespace Ormek::Testing
