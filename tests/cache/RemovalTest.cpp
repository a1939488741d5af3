#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cache/DirectoryCache.h"
#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"

namespace Ormek {
namespace {

using ::testing::ElementsAre;
using Testing::folderFilter;
using ::testing::IsEmpty;
using Testing::makeContainer;
using Testing::makeObject;
using Testing::TraceCapture;
using Testing::WiredCache;

class RemovalTest : public ::testing::Test {
  protected:
    /// Puts an entry into the store past the cache's operations.
    template <class Entry>
    std::shared_ptr<Entry> store(std::shared_ptr<Entry> entry) {
        items[entry->id()] = entry;
        return entry;
    }
    /// Registers a directory of a folder, holding one loaded page.
    std::shared_ptr<QueryResultInternal> directory(
        unsigned long dataId, std::vector<std::shared_ptr<Item>> entries = {}) {
        auto result = std::make_shared<QueryResultInternal>(folderFilter(dataId));
        world.probe.directories().push_back(result);
        result->addPage(0, 100);
        result->totalCount(entries.size());
        result->addItems(0, std::move(entries));
        return result;
    }

    WiredCache world;
    DirectoryCache& cache = world.cache;
    DirectoryCacheProbe::Items& items = world.probe.items();
    TraceCapture trace;
};

// --- Removal -----------------------------------------------------------------------------------

TEST_F(RemovalTest, RemoveItemFromCacheTakesTheEntryOutOfTheStoreAlone) {
    const auto object = store(makeObject(1, 2, "object"));
    const auto other = store(makeObject(3, 2, "other"));
    const auto result = directory(2, {object, other});
    cache.removeItemFromCache(1);
    EXPECT_EQ(items.count(1), 0u);
    EXPECT_EQ(items.at(3), other);
    EXPECT_THAT(result->items(), ElementsAre(object, other));
    EXPECT_EQ(trace.text(), "");
}

TEST_F(RemovalTest, RemoveItemFromCacheOfAnUnknownIdDoesNothing) {
    store(makeObject(1, 2, "object"));
    cache.removeItemFromCache(2);
    EXPECT_EQ(items.size(), 1u);
}

TEST_F(RemovalTest, RemoveItemFromCacheTakesAnEmptyEntryOut) {
    items[5] = nullptr;
    cache.removeItemFromCache(5);
    EXPECT_THAT(items, IsEmpty());
}

TEST_F(RemovalTest, RemoveItemTakesTheEntryOutOfEveryDirectoryOfItsParent) {
    const auto object = store(makeObject(1, 2, "object"));
    const auto kept = makeObject(3, 2, "kept");
    const auto first = directory(2, {object, kept});
    const auto other = directory(9, {object});
    const auto second = directory(2, {kept, object});
    cache.removeItem(2, 1);
    EXPECT_THAT(first->items(), ElementsAre(kept));
    EXPECT_THAT(second->items(), ElementsAre(kept));
    EXPECT_THAT(other->items(), ElementsAre(object));
    EXPECT_THAT(items, IsEmpty());
}

TEST_F(RemovalTest, RemoveItemTakesTheParentFirst) {
    const auto one = store(makeObject(1, 2, "one"));
    const auto two = store(makeObject(2, 1, "two"));
    const auto result = directory(2, {one, two});
    cache.removeItem(2, 1);
    EXPECT_THAT(result->items(), ElementsAre(two));
    EXPECT_EQ(items.count(1), 0u);
    EXPECT_EQ(items.count(2), 1u);
}

TEST_F(RemovalTest, RemoveItemGoesByTheParentAskedForNotByTheEntrys) {
    const auto object = store(makeObject(1, 2, "object"));
    const auto parents = directory(2, {object});
    const auto asked = directory(9, {object});
    cache.removeItem(9, 1);
    EXPECT_THAT(parents->items(), ElementsAre(object));
    EXPECT_THAT(asked->items(), IsEmpty());
    EXPECT_EQ(items.count(1), 0u);
}

TEST_F(RemovalTest, RemoveItemWithoutADirectoryEmptiesTheStore) {
    store(makeObject(1, 2, "object"));
    cache.removeItem(2, 1);
    EXPECT_THAT(items, IsEmpty());
}

TEST_F(RemovalTest, RemoveItemOfAnUnknownIdChangesNothing) {
    const auto object = store(makeObject(1, 2, "object"));
    const auto result = directory(2, {object});
    cache.removeItem(2, 7);
    EXPECT_THAT(result->items(), ElementsAre(object));
    EXPECT_EQ(items.at(1), object);
}

TEST_F(RemovalTest, ARemovedEntryLivesAsLongAsSomebodyHoldsIt) {
    auto object = store(makeObject(1, 2, "object"));
    const std::weak_ptr<Item> watched = object;
    directory(2, {object});
    cache.removeItem(2, 1);
    EXPECT_EQ(object->name(), "object");
    EXPECT_EQ(object.use_count(), 1);
    object.reset();
    EXPECT_TRUE(watched.expired());
}

TEST_F(RemovalTest, RemoveItemTracesNothing) {
    const auto object = store(makeObject(1, 2, "object"));
    directory(2, {object});
    cache.removeItem(2, 1);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(RemovalTest, RemoveFolderRemovesTheFolderThatTheRecordNames) {
    const auto container = store(makeContainer(1, 2, "container"));
    const auto other = store(makeContainer(2, 1, "other"));
    const auto first = directory(2, {container, other});
    const auto second = directory(2, {container});
    cache.removeFolder(Nimra::Folder(1, 2, 3, "whatever"));
    EXPECT_THAT(first->items(), ElementsAre(other));
    EXPECT_THAT(second->items(), IsEmpty());
    EXPECT_EQ(items.count(1), 0u);
    EXPECT_EQ(items.count(2), 1u);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(RemovalTest, RemoveContainerRemovesACachedContainerHandedInByValue) {
    const auto container = store(makeContainer(1, 2, "container"));
    const auto other = store(makeContainer(2, 1, "other"));
    const auto first = directory(2, {container, other});
    const auto second = directory(2, {container});
    cache.removeContainer(*container);
    EXPECT_THAT(first->items(), ElementsAre(other));
    EXPECT_THAT(second->items(), IsEmpty());
    EXPECT_EQ(items.count(1), 0u);
    EXPECT_EQ(items.count(2), 1u);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(RemovalTest, RemoveContainerOfABlankValueRemovesNothing) {
    const auto container = store(makeContainer(1, 2, "container"));
    const auto result = directory(2, {container});
    cache.removeContainer(Container());
    EXPECT_THAT(result->items(), ElementsAre(container));
    EXPECT_EQ(items.size(), 1u);
}

// --- New ids -----------------------------------------------------------------------------------

TEST_F(RemovalTest, UpdateItemIdKeysTheEntryByItsNewId) {
    const auto object = store(makeObject(1, 2, "object"));
    cache.updateItemId(1, 9);
    EXPECT_EQ(cache.getItem(1), nullptr);
    EXPECT_EQ(cache.getItem(9), object);
    EXPECT_EQ(items.size(), 1u);
    EXPECT_EQ(object->id(), 9u);
    EXPECT_TRUE(object->idLoaded());
}

TEST_F(RemovalTest, UpdateItemIdChangesContainersToo) {
    const auto container = store(makeContainer(1, 2, "container"));
    cache.updateItemId(1, 9);
    EXPECT_EQ(items.at(9), container);
    EXPECT_EQ(container->id(), 9u);
    EXPECT_TRUE(container->idLoaded());
}

TEST_F(RemovalTest, UpdateItemIdChangesNothingElse) {
    const auto object = store(makeObject(1, 2, "object"));
    object->oldParentId(3);
    const auto child = store(makeObject(5, 1, "child"));
    cache.updateItemId(1, 9);
    EXPECT_EQ(object->parentId(), 2u);
    EXPECT_EQ(object->oldParentId(), 3u);
    EXPECT_EQ(object->name(), "object");
    EXPECT_FALSE(object->dataLoaded());
    EXPECT_EQ(child->parentId(), 1u);
    EXPECT_FALSE(child->idLoaded());
}

TEST_F(RemovalTest, UpdateItemIdShowsInTheDirectories) {
    const auto object = store(makeObject(1, 2, "object"));
    const auto result = directory(2, {object});
    cache.updateItemId(1, 9);
    ASSERT_THAT(result->items(), ElementsAre(object));
    EXPECT_EQ(result->items().front()->id(), 9u);
}

TEST_F(RemovalTest, UpdateItemIdToItsOwnIdMarksItAsLoaded) {
    const auto object = store(makeObject(1, 2, "object"));
    cache.updateItemId(1, 1);
    EXPECT_EQ(items.at(1), object);
    EXPECT_TRUE(object->idLoaded());
}

TEST_F(RemovalTest, UpdateItemIdToATakenIdKeepsTheEntryThere) {
    const auto object = store(makeObject(1, 2, "object"));
    const auto taken = store(makeObject(9, 2, "taken"));
    const auto result = directory(2, {object, taken});
    cache.updateItemId(1, 9);
    EXPECT_EQ(items.size(), 1u);
    EXPECT_EQ(items.at(9), taken);
    EXPECT_FALSE(taken->idLoaded());
    EXPECT_EQ(object->id(), 9u);
    EXPECT_TRUE(object->idLoaded());
    EXPECT_THAT(result->items(), ElementsAre(object, taken));
}

TEST_F(RemovalTest, UpdateItemIdTracesTheOldIdThenTheNew) {
    store(makeObject(1, 2, "a name"));
    cache.updateItemId(1, 9);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: 1 a name\n"
              "Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: 9\n"
              "Ormek::DirectoryCache::updateItemId IDLOADED: 1\n"
              "Ormek::DirectoryCache::updateItemId IDLOADED: 9\n");
}

TEST_F(RemovalTest, UpdateItemIdTracesTheEntryThatTheTakenIdHas) {
    store(makeObject(1, 2, "a name"));
    store(makeObject(9, 2, "taken"))->id(8);
    cache.updateItemId(1, 9);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: 1 a name\n"
              "Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: 9\n"
              "Ormek::DirectoryCache::updateItemId IDLOADED: 0\n"
              "Ormek::DirectoryCache::updateItemId IDLOADED: 8\n");
}

TEST_F(RemovalTest, UpdateItemIdOfAnUnknownIdSaysSoAndChangesNothing) {
    const auto taken = store(makeObject(9, 2, "taken"));
    cache.updateItemId(1, 9);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::updateItemId COULD NOT FIND ITEM WE ARE TRYING TO UPDATE\n");
    EXPECT_EQ(items.size(), 1u);
    EXPECT_EQ(taken->id(), 9u);
    EXPECT_FALSE(taken->idLoaded());
}

TEST_F(RemovalTest, UpdateItemIdTreatsAnEmptyEntryUnderTheOldIdAsAbsent) {
    items[1] = nullptr;
    cache.updateItemId(1, 9);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::updateItemId COULD NOT FIND ITEM WE ARE TRYING TO UPDATE\n");
    EXPECT_EQ(items.count(9), 0u);
}

TEST_F(RemovalTest, UpdateItemIdPrintsZerosForAnEmptyEntryUnderTheNewId) {
    const auto object = store(makeObject(1, 2, "a name"));
    items[9] = nullptr;
    cache.updateItemId(1, 9);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: 1 a name\n"
              "Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: 9\n"
              "Ormek::DirectoryCache::updateItemId IDLOADED: 0\n"
              "Ormek::DirectoryCache::updateItemId IDLOADED: 0\n");
    EXPECT_EQ(items.count(1), 0u);
    EXPECT_EQ(items.at(9), nullptr);
    EXPECT_EQ(object->id(), 9u);
    EXPECT_TRUE(object->idLoaded());
}

// --- New parents -------------------------------------------------------------------------------

TEST_F(RemovalTest, UpdateItemParentIdsMovesEveryChild) {
    const auto object = store(makeObject(1, 10, "object"));
    const auto container = store(makeContainer(2, 10, "container"));
    const auto other = store(makeObject(3, 11, "other"));
    cache.updateItemParentIds(10, 20);
    EXPECT_EQ(object->parentId(), 20u);
    EXPECT_EQ(container->parentId(), 20u);
    EXPECT_EQ(other->parentId(), 11u);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(RemovalTest, UpdateItemParentIdsLeavesTheOldParents) {
    const auto object = store(makeObject(1, 10, "object"));
    object->oldParentId(5);
    cache.updateItemParentIds(10, 20);
    EXPECT_EQ(object->oldParentId(), 5u);
}

TEST_F(RemovalTest, UpdateItemParentIdsWithoutAChildChangesNothing) {
    const auto object = store(makeObject(1, 20, "object"));
    cache.updateItemParentIds(10, 30);
    EXPECT_EQ(object->parentId(), 20u);
    EXPECT_EQ(items.size(), 1u);
}

TEST_F(RemovalTest, UpdateItemParentIdsSkipsEmptyEntries) {
    items[5] = nullptr;
    const auto object = store(makeObject(1, 0, "object"));
    cache.updateItemParentIds(0, 20);
    EXPECT_EQ(object->parentId(), 20u);
    EXPECT_EQ(items.at(5), nullptr);
}

// --- Finding by name ---------------------------------------------------------------------------

TEST_F(RemovalTest, ItemInCacheFindsByParentAndName) {
    const auto object = store(makeObject(1, 2, "a name"));
    store(makeObject(3, 2, "another"));
    store(makeObject(4, 5, "a name"));
    EXPECT_EQ(cache.ItemInCache(2, "a name"), object);
    EXPECT_EQ(trace.text(), "Item Found: a name\n");
}

TEST_F(RemovalTest, ItemInCacheFindsContainersToo) {
    const auto container = store(makeContainer(1, 2, "a name"));
    EXPECT_EQ(cache.ItemInCache(2, "a name"), container);
}

TEST_F(RemovalTest, ItemInCacheWithoutAMatchIsEmptyAndSilent) {
    store(makeObject(1, 2, "a name"));
    EXPECT_EQ(cache.ItemInCache(3, "a name"), nullptr);
    EXPECT_EQ(cache.ItemInCache(2, "b name"), nullptr);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(RemovalTest, ItemInCacheDistinguishesLetterCase) {
    store(makeObject(1, 2, "Name"));
    EXPECT_EQ(cache.ItemInCache(2, "name"), nullptr);
}

TEST_F(RemovalTest, ItemInCacheDistinguishesATrailingBlank) {
    store(makeObject(1, 2, "name "));
    EXPECT_EQ(cache.ItemInCache(2, "name"), nullptr);
    EXPECT_EQ(cache.ItemInCache(2, "name  "), nullptr);
}

TEST_F(RemovalTest, ItemInCacheComparesBeyondAZeroByte) {
    using namespace std::string_literals;
    const auto object = store(makeObject(1, 2, "a\0b"s));
    EXPECT_EQ(cache.ItemInCache(2, "a\0c"s), nullptr);
    EXPECT_EQ(cache.ItemInCache(2, "a"), nullptr);
    EXPECT_EQ(cache.ItemInCache(2, "a\0b"s), object);
    EXPECT_EQ(trace.text(), "Item Found: a\0b\n"s);
}

TEST_F(RemovalTest, ItemInCacheTracesEveryMatchAndReturnsTheLast) {
    for (const unsigned long id : {1ul, 30ul, 7ul}) {
        store(makeObject(id, 2, "a name"));
    }
    store(makeObject(8, 2, "another"));
    std::shared_ptr<Item> last;
    for (const auto& [id, item] : items) {
        if (item->name() == "a name") {
            last = item;
        }
    }
    EXPECT_EQ(cache.ItemInCache(2, "a name"), last);
    EXPECT_EQ(trace.text(), "Item Found: a name\nItem Found: a name\nItem Found: a name\n");
}

TEST_F(RemovalTest, ItemInCacheSkipsEmptyEntries) {
    items[5] = nullptr;
    EXPECT_EQ(cache.ItemInCache(0, ""), nullptr);
    EXPECT_EQ(trace.text(), "");
}

// --- Moves reported by the service -------------------------------------------------------------

TEST_F(RemovalTest, ARemoteMoveToTheCurrentParentIsNone) {
    const auto object = store(makeObject(1, 2, "object"));
    object->oldParentId(3);
    EXPECT_FALSE(cache.onRemoteObjectMoved(2, 1));
    EXPECT_EQ(object->parentId(), 2u);
    EXPECT_EQ(object->oldParentId(), 3u);
}

TEST_F(RemovalTest, ARemoteMoveRemembersThePreviousParent) {
    const auto object = store(makeObject(1, 2, "object"));
    object->oldParentId(3);
    EXPECT_TRUE(cache.onRemoteObjectMoved(7, 1));
    EXPECT_EQ(object->parentId(), 7u);
    EXPECT_EQ(object->oldParentId(), 2u);
}

TEST_F(RemovalTest, ARemoteMoveTakesTheNewParentFirst) {
    const auto one = store(makeObject(1, 5, "one"));
    const auto two = store(makeObject(2, 5, "two"));
    EXPECT_TRUE(cache.onRemoteObjectMoved(1, 2));
    EXPECT_EQ(one->parentId(), 5u);
    EXPECT_EQ(two->parentId(), 1u);
}

TEST_F(RemovalTest, ARemoteMoveAppliesToContainersToo) {
    const auto container = store(makeContainer(1, 2, "container"));
    EXPECT_TRUE(cache.onRemoteObjectMoved(7, 1));
    EXPECT_EQ(container->parentId(), 7u);
    EXPECT_EQ(container->oldParentId(), 2u);
}

TEST_F(RemovalTest, ARemoteMoveTouchesNoDirectoryAndSendsNothing) {
    const auto object = store(makeObject(1, 2, "object"));
    const auto source = directory(2, {object});
    const auto target = directory(7);
    cache.onRemoteObjectMoved(7, 1);
    EXPECT_THAT(source->items(), ElementsAre(object));
    EXPECT_THAT(target->items(), IsEmpty());
    EXPECT_THAT(world.handler.operations(), IsEmpty());
    EXPECT_EQ(world.parked.size(), 0u);
}

TEST_F(RemovalTest, ARemoteMoveTracesItsLookUpAlone) {
    store(makeObject(1, 2, "object"));
    cache.onRemoteObjectMoved(7, 1);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 2 0 1\n");
}

}  // namespace
}  // namespace Ormek
