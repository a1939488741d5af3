#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Document 7 and its neighbour 8 lie in folder 5 and stand in its directory; entry 9 makes the
/// counts differ from each other.
class RemoveObjectTest : public ::testing::Test {
  protected:
    RemoveObjectTest() {
        document->idLoaded(true);
        document->oldParentId(4);
        for (const auto& entry : {document, neighbour, makeObject(9, 6, "third")}) {
            wired.probe.items()[entry->id()] = entry;
        }
        addDirectory({6}, {});
    }

    std::shared_ptr<QueryResultInternal> addDirectory(
        std::vector<unsigned long> folders, const std::vector<std::shared_ptr<Item>>& entries) {
        FilterInternal filter = folderFilter(0);
        filter.setDataId(std::move(folders));
        auto made = std::make_shared<QueryResultInternal>(filter);
        for (const auto& entry : entries) {
            made->addItem(entry, false);
        }
        wired.probe.directories().push_back(made);
        return made;
    }

    /// What removeObject(5, 7, ...) writes before it sends or parks.
    static std::string traceUpToHandOver() {
        return "Ormek::DirectoryCache::removeDocument 1\n"
               "Ormek::DirectoryCache::removeDocument 2 items len: 3\n"
               "Ormek::DirectoryCache::removeDocument 2 dir len: 2\n"
               "Ormek::DirectoryCache::removeDocument 3 items len: 3\n"
               "Ormek::DirectoryCache::removeDocument 3 dir len: 2\n"
               "Ormek::DirectoryCache::getItem 1\n"
               "Ormek::DirectoryCache::getItem 1.2 parentId: 5 4 7\n";
    }
    static std::string sendTrace() {
        return "Ormek::DirectoryCache::removeDocument Sending operation\n";
    }
    static std::string parkTrace(unsigned long operationId) {
        return "Ormek::DirectoryCache::removeDocument Queueing operation operationId: " +
               std::to_string(operationId) + "\n";
    }

    const std::shared_ptr<ObjectInternal> document = makeObject(7, 5, "document");
    const std::shared_ptr<ObjectInternal> neighbour = makeObject(8, 5, "neighbour");
    WiredCache wired;
    const std::shared_ptr<QueryResultInternal> directory = addDirectory({5}, {document, neighbour});
    DirectoryCache& cache = wired.cache;
    Nimra::ItemEventProtocol protocol;
    TraceCapture trace;
};

// --- The whole trace ---------------------------------------------------------------------------

TEST_F(RemoveObjectTest, SentRemovalIsTraced) {
    cache.removeObject(5, 7, 3, &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver() + sendTrace());
}

TEST_F(RemoveObjectTest, RemovalParkedForLackOfAUserIsTraced) {
    const auto id = cache.removeObject(5, 7, 0, &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver() + parkTrace(id));
}

TEST_F(RemoveObjectTest, RemovalParkedForLackOfAServerIdIsTraced) {
    document->idLoaded(false);

    const auto id = cache.removeObject(5, 7, 3, &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver() + parkTrace(id));
}

TEST_F(RemoveObjectTest, RemovalParkedForLackOfBothIsTraced) {
    document->idLoaded(false);

    const auto id = cache.removeObject(5, 7, 0, &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver() + parkTrace(id));
}

// --- The operation -----------------------------------------------------------------------------

TEST_F(RemoveObjectTest, EveryArgumentArrivesInItsPlace) {
    const auto id = cache.removeObject(20, 7, 3, &protocol);

    const auto* sent = wired.onlySent<Nimra::FileOperation>();
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(sent->id(), id);
    EXPECT_EQ(sent->kind(), 5u);
    EXPECT_EQ(sent->protocol(), &protocol);
    EXPECT_EQ(sent->service(), &wired.documents);
    EXPECT_EQ(sent->document().id, 7u);
    EXPECT_EQ(sent->document().parentId, 20u);
    EXPECT_EQ(sent->document().ownerId, 3u);
    EXPECT_EQ(sent->document().oldParentId, 0u);
}

TEST_F(RemoveObjectTest, RequestCarriesAnEmptyName) {
    cache.removeObject(5, 7, 3, &protocol);

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->document().name, "");
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->document().nameCopy, "");
}

TEST_F(RemoveObjectTest, WithoutAUserTheRemovalIsParkedAndTheListingLosesTheDocument) {
    const auto id = cache.removeObject(5, 7, 0, &protocol);

    const auto* parked = wired.onlyParked<Nimra::FileOperation>();
    ASSERT_NE(parked, nullptr);
    EXPECT_EQ(parked->id(), id);
    EXPECT_EQ(parked->kind(), 5u);
    EXPECT_EQ(parked->document().ownerId, 0u);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    EXPECT_THAT(directory->items(), ElementsAre(neighbour));
}

TEST_F(RemoveObjectTest, WithoutAServerIdTheRemovalIsParkedAndTheListingLosesTheDocument) {
    document->idLoaded(false);

    const auto id = cache.removeObject(5, 7, 3, &protocol);

    ASSERT_NE(wired.onlyParked<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlyParked<Nimra::FileOperation>()->id(), id);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    EXPECT_THAT(directory->items(), ElementsAre(neighbour));
}

// --- The cache ---------------------------------------------------------------------------------

TEST_F(RemoveObjectTest, DocumentStaysInTheStoreButNotInItsListing) {
    cache.removeObject(5, 7, 3, &protocol);

    EXPECT_EQ(cache.getItem(7), document);
    EXPECT_EQ(cache.itemsSize(), 3u);
    EXPECT_THAT(directory->items(), ElementsAre(neighbour));
}

