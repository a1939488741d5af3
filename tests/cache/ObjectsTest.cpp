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

using ::testing::ElementsAre;
using Testing::folderFilter;
using ::testing::IsEmpty;
using Testing::makeContainer;
using Testing::makeObject;
using ::testing::Pair;
using Testing::TraceCapture;
using Testing::WiredCache;

using Shares = std::map<unsigned long, std::vector<ShareData>>;

class ObjectsTest : public ::testing::Test {
  protected:
    /// Puts an entry into the store past the cache's operations.
    template <class Entry>
    std::shared_ptr<Entry> store(std::shared_ptr<Entry> entry) {
        items[entry->id()] = entry;
        return entry;
    }
    /// Registers a directory of a folder.
    std::shared_ptr<QueryResultInternal> directory(unsigned long dataId) {
        auto result = std::make_shared<QueryResultInternal>(folderFilter(dataId));
        world.probe.directories().push_back(result);
        return result;
    }
    /// The same, holding one loaded page.
    std::shared_ptr<QueryResultInternal> directory(unsigned long dataId,
                                                   std::vector<std::shared_ptr<Item>> entries) {
        auto result = directory(dataId);
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

// --- cacheObject -------------------------------------------------------------------------------

TEST_F(ObjectsTest, CacheObjectStoresACopy) {
    const auto object = makeObject(1, 2, "name");
    object->setKeyValues({{"a", {"b", true}}});
    const auto cached = cache.cacheObject(*object);
    EXPECT_NE(cached, object);
    EXPECT_EQ(items.at(1), cached);
    EXPECT_EQ(cached->id(), 1u);
    EXPECT_EQ(cached->parentId(), 2u);
    EXPECT_EQ(cached->name(), "name");
    EXPECT_THAT(cached->keyValues(), ElementsAre(Pair("a", Pair("b", true))));
}

TEST_F(ObjectsTest, CacheObjectBuildsAnInternalWithTheCachesUpdater) {
    const auto cached = cache.cacheObject(*makeObject(1, 2, "name"));
    const auto internal = OrmekCast::castObjectInternal(cached);
    ASSERT_NE(internal, nullptr);
    EXPECT_EQ(internal->objectUpdater(), &world.updater);
}

TEST_F(ObjectsTest, CacheObjectMakesAnInternalOfAPlainValue) {
    Object plain = *makeObject(1, 2, "name");
    const auto cached = cache.cacheObject(plain);
    EXPECT_NE(OrmekCast::castObjectInternal(cached), nullptr);
    EXPECT_EQ(cached->name(), "name");
}

TEST_F(ObjectsTest, CachingAKnownIdKeepsTheOldObject) {
    const auto old = store(makeObject(1, 2, "old"));
    EXPECT_EQ(cache.cacheObject(*makeObject(1, 3, "new")), old);
    EXPECT_EQ(items.size(), 1u);
    EXPECT_EQ(items.at(1), old);
    EXPECT_EQ(old->name(), "old");
}

TEST_F(ObjectsTest, CachingTheIdOfAContainerReturnsNothing) {
    const auto old = store(makeContainer(1, 2, "old"));
    EXPECT_EQ(cache.cacheObject(*makeObject(1, 3, "new")), nullptr);
    EXPECT_EQ(items.at(1), old);
}

TEST_F(ObjectsTest, CachingOverAnEmptyEntryLeavesItEmpty) {
    items[1] = nullptr;
    EXPECT_EQ(cache.cacheObject(*makeObject(1, 3, "new")), nullptr);
    EXPECT_EQ(items.at(1), nullptr);
}

TEST_F(ObjectsTest, CacheObjectTracesTheId) {
    cache.cacheObject(*makeObject(17, 2, "name"));
    EXPECT_EQ(trace.text(), "--------OBJECT ID:  17------------\n");
}

TEST_F(ObjectsTest, CacheObjectTracesTheSameForAKnownId) {
    store(makeObject(17, 2, "old"));
    cache.cacheObject(*makeObject(17, 3, "new"));
    EXPECT_EQ(trace.text(), "--------OBJECT ID:  17------------\n");
}

TEST_F(ObjectsTest, CacheObjectTouchesNoDirectory) {
    const auto result = directory(2);
    cache.cacheObject(*makeObject(1, 2, "name"));
    cache.cacheObjectPtr(makeObject(3, 2, "name"));
    EXPECT_THAT(result->items(), IsEmpty());
}

TEST_F(ObjectsTest, CacheObjectInternalDoesAndTracesTheSame) {
    const auto object = makeObject(1, 2, "name");
    const auto cached = cache.cacheObjectInternal(*object);
    EXPECT_NE(cached, object);
    EXPECT_EQ(items.at(1), cached);
    EXPECT_EQ(cached->name(), "name");
    EXPECT_EQ(trace.text(), "--------OBJECT ID:  1------------\n");
}

// --- cacheObjectPtr ----------------------------------------------------------------------------

TEST_F(ObjectsTest, CacheObjectPtrStoresTheObjectItself) {
    const auto object = makeObject(1, 2, "name");
    EXPECT_EQ(cache.cacheObjectPtr(object), object);
    EXPECT_EQ(items.at(1), object);
    EXPECT_EQ(trace.text(), "--------OBJECT ID:  1------------\n");
}

TEST_F(ObjectsTest, CacheObjectPtrKeepsTheOldObjectOfAKnownId) {
    const auto old = store(makeObject(1, 2, "old"));
    EXPECT_EQ(cache.cacheObjectPtr(makeObject(1, 3, "new")), old);
    EXPECT_EQ(items.at(1), old);
}

TEST_F(ObjectsTest, CacheObjectPtrReturnsNothingForTheIdOfAContainer) {
    const auto old = store(makeContainer(1, 2, "old"));
    EXPECT_EQ(cache.cacheObjectPtr(makeObject(1, 3, "new")), nullptr);
    EXPECT_EQ(items.at(1), old);
}

TEST_F(ObjectsTest, CacheObjectPtrStoresAPlainValueAsItIs) {
    const auto plain = std::make_shared<Object>(*makeObject(1, 2, "name"));
    EXPECT_EQ(cache.cacheObjectPtr(plain), plain);
    EXPECT_EQ(items.at(1), plain);
}

TEST_F(ObjectsTest, CacheObjectPtrInternalDoesAndTracesTheSame) {
    const auto object = makeObject(1, 2, "name");
    EXPECT_EQ(cache.cacheObjectPtrInternal(object), object);
    EXPECT_EQ(items.at(1), object);
    EXPECT_EQ(trace.text(), "--------OBJECT ID:  1------------\n");
}

// --- Key values --------------------------------------------------------------------------------

TEST_F(ObjectsTest, CacheKeyValueStoresACopyUnderItsKey) {
    const auto object = makeObject(1, 2, "name");
    cache.cacheKeyValue("key", *object);
    const auto& stored = cache.keyValues().at("key");
    EXPECT_NE(stored, object);
    EXPECT_EQ(stored->id(), 1u);
    EXPECT_EQ(stored->name(), "name");
    EXPECT_EQ(OrmekCast::castItemInternal(stored)->objectUpdater(), &world.updater);
}

TEST_F(ObjectsTest, CacheKeyValuePtrStoresTheObjectItselfUnderItsKey) {
    const auto object = makeObject(1, 2, "name");
    cache.cacheKeyValuePtr("key", object);
    EXPECT_EQ(cache.keyValues().at("key"), object);
}

TEST_F(ObjectsTest, AKeyThatIsTakenKeepsItsEntry) {
    const auto old = makeObject(1, 2, "old");
    cache.cacheKeyValuePtr("key", old);
    cache.cacheKeyValuePtr("key", makeObject(3, 4, "new"));
    cache.cacheKeyValue("key", *makeObject(5, 6, "newer"));
    EXPECT_EQ(cache.keyValues().size(), 1u);
    EXPECT_EQ(cache.keyValues().at("key"), old);
}

TEST_F(ObjectsTest, TheSameObjectMayStandUnderSeveralKeys) {
    const auto object = makeObject(1, 2, "name");
    cache.cacheKeyValuePtr("one", object);
    cache.cacheKeyValuePtr("other", object);
    EXPECT_EQ(cache.keyValues().at("one"), object);
    EXPECT_EQ(cache.keyValues().at("other"), object);
}

TEST_F(ObjectsTest, KeyValuesAreKeptApartFromTheStoreAndTraceNothing) {
    cache.cacheKeyValue("key", *makeObject(1, 2, "name"));
    cache.cacheKeyValuePtr("other", makeObject(3, 4, "name"));
    EXPECT_THAT(items, IsEmpty());
    EXPECT_EQ(trace.text(), "");
}

// --- addObject ---------------------------------------------------------------------------------

TEST_F(ObjectsTest, AddObjectStoresACopyAndAddsItToItsDirectory) {
    const auto object = makeObject(1, 2, "name");
    const auto result = directory(2);
    const auto added = cache.addObject(*object, false);
    EXPECT_NE(added, object);
    EXPECT_EQ(items.at(1), added);
    EXPECT_THAT(result->items(), ElementsAre(added));
}

TEST_F(ObjectsTest, AddObjectAddsToTheFirstMatchingDirectoryOnly) {
    const auto other = directory(9);
    const auto first = directory(2);
    const auto second = directory(2);
    const auto added = cache.addObject(*makeObject(1, 2, "name"), false);
    EXPECT_THAT(other->items(), IsEmpty());
    EXPECT_THAT(first->items(), ElementsAre(added));
    EXPECT_THAT(second->items(), IsEmpty());
}

TEST_F(ObjectsTest, AddObjectPassesItsFlagOn) {
    const auto present = makeObject(5, 2, "present");
    const auto result = directory(2, {present});
    const auto last = cache.addObject(*makeObject(1, 2, "last"), false);
    const auto first = cache.addObject(*makeObject(3, 2, "first"), true);
    EXPECT_THAT(result->items(), ElementsAre(first, present, last));
}

TEST_F(ObjectsTest, AddObjectWithoutADirectoryStoresAlone) {
    const auto result = directory(9);
    const auto added = cache.addObject(*makeObject(1, 2, "name"), true);
    EXPECT_EQ(items.at(1), added);
    EXPECT_THAT(result->items(), IsEmpty());
    EXPECT_EQ(cache.directories().size(), 1u);
}

TEST_F(ObjectsTest, AddObjectOfAKnownIdAddsTheOldObjectWhereTheNewOneBelongs) {
    const auto old = store(makeObject(1, 9, "old"));
    const auto placeOfTheOld = directory(9);
    const auto placeOfTheNew = directory(2);
    EXPECT_EQ(cache.addObject(*makeObject(1, 2, "new"), false), old);
    EXPECT_THAT(placeOfTheOld->items(), IsEmpty());
    EXPECT_THAT(placeOfTheNew->items(), ElementsAre(old));
}

TEST_F(ObjectsTest, AddObjectOfAContainersIdAddsAndReturnsNothing) {
    const auto old = store(makeContainer(1, 2, "old"));
    const auto result = directory(2);
    EXPECT_EQ(cache.addObject(*makeObject(1, 2, "new"), false), nullptr);
    EXPECT_EQ(items.at(1), old);
    EXPECT_THAT(result->items(), IsEmpty());
}

TEST_F(ObjectsTest, AddObjectTracesNameAndId) {
    directory(2);
    cache.addObject(*makeObject(17, 2, "a name"), false);
    EXPECT_EQ(trace.text(),
              "\nOrmek::DirectoryCache::addObject: a name\n"
              "--------OBJECT ID:  17------------\n");
}

TEST_F(ObjectsTest, AddObjectTracesTheSameWithoutADirectory) {
    cache.addObject(*makeObject(17, 2, ""), true);
    EXPECT_EQ(trace.text(),
              "\nOrmek::DirectoryCache::addObject: \n"
              "--------OBJECT ID:  17------------\n");
}

TEST_F(ObjectsTest, AddObjectOfAKnownIdTracesTheNewName) {
    store(makeObject(17, 2, "old"));
    cache.addObject(*makeObject(17, 2, "new"), true);
    EXPECT_EQ(trace.text(),
              "\nOrmek::DirectoryCache::addObject: new\n"
              "--------OBJECT ID:  17------------\n");
}

TEST_F(ObjectsTest, AddObjectLooksAtNoKeyValueDirectory) {
    const auto tags = std::make_shared<QueryResultInternal>(folderFilter(2));
    world.probe.keyValueDirectories().push_back(tags);
    cache.addObject(*makeObject(1, 2, "name"), false);
    EXPECT_THAT(tags->items(), IsEmpty());
}

// --- addObjectPtr ------------------------------------------------------------------------------

TEST_F(ObjectsTest, AddObjectPtrStoresAndAddsTheObjectItself) {
    const auto object = makeObject(1, 2, "name");
    const auto other = directory(9);
    const auto first = directory(2);
    const auto second = directory(2);
    EXPECT_EQ(cache.addObjectPtr(object, false), object);
    EXPECT_EQ(items.at(1), object);
    EXPECT_THAT(other->items(), IsEmpty());
    EXPECT_THAT(first->items(), ElementsAre(object));
    EXPECT_THAT(second->items(), IsEmpty());
}

TEST_F(ObjectsTest, AddObjectPtrPassesItsFlagOn) {
    const auto present = makeObject(5, 2, "present");
    const auto result = directory(2, {present});
    const auto last = cache.addObjectPtr(makeObject(1, 2, "last"), false);
    const auto first = cache.addObjectPtr(makeObject(3, 2, "first"), true);
    EXPECT_THAT(result->items(), ElementsAre(first, present, last));
}

TEST_F(ObjectsTest, AddObjectPtrOfAKnownIdAddsTheOldObjectWhereTheNewOneBelongs) {
    const auto old = store(makeObject(1, 9, "old"));
    const auto placeOfTheOld = directory(9);
    const auto placeOfTheNew = directory(2);
    EXPECT_EQ(cache.addObjectPtr(makeObject(1, 2, "new"), false), old);
    EXPECT_THAT(placeOfTheOld->items(), IsEmpty());
    EXPECT_THAT(placeOfTheNew->items(), ElementsAre(old));
}

TEST_F(ObjectsTest, AddObjectPtrOfAContainersIdAddsAndReturnsNothing) {
    store(makeContainer(1, 2, "old"));
    const auto result = directory(2);
    EXPECT_EQ(cache.addObjectPtr(makeObject(1, 2, "new"), false), nullptr);
    EXPECT_THAT(result->items(), IsEmpty());
}

TEST_F(ObjectsTest, AddObjectPtrTracesLikeAddObject) {
    directory(2);
    cache.addObjectPtr(makeObject(17, 2, "a name"), false);
    EXPECT_EQ(trace.text(),
              "\nOrmek::DirectoryCache::addObject: a name\n"
              "--------OBJECT ID:  17------------\n");
}

// --- addOrReplaceObjectPtr ---------------------------------------------------------------------

TEST_F(ObjectsTest, AddOrReplaceTakesThePlaceOfTheObjectOfTheSameName) {
    const auto before = makeObject(5, 2, "before");
    const auto old = makeObject(6, 2, "same name");
    const auto after = makeObject(7, 2, "after");
    const auto result = directory(2, {before, old, after});
    const auto object = makeObject(1, 2, "same name");
    EXPECT_EQ(cache.addOrReplaceObjectPtr(object, false), object);
    EXPECT_THAT(result->items(), ElementsAre(before, object, after));
    EXPECT_EQ(items.at(1), object);
}

TEST_F(ObjectsTest, AddOrReplaceForcesTheFlagForAReplacementAlone) {
    const auto present = makeObject(5, 2, "present");
    const auto result = directory(2, {present});
    const auto last = cache.addOrReplaceObjectPtr(makeObject(1, 2, "last"), false);
    const auto first = cache.addOrReplaceObjectPtr(makeObject(3, 2, "first"), true);
    EXPECT_THAT(result->items(), ElementsAre(first, present, last));
}

TEST_F(ObjectsTest, AddOrReplaceKeepsTheReplacedObjectInTheStore) {
    const auto old = store(makeObject(6, 2, "same name"));
    const auto result = directory(2, {old});
    const auto object = cache.addOrReplaceObjectPtr(makeObject(1, 2, "same name"), true);
    EXPECT_THAT(result->items(), ElementsAre(object));
    EXPECT_EQ(items.at(6), old);
}

TEST_F(ObjectsTest, AddOrReplaceChangesTheFirstMatchingDirectoryOnly) {
    const auto old = makeObject(6, 2, "same name");
    const auto other = directory(9, {old});
    const auto first = directory(2);
    const auto second = directory(2, {old});
    const auto object = cache.addOrReplaceObjectPtr(makeObject(1, 2, "same name"), false);
    EXPECT_THAT(other->items(), ElementsAre(old));
    EXPECT_THAT(first->items(), ElementsAre(object));
    EXPECT_THAT(second->items(), ElementsAre(old));
}

TEST_F(ObjectsTest, AddOrReplaceOfAnObjectThatIsThereLeavesItInItsPlace) {
    const auto before = makeObject(5, 2, "before");
    const auto object = store(makeObject(6, 2, "object"));
    const auto after = makeObject(7, 2, "after");
    const auto result = directory(2, {before, object, after});
    EXPECT_EQ(cache.addOrReplaceObjectPtr(object, false), object);
    EXPECT_THAT(result->items(), ElementsAre(before, object, after));
}

TEST_F(ObjectsTest, AddOrReplaceOfAKnownIdReturnsAndAddsTheOldObject) {
    const auto old = store(makeObject(1, 9, "old"));
    const auto result = directory(2);
    EXPECT_EQ(cache.addOrReplaceObjectPtr(makeObject(1, 2, "new"), false), old);
    EXPECT_THAT(result->items(), ElementsAre(old));
}

TEST_F(ObjectsTest, AddOrReplaceOfAContainersIdReturnsNothing) {
    const auto old = store(makeContainer(1, 2, "old"));
    directory(2);
    EXPECT_EQ(cache.addOrReplaceObjectPtr(makeObject(1, 2, "new"), false), nullptr);
    EXPECT_EQ(items.at(1), old);
}

TEST_F(ObjectsTest, AddOrReplaceWithoutADirectoryStoresAlone) {
    const auto object = makeObject(1, 2, "name");
    EXPECT_EQ(cache.addOrReplaceObjectPtr(object, true), object);
    EXPECT_EQ(items.at(1), object);
}

TEST_F(ObjectsTest, AddOrReplaceTracesLikeAddObject) {
    directory(2, {makeObject(6, 2, "same name")});
    cache.addOrReplaceObjectPtr(makeObject(17, 2, "same name"), false);
    EXPECT_EQ(trace.text(),
              "\nOrmek::DirectoryCache::addObject: same name\n"
              "--------OBJECT ID:  17------------\n");
}

TEST_F(ObjectsTest, AddOrReplaceTracesTheSameWithoutADirectory) {
    cache.addOrReplaceObjectPtr(makeObject(17, 2, "a name"), true);
    EXPECT_EQ(trace.text(),
              "\nOrmek::DirectoryCache::addObject: a name\n"
              "--------OBJECT ID:  17------------\n");
}

// --- Records -----------------------------------------------------------------------------------

/// Every field that an object takes from its record has a value of its own.
Nimra::Document filledDocument(unsigned long id = 1) {
    Nimra::Document document(id, 2, 3, "record");
    document.oldParentId = 4;
    document.mimeType = "text/plain";
    document.created = 5;
    document.updated = 6;
    document.deleted = 7;
    document.description = "description";
    document.aclMode = 8;
    document.state = 9;
    document.length = 10;
    document.setKeyValue("key", {"value", true});
    document.shares = {{31, {{1, 31, 2, 3}}}};
    return document;
}

TEST_F(ObjectsTest, AddDocumentStoresAndAddsAnObjectMadeFromTheRecord) {
    FilterInternal filter = folderFilter(2);
    filter.setDeleted(true);
    const auto result = std::make_shared<QueryResultInternal>(filter);
    world.probe.directories().push_back(result);
    const auto added = cache.addDocument(filledDocument(), false);
    EXPECT_EQ(items.at(1), added);
    EXPECT_THAT(result->items(), ElementsAre(added));
    EXPECT_EQ(added->id(), 1u);
    EXPECT_EQ(added->parentId(), 2u);
    EXPECT_EQ(added->ownerId(), 3u);
    EXPECT_EQ(added->name(), "record");
    EXPECT_EQ(added->length(), 10u);
    EXPECT_THAT(added->keyValues(), ElementsAre(Pair("key", Pair("value", true))));
}

TEST_F(ObjectsTest, AddDocumentMarksTheDataAsLoadedButNotTheId) {
    const auto added = cache.addDocument(filledDocument(), false);
    EXPECT_TRUE(added->dataLoaded());
    EXPECT_FALSE(added->idLoaded());
    EXPECT_EQ(OrmekCast::castObjectInternal(added)->objectUpdater(), &world.updater);
}

TEST_F(ObjectsTest, AddDocumentDropsItsFlag) {
    const auto present = makeObject(5, 2, "present");
    const auto result = directory(2, {present});
    const auto added = cache.addDocument(Nimra::Document(1, 2, 3, "name"), true);
    EXPECT_THAT(result->items(), ElementsAre(present, added));
}

TEST_F(ObjectsTest, AddDocumentOfAKnownIdReturnsTheOldObjectUnchanged) {
    const auto old = store(makeObject(1, 2, "old"));
    EXPECT_EQ(cache.addDocument(filledDocument(), false), old);
    EXPECT_EQ(old->name(), "old");
    EXPECT_FALSE(old->dataLoaded());
}

TEST_F(ObjectsTest, AddDocumentTracesLikeAddObject) {
    cache.addDocument(filledDocument(), true);
    EXPECT_EQ(trace.text(),
              "\nOrmek::DirectoryCache::addObject: record\n"
              "--------OBJECT ID:  1------------\n");
}

TEST_F(ObjectsTest, GetObjectMakesAnUnattachedObject) {
    const auto result = directory(2);
    const auto object = cache.getObject(filledDocument());
    EXPECT_EQ(object->id(), 1u);
    EXPECT_EQ(object->parentId(), 2u);
    EXPECT_EQ(object->oldParentId(), 4u);
    EXPECT_EQ(object->ownerId(), 3u);
    EXPECT_EQ(object->name(), "record");
    EXPECT_EQ(object->type(), 4);
    EXPECT_FALSE(object->dataLoaded());
    EXPECT_EQ(OrmekCast::castObjectInternal(object)->objectUpdater(), &world.updater);
    EXPECT_THAT(items, IsEmpty());
    EXPECT_THAT(result->items(), IsEmpty());
    EXPECT_EQ(trace.text(), "");
}

TEST_F(ObjectsTest, GetObjectDoesNotLookAtTheStore) {
    const auto stored = store(makeObject(1, 2, "stored"));
    EXPECT_NE(cache.getObject(filledDocument()), stored);
    EXPECT_EQ(items.at(1), stored);
}

Nimra::Tag filledTag() {
    Nimra::Tag tag;
    tag.type = 5;
    tag.id = 1;
    tag.parentId = 2;
    tag.name = "tag";
    tag.ownerId = 3;
    tag.created = 4;
    tag.updated = 6;
    tag.deleted = 7;
    tag.tagKey = "tag key";
    tag.mimeType = "text/plain";
    tag.setKeyValue("key", {"value", true});
    tag.shares = {{31, {{1, 31, 2, 3}}}};
    return tag;
}

TEST_F(ObjectsTest, GetObjectFromTagTakesTheNamedFields) {
    const auto object = cache.getObjectFromTag(filledTag());
    EXPECT_EQ(object->id(), 1u);
    EXPECT_EQ(object->parentId(), 2u);
    EXPECT_EQ(object->name(), "tag");
    EXPECT_EQ(object->ownerId(), 3u);
    EXPECT_EQ(object->created(), 4u);
    EXPECT_EQ(object->updated(), 6u);
    EXPECT_EQ(object->deleted(), 7u);
    EXPECT_THAT(object->keyValues(), ElementsAre(Pair("key", Pair("value", true))));
    EXPECT_EQ(OrmekCast::castObjectInternal(object)->objectUpdater(), &world.updater);
}

TEST_F(ObjectsTest, GetObjectFromTagAlwaysHasTypeSixteen) {
    EXPECT_EQ(cache.getObjectFromTag(filledTag())->type(), 16);
}

TEST_F(ObjectsTest, GetObjectFromTagLeavesTheOtherFieldsEmpty) {
    const auto object = cache.getObjectFromTag(filledTag());
    EXPECT_THAT(object->shares(), IsEmpty());
    EXPECT_THAT(object->ACLMap(), IsEmpty());
    EXPECT_EQ(object->mimeType(), "");
    EXPECT_EQ(object->length(), 0u);
    EXPECT_FALSE(object->dataLoaded());
    EXPECT_FALSE(object->idLoaded());
}

TEST_F(ObjectsTest, GetObjectFromTagStoresNothingAndTracesNothing) {
    cache.getObjectFromTag(filledTag());
    EXPECT_THAT(items, IsEmpty());
    EXPECT_THAT(cache.keyValues(), IsEmpty());
    EXPECT_EQ(trace.text(), "");
}

// --- updateObject ------------------------------------------------------------------------------

/// A cached object whose fields all differ from those of filledDocument().
std::shared_ptr<ObjectInternal> staleObject() {
    auto object = makeObject(1, 102, "stale");
    object->oldParentId(104);
    object->ownerId(103);
    object->driveId(105);
    object->created(106);
    object->updated(107);
    object->deleted(108);
    object->type(109);
    object->length(110);
    object->_state = 111;
    object->setMimeType("stale/mime");
    object->description("stale description");
    object->firstText("first");
    object->secondText("second");
    object->thirdText("third");
    object->setKeyValues({{"stale", {"stale", false}}});
    object->_shares = {{99, {{9, 99, 9, 9}}}};
    object->setACLMap(3, 1);
    object->setACLMap(103, 2);
    return object;
}

TEST_F(ObjectsTest, UpdateObjectRefreshesTheCachedObjectInPlace) {
    const auto object = store(staleObject());
    Nimra::Document document = filledDocument();
    EXPECT_EQ(cache.updateObject(document, false), object);
    EXPECT_EQ(items.at(1), object);
    EXPECT_EQ(object->_state, 9);
    EXPECT_EQ(object->id(), 1u);
    EXPECT_EQ(object->parentId(), 2u);
    EXPECT_EQ(object->name(), "record");
    EXPECT_EQ(object->ownerId(), 3u);
    EXPECT_EQ(object->created(), 5u);
    EXPECT_EQ(object->updated(), 6u);
    EXPECT_EQ(object->deleted(), 7u);
    EXPECT_EQ(object->length(), 10u);
    EXPECT_EQ(object->mimeType(), "text/plain");
    EXPECT_EQ(object->description(), "description");
    EXPECT_TRUE(object->dataLoaded());
}

TEST_F(ObjectsTest, UpdateObjectReplacesKeyValuesAndSharesWhole) {
    const auto object = store(staleObject());
    Nimra::Document document = filledDocument();
    cache.updateObject(document, false);
    EXPECT_THAT(object->keyValues(), ElementsAre(Pair("key", Pair("value", true))));
    EXPECT_EQ(object->shares(), (Shares{{31, {{1, 31, 2, 3}}}}));
}

TEST_F(ObjectsTest, UpdateObjectSetsTheOwnersAccessRowAlone) {
    const auto object = store(staleObject());
    Nimra::Document document = filledDocument();
    cache.updateObject(document, false);
    EXPECT_THAT(object->ACLMap(), ElementsAre(Pair(3, 8), Pair(103, 2)));
}

TEST_F(ObjectsTest, UpdateObjectSetsTheTypeToFourWhateverItWas) {
    const auto object = store(staleObject());
    object->type(16);
    Nimra::Document document = filledDocument();
    document.type = 5;
    cache.updateObject(document, false);
    EXPECT_EQ(object->type(), 4);
}

TEST_F(ObjectsTest, UpdateObjectLeavesTheFieldsThatItDoesNotName) {
    const auto object = store(staleObject());
    Nimra::Document document = filledDocument();
    cache.updateObject(document, false);
    EXPECT_EQ(object->oldParentId(), 104u);
    EXPECT_EQ(object->driveId(), 105u);
    EXPECT_EQ(object->firstText(), "first");
    EXPECT_EQ(object->secondText(), "second");
    EXPECT_EQ(object->thirdText(), "third");
    EXPECT_FALSE(object->idLoaded());
}

TEST_F(ObjectsTest, UpdateObjectSetsTheIdOfTheEntryUnderTheRecordsId) {
    const auto object = staleObject();
    object->id(77);
    items[1] = object;
    Nimra::Document document = filledDocument();
    EXPECT_EQ(cache.updateObject(document, false), object);
    EXPECT_EQ(object->id(), 1u);
}

TEST_F(ObjectsTest, UpdateObjectLeavesTheRecordAsItIs) {
    store(staleObject());
    Nimra::Document document = filledDocument();
    cache.updateObject(document, false);
    EXPECT_EQ(document.name, "record");
    EXPECT_THAT(document.keyValues(), ElementsAre(Pair("key", Pair("value", true))));
    EXPECT_EQ(document.shares, (Shares{{31, {{1, 31, 2, 3}}}}));
}

TEST_F(ObjectsTest, UpdateObjectLeavesARenamedObjectInItsPlace) {
    const auto before = makeObject(5, 2, "before");
    const auto object = store(makeObject(1, 2, "stale"));
    const auto after = makeObject(7, 2, "after");
    const auto result = directory(2, {before, object, after});
    Nimra::Document document(1, 2, 3, "renamed");
    cache.updateObject(document, false);
    EXPECT_THAT(result->items(), ElementsAre(before, object, after));
    EXPECT_EQ(object->name(), "renamed");
}

TEST_F(ObjectsTest, UpdateObjectDropsItsFlag) {
    const auto present = makeObject(5, 2, "present");
    const auto result = directory(2, {present});
    const auto object = store(staleObject());
    Nimra::Document document(1, 2, 3, "name");
    cache.updateObject(document, true);
    EXPECT_THAT(result->items(), ElementsAre(present, object));
}

TEST_F(ObjectsTest, UpdateObjectPlacesTheObjectWhereItsNewParentIsListed) {
    const auto object = store(makeObject(1, 102, "stale"));
    const auto oldPlace = directory(102, {object});
    const auto newPlace = directory(2);
    Nimra::Document document(1, 2, 3, "name");
    cache.updateObject(document, false);
    EXPECT_THAT(newPlace->items(), ElementsAre(object));
    EXPECT_THAT(oldPlace->items(), ElementsAre(object));
}

TEST_F(ObjectsTest, UpdateObjectOfAnUnknownIdReturnsNothing) {
    Nimra::Document document = filledDocument(4);
    EXPECT_EQ(cache.updateObject(document, false), nullptr);
    EXPECT_THAT(items, IsEmpty());
}

TEST_F(ObjectsTest, UpdateObjectOfAContainersIdReturnsNothingAndChangesNothing) {
    const auto container = store(makeContainer(1, 9, "container"));
    Nimra::Document document = filledDocument();
    EXPECT_EQ(cache.updateObject(document, false), nullptr);
    EXPECT_EQ(container->name(), "container");
    EXPECT_EQ(container->parentId(), 9u);
    EXPECT_EQ(container->type(), 8);
}

TEST_F(ObjectsTest, UpdateObjectTakesAPlainValueInTheStoreForNoObject) {
    const auto plain = std::make_shared<Object>(*staleObject());
    items[1] = plain;
    const auto result = directory(2);
    Nimra::Document document = filledDocument();
    EXPECT_EQ(cache.updateObject(document, false), nullptr);
    EXPECT_EQ(items.at(1), plain);
    EXPECT_EQ(plain->name(), "stale");
    EXPECT_THAT(result->items(), IsEmpty());
    EXPECT_EQ(trace.text(),
              "DEBUG 1\n"
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 102 104 1\n"
              "DEBUG 2\nDEBUG 3\nDEBUG 8\n");
}

TEST_F(ObjectsTest, UpdateObjectTracesItsSteps) {
    store(staleObject());
    Nimra::Document document = filledDocument();
    cache.updateObject(document, false);
    EXPECT_EQ(trace.text(),
              "DEBUG 1\n"
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 102 104 1\n"
              "DEBUG 2\nDEBUG 3\nDEBUG 4\nDEBUG 5\nDEBUG 6\n"
              "\nOrmek::DirectoryCache::addObject: record\n"
              "--------OBJECT ID:  1------------\n"
              "DEBUG 7\n");
}

TEST_F(ObjectsTest, UpdateObjectTracesAnUnknownId) {
    Nimra::Document document = filledDocument(4);
    cache.updateObject(document, false);
    EXPECT_EQ(trace.text(),
              "DEBUG 1\n"
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem didnt find item with id: 4\n"
              "DEBUG 2\nDEBUG 3\nDEBUG 8\n");
}

TEST_F(ObjectsTest, UpdateObjectTracesAContainersId) {
    store(makeContainer(1, 9, "container"));
    Nimra::Document document = filledDocument();
    cache.updateObject(document, true);
    EXPECT_EQ(trace.text(),
              "DEBUG 1\n"
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 9 0 1\n"
              "DEBUG 2\nDEBUG 3\nDEBUG 8\n");
}

// --- updateObjectMetaData ----------------------------------------------------------------------

TEST_F(ObjectsTest, UpdateObjectMetaDataRefreshesTheMetadata) {
    const auto object = store(staleObject());
    Nimra::Document document = filledDocument();
    cache.updateObjectMetaData(document);
    EXPECT_THAT(object->keyValues(), ElementsAre(Pair("key", Pair("value", true))));
    EXPECT_EQ(object->created(), 5u);
    EXPECT_EQ(object->updated(), 6u);
    EXPECT_EQ(object->length(), 10u);
    EXPECT_EQ(object->type(), 4);
    EXPECT_EQ(object->mimeType(), "text/plain");
    EXPECT_TRUE(object->dataLoaded());
}

TEST_F(ObjectsTest, UpdateObjectMetaDataLeavesEverythingElse) {
    const auto object = store(staleObject());
    Nimra::Document document = filledDocument();
    cache.updateObjectMetaData(document);
    EXPECT_EQ(object->id(), 1u);
    EXPECT_EQ(object->parentId(), 102u);
    EXPECT_EQ(object->oldParentId(), 104u);
    EXPECT_EQ(object->name(), "stale");
    EXPECT_EQ(object->ownerId(), 103u);
    EXPECT_EQ(object->driveId(), 105u);
    EXPECT_EQ(object->deleted(), 108u);
    EXPECT_EQ(object->_state, 111);
    EXPECT_EQ(object->description(), "stale description");
    EXPECT_EQ(object->shares(), (Shares{{99, {{9, 99, 9, 9}}}}));
    EXPECT_THAT(object->ACLMap(), ElementsAre(Pair(3, 1), Pair(103, 2)));
    EXPECT_FALSE(object->idLoaded());
}

TEST_F(ObjectsTest, UpdateObjectMetaDataTouchesNoDirectory) {
    store(staleObject());
    const auto current = directory(102);
    const auto next = directory(2);
    Nimra::Document document = filledDocument();
    cache.updateObjectMetaData(document);
    EXPECT_THAT(current->items(), IsEmpty());
    EXPECT_THAT(next->items(), IsEmpty());
}

TEST_F(ObjectsTest, UpdateObjectMetaDataOfAnUnknownIdDoesNothing) {
    Nimra::Document document = filledDocument();
    cache.updateObjectMetaData(document);
    EXPECT_THAT(items, IsEmpty());
}

TEST_F(ObjectsTest, UpdateObjectMetaDataOfAContainersIdDoesNothing) {
    const auto container = store(makeContainer(1, 9, "container"));
    Nimra::Document document = filledDocument();
    cache.updateObjectMetaData(document);
    EXPECT_EQ(container->type(), 8);
    EXPECT_EQ(container->created(), 0u);
    EXPECT_FALSE(container->dataLoaded());
}

TEST_F(ObjectsTest, UpdateObjectMetaDataTakesAPlainValueInTheStoreForNoObject) {
    const auto plain = std::make_shared<Object>(*staleObject());
    items[1] = plain;
    Nimra::Document document = filledDocument();
    cache.updateObjectMetaData(document);
    EXPECT_EQ(items.at(1), plain);
    EXPECT_EQ(plain->mimeType(), "stale/mime");
}

TEST_F(ObjectsTest, UpdateObjectMetaDataTracesItsLookUpAlone) {
    store(staleObject());
    Nimra::Document known = filledDocument();
    Nimra::Document unknown = filledDocument(4);
    cache.updateObjectMetaData(known);
    cache.updateObjectMetaData(unknown);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 102 104 1\n"
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem didnt find item with id: 4\n");
}

}  // namespace
}  // namespace Ormek
