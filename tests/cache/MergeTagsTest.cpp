#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"

namespace Ormek::Testing {
namespace {

constexpr auto Patience = std::chrono::seconds(20);

using Entry = std::shared_ptr<Item>;
using Entries = std::vector<Entry>;
using Tags = std::vector<Nimra::Tag>;

Nimra::Tag tag(const std::string& key, unsigned long id = 1) {
    Nimra::Tag record;
    record.tagKey = key;
    record.id = id;
    return record;
}

Nimra::Tag tagBy(const std::string& artist, const std::string& key) {
    auto record = tag(key);
    record.addKeyValue("artist", {artist, false});
    return record;
}

std::string opening(unsigned long total) {
    return "Ormek::DirectoryCache::addTags " + std::to_string(total) + "\n";
}

std::string pushed(const std::string& artist, const std::string& key, const void* firstSlot) {
    return "gettag push back " + artist + " " + key + "\nitem vector original adress3 " +
           address(firstSlot) + "\n";
}

std::string closing(std::size_t keyValues) {
    return "_keyValues items count " + std::to_string(keyValues) + "\n";
}

QueryResultInternal& internal(const std::shared_ptr<QueryResult>& directory) {
    return dynamic_cast<QueryResultInternal&>(*directory);
}

class MergeTagsTest : public testing::Test {
  protected:
    Entry kept(const std::string& key) {
        const auto found = cache.keyValues().find(key);
        return found == cache.keyValues().end() ? nullptr : found->second;
    }

    std::shared_ptr<ObjectInternal> object(const std::string& key) {
        return std::dynamic_pointer_cast<ObjectInternal>(kept(key));
    }

    /// Where the store keeps the entry of `key`.
    const void* slot(const std::string& key) { return &wired.probe.keyValues().at(key); }