TEST_F(RemoveObjectTest, DocumentItselfIsNotChanged) {
    cache.removeObject(5, 7, 3, &protocol);

    EXPECT_EQ(document->name(), "document");
    EXPECT_EQ(document->parentId(), 5u);
    EXPECT_EQ(document->oldParentId(), 4u);
    EXPECT_FALSE(document->isDeleted());
}

TEST_F(RemoveObjectTest, OnlyTheFirstDirectoryOfTheFolderIsEdited) {
    const auto second = addDirectory({5}, {document});

    cache.removeObject(5, 7, 3, &protocol);

    EXPECT_THAT(directory->items(), ElementsAre(neighbour));
    EXPECT_THAT(second->items(), ElementsAre(document));
}

TEST_F(RemoveObjectTest, FirstDirectoryOfTheFolderCountsEvenWithoutTheDocument) {
    directory->removeItem(7);
    const auto second = addDirectory({5}, {document});

    cache.removeObject(5, 7, 3, &protocol);

    EXPECT_THAT(directory->items(), ElementsAre(neighbour));
    EXPECT_THAT(second->items(), ElementsAre(document));
}

TEST_F(RemoveObjectTest, DirectoryIsFoundByTheArgumentNotByTheDocument) {
    const auto other = addDirectory({20}, {document, neighbour});

    cache.removeObject(20, 7, 3, &protocol);

    EXPECT_THAT(other->items(), ElementsAre(neighbour));
    EXPECT_THAT(directory->items(), ElementsAre(document, neighbour));
}

TEST_F(RemoveObjectTest, FolderWithoutADirectoryLeavesAllDirectoriesAlone) {
    cache.removeObject(20, 7, 3, &protocol);

    EXPECT_THAT(directory->items(), ElementsAre(document, neighbour));
    EXPECT_EQ(wired.probe.directories().size(), 2u);
    EXPECT_EQ(wired.handler.operations().size(), 1u);
}

TEST_F(RemoveObjectTest, KeyValueDirectoriesAreLeftAlone) {
    const auto tags = std::make_shared<QueryResultInternal>(folderFilter(5));
    tags->addItem(document, false);
    wired.probe.keyValueDirectories() = {tags};

    cache.removeObject(5, 7, 3, &protocol);

    EXPECT_THAT(tags->items(), ElementsAre(document));
}

// --- Order and locks ---------------------------------------------------------------------------

TEST_F(RemoveObjectTest, ListingStillHoldsTheDocumentWhenTheOperationIsSent) {
    std::vector<std::shared_ptr<Item>> listed;
    std::string traceAtHandOver;
    const WatchingHandler handler([&](auto*) {
        listed = directory->items();
        traceAtHandOver = trace.text();
    });

    cache.removeObject(5, 7, 3, &protocol);

    EXPECT_THAT(listed, ElementsAre(document, neighbour));
    EXPECT_THAT(directory->items(), ElementsAre(neighbour));
    EXPECT_EQ(traceAtHandOver, traceUpToHandOver() + sendTrace());
}

TEST_F(RemoveObjectTest, ListingStillHoldsTheDocumentWhenTheOperationIsParked) {
    std::vector<std::shared_ptr<Item>> listed;
    std::string traceAtHandOver;
    WatchingQueue queue([&](auto*) {
        listed = directory->items();
        traceAtHandOver = trace.text();
    });
    cache.setOpWithoutIdsQueue(&queue);

    const auto id = cache.removeObject(5, 7, 0, &protocol);

    EXPECT_THAT(listed, ElementsAre(document, neighbour));
    EXPECT_THAT(directory->items(), ElementsAre(neighbour));
    EXPECT_EQ(traceAtHandOver, traceUpToHandOver() + parkTrace(id));
}

TEST_F(RemoveObjectTest, ListingKeepsTheDocumentWhenTheHandOverFails) {
    const WatchingHandler handler([](auto*) { throw std::runtime_error("full"); });

    EXPECT_THROW(cache.removeObject(5, 7, 3, &protocol), std::runtime_error);

    EXPECT_THAT(directory->items(), ElementsAre(document, neighbour));
}

TEST_F(RemoveObjectTest, OperationIsHandedOverBeforeTheDirectoriesMutexIsNeeded) {
    std::promise<void> handedOver;
    const WatchingHandler handler([&](auto*) { handedOver.set_value(); });
    std::future<unsigned long> removed;
    std::unique_lock held(wired.probe.mutex());

    removed =
        std::async(std::launch::async, [this] { return cache.removeObject(5, 7, 3, &protocol); });

    ASSERT_EQ(handedOver.get_future().wait_for(20s), std::future_status::ready);
    EXPECT_EQ(removed.wait_for(20ms), std::future_status::timeout);
    EXPECT_THAT(directory->items(), ElementsAre(document, neighbour));
    EXPECT_TRUE(std::unique_lock(wired.probe.itemsMutex(), std::try_to_lock).owns_lock());
    held.unlock();
    removed.get();
    EXPECT_THAT(directory->items(), ElementsAre(neighbour));
}

TEST_F(RemoveObjectTest, FlagIsLookedUpUnderTheStoresMutex) {
    std::unique_lock held(wired.probe.itemsMutex());

    auto removed =
        std::async(std::launch::async, [this] { return cache.removeObject(5, 7, 3, &protocol); });

    EXPECT_EQ(removed.wait_for(20ms), std::future_status::timeout);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    held.unlock();
    removed.get();
    EXPECT_EQ(wired.handler.operations().size(), 1u);
}

}  // namespace
}  // namespace Ormek::Testing
