#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/LockFaults.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Notes, for each line of the trace, which mutexes of the cache are held while it is written.
class LockRecorder : private std::streambuf {
  public:
    explicit LockRecorder(DirectoryCacheProbe& probe)
        : _probe(probe), _previous(std::cout.rdbuf(this)) {}
    LockRecorder(const LockRecorder&) = delete;
    LockRecorder& operator=(const LockRecorder&) = delete;
    ~LockRecorder() override { std::cout.rdbuf(_previous); }

    const std::vector<std::string>& lines() const { return _lines; }

  private:
    std::streamsize xsputn(const char* text, std::streamsize length) override {
        std::string line(text, static_cast<std::size_t>(length));
        line.back() = ':';
        line += isHeld(_probe.itemsMutex()) ? " store" : "";
        line += isHeld(_probe.mutex()) ? " directories" : "";
        _lines.push_back(line);
        return length;
    }

    DirectoryCacheProbe& _probe;
    std::streambuf* _previous;
    std::vector<std::string> _lines;
};

std::string moveTrace(unsigned long itemId) {
    return "Ormek::DirectoryCache::moveItem itemId: " + std::to_string(itemId) + "\n";
}
std::string removing() { return "DirectoryCache::Move removing item\n"; }
std::string adding() { return "DirectoryCache::Move adding item\n"; }

/// Document 7 lies in folder 5, and in folder 4 before that.
class MoveTest : public ::testing::Test {
  protected:
    MoveTest() {
        document->idLoaded(true);
        document->oldParentId(4);
        wired.probe.items()[7] = document;
    }

    /// Registers a directory of the given folders that holds the given entries.
    std::shared_ptr<QueryResultInternal> directory(
        std::vector<unsigned long> folders, const std::vector<std::shared_ptr<Item>>& entries = {},
        const std::string& query = "") {
        FilterInternal filter = folderFilter(0);
        filter.setDataId(std::move(folders));
        filter.setQuery(query);
        auto made = std::make_shared<QueryResultInternal>(filter);
        for (const auto& entry : entries) {
            made->addItem(entry, false);
        }
        wired.probe.directories().push_back(made);
        return made;
    }

    const std::shared_ptr<ObjectInternal> document = makeObject(7, 5, "document");
    const std::shared_ptr<ObjectInternal> neighbour = makeObject(8, 6, "neighbour");
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    Nimra::ItemEventProtocol protocol;
    TraceCapture trace;
};

// --- moveItem --------------------------------------------------------------------------------

TEST_F(MoveTest, WithoutDirectoriesOnlyTheTwoParentFieldsAreRewritten) {
    cache.moveItem(7, 6, 5);

    EXPECT_EQ(document->parentId(), 6u);
    EXPECT_EQ(document->oldParentId(), 5u);
    EXPECT_EQ(document->id(), 7u);
    EXPECT_EQ(document->name(), "document");
    EXPECT_EQ(cache.itemsSize(), 1u);
    EXPECT_EQ(trace.text(), moveTrace(7));
}

TEST_F(MoveTest, OldParentIsTheArgumentNotWhatTheItemSays) {
    cache.moveItem(7, 6, 90);

    EXPECT_EQ(document->parentId(), 6u);
    EXPECT_EQ(document->oldParentId(), 90u);
}

TEST_F(MoveTest, ItemLeavesTheFolderItWasInAndArrivesInTheOther) {
    const auto left = directory({5}, {document});
    const auto entered = directory({6}, {neighbour});

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(left->items(), IsEmpty());
    EXPECT_THAT(entered->items(), ElementsAre(neighbour, document));
    EXPECT_EQ(trace.text(), moveTrace(7) + removing() + adding());
}

TEST_F(MoveTest, DirectoriesAreWalkedInListOrder) {
    directory({6});
    directory({5}, {document});
    directory({6});

    cache.moveItem(7, 6, 5);

    EXPECT_EQ(trace.text(), moveTrace(7) + adding() + removing() + adding());
}

