#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <memory>
#include <new>
#include <vector>

#include "tests/model/ListingTrial.h"
#include "tests/model/ListingWorld.h"
#include "tests/support/AllocationFaults.h"
#include "tests/support/Fakes.h"
#include "tests/support/FaultPoints.h"
#include "tests/support/FixedCases.h"

namespace Ormek::Testing {
namespace {

using Steps = std::vector<ListingStep>;
using Kind = ListingStep::Kind;

AllocationFaults armed(unsigned long nth) { return AllocationFaults(nth); }

rc::Gen<unsigned long> number(unsigned long end) {
    return rc::gen::resize(rc::kNominalSize, rc::gen::inRange(0ul, end));
}

// What leaves something behind that a later call relies on comes more often.
rc::Gen<Kind> kinds() {
    const auto kind = [](unsigned long n) { return static_cast<Kind>(n); };
    return rc::gen::weightedOneOf<Kind>(
        {{3, rc::gen::map(number(Kind::Last + 1), kind)},
         {3, rc::gen::element(Kind::AddItems, Kind::AddInFront, Kind::RemoveByName, Kind::Rename,
                              Kind::ItemByName)}});
}

rc::Gen<ListingStep> steps() {
    return rc::gen::build<ListingStep>(rc::gen::set(&ListingStep::kind, kinds()),
                                       rc::gen::set(&ListingStep::one, number(12)),
                                       rc::gen::set(&ListingStep::other, number(12)));
}

rc::Gen<ListingStory> stories() {
    return rc::gen::build<ListingStory>(
        rc::gen::set(&ListingStory::before, rc::gen::container<Steps>(steps())),
        rc::gen::set(&ListingStory::step, steps()),
        rc::gen::set(&ListingStory::after, rc::gen::resize(3, rc::gen::container<Steps>(steps()))));
}

constexpr int Cases = 700;
constexpr int Size = 40;

TEST(ListingAllocationFaultTest, ACallWithoutMemoryChangesNothingWhateverWentBefore) {
    unsigned long tried = 0;
    EXPECT_TRUE(holds("throws or passes, and nothing in between", Cases, Size, [&tried] {
        const ListingStory story = *stories();
        ListingTrial trial(story);
        tried += trial.failAtEveryPoint<std::bad_alloc>(armed);
        if (!trial.wrong().empty()) {
            RC_FAIL(trial.wrong());
        }
    }));
    noteFaultPoints(tried);
}

/// Gives back how many faults were tried.
unsigned long expectNoHarm(const ListingStory& story) {
    ListingTrial trial(story);
    const unsigned long tried = trial.failAtEveryPoint<std::bad_alloc>(armed);
    EXPECT_EQ(trial.wrong(), "") << story;
    return tried;
}

/// A listing with gaps, additions at both ends, an entry renamed and a page announced.
Steps busy() {
    return {{Kind::AddPage, 0, 3},    {Kind::TotalCount, 9, 0}, {Kind::AddItems, 0, 3},
            {Kind::AddPage, 5, 2},    {Kind::TotalCount, 9, 0}, {Kind::AddItems, 5, 2},
            {Kind::AddInFront, 0, 0}, {Kind::AddBehind, 1, 0},  {Kind::ItemByName, 2, 0},
            {Kind::Rename, 3, 0},     {Kind::AddPage, 2, 4}};
}

TEST(ListingAllocationFaultTest, NoCallOnABusyListingDoesHalfOfItsWork) {
    unsigned long tried = 0;
    for (int kind = 0; kind <= Kind::Last; ++kind) {
        for (unsigned long one = 0; one < ListingWorld::Entries; ++one) {
            const ListingStep step{static_cast<Kind>(kind), one, (one * 7 + 4) % 11};
            tried += expectNoHarm({busy(), step, {{Kind::AddItems, 2, 4}}});
        }
    }
    noteFaultPoints(tried);
}

// Longer than what is allocated in one go.
TEST(ListingAllocationFaultTest, ALongDeliveryIsPlacedWholeOrNotAtAll) {
    constexpr unsigned long Length = 1000;
    std::vector<std::shared_ptr<Item>> entries;
    for (unsigned long id = 1; id <= Length; ++id) {
        entries.push_back(makeObject(id, 7, "entry"));
    }
    bool failed = true;
    for (unsigned long nth = 1; failed; ++nth) {
        QueryResultInternal result{FilterInternal()};
        result.addPage(0, 1);
        result.totalCount(0);
        result.addItems(0, {entries.front()});
        result.addItem(entries.back(), false);
        {
            const AllocationFaults faults(nth);
            try {
                result.addItems(1, entries);
            } catch (const std::bad_alloc&) {
            }
            failed = faults.struck();
        }
        EXPECT_EQ(result.count(), failed ? 2 : Length) << "fault " << nth;
        EXPECT_EQ(result.page(0, 1).size(), failed ? 2 : 0) << "fault " << nth;
        EXPECT_EQ(result.page(0, 2 * Length).size(), result.count()) << "fault " << nth;
    }
}

// Entry 1 is asked for by the name of entry 2, which it has been given.
TEST(ListingAllocationFaultTest, AFailedLookUpByNameHidesNoRenamedEntry) {
    expectNoHarm({{{Kind::AddItems, 0, 3}, {Kind::ItemByName, 3, 0}, {Kind::Rename, 3, 1}},
                  {Kind::ItemByName, 1, 0},
                  {}});
}

TEST(ListingAllocationFaultTest, AFailedEditDoesNotForgetAVacatedPlace) {
    for (const ListingStep& failing :
         {ListingStep{Kind::RemoveItem, 5, 0}, ListingStep{Kind::AddItems, 0, 3},
          ListingStep{Kind::AddPage, 5, 2}, ListingStep{Kind::RemoveByName, 5, 0},
          ListingStep{Kind::Restore, 9, 1}}) {
        expectNoHarm({{{Kind::AddItems, 0, 5}, {Kind::RemoveByName, 6, 0}},
                      failing,
                      {{Kind::AddInFront, 6, 0}}});
    }
}

// An entry takes its namesake's place while a page is merged.
TEST(ListingAllocationFaultTest, AFailedEvictionLeavesThePlaceEmpty) {
    const unsigned long namesake = 4 + ListingWorld::Names;
    expectNoHarm(
        {{{Kind::AddItems, 0, 3}, {Kind::AddPage, 0, 1}, {Kind::RemoveByName, namesake, 0}},
         {Kind::AddInFront, namesake, 0},
         {}});
}

// An entry that stands far from all others has made room for itself alone.
TEST(ListingAllocationFaultTest, ReplacingAnEntryByItselfNeedsNoMemory) {
    for (const unsigned long offset : {0UL, 1000UL}) {
        QueryResultInternal result(folderFilter(7));
        const auto entry = makeObject(1, 7, "name");
        result.addItems(0, {makeObject(2, 7, "other")});
        result.addItems(offset, {entry});
        result.addItem(makeObject(3, 7, "addition"), true);
        result.addItem(makeObject(4, 7, "another"), false);
        for (const auto& one : result.items()) {
            const AllocationFaults faults(1);
            result.replaceItem(one, false);
            EXPECT_FALSE(faults.struck());
        }
        EXPECT_TRUE(result.itemByName("name"));
    }
}

// The only addition is evicted by its namesake, which is delivered then.
TEST(ListingAllocationFaultTest, AnEvictedAdditionComesBackToTheRoomThatItHad) {
    bool struck = true;
    for (unsigned long nth = 1; struck; ++nth) {
        QueryResultInternal result(folderFilter(7));
        const auto evicted = makeObject(1, 7, "name");
        const auto namesake = makeObject(2, 7, "name");
        result.addItem(evicted, false);
        result.addPage(0, 1);
        result.replaceItem(namesake, false);
        const std::vector<std::shared_ptr<Item>> delivered{namesake};
        {
            const AllocationFaults faults(nth);
            try {
                result.addItems(0, delivered);
            } catch (const std::bad_alloc&) {
                EXPECT_TRUE(faults.struck());
            }
            struck = faults.struck();
        }
        EXPECT_EQ(result.count(), struck ? 1U : 2U) << nth;
    }
}

// Where no total is believed, the listing ends behind the last entry that was delivered, and local
// additions come with the page that reaches that far.
TEST(ListingAllocationFaultTest, AFailedDeliveryDoesNotMoveTheEndOfTheListing) {
    const Steps unbelieved{{Kind::AddPage, 0, 2}, {Kind::TotalCount, 0, 0}, {Kind::AddItems, 0, 2}};
    const Steps evicting{{Kind::AddBehind, 8, 0},
                         {Kind::AddPage, 2, 3},
                         {Kind::RemoveByName, 4, 0},
                         {Kind::AddInFront, 4, 0}};
    Steps before = unbelieved;
    before.insert(before.end(), evicting.begin(), evicting.end());
    expectNoHarm({before, {Kind::AddItems, 2, 3}, {}});
}

}  // namespace
}  // namespace Ormek::Testing
