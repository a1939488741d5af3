// Entries whose id changes at the worst moment: while a listing is asking, or another thread's
// hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "model/ItemIndex.h"
#include "model/Listing.h"
#include "model/Object.h"
#include "model/QueryResultInternal.h"
#include "tests/support/Fakes.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Entry = std::shared_ptr<Item>;

/// An entry of an embedder's own class, which does something when it is asked.
class Asked : public Object {
  public:
    explicit Asked(std::function<unsigned long()> answer) : _answer(std::move(answer)) {}
    unsigned long id() const override { return _answer(); }
    std::string name() const override { return "asked"; }

  private:
    std::function<unsigned long()> _answer;
};

TEST(ChangesBetweenStepsTest, EntryThatStandsTwiceIsRemovedTwiceWhileOtherIdsChange) {
    std::vector<std::shared_ptr<ObjectInternal>> others;
    for (unsigned long id = 100; id < 104; ++id) {
        others.push_back(makeObject(id, 7, "other"));
    }
    unsigned long next = 200;
    const auto asked = std::make_shared<Asked>([&] {
        for (const auto& other : others) {
            other->id(next++);
        }
        return 77UL;
    });
    const Entry twice = makeObject(5, 7, "twice");
    QueryResultInternal result{FilterInternal()};
    result.addPage(0, 3);
    result.addItems(0, {twice, twice, asked});
    result.removeItem(5);
    EXPECT_THAT(result.items(), ElementsAre(asked));
    EXPECT_FALSE(result.contains(5));
}

TEST(ChangesBetweenStepsTest, AdditionWhoseIdChangesWhileItIsLookedForStays) {
    unsigned long asks = 0;
    bool counting = false;
    const auto asked = std::make_shared<Asked>([&] { return counting && ++asks > 1 ? 6UL : 5UL; });
    QueryResultInternal result{FilterInternal()};
    result.addItem(asked, false);
    counting = true;
    result.addItems(0, {makeObject(5, 7, "delivered")});
    EXPECT_THAT(result.items(),
                testing::Contains(testing::Pointee(testing::Property(&Item::name, "delivered"))));
}

TEST(ChangesBetweenStepsTest, EntryAtTheLastPositionOfAllCanBeRemoved) {
    constexpr unsigned long Last = std::numeric_limits<unsigned long>::max();
    Listing listing;
    listing.addItems(Last - 1, {makeObject(5, 7, "last")}, PagePart::Whole);
    listing.restoreItem(makeObject(6, 7, "before"), 0);
    listing.removeItem(5);
    EXPECT_FALSE(listing.contains(5));
    listing.removeItem(6);
    EXPECT_THAT(listing.items(), IsEmpty());
}

TEST(ChangesBetweenStepsTest, ZeroIsNobodysId) {
    QueryResultInternal result{FilterInternal()};
    const auto asked = std::make_shared<Asked>([] { return 0UL; });
    const Entry own = makeObject(0, 7, "own");
    result.addPage(0, 2);
    result.addItems(0, {asked, own});
    EXPECT_FALSE(result.contains(0));
    EXPECT_EQ(result.heldPositionOf(0), std::nullopt);
    result.removeItem(0);
    EXPECT_THAT(result.items(), ElementsAre(asked, own));
}

// An id may be written by another thread between a look-up and what follows from it.
TEST(ChangesBetweenStepsTest, CellIsTakenOutThoughItsEntryHasAnotherHashByNow) {
    const Entry one = makeObject(1, 7, "one");
    const Entry other = makeObject(2, 7, "other");
    ItemIndex index;
    index.reserve(4);
    index.insert(11, one.get(), 0);
    index.insert(11, one.get(), 1);
    index.insert(22, other.get(), 0);
    index.renumber(99, one.get(), 1, 2);
    index.erase(99, one.get(), 0);
    std::vector<std::uint32_t> numbers;
    index.find(11, [&](const ItemIndex::Cell& cell) {
        numbers.push_back(cell.number);
        return false;
    });
    EXPECT_THAT(numbers, ElementsAre(2));
    EXPECT_TRUE(index.has(22, other.get()));
    index.erase(99, one.get(), 2);
    EXPECT_FALSE(index.has(11, one.get()));
}

}  // namespace
}  // namespace Ormek::Testing
