#include "client/Listings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

#include "service/LocalIds.h"
#include "tests/support/Fakes.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned long Folder = 7;
constexpr unsigned long OtherFolder = 8;
constexpr unsigned long LocalFolder = Nimra::FirstLocalId + 500;

/// Keeps the trace quiet, from before the fixture makes its entries.
struct Silence {
    Silence() { std::cout.setstate(std::ios::failbit); }
    ~Silence() { std::cout.clear(); }
};

class ListingsTest : private Silence, public ::testing::Test {
  protected:
    static FilterInternal searching(unsigned long folderId, const std::string& text) {
        FilterInternal filter = folderFilter(folderId);
        filter.setQuery(text);
        return filter;
    }
    /// A listing with these documents as the service has delivered it.
    std::shared_ptr<QueryResult> deliver(const FilterInternal& filter,
                                         const std::vector<std::shared_ptr<ObjectInternal>>& all) {
        std::shared_ptr<QueryResult> listing;
        wired.cache.get(filter, listing);
        auto& internal = dynamic_cast<QueryResultInternal&>(*listing);
        internal.addPage(0, 100);
        internal.totalCount(all.size());
        internal.addItems(0, {all.begin(), all.end()});
        return listing;
    }
    std::shared_ptr<ObjectInternal> document(unsigned long id, const std::string& name,
                                             unsigned long folderId = Folder) {
        auto made = makeObject(id, folderId, name);
        made->idLoaded(!Nimra::isLocalId(id));
        wired.cache.cacheObjectPtrInternal(made);
        return made;
    }
    std::shared_ptr<QueryResult> deliverTags(unsigned long folderId,
                                             const std::vector<std::shared_ptr<Item>>& all) {
        FilterInternal tagged = folderFilter(folderId);
        tagged.setDataType(16);
        std::shared_ptr<QueryResult> tags;
        wired.cache.getKeyValues(tagged, tags);
        auto& internal = dynamic_cast<QueryResultInternal&>(*tags);
        internal.addPage(0, 100);
        internal.addItems(0, {all.begin(), all.end()});
        return tags;
    }
    static std::vector<std::string> names(const std::shared_ptr<QueryResult>& listing) {
        std::vector<std::string> all;
        for (const auto& entry : listing->items()) {
            all.push_back(entry->name());
        }
        return all;
    }
    static bool current(const std::shared_ptr<QueryResult>& listing) {
        auto& internal = dynamic_cast<QueryResultInternal&>(*listing);
        return internal.isPageCurrent(folderFilter(Folder));
    }

    WiredCache wired;
    Listings listings{wired.cache};
    std::shared_ptr<ObjectInternal> a = document(20, "a");
    std::shared_ptr<ObjectInternal> b = document(21, "ab");
    std::shared_ptr<ObjectInternal> c = document(22, "c");
    std::shared_ptr<ObjectInternal> d = document(23, "d");
    std::shared_ptr<QueryResult> whole = deliver(folderFilter(Folder), {a, b, c, d});
    std::shared_ptr<QueryResult> search = deliver(searching(Folder, "a"), {a, b});
    std::shared_ptr<QueryResult> other = deliver(folderFilter(OtherFolder), {});

    void leave(unsigned long id) {
        listings.remember(Folder, id);
        listings.leave(Folder, id);
    }
};

TEST_F(ListingsTest, EntryThatLeavesLeavesEveryListingOfItsFolder) {
    listings.leave(Folder, 20);
    EXPECT_THAT(names(whole), ElementsAre("ab", "c", "d"));
    EXPECT_THAT(names(search), ElementsAre("ab"));
    listings.leave(Folder, 4711);
    listings.leave(4711, 21);
    EXPECT_THAT(names(search), ElementsAre("ab"));
}

TEST_F(ListingsTest, EntryThatIsRememberedComesBackWhereItStood) {
    leave(20);
    leave(22);
    listings.enter(c);
    EXPECT_THAT(names(whole), ElementsAre("ab", "c", "d"));
    listings.enter(a);
    EXPECT_THAT(names(whole), ElementsAre("a", "ab", "c", "d"));
    EXPECT_THAT(names(search), ElementsAre("a", "ab"));
    listings.enter(a);
    EXPECT_THAT(names(whole), ElementsAre("a", "ab", "c", "d"));
}