TEST_F(MoveTest, EveryDirectoryOfEitherFolderIsEdited) {
    const auto firstLeft = directory({5}, {document});
    const auto secondLeft = directory({5, 90}, {neighbour, document});
    const auto firstEntered = directory({6});
    const auto secondEntered = directory({91, 6});

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(firstLeft->items(), IsEmpty());
    EXPECT_THAT(secondLeft->items(), ElementsAre(neighbour));
    EXPECT_THAT(firstEntered->items(), ElementsAre(document));
    EXPECT_THAT(secondEntered->items(), ElementsAre(document));
}

TEST_F(MoveTest, DestinationReceivesTheItemAtItsEnd) {
    const auto last = makeObject(9, 6, "last");
    const auto entered = directory({6}, {neighbour, last});

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(entered->items(), ElementsAre(neighbour, last, document));
}

TEST_F(MoveTest, DirectoryOfAThirdFolderIsLeftAlone) {
    const auto other = directory({90}, {document, neighbour});

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(other->items(), ElementsAre(document, neighbour));
    EXPECT_EQ(trace.text(), moveTrace(7));
}

TEST_F(MoveTest, DestinationWhoseSearchRefusesTheItemIsLeftAlone) {
    const auto search = directory({6}, {neighbour}, "neigh");

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(search->items(), ElementsAre(neighbour));
    EXPECT_EQ(trace.text(), moveTrace(7));
}

TEST_F(MoveTest, FolderThatIsLeftIsNotAskedWhetherItsSearchFits) {
    const auto search = directory({5}, {document}, "something else");

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(search->items(), IsEmpty());
    EXPECT_EQ(trace.text(), moveTrace(7) + removing());
}

TEST_F(MoveTest, FolderThatIsLeftIsNotAskedWhetherItHoldsTheItem) {
    const auto left = directory({5}, {neighbour});

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(left->items(), ElementsAre(neighbour));
    EXPECT_EQ(trace.text(), moveTrace(7) + removing());
}

TEST_F(MoveTest, DestinationIsNotAskedWhetherItHoldsTheItemAlready) {
    const auto entered = directory({6}, {document, neighbour});

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(entered->items(), ElementsAre(document, neighbour));
    EXPECT_EQ(trace.text(), moveTrace(7) + adding());
}

TEST_F(MoveTest, DirectoryOfBothFoldersLosesTheItem) {
    const auto both = directory({6, 5}, {document, neighbour});

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(both->items(), ElementsAre(neighbour));
    EXPECT_EQ(trace.text(), moveTrace(7) + removing());
}

TEST_F(MoveTest, ItemMovedIntoItsOwnFolderIsInNoDirectoryOfIt) {
    const auto first = directory({5}, {document});
    const auto second = directory({5}, {document, neighbour});
    const auto other = directory({6});

    cache.moveItem(7, 5, 5);

    EXPECT_EQ(document->parentId(), 5u);
    EXPECT_EQ(document->oldParentId(), 5u);
    EXPECT_THAT(first->items(), IsEmpty());
    EXPECT_THAT(second->items(), ElementsAre(neighbour));
    EXPECT_THAT(other->items(), IsEmpty());
    EXPECT_EQ(trace.text(), moveTrace(7) + removing() + removing());
}

TEST_F(MoveTest, FolderMovesLikeADocument) {
    const auto folder = makeContainer(30, 5, "folder");
    wired.probe.items()[30] = folder;
    const auto left = directory({5}, {folder, document});
    const auto entered = directory({6});

    cache.moveItem(30, 6, 5);

    EXPECT_THAT(left->items(), ElementsAre(document));
    EXPECT_THAT(entered->items(), ElementsAre(folder));
}

TEST_F(MoveTest, KeyValueDirectoriesAreNotWalked) {
    const auto tags = std::make_shared<QueryResultInternal>(folderFilter(5));
    tags->addItem(document, false);
    wired.probe.keyValueDirectories() = {tags};

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(tags->items(), ElementsAre(document));
    EXPECT_EQ(trace.text(), moveTrace(7));
}

