#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cache/DirectoryCache.h"
#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"

namespace Ormek {
namespace {

using Testing::address;
using ::testing::ElementsAre;
using Testing::folderFilter;
using ::testing::IsEmpty;
using Testing::makeContainer;
using Testing::makeObject;
using Testing::TraceCapture;
using Testing::WiredCache;

using Shares = std::map<unsigned long, std::vector<ShareData>>;

const Shares SomeShares = {{31, {{1, 31, 2, 3}}}, {32, {}}};

class ContainersTest : public ::testing::Test {
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
    /// What cacheContainer writes for a container of this id.
    std::string cachingTrace(const std::string& id) const {
        return "Ormek::DirectoryCache::cacheContainer 1: " + id + " " + address(&world.updater) +
               "\n"
               "Ormek::DirectoryCache::cacheContainer 2: \n"
               "id: " +
               id + " obj id: " + id +
               "\n"
               "Ormek::DirectoryCache::cacheContainer 3: \n"
               "Ormek::DirectoryCache::cacheContainer 4: \n";
    }

    WiredCache world;
    DirectoryCache& cache = world.cache;
    DirectoryCacheProbe::Items& items = world.probe.items();
    TraceCapture trace;
};

// --- cacheContainer ----------------------------------------------------------------------------

TEST_F(ContainersTest, CacheContainerStoresACopyWithTheCachesUpdater) {
    const auto container = makeContainer(1, 2, "name");
    const auto cached = cache.cacheContainer(*container);
    EXPECT_NE(cached, container);
    EXPECT_EQ(items.at(1), cached);
    EXPECT_EQ(cached->id(), 1u);
    EXPECT_EQ(cached->parentId(), 2u);
    EXPECT_EQ(cached->name(), "name");
    EXPECT_EQ(OrmekCast::castItemInternal(cached)->objectUpdater(), &world.updater);
}

TEST_F(ContainersTest, CacheContainerMakesAnInternalOfAPlainValue) {
    Container plain = *makeContainer(1, 2, "name");
    const auto cached = cache.cacheContainer(plain);
    EXPECT_NE(OrmekCast::castItemInternal(cached), nullptr);
    EXPECT_EQ(cached->name(), "name");
}

TEST_F(ContainersTest, CachingAKnownIdKeepsTheOldContainer) {
    const auto old = store(makeContainer(1, 2, "old"));
    EXPECT_EQ(cache.cacheContainer(*makeContainer(1, 3, "new")), old);
    EXPECT_EQ(items.size(), 1u);
    EXPECT_EQ(items.at(1), old);
    EXPECT_EQ(old->name(), "old");
}

TEST_F(ContainersTest, CachingTheIdOfAnObjectReturnsNothing) {
    const auto old = store(makeObject(1, 2, "old"));
    EXPECT_EQ(cache.cacheContainer(*makeContainer(1, 3, "new")), nullptr);
    EXPECT_EQ(items.at(1), old);
}

TEST_F(ContainersTest, CachingOverAnEmptyEntryLeavesItEmpty) {
    items[1] = nullptr;
    EXPECT_EQ(cache.cacheContainer(*makeContainer(1, 3, "new")), nullptr);
    EXPECT_EQ(items.at(1), nullptr);
}

TEST_F(ContainersTest, CacheContainerTracesItsSteps) {
    cache.cacheContainer(*makeContainer(17, 2, "name"));
    EXPECT_EQ(trace.text(), "Ormek::DirectoryCache::cacheContainer 1: 17 " +
                                address(&world.updater) +
                                "\n"
                                "Ormek::DirectoryCache::cacheContainer 2: \n"
                                "id: 17 obj id: 17\n"
                                "Ormek::DirectoryCache::cacheContainer 3: \n"
                                "Ormek::DirectoryCache::cacheContainer 4: \n");
}

TEST_F(ContainersTest, CacheContainerTracesANullUpdaterAsZero) {
    cache.setObjectUpdater(nullptr);
    cache.cacheContainer(*makeContainer(17, 2, "name"));
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::cacheContainer 1: 17 0\n"
              "Ormek::DirectoryCache::cacheContainer 2: \n"
              "id: 17 obj id: 17\n"
              "Ormek::DirectoryCache::cacheContainer 3: \n"
              "Ormek::DirectoryCache::cacheContainer 4: \n");
}

TEST_F(ContainersTest, CacheContainerTracesTheSameForAKnownId) {
    store(makeContainer(17, 2, "old"));
    cache.cacheContainer(*makeContainer(17, 3, "new"));
    EXPECT_EQ(trace.text(), cachingTrace("17"));
}

TEST_F(ContainersTest, CacheContainerInternalDoesAndTracesTheSame) {
    const auto container = makeContainer(1, 2, "name");
    const auto cached = cache.cacheContainerInternal(*container);
    EXPECT_NE(cached, container);
    EXPECT_EQ(items.at(1), cached);
    EXPECT_EQ(trace.text(), cachingTrace("1"));
}

// --- cacheContainerPtr, cacheItemPtr -----------------------------------------------------------

TEST_F(ContainersTest, CacheContainerPtrStoresTheContainerItself) {
    const auto container = makeContainer(1, 2, "name");
    cache.cacheContainerPtr(container);
    EXPECT_EQ(items.at(1), container);
    EXPECT_EQ(trace.text(), "Ormek::DirectoryCache::cacheContainerPtr 1 \n");
}

TEST_F(ContainersTest, CacheContainerPtrKeepsTheOldEntryOfAKnownId) {
    const auto old = store(makeContainer(1, 2, "old"));
    cache.cacheContainerPtr(makeContainer(1, 3, "new"));
    EXPECT_EQ(items.at(1), old);
    EXPECT_EQ(trace.text(), "Ormek::DirectoryCache::cacheContainerPtr 1 \n");
}

TEST_F(ContainersTest, CacheContainerPtrInternalDoesAndTracesTheSame) {
    const auto container = makeContainer(1, 2, "name");
    cache.cacheContainerPtrInternal(container);
    EXPECT_EQ(items.at(1), container);
    EXPECT_EQ(trace.text(), "Ormek::DirectoryCache::cacheContainerPtr 1 \n");
}

TEST_F(ContainersTest, CacheItemPtrStoresEitherKindSilently) {
    const auto object = makeObject(1, 2, "object");
    const auto container = makeContainer(3, 4, "container");
    cache.cacheItemPtr(object);
    cache.cacheItemPtr(container);
    EXPECT_EQ(items.at(1), object);
    EXPECT_EQ(items.at(3), container);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(ContainersTest, CacheItemPtrKeepsTheOldEntryOfAKnownId) {
    const auto old = store(makeObject(1, 2, "old"));
    cache.cacheItemPtr(makeContainer(1, 3, "new"));
    EXPECT_EQ(items.at(1), old);
}

TEST_F(ContainersTest, CachingTouchesNoDirectory) {
    const auto result = directory(2);
    cache.cacheContainer(*makeContainer(1, 2, "one"));
    cache.cacheContainerPtr(makeContainer(3, 2, "three"));
    cache.cacheItemPtr(makeObject(5, 2, "five"));
    EXPECT_THAT(result->items(), IsEmpty());
}

// --- addContainer ------------------------------------------------------------------------------

TEST_F(ContainersTest, AddContainerStoresACopyAndAddsItToTheFirstMatchingDirectoryOnly) {
    const auto container = makeContainer(1, 2, "name");
    const auto other = directory(9);
    const auto first = directory(2);
    const auto second = directory(2);
    const auto added = cache.addContainer(*container);
    EXPECT_NE(added, container);
    EXPECT_EQ(items.at(1), added);
    EXPECT_THAT(other->items(), IsEmpty());
    EXPECT_THAT(first->items(), ElementsAre(added));
    EXPECT_THAT(second->items(), IsEmpty());
}

TEST_F(ContainersTest, AddContainerAddsWithTheFlagFalse) {
    const auto present = makeContainer(5, 2, "present");
    const auto result = directory(2, {present});
    const auto added = cache.addContainer(*makeContainer(1, 2, "name"));
    EXPECT_THAT(result->items(), ElementsAre(present, added));
}

TEST_F(ContainersTest, AddContainerOfAKnownIdReturnsAndAddsTheOldContainer) {
    const auto old = store(makeContainer(1, 9, "old"));
    const auto placeOfTheOld = directory(9);
    const auto placeOfTheNew = directory(2);
    EXPECT_EQ(cache.addContainer(*makeContainer(1, 2, "new")), old);
    EXPECT_THAT(placeOfTheOld->items(), IsEmpty());
    EXPECT_THAT(placeOfTheNew->items(), ElementsAre(old));
}

TEST_F(ContainersTest, AddContainerWithoutADirectoryStoresAlone) {
    const auto result = directory(9);
    const auto added = cache.addContainer(*makeContainer(1, 2, "name"));
    EXPECT_EQ(items.at(1), added);
    EXPECT_THAT(result->items(), IsEmpty());
}

TEST_F(ContainersTest, AddContainerTracesItsStepsInADirectory) {
    directory(2);
    cache.addContainer(*makeContainer(17, 2, "a name"));
    EXPECT_EQ(trace.text(),
              "\n"
              "Ormek::DirectoryCache::addContainer: 1 a name containerId: 17 parentId: 2\n" +
                  cachingTrace("17") +
                  "Ormek::DirectoryCache::addContainer 2: a name containerPtr ID: 17\n"
                  "Adding container to queryresult\n"
                  "Ormek::DirectoryCache::getItem 1\n"
                  "Ormek::DirectoryCache::getItem 1.2 parentId: 2 0 17\n");
}

TEST_F(ContainersTest, AddContainerTracesItsStepsWithoutADirectory) {
    directory(9);
    cache.addContainer(*makeContainer(17, 2, "a name"));
    EXPECT_EQ(trace.text(),
              "\n"
              "Ormek::DirectoryCache::addContainer: 1 a name containerId: 17 parentId: 2\n" +
                  cachingTrace("17") +
                  "Ormek::DirectoryCache::addContainer 2: a name containerPtr ID: 17\n");
}

TEST_F(ContainersTest, AddContainerOfAKnownIdTracesTheNewNameThenTheOldOne) {
    store(makeContainer(17, 9, "old"));
    directory(2);
    cache.addContainer(*makeContainer(17, 2, "new"));
    EXPECT_EQ(trace.text(),
              "\n"
              "Ormek::DirectoryCache::addContainer: 1 new containerId: 17 parentId: 2\n" +
                  cachingTrace("17") +
                  "Ormek::DirectoryCache::addContainer 2: old containerPtr ID: 17\n"
                  "Adding container to queryresult\n"
                  "Ormek::DirectoryCache::getItem 1\n"
                  "Ormek::DirectoryCache::getItem 1.2 parentId: 9 0 17\n");
}

// --- addContainerPtr ---------------------------------------------------------------------------

TEST_F(ContainersTest, AddContainerPtrStoresAndAddsTheContainerItself) {
    const auto container = makeContainer(1, 2, "name");
    const auto other = directory(9);
    const auto first = directory(2);
    const auto second = directory(2);
    EXPECT_EQ(cache.addContainerPtr(container, false), container);
    EXPECT_EQ(items.at(1), container);
    EXPECT_THAT(other->items(), IsEmpty());
    EXPECT_THAT(first->items(), ElementsAre(container));
    EXPECT_THAT(second->items(), IsEmpty());
}

TEST_F(ContainersTest, AddContainerPtrPassesItsFlagOn) {
    const auto present = makeContainer(5, 2, "present");
    const auto result = directory(2, {present});
    const auto last = cache.addContainerPtr(makeContainer(1, 2, "last"), false);
    const auto first = cache.addContainerPtr(makeContainer(3, 2, "first"), true);
    EXPECT_THAT(result->items(), ElementsAre(first, present, last));
}

TEST_F(ContainersTest, AddContainerPtrOfAKnownIdReturnsTheNewOneButAddsTheStoredOne) {
    const auto old = store(makeContainer(1, 2, "old"));
    const auto result = directory(2);
    const auto container = makeContainer(1, 2, "new");
    EXPECT_EQ(cache.addContainerPtr(container, false), container);
    EXPECT_EQ(items.at(1), old);
    EXPECT_THAT(result->items(), ElementsAre(old));
}

TEST_F(ContainersTest, AddContainerPtrTracesItsStepsInADirectory) {
    directory(2);
    cache.addContainerPtr(makeContainer(17, 2, "a name"), false);
    EXPECT_EQ(trace.text(),
              "\n"
              "Ormek::DirectoryCache::addContainer: 1 a name containerId: 17\n"
              "Ormek::DirectoryCache::cacheContainerPtr 1 \n"
              "Ormek::DirectoryCache::addContainer 2: a name containerPtr ID: 17\n"
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 2 0 17\n");
}

TEST_F(ContainersTest, AddContainerPtrTracesItsStepsWithoutADirectory) {
    directory(9);
    cache.addContainerPtr(makeContainer(17, 2, "a name"), true);
    EXPECT_EQ(trace.text(),
              "\n"
              "Ormek::DirectoryCache::addContainer: 1 a name containerId: 17\n"
              "Ormek::DirectoryCache::cacheContainerPtr 1 \n"
              "Ormek::DirectoryCache::addContainer 2: a name containerPtr ID: 17\n");
}

TEST_F(ContainersTest, AddContainerPtrOfAKnownIdTracesTheNewName) {
    store(makeContainer(17, 2, "old"))->oldParentId(5);
    directory(2);
    cache.addContainerPtr(makeContainer(17, 2, "new"), false);
    EXPECT_EQ(trace.text(),
              "\n"
              "Ormek::DirectoryCache::addContainer: 1 new containerId: 17\n"
              "Ormek::DirectoryCache::cacheContainerPtr 1 \n"
              "Ormek::DirectoryCache::addContainer 2: new containerPtr ID: 17\n"
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 2 5 17\n");
}

// --- Folder records ----------------------------------------------------------------------------

/// Every field that a container takes from its record has a value of its own.
Nimra::Folder filledFolder() {
    Nimra::Folder folder(1, 2, 3, "record");
    folder.shares = SomeShares;
    folder.firstLeading = "first leading";
    folder.secondLeading = "second leading";
    folder.accessLevel = 4;
    folder.oldParentId = 5;
    folder.driveId = 6;
    folder.fourthTrailing = "fourth trailing";
    folder.created = 7;
    folder.updated = 8;
    folder.deleted = 9;
    return folder;
}

TEST_F(ContainersTest, GetContainerMakesAnUnattachedContainer) {
    const auto result = directory(2);
    const auto container = cache.getContainer(filledFolder());
    EXPECT_EQ(container->id(), 1u);
    EXPECT_EQ(container->parentId(), 2u);
    EXPECT_EQ(container->ownerId(), 3u);
    EXPECT_EQ(container->name(), "record");
    EXPECT_EQ(container->firstText(), "second leading");
    EXPECT_EQ(container->secondText(), "first leading");
    EXPECT_EQ(OrmekCast::castItemInternal(container)->objectUpdater(), &world.updater);
    EXPECT_THAT(items, IsEmpty());
    EXPECT_THAT(result->items(), IsEmpty());
}

TEST_F(ContainersTest, GetContainerTracesTheUpdater) {
    cache.getContainer(filledFolder());
    EXPECT_EQ(trace.text(), "::DirectoryCache::getContainer() " + address(&world.updater) + "\n");
}

TEST_F(ContainersTest, GetContainerTracesANullUpdaterAsZero) {
    cache.setObjectUpdater(nullptr);
    cache.getContainer(filledFolder());
    EXPECT_EQ(trace.text(), "::DirectoryCache::getContainer() 0\n");
}

TEST_F(ContainersTest, AddFolderStoresAndAddsAContainerMadeFromTheRecord) {
    const auto result = directory(2);
    const auto added = cache.addFolder(Nimra::Folder(1, 2, 3, "record"), false);
    EXPECT_EQ(items.at(1), added);
    EXPECT_THAT(result->items(), ElementsAre(added));
    EXPECT_EQ(added->ownerId(), 3u);
    EXPECT_EQ(added->name(), "record");
    EXPECT_FALSE(added->dataLoaded());
}

TEST_F(ContainersTest, AddFolderDropsItsFlag) {
    const auto present = makeContainer(5, 2, "present");
    const auto result = directory(2, {present});
    const auto added = cache.addFolder(Nimra::Folder(1, 2, 3, "record"), true);
    EXPECT_THAT(result->items(), ElementsAre(present, added));
}

TEST_F(ContainersTest, AddFolderOfAKnownIdReturnsTheNewContainerButKeepsTheOldOne) {
    const auto old = store(makeContainer(1, 2, "old"));
    const auto result = directory(2);
    const auto returned = cache.addFolder(Nimra::Folder(1, 2, 3, "new"), false);
    EXPECT_EQ(returned->name(), "new");
    EXPECT_EQ(items.at(1), old);
    EXPECT_THAT(result->items(), ElementsAre(old));
}

TEST_F(ContainersTest, AddFolderTracesTheMakingThenTheAdding) {
    directory(2);
    cache.addFolder(Nimra::Folder(17, 2, 3, "a name"), true);
    EXPECT_EQ(trace.text(),
              "::DirectoryCache::getContainer() " + address(&world.updater) +
                  "\n"
                  "\n"
                  "Ormek::DirectoryCache::addContainer: 1 a name containerId: 17\n"
                  "Ormek::DirectoryCache::cacheContainerPtr 1 \n"
                  "Ormek::DirectoryCache::addContainer 2: a name containerPtr ID: 17\n"
                  "Ormek::DirectoryCache::getItem 1\n"
                  "Ormek::DirectoryCache::getItem 1.2 parentId: 2 0 17\n");
}

// --- replaceContainer --------------------------------------------------------------------------

TEST_F(ContainersTest, ReplaceContainerPutsACopyInTheOldOnesStead) {
    const auto old = store(makeContainer(1, 2, "old"));
    const auto after = makeContainer(5, 2, "after");
    const auto result = directory(2, {old, after});
    const auto container = makeContainer(1, 2, "new");
    cache.replaceContainer(*container);
    ASSERT_EQ(items.count(1), 1u);
    EXPECT_NE(items.at(1), old);
    EXPECT_NE(items.at(1), container);
    EXPECT_EQ(items.at(1)->name(), "new");
    EXPECT_THAT(result->items(), ElementsAre(after, items.at(1)));
}

TEST_F(ContainersTest, ReplaceContainerTakesTheOldOneOutOfEveryDirectoryOfTheParent) {
    const auto old = store(makeContainer(1, 2, "old"));
    const auto first = directory(2, {old});
    const auto second = directory(2, {old});
    const auto other = directory(9, {old});
    cache.replaceContainer(*makeContainer(1, 2, "new"));
    EXPECT_THAT(first->items(), ElementsAre(items.at(1)));
    EXPECT_THAT(second->items(), IsEmpty());
    EXPECT_THAT(other->items(), ElementsAre(old));
}

TEST_F(ContainersTest, ReplaceContainerWithoutADirectoryOfTheParentOnlyStoresItAgain) {
    store(makeContainer(1, 2, "old"));
    const auto other = directory(9);
    cache.replaceContainer(*makeContainer(1, 2, "new"));
    EXPECT_EQ(items.size(), 1u);
    EXPECT_EQ(items.at(1)->name(), "new");
    EXPECT_THAT(other->items(), IsEmpty());
}

TEST_F(ContainersTest, ReplaceContainerOfAnUnknownIdAddsIt) {
    const auto result = directory(2);
    cache.replaceContainer(*makeContainer(1, 2, "new"));
    EXPECT_THAT(result->items(), ElementsAre(items.at(1)));
}

TEST_F(ContainersTest, ReplaceContainerTakesAPlainValue) {
    const auto old = store(makeContainer(1, 2, "old"));
    const auto result = directory(2, {old});
    Container plain = *makeContainer(1, 2, "new");
    cache.replaceContainer(plain);
    EXPECT_THAT(result->items(), ElementsAre(items.at(1)));
    EXPECT_EQ(items.at(1)->name(), "new");
}

TEST_F(ContainersTest, ReplaceContainerTracesTheAddingAlone) {
    store(makeContainer(17, 2, "old"));
    cache.replaceContainer(*makeContainer(17, 2, "new"));
    EXPECT_EQ(trace.text(),
              "\n"
              "Ormek::DirectoryCache::addContainer: 1 new containerId: 17 parentId: 2\n" +
                  cachingTrace("17") +
                  "Ormek::DirectoryCache::addContainer 2: new containerPtr ID: 17\n");
}

// --- itemToFolder ------------------------------------------------------------------------------

/// Every field of the entry has a value of its own.
void fill(ItemInternal& item) {
    item._shares = SomeShares;
    item.firstText("first");
    item.secondText("second");
    item.thirdText("third");
    item.id(101);
    item.parentId(102);
    item.oldParentId(103);
    item.name("name");
    item.description("description");
    item.ownerId(104);
    item.driveId(105);
    item.created(106);
    item.updated(107);
    item.deleted(108);
    item.type(109);
    item.setACLMap(104, 110);
    item.setACLMap(101, 111);
}

TEST_F(ContainersTest, ItemToFolderFillsTheRecordFromTheEntry) {
    ContainerInternal container(Container(), nullptr);
    fill(container);
    const Nimra::Folder folder = cache.itemToFolder(&container);
    EXPECT_EQ(folder.id, 101u);
    EXPECT_EQ(folder.parentId, 102u);
    EXPECT_EQ(folder.name, "name");
    EXPECT_EQ(folder.ownerId, 104u);
    EXPECT_EQ(folder.driveId, 105u);
    EXPECT_EQ(folder.oldParentId, 103u);
    EXPECT_EQ(folder.fourthTrailing, "third");
    EXPECT_EQ(folder.created, 106u);
    EXPECT_EQ(folder.updated, 107u);
    EXPECT_EQ(folder.deleted, 108u);
    EXPECT_EQ(folder.shares, SomeShares);
    EXPECT_EQ(folder.accessLevel, 110);
}

TEST_F(ContainersTest, ItemToFolderCrossesTheTwoTexts) {
    ContainerInternal container(Container(), nullptr);
    fill(container);
    const Nimra::Folder folder = cache.itemToFolder(&container);
    EXPECT_EQ(folder.secondLeading, "first");
    EXPECT_EQ(folder.firstLeading, "second");
}

TEST_F(ContainersTest, ItemToFolderLeavesTheRestAsTheRecordStarts) {
    ContainerInternal container(Container(), nullptr);
    fill(container);
    const Nimra::Folder folder = cache.itemToFolder(&container);
    EXPECT_EQ(folder.reference, "");
    EXPECT_EQ(folder.firstTrailing, "");
    EXPECT_EQ(folder.secondTrailing, "");
    EXPECT_EQ(folder.thirdTrailing, "");
    EXPECT_THAT(folder.children, IsEmpty());
}

TEST_F(ContainersTest, ItemToFolderMakesAFolderRecordOfAnObjectToo) {
    ObjectInternal object(nullptr);
    fill(object);
    object.type(4);
    const Nimra::Folder folder = cache.itemToFolder(&object);
    EXPECT_EQ(folder.type, 8);
    EXPECT_EQ(folder.id, 101u);
    EXPECT_EQ(folder.name, "name");
    EXPECT_EQ(folder.accessLevel, 110);
}

TEST_F(ContainersTest, ItemToFolderTakesAPlainValue) {
    ContainerInternal container(Container(), nullptr);
    fill(container);
    Container plain = container;
    const Nimra::Folder folder = cache.itemToFolder(&plain);
    EXPECT_EQ(folder.id, 101u);
    EXPECT_EQ(folder.shares, SomeShares);
    EXPECT_EQ(folder.accessLevel, 110);
}

TEST_F(ContainersTest, ItemToFolderWithoutARowForTheOwnerHasAccessLevelZero) {
    ContainerInternal container(Container(), nullptr);
    fill(container);
    container.ownerId(999);
    EXPECT_EQ(cache.itemToFolder(&container).accessLevel, 0);
}

TEST_F(ContainersTest, ItemToFolderDoesNotGiveTheEntryTheRowThatItLacked) {
    ContainerInternal container(Container(), nullptr);
    container.ownerId(999);
    cache.itemToFolder(&container);
    EXPECT_THAT(container.ACLMap(), IsEmpty());
}

TEST_F(ContainersTest, ItemToFolderLeavesTheEntryAsItIs) {
    ContainerInternal container(Container(), nullptr);
    fill(container);
    cache.itemToFolder(&container);
    EXPECT_EQ(container.shares(), SomeShares);
    EXPECT_EQ(container.name(), "name");
    EXPECT_EQ(container.type(), 109);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(ContainersTest, ARecordSurvivesBecomingAContainerAndBack) {
    const Nimra::Folder before = filledFolder();
    const Nimra::Folder after = cache.itemToFolder(cache.getContainer(before).get());
    EXPECT_EQ(after.type, before.type);
    EXPECT_EQ(after.name, before.name);
    EXPECT_EQ(after.shares, before.shares);
    EXPECT_EQ(after.firstLeading, before.firstLeading);
    EXPECT_EQ(after.secondLeading, before.secondLeading);
    EXPECT_EQ(after.accessLevel, before.accessLevel);
    EXPECT_EQ(after.id, before.id);
    EXPECT_EQ(after.parentId, before.parentId);
    EXPECT_EQ(after.oldParentId, before.oldParentId);
    EXPECT_EQ(after.ownerId, before.ownerId);
    EXPECT_EQ(after.driveId, before.driveId);
    EXPECT_EQ(after.fourthTrailing, before.fourthTrailing);
    EXPECT_EQ(after.created, before.created);
    EXPECT_EQ(after.updated, before.updated);
    EXPECT_EQ(after.deleted, before.deleted);
}

}  // namespace
}  // namespace Ormek