TEST_F(ListingsTest, PositionsFollowWhatIsForgotten) {
    leave(20);
    leave(22);
    listings.forget(20);
    listings.enter(c);
    EXPECT_THAT(names(whole), ElementsAre("ab", "c", "d"));
    listings.forget(4711);
}

TEST_F(ListingsTest, ForgottenEntryThatStandsInAListingMovesNoOther) {
    listings.remember(Folder, 20);
    leave(22);
    listings.forget(20);
    listings.enter(c);
    EXPECT_THAT(names(whole), ElementsAre("a", "ab", "c", "d"));
}

TEST_F(ListingsTest, EntryThatIsNotRememberedComesToTheEnd) {
    listings.leave(Folder, 20);
    listings.enter(a);
    EXPECT_THAT(names(whole), ElementsAre("ab", "c", "d", "a"));
    EXPECT_THAT(names(search), ElementsAre("ab", "a"));
    leave(21);
    listings.forget(21);
    listings.enter(b);
    EXPECT_THAT(names(whole), ElementsAre("c", "d", "a", "ab"));
}

TEST_F(ListingsTest, LocalAdditionComesBackToTheEnd) {
    const auto added = document(30, "aa");
    listings.enter(added);
    EXPECT_THAT(names(whole), ElementsAre("a", "ab", "c", "d", "aa"));
    leave(30);
    listings.enter(added);
    EXPECT_THAT(names(whole), ElementsAre("a", "ab", "c", "d", "aa"));
    EXPECT_THAT(names(search), ElementsAre("a", "ab", "aa"));
}

TEST_F(ListingsTest, PlaceIsRememberedWhenTheEntryIsSeenAgainWithoutOne) {
    leave(20);
    // A merge puts known documents into the first listing they belong to.
    dynamic_cast<QueryResultInternal&>(*whole).addItem(a, false);
    leave(20);
    listings.enter(a);
    EXPECT_THAT(names(whole), ElementsAre("a", "ab", "c", "d"));
}

TEST_F(ListingsTest, EntryThatComesBackComesIntoNoListingThatItDidNotStandIn) {
    leave(20);
    const auto later = deliver(searching(Folder, ""), {});
    FilterInternal descending = folderFilter(Folder);
    descending.setAscending(!descending.getAscending());
    const auto opened = deliver(descending, {b, c});
    listings.enter(a);
    EXPECT_THAT(names(opened), ElementsAre("ab", "c"));
    EXPECT_THAT(names(search), ElementsAre("a", "ab"));
}

TEST_F(ListingsTest, PlacesInSeveralFoldersAreRemembered) {
    leave(20);
    a->parentId(OtherFolder);
    listings.enter(a);
    EXPECT_THAT(names(other), ElementsAre("a"));
    listings.remember(OtherFolder, 20);
    listings.leave(OtherFolder, 20);
    a->parentId(Folder);
    listings.enter(a);
    EXPECT_THAT(names(whole), ElementsAre("a", "ab", "c", "d"));
    EXPECT_THAT(names(other), IsEmpty());
}

TEST_F(ListingsTest, RenamedEntryIsRefittedToTheSearches) {
    listings.remember(Folder, 20);
    a->name("z");
    listings.refit(a);
    EXPECT_THAT(names(search), ElementsAre("ab"));
    EXPECT_THAT(names(whole), ElementsAre("z", "ab", "c", "d"));
    c->name("ca");
    listings.refit(c);
    EXPECT_THAT(names(search), ElementsAre("ab", "ca"));
    a->name("a");
    listings.refit(a);
    EXPECT_THAT(names(search), ElementsAre("a", "ab", "ca"));
}

TEST_F(ListingsTest, InvalidationOfTagsReachesThoseOfTheFolderAndThoseThatShowTheEntry) {
    const auto shown = deliverTags(OtherFolder, {makeObject(1, OtherFolder, "a")});
    const auto tags = deliverTags(Folder, {});
    listings.invalidateTags(Folder, 2);
    EXPECT_FALSE(current(tags));
    EXPECT_TRUE(current(shown));
    listings.invalidateTags(Folder, 1);
    EXPECT_FALSE(current(shown));
    EXPECT_TRUE(current(whole));
}