    const FilterInternal filter = folderFilter(16);
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    TraceCapture trace;
    std::shared_ptr<QueryResult> result = std::make_shared<QueryResultInternal>(filter);
};

TEST_F(MergeTagsTest, EveryTagIsKeptUnderItsKeyAndListedInOrder) {
    cache.addKeyValues(filter, result, Tags{tag("b"), tag("c"), tag("a")}, 3);

    EXPECT_EQ(cache.keyValues().size(), 3u);
    ASSERT_NE(kept("a"), nullptr);
    EXPECT_EQ(result->items(), (Entries{kept("b"), kept("c"), kept("a")}));
}

TEST_F(MergeTagsTest, EntryIsMadeFromTheRecord) {
    auto record = tag("key", 21);
    record.parentId = 22;
    record.ownerId = 23;
    record.name = "name";
    record.created = 24;
    record.updated = 25;
    record.deleted = 26;
    record.addKeyValue("artist", {"x", true});

    cache.addKeyValues(filter, result, Tags{record}, 1);

    ASSERT_NE(object("key"), nullptr);
    EXPECT_EQ(object("key")->id(), 21u);
    EXPECT_EQ(object("key")->parentId(), 22u);
    EXPECT_EQ(object("key")->ownerId(), 23u);
    EXPECT_EQ(object("key")->name(), "name");
    EXPECT_EQ(object("key")->created(), 24u);
    EXPECT_EQ(object("key")->updated(), 25u);
    EXPECT_EQ(object("key")->deleted(), 26u);
    EXPECT_EQ(object("key")->type(), 16);
    EXPECT_EQ(object("key")->keyValues(), record.keyValues());
    EXPECT_EQ(object("key")->objectUpdater(), &wired.updater);
    EXPECT_FALSE(object("key")->idLoaded());
    EXPECT_FALSE(object("key")->dataLoaded());
}

TEST_F(MergeTagsTest, StoreOfItemsIsNeitherReadNorChanged) {
    const auto item = makeObject(1, 16, "same id");
    wired.probe.items()[1] = item;

    cache.addKeyValues(filter, result, Tags{tag("key", 1), tag("other", 2)}, 2);

    EXPECT_EQ(wired.probe.items().size(), 1u);
    EXPECT_EQ(wired.probe.items().at(1), item);
    EXPECT_NE(kept("key"), item);
    EXPECT_FALSE(item->idLoaded());
}

TEST_F(MergeTagsTest, PageAndTotalAreRecordedAndTheEntriesStandAtTheOffset) {
    const auto page = folderFilter(16, 2, 3);

    cache.addKeyValues(page, result, Tags{tag("a"), tag("b")}, 4);

    EXPECT_TRUE(internal(result).isPageLoaded(page));
    EXPECT_FALSE(internal(result).isPageLoaded(folderFilter(16, 0, 3)));
    EXPECT_EQ(result->totalCount(), 4u);
    EXPECT_EQ(result->page(2, 2), (Entries{kept("a"), kept("b")}));
    EXPECT_TRUE(result->page(0, 2).empty());
}

TEST_F(MergeTagsTest, TagsAreTracedWithTheSlotOfTheFirst) {
    cache.addKeyValues(filter, result, Tags{tagBy("x", "b"), tagBy("y", "a")}, 2);

    EXPECT_EQ(trace.text(),
              opening(2) + pushed("x", "b", slot("b")) + pushed("y", "a", slot("b")) + closing(2));
}

TEST_F(MergeTagsTest, SlotIsThatOfTheFirstTagEvenIfItsKeyWasKnown) {
    cache.addKeyValues(filter, result, Tags{tag("known")}, 1);
    const auto* known = slot("known");
    trace.clear();

    cache.addKeyValues(filter, result, Tags{tag("known"), tag("new")}, 2);

    EXPECT_EQ(trace.text(),
              opening(2) + pushed("", "known", known) + pushed("", "new", known) + closing(2));
}

TEST_F(MergeTagsTest, LargestTotalIsTracedUnsigned) {
    const auto total = std::numeric_limits<unsigned long>::max();

    cache.addKeyValues(filter, result, Tags(), total);

    EXPECT_EQ(result->totalCount(), total);
    EXPECT_EQ(trace.text(), "Ormek::DirectoryCache::addTags 18446744073709551615\n" + closing(0));
}

TEST_F(MergeTagsTest, RepeatedKeyHasOneEntryThatIsListedOncePerRepetition) {
    cache.addKeyValues(filter, result, Tags{tag("key", 1), tag("key", 2)}, 2);

    EXPECT_EQ(cache.keyValues().size(), 1u);
    ASSERT_NE(kept("key"), nullptr);
    EXPECT_EQ(kept("key")->id(), 1u);
    EXPECT_EQ(result->items(), (Entries{kept("key"), kept("key")}));
    EXPECT_EQ(trace.text(), opening(2) + pushed("", "key", slot("key")) +
                                pushed("", "key", slot("key")) + closing(1));
}

TEST_F(MergeTagsTest, CachedEntriesStayAndAreListedAgain) {
    cache.addKeyValues(filter, result, Tags{tag("a", 1), tag("b", 2)}, 2);
    const auto first = kept("a");
    const auto second = kept("b");
    auto changed = tag("a", 9);
    changed.name = "changed";

    const std::shared_ptr<QueryResult> other = std::make_shared<QueryResultInternal>(filter);
    cache.addKeyValues(filter, other, Tags{changed, tag("b", 2)}, 2);

    EXPECT_EQ(kept("a"), first);
    EXPECT_EQ(kept("b"), second);
    EXPECT_EQ(first->id(), 1u);
    EXPECT_EQ(first->name(), "");
    EXPECT_EQ(other->items(), (Entries{first, second}));
}

TEST_F(MergeTagsTest, PageThatComesTwiceIsListedOnce) {
    cache.addKeyValues(filter, result, Tags{tag("a", 1), tag("b", 2)}, 2);

    cache.addKeyValues(filter, result, Tags{tag("a", 1), tag("b", 2)}, 2);

    EXPECT_EQ(result->items(), (Entries{kept("a"), kept("b")}));
}

TEST_F(MergeTagsTest, TagsOfOneIdAreEntriesOfTheirOwn) {
    cache.addKeyValues(filter, result, Tags{tag("a", 7), tag("b", 7)}, 2);

    EXPECT_EQ(result->items(), (Entries{kept("a"), kept("b")}));
    EXPECT_NE(kept("a"), kept("b"));
}

TEST_F(MergeTagsTest, EmptyPageRecordsThePageAndTheTotal) {
    wired.probe.keyValues()["known"] = makeObject(1, 16, "known");
    const auto page = folderFilter(16, 20, 10);

    cache.addKeyValues(page, result, Tags(), 20);

    EXPECT_TRUE(internal(result).isPageLoaded(page));
    EXPECT_EQ(result->totalCount(), 20u);
    EXPECT_TRUE(result->items().empty());
    EXPECT_EQ(cache.keyValues().size(), 1u);
    EXPECT_EQ(trace.text(), opening(20) + closing(1));
}

TEST_F(MergeTagsTest, TagWithoutArtistTracesAnEmptyValueAndStaysWithoutOne) {
    auto record = tag("key");
    record.addKeyValue("year", {"1999", false});

    cache.addKeyValues(filter, result, Tags{record}, 1);

    EXPECT_EQ(trace.text(), opening(1) + pushed("", "key", slot("key")) + closing(1));
    ASSERT_NE(object("key"), nullptr);
    EXPECT_EQ(object("key")->keyValues(), record.keyValues());
    EXPECT_EQ(object("key")->keyValues().count("artist"), 0u);
}

TEST_F(MergeTagsTest, EmptyKeyIsAKeyLikeAnyOther) {
    cache.addKeyValues(filter, result, Tags{tag("")}, 1);

    EXPECT_NE(kept(""), nullptr);
    EXPECT_EQ(trace.text(), opening(1) + pushed("", "", slot("")) + closing(1));
}

TEST_F(MergeTagsTest, EmptyEntryOfTheStoreStaysEmptyAndKeepsItsPosition) {
    wired.probe.keyValues()["empty"] = nullptr;

    cache.addKeyValues(filter, result, Tags{tag("empty"), tag("key")}, 2);

    EXPECT_EQ(kept("empty"), nullptr);
    EXPECT_EQ(cache.keyValues().size(), 2u);
    EXPECT_EQ(result->items(), Entries{kept("key")});
    EXPECT_EQ(result->page(1, 1), Entries{kept("key")});
}

TEST_F(MergeTagsTest, DeliveredTagsAreAnsweredFromMemory) {
    Nimra::ItemEventProtocol listener;
    cache.getKeyValues(filter, result, &listener);
    const auto directory = result;

    cache.addKeyValues(filter, directory, Tags{tag("a")}, 1);

    EXPECT_EQ(cache.getKeyValues(filter, result, &listener), 0u);
    EXPECT_EQ(result->items(), Entries{kept("a")});
}

TEST_F(MergeTagsTest, NoLockIsTaken) {
    std::future<void> done;
    const std::scoped_lock held(wired.probe.mutex(), wired.probe.itemsMutex());

    done = std::async(std::launch::async, [this] {
        cache.addKeyValues(filter, result, Tags{tag("a"), tag("b"), tag("a")}, 3);
    });

    EXPECT_EQ(done.wait_for(Patience), std::future_status::ready);
}

}  // namespace
}  // namespace Ormek::Testing
