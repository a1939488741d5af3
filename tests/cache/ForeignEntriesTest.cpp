// Entries that are not of the cache's own kind: plain values, and what an embedder derives itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"

namespace Ormek::Testing {
namespace {

using ::testing::IsEmpty;

class ForeignEntriesTest : public ::testing::Test {
  protected:
    std::shared_ptr<Object> storeValue(unsigned long id, unsigned long parentId) {
        auto value = std::make_shared<Object>(*makeObject(id, parentId, "value"));
        cache.cacheItemPtr(value);
        trace.clear();
        return value;
    }

    TraceCapture trace;
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
};

TEST_F(ForeignEntriesTest, PlainValueGetsItsNewKeyButKeepsTheIdItSays) {
    const auto value = storeValue(1, 2);
    cache.updateItemId(1, 9);
    EXPECT_EQ(cache.itemCount(1), 0);
    EXPECT_EQ(wired.probe.items().at(9), value);
    EXPECT_EQ(value->id(), 1U);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: 1 value\n"
              "Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: 9\n"
              "Ormek::DirectoryCache::updateItemId IDLOADED: 0\n"
              "Ormek::DirectoryCache::updateItemId IDLOADED: 1\n");
}

TEST_F(ForeignEntriesTest, PlainValueKeepsItsParentWhenTheOthersGetAnother) {
    const auto value = storeValue(1, 2);
    const auto own = makeObject(3, 2, "own");
    cache.cacheItemPtr(own);
    cache.updateItemParentIds(2, 5);
    EXPECT_EQ(value->parentId(), 2U);
    EXPECT_EQ(own->parentId(), 5U);
}

TEST_F(ForeignEntriesTest, PlainValueIsRefreshedByNoRecord) {
    const auto value = storeValue(1, 2);
    Nimra::Document record(1, 2, 3, "newer");
    EXPECT_EQ(cache.updateObject(record, false), nullptr);
    cache.updateObjectMetaData(record);
    EXPECT_EQ(value->name(), "value");
    EXPECT_EQ(value->length(), 0U);
}

TEST_F(ForeignEntriesTest, PlainValueStaysInAMergedPageAsItIs) {
    const auto value = storeValue(1, 2);
    const std::shared_ptr<QueryResult> result =
        std::make_shared<QueryResultInternal>(folderFilter(2));
    cache.addItems(folderFilter(2), result, std::vector{Nimra::Folder(1, 2, 3, "newer")}, 1);
    EXPECT_EQ(result->items(), (std::vector<std::shared_ptr<Item>>{value}));
    EXPECT_FALSE(value->idLoaded());
}

/// A document that an embedder has made more of.
class StarredDocument : public ObjectInternal {
  public:
    using ObjectInternal::ObjectInternal;
};

TEST_F(ForeignEntriesTest, DerivedDocumentHasItsIdLoadedByAMergedPage) {
    Nimra::Document record(1, 2, 3, "starred");
    const auto starred = std::make_shared<StarredDocument>(record, &wired.updater);
    cache.cacheObjectPtr(starred);
    ASSERT_FALSE(starred->idLoaded());
    const std::shared_ptr<QueryResult> result =
        std::make_shared<QueryResultInternal>(folderFilter(2));
    cache.addItems(folderFilter(2), result, std::vector<Nimra::Folder>(), std::vector{record}, 1);
    EXPECT_TRUE(starred->idLoaded());
    EXPECT_EQ(result->items(), (std::vector<std::shared_ptr<Item>>{starred}));
}

TEST_F(ForeignEntriesTest, ObjectUnderAContainersIdKeepsItOutOfTheDirectory) {
    const auto directory = std::make_shared<QueryResultInternal>(folderFilter(2));
    wired.probe.directories().push_back(directory);
    const auto object = makeObject(1, 2, "object");
    cache.cacheItemPtr(object);
    trace.clear();
    EXPECT_EQ(cache.addContainer(*makeContainer(1, 2, "folder")), nullptr);
    EXPECT_THAT(directory->items(), IsEmpty());
    EXPECT_EQ(wired.probe.items().at(1), object);
    EXPECT_NE(trace.text().find("Ormek::DirectoryCache::addContainer 2:  containerPtr ID: 0\n"
                                "Adding container to queryresult\n"),
              std::string::npos);
}

struct Named {
    virtual ~Named() = default;
    std::string name = "inbox";
};

/// A directory that an embedder has made more of.
class NamedDirectory : public Named, public QueryResultInternal {
  public:
    using QueryResultInternal::QueryResultInternal;
};

TEST_F(ForeignEntriesTest, DirectoryOfADerivedClassIsFilledLikeOneOfTheCachesOwn) {
    const auto directory = std::make_shared<NamedDirectory>(folderFilter(2));
    wired.probe.directories().push_back(directory);
    const auto added = cache.addObject(*makeObject(1, 2, "object"), false);
    EXPECT_EQ(directory->items(), (std::vector<std::shared_ptr<Item>>{added}));
    EXPECT_EQ(cache.getDirectory(folderFilter(2)), directory);
    cache.removeItem(2, 1);
    EXPECT_THAT(directory->items(), IsEmpty());
    EXPECT_EQ(directory->name, "inbox");
}

/// An entry that cannot be asked for its folder.
class Unreadable : public Object {
  public:
    unsigned long id() const override { return 1; }
    unsigned long parentId() const override { throw std::runtime_error("no folder"); }
};

TEST_F(ForeignEntriesTest, WhatAnEntryThrowsReachesWhoeverLooksForAName) {
    cache.cacheItemPtr(std::make_shared<Unreadable>());
    EXPECT_THROW(cache.ItemInCache(2, "name"), std::runtime_error);
    EXPECT_THROW(cache.getChildren(2), std::runtime_error);
    EXPECT_EQ(cache.itemsSize(), 1U);
}

TEST_F(ForeignEntriesTest, NameIsLookedForPastEmptyEntries) {
    wired.probe.items()[5] = nullptr;
    const auto value = storeValue(1, 2);
    EXPECT_EQ(cache.ItemInCache(2, "value"), value);
    EXPECT_EQ(cache.ItemInCache(2, "another"), nullptr);
    EXPECT_EQ(cache.ItemInCache(3, "value"), nullptr);
}

}  // namespace
}  // namespace Ormek::Testing