TEST_F(MoveTest, MovingAnItemSendsNothing) {
    cache.moveItem(7, 6, 5);

    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

// --- moveItem: locks ---------------------------------------------------------------------------

TEST_F(MoveTest, StoresMutexIsTakenFirstAndTheDirectoriesInsideIt) {
    directory({5}, {document});
    directory({6});
    const LockRecorder locks(wired.probe);

    cache.moveItem(7, 6, 5);

    EXPECT_THAT(locks.lines(), ElementsAre("Ormek::DirectoryCache::moveItem itemId: 7: store",
                                           "DirectoryCache::Move removing item: store directories",
                                           "DirectoryCache::Move adding item: store directories"));
    EXPECT_FALSE(isHeld(wired.probe.itemsMutex()));
    EXPECT_FALSE(isHeld(wired.probe.mutex()));
}

TEST_F(MoveTest, MoveWaitsForTheStoresMutex) {
    std::unique_lock held(wired.probe.itemsMutex());

    auto moved = std::async(std::launch::async, [this] { cache.moveItem(7, 6, 5); });

    EXPECT_EQ(moved.wait_for(20ms), std::future_status::timeout);
    EXPECT_EQ(document->parentId(), 5u);
    held.unlock();
    moved.get();
    EXPECT_EQ(document->parentId(), 6u);
}

TEST_F(MoveTest, MoveWaitsForTheDirectoriesMutexAndKeepsTheStoresMeanwhile) {
    const auto left = directory({5}, {document});
    std::unique_lock held(wired.probe.mutex());

    auto moved = std::async(std::launch::async, [this] { cache.moveItem(7, 6, 5); });

    EXPECT_EQ(moved.wait_for(20ms), std::future_status::timeout);
    const auto giveUp = std::chrono::steady_clock::now() + 20s;
    while (!isHeld(wired.probe.itemsMutex()) && std::chrono::steady_clock::now() < giveUp) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(isHeld(wired.probe.itemsMutex()));
    EXPECT_THAT(left->items(), ElementsAre(document));
    held.unlock();
    moved.get();
    EXPECT_THAT(left->items(), IsEmpty());
}

TEST_F(MoveTest, ParentFieldsAreWrittenBeforeTheDirectoriesMutexIsTaken) {
    if (!LockFaults::arePossible()) {
        GTEST_SKIP() << "the thread sanitizer has to see every lock itself";
    }
    const auto left = directory({5}, {document});
    {
        const LockFaults second(2, EAGAIN);
        EXPECT_THROW(cache.moveItem(7, 6, 90), std::system_error);
        EXPECT_TRUE(second.struck());
    }

    EXPECT_EQ(document->parentId(), 6u);
    EXPECT_EQ(document->oldParentId(), 90u);
    EXPECT_THAT(left->items(), ElementsAre(document));
    EXPECT_EQ(trace.text(), moveTrace(7));
}

// --- moveObject: the whole trace ---------------------------------------------------------------

class MoveObjectTest : public MoveTest {
  protected:
    const std::shared_ptr<QueryResultInternal> left = directory({5}, {document});
    const std::shared_ptr<QueryResultInternal> entered = directory({6});

    /// What moving document 7 from folder 5 to folder 6 writes before it sends or parks.
    static std::string traceUpToHandOver() {
        return moveTrace(7) + removing() + adding() +
               "Ormek::DirectoryCache::getItem 1\n"
               "Ormek::DirectoryCache::getItem 1.2 parentId: 6 5 7\n";
    }
    static std::string parkTrace() {
        return "Ormek::DirectoryCache::moveObject Queueing operation\n";
    }
};

TEST_F(MoveObjectTest, SentMoveIsTraced) {
    cache.moveObject(3, 5, 7, 6, "name", &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver());
}

TEST_F(MoveObjectTest, MoveParkedForLackOfAUserIsTraced) {
    cache.moveObject(0, 5, 7, 6, "name", &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver() + parkTrace());
}

TEST_F(MoveObjectTest, MoveParkedForLackOfAServerIdIsTraced) {
    document->idLoaded(false);

    cache.moveObject(3, 5, 7, 6, "name", &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver() + parkTrace());
}

TEST_F(MoveObjectTest, MoveParkedForLackOfBothIsTraced) {
    document->idLoaded(false);

    cache.moveObject(0, 5, 7, 6, "name", &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver() + parkTrace());
}

// --- moveObject: the operation -----------------------------------------------------------------

TEST_F(MoveObjectTest, EveryArgumentArrivesInItsPlace) {
    const auto id = cache.moveObject(3, 90, 7, 6, "another name", &protocol);

    const auto* sent = wired.onlySent<Nimra::FileOperation>();
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(sent->id(), id);
    EXPECT_EQ(sent->kind(), 4u);
    EXPECT_EQ(sent->protocol(), &protocol);
    EXPECT_EQ(sent->service(), &wired.documents);
    EXPECT_EQ(sent->document().id, 7u);
    EXPECT_EQ(sent->document().parentId, 6u);
    EXPECT_EQ(sent->document().oldParentId, 90u);
    EXPECT_EQ(sent->document().ownerId, 3u);
    EXPECT_EQ(sent->document().name, "another name");
    EXPECT_EQ(document->parentId(), 6u);
    EXPECT_EQ(document->oldParentId(), 90u);
}

TEST_F(MoveObjectTest, NameOfTheOperationDoesNotRenameTheItem) {
    cache.moveObject(3, 5, 7, 6, "another name", &protocol);

    EXPECT_EQ(document->name(), "document");
}

TEST_F(MoveObjectTest, WithoutAUserTheItemIsMovedAndTheOperationParked) {
    const auto id = cache.moveObject(0, 5, 7, 6, "name", &protocol);

    EXPECT_EQ(document->parentId(), 6u);
    EXPECT_THAT(left->items(), IsEmpty());
    EXPECT_THAT(entered->items(), ElementsAre(document));
    const auto* parked = wired.onlyParked<Nimra::FileOperation>();
    ASSERT_NE(parked, nullptr);
    EXPECT_EQ(parked->id(), id);
    EXPECT_EQ(parked->document().oldParentId, 5u);
    EXPECT_EQ(parked->document().ownerId, 0u);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_F(MoveObjectTest, WithoutAServerIdTheItemIsMovedAndTheOperationParked) {
    document->idLoaded(false);

    const auto id = cache.moveObject(3, 5, 7, 6, "name", &protocol);

    EXPECT_EQ(document->parentId(), 6u);
    ASSERT_NE(wired.onlyParked<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlyParked<Nimra::FileOperation>()->id(), id);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

// --- moveObject: order and locks ---------------------------------------------------------------

TEST_F(MoveObjectTest, ItemHasMovedBeforeTheOperationIsSent) {
    unsigned long parentAtHandOver = 0;
    unsigned long countsAtHandOver[2] = {9, 9};
    const WatchingHandler handler([&](auto*) {
        parentAtHandOver = document->parentId();
        countsAtHandOver[0] = left->count();
        countsAtHandOver[1] = entered->count();
    });

    cache.moveObject(3, 5, 7, 6, "name", &protocol);

    EXPECT_EQ(parentAtHandOver, 6u);
    EXPECT_THAT(countsAtHandOver, ElementsAre(0u, 1u));
}

TEST_F(MoveObjectTest, ItemHasMovedAndTheLineIsWrittenBeforeTheOperationIsParked) {
    unsigned long parentAtHandOver = 0;
    std::string traceAtHandOver;
    WatchingQueue queue([&](auto*) {
        parentAtHandOver = document->parentId();
        traceAtHandOver = trace.text();
    });
    cache.setOpWithoutIdsQueue(&queue);

    cache.moveObject(0, 5, 7, 6, "name", &protocol);

    EXPECT_EQ(parentAtHandOver, 6u);
    EXPECT_EQ(traceAtHandOver, traceUpToHandOver() + parkTrace());
}

TEST_F(MoveObjectTest, ItemStaysMovedWhenTheHandOverFails) {
    const WatchingHandler handler([](auto*) { throw std::runtime_error("full"); });

    EXPECT_THROW(cache.moveObject(3, 5, 7, 6, "name", &protocol), std::runtime_error);

    EXPECT_EQ(document->parentId(), 6u);
    EXPECT_THAT(left->items(), IsEmpty());
    EXPECT_THAT(entered->items(), ElementsAre(document));
}

TEST_F(MoveObjectTest, OnlyTheLookUpIsUnderTheStoresMutexAfterTheMove) {
    const LockRecorder locks(wired.probe);

    cache.moveObject(0, 5, 7, 6, "name", &protocol);

    EXPECT_THAT(locks.lines(),
                ElementsAre("Ormek::DirectoryCache::moveItem itemId: 7: store",
                            "DirectoryCache::Move removing item: store directories",
                            "DirectoryCache::Move adding item: store directories",
                            "Ormek::DirectoryCache::getItem 1: store",
                            "Ormek::DirectoryCache::getItem 1.2 parentId: 6 5 7: store",
                            "Ormek::DirectoryCache::moveObject Queueing operation:"));
}

// --- Directories that queries have made --------------------------------------------------------

/// Document 7 lies in folder 5. The cache made the directories itself, in this order.
class QueriedDirectoriesTest : public MoveTest {
  protected:
    QueriedDirectoriesTest() { trace.clear(); }

    std::shared_ptr<QueryResultInternal> queried(
        std::vector<unsigned long> folders, const std::string& query,
        const std::vector<std::shared_ptr<Item>>& entries = {}) {
        FilterInternal filter = folderFilter(0);
        filter.setDataId(std::move(folders));
        filter.setQuery(query);
        std::shared_ptr<QueryResult> made;
        EXPECT_FALSE(cache.get(filter, made));
        auto internal = std::dynamic_pointer_cast<QueryResultInternal>(made);
        for (const auto& entry : entries) {
            internal->addItem(entry, false);
        }
        return internal;
    }

    const std::shared_ptr<QueryResultInternal> entered = queried({6}, "", {neighbour});
    const std::shared_ptr<QueryResultInternal> left = queried({5}, "", {document});
    const std::shared_ptr<QueryResultInternal> searched = queried({6}, "doc");
    const std::shared_ptr<QueryResultInternal> both = queried({5, 6}, "", {neighbour, document});
    const std::shared_ptr<QueryResultInternal> refusing = queried({6}, "neighbour", {neighbour});
    const std::shared_ptr<QueryResultInternal> other = queried({90}, "");
};

TEST_F(QueriedDirectoriesTest, AreWalkedInTheOrderInWhichTheyWereMade) {
    cache.moveItem(7, 6, 5);

    EXPECT_EQ(trace.text(), moveTrace(7) + adding() + removing() + adding() + removing());
    EXPECT_THAT(entered->items(), ElementsAre(neighbour, document));
    EXPECT_THAT(left->items(), IsEmpty());
    EXPECT_THAT(searched->items(), ElementsAre(document));
    EXPECT_THAT(both->items(), ElementsAre(neighbour));
    EXPECT_THAT(refusing->items(), ElementsAre(neighbour));
    EXPECT_THAT(other->items(), IsEmpty());
}

TEST_F(QueriedDirectoriesTest, AreWalkedInThatOrderOnTheWayBackToo) {
    cache.moveItem(7, 6, 5);
    trace.clear();

    cache.moveItem(7, 5, 6);

    EXPECT_EQ(trace.text(),
              moveTrace(7) + removing() + adding() + removing() + removing() + removing());
    EXPECT_THAT(entered->items(), ElementsAre(neighbour));
    EXPECT_THAT(left->items(), ElementsAre(document));
    EXPECT_THAT(searched->items(), IsEmpty());
    EXPECT_THAT(both->items(), ElementsAre(neighbour));
}

TEST_F(QueriedDirectoriesTest, OneOfBothFoldersIsVisitedOnceWhenTheyAreTheSame) {
    cache.moveItem(7, 5, 5);

    EXPECT_EQ(trace.text(), moveTrace(7) + removing() + removing());
    EXPECT_THAT(left->items(), IsEmpty());
    EXPECT_THAT(both->items(), ElementsAre(neighbour));
}

TEST_F(QueriedDirectoriesTest, OneThatIsMadeAfterAMoveIsWalkedLast) {
    cache.moveItem(7, 6, 5);
    const auto late = queried({6, 91}, "");
    trace.clear();

    cache.moveItem(7, 6, 92);

    EXPECT_EQ(trace.text(), moveTrace(7) + adding() + adding() + adding() + adding());
    EXPECT_THAT(both->items(), ElementsAre(neighbour, document));
    EXPECT_THAT(late->items(), ElementsAre(document));
}

TEST_F(QueriedDirectoriesTest, OnlyTheFirstOneOfItsFolderLosesARemovedItem) {
    cache.removeObject(5, 7, 3, &protocol);

    EXPECT_THAT(left->items(), IsEmpty());
    EXPECT_THAT(both->items(), ElementsAre(neighbour, document));
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::removeDocument 1\n"
              "Ormek::DirectoryCache::removeDocument 2 items len: 1\n"
              "Ormek::DirectoryCache::removeDocument 2 dir len: 6\n"
              "Ormek::DirectoryCache::removeDocument 3 items len: 1\n"
              "Ormek::DirectoryCache::removeDocument 3 dir len: 6\n"
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 5 4 7\n"
              "Ormek::DirectoryCache::removeDocument Sending operation\n");
}

TEST_F(QueriedDirectoriesTest, FirstOneOfItsFolderCountsEvenWhenTheRemovedItemIsInALaterOne) {
    entered->addItem(document, false);
    searched->addItem(document, false);

    cache.removeObject(6, 7, 3, &protocol);

    EXPECT_THAT(entered->items(), ElementsAre(neighbour));
    EXPECT_THAT(searched->items(), ElementsAre(document));
    EXPECT_THAT(both->items(), ElementsAre(neighbour, document));
}

TEST_F(QueriedDirectoriesTest, EveryOneOfItsFolderLosesAnItemThatLeavesTheStore) {
    cache.removeItem(5, 7);

    EXPECT_THAT(left->items(), IsEmpty());
    EXPECT_THAT(both->items(), ElementsAre(neighbour));
    EXPECT_EQ(cache.itemsSize(), 0u);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(QueriedDirectoriesTest, KeepARenamedItemWhereItIsAndTakeInNone) {
    cache.renameObject(5, 7, 3, "neighbour", &protocol);

    EXPECT_THAT(left->items(), ElementsAre(document));
    EXPECT_THAT(both->items(), ElementsAre(neighbour, document));
    EXPECT_THAT(searched->items(), IsEmpty());
    EXPECT_THAT(refusing->items(), ElementsAre(neighbour));
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::renameDocument 1\n"
              "Ormek::DirectoryCache::renameDocument 2 items len: 1\n"
              "Ormek::DirectoryCache::renameDocument 2 dir len: 6\n"
              "Ormek::DirectoryCache::renameDocument 2 newName: neighbour\n"
              "Orm::DirectoryCache::renameItem newName: neighbour\n"
              "Orm::DirectoryCache::rename tempItem->name(): neighbour\n"
              "Ormek::DirectoryCache::renameDocument 3 items len: 1\n"
              "Ormek::DirectoryCache::renameDocument 3 dir len: 6\n"
              "Ormek::Directory::Cache::renameDocument id: 7 folderId: 5 userId: 3 "
              "newName: neighbour\n"
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 5 4 7\n"
              "Ormek::DirectoryCache::renameDocument 4 \n");
}

TEST_F(QueriedDirectoriesTest, MatchARenamedItemByItsNewNameWhenItMoves) {
    cache.renameItem(7, "new neighbour");
    trace.clear();

    cache.moveItem(7, 6, 5);

    EXPECT_EQ(trace.text(), moveTrace(7) + adding() + removing() + removing() + adding());
    EXPECT_THAT(searched->items(), IsEmpty());
    EXPECT_THAT(refusing->items(), ElementsAre(neighbour, document));
}

}  // namespace
}  // namespace Ormek::Testing