TEST_F(ListingsTest, InvalidationReachesEveryListingOfTheFolderButOne) {
    const auto tags = deliverTags(Folder, {});
    EXPECT_TRUE(current(tags));

    EXPECT_TRUE(listings.invalidate(Folder, whole.get()));
    EXPECT_TRUE(current(whole));
    EXPECT_FALSE(current(search));
    EXPECT_FALSE(current(tags));
    EXPECT_TRUE(current(other));
    EXPECT_TRUE(listings.invalidate(Folder));
    EXPECT_FALSE(current(whole));
    EXPECT_TRUE(listings.invalidate(OtherFolder));
    EXPECT_FALSE(listings.invalidate(OtherFolder, other.get()));
    EXPECT_FALSE(listings.invalidate(4711));
}

TEST_F(ListingsTest, ListingOfALocalFolderOpensWithAllThatWasMadeInIt) {
    document(30, "x", LocalFolder);
    document(31, "xy", LocalFolder);
    const auto opened = listings.open(folderFilter(LocalFolder));
    EXPECT_THAT(names(opened), ::testing::UnorderedElementsAre("x", "xy"));
    const auto searched = listings.open(searching(LocalFolder, "y"));
    EXPECT_THAT(names(searched), ElementsAre("xy"));
    EXPECT_EQ(listings.open(folderFilter(LocalFolder)), opened);
}

TEST_F(ListingsTest, RekeyedListingsAreOpenedAnewWithTheirEntries) {
    const auto x = document(30, "x", LocalFolder);
    const auto y = document(31, "xy", LocalFolder);
    const auto old = listings.open(folderFilter(LocalFolder));
    const auto oldSearch = listings.open(searching(LocalFolder, "y"));
    listings.setWhole(LocalFolder, old);
    listings.remember(LocalFolder, 30);
    x->parentId(100);
    y->parentId(100);
    listings.rekey(LocalFolder, 100);
    const auto anew = wired.cache.getDirectory(folderFilter(100));
    ASSERT_TRUE(anew);
    EXPECT_THAT(names(anew), ::testing::UnorderedElementsAre("x", "xy"));
    EXPECT_THAT(names(wired.cache.getDirectory(searching(100, "y"))), ElementsAre("xy"));
    EXPECT_EQ(dynamic_cast<QueryResultInternal&>(*anew).filter().contextId, 100U);
    EXPECT_THAT(names(old), IsEmpty());
    EXPECT_THAT(names(oldSearch), IsEmpty());
    EXPECT_EQ(listings.whole(100), anew);
    EXPECT_FALSE(listings.whole(LocalFolder));
    listings.leave(100, 30);
    listings.enter(x);
    EXPECT_THAT(names(anew), ::testing::UnorderedElementsAre("x", "xy"));
}

TEST_F(ListingsTest, RekeyedFolderThatWasListedAlreadyHasEachEntryOnce) {
    const auto x = document(30, "x", LocalFolder);
    const auto z = document(32, "z", 100);
    listings.open(folderFilter(LocalFolder));
    const auto known = deliver(folderFilter(100), {z});
    x->parentId(100);
    listings.rekey(LocalFolder, 100);
    EXPECT_THAT(names(known), ElementsAre("z", "x"));
    EXPECT_FALSE(listings.whole(100));
}

TEST_F(ListingsTest, PlacesFollowTheIdOfTheEntry) {
    const unsigned long localId = Nimra::FirstLocalId + 600;
    const auto added = document(localId, "aa");
    dynamic_cast<QueryResultInternal&>(*whole).addItem(added, true);
    leave(localId);
    added->id(1000);
    listings.rekey(localId, 1000);
    const auto later = deliver(searching(Folder, "aa"), {});
    listings.enter(added);
    // It comes back to the listings that it stood in alone.
    EXPECT_THAT(names(later), IsEmpty());
    EXPECT_THAT(names(whole), ElementsAre("a", "ab", "c", "d", "aa"));
}

TEST_F(ListingsTest, ClosedListingsAreEmptyAndLoadedAgain) {
    listings.setWhole(Folder, whole);
    listings.close(Folder);
    EXPECT_THAT(names(whole), IsEmpty());
    EXPECT_THAT(names(search), IsEmpty());
    EXPECT_FALSE(current(whole));
    EXPECT_FALSE(listings.whole(Folder));
    EXPECT_TRUE(current(other));
}

}  // namespace
}  // namespace Ormek::Testing
