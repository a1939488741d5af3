#include <gmock/gmock.h>

#include <functional>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/LineWatcher.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Counts how often std::cout is flushed during its life.
class FlushCounter : private std::stringbuf {
  public:
    FlushCounter() : _previous(std::cout.rdbuf(this)) {}
    FlushCounter(const FlushCounter&) = delete;
    FlushCounter& operator=(const FlushCounter&) = delete;
    ~FlushCounter() override { std::cout.rdbuf(_previous); }

    int count() const { return _count; }

  private:
    int sync() override {
        ++_count;
        return 0;
    }

    std::streambuf* _previous;
    int _count = 0;
};

/// Document 7, "old name", lies in folder 5; two more entries and two directories make the counts
/// differ from each other.
class RenameTest : public ::testing::Test {
  protected:
    RenameTest() {
        document->idLoaded(true);
        document->oldParentId(4);
        for (const auto& entry : {document, makeObject(8, 5, "other"), makeObject(9, 6, "third")}) {
            wired.probe.items()[entry->id()] = entry;
        }
        directory->addItem(document, false);
        directory->addItem(wired.probe.items()[8], false);
        wired.probe.directories() = {directory,
                                     std::make_shared<QueryResultInternal>(folderFilter(6))};
    }

    static std::string cachedNameTrace(const std::string& name) {
        return "Orm::DirectoryCache::renameItem newName: " + name + "\n" +
               "Orm::DirectoryCache::rename tempItem->name(): " + name + "\n";
    }
    /// What renameObject(20, 7, userId, name, ...) writes before it sends or parks.
    static std::string traceUpToHandOver(unsigned long userId, const std::string& name) {
        return "Ormek::DirectoryCache::renameDocument 1\n"
               "Ormek::DirectoryCache::renameDocument 2 items len: 3\n"
               "Ormek::DirectoryCache::renameDocument 2 dir len: 2\n"
               "Ormek::DirectoryCache::renameDocument 2 newName: " +
               name + "\n" + cachedNameTrace(name) +
               "Ormek::DirectoryCache::renameDocument 3 items len: 3\n"
               "Ormek::DirectoryCache::renameDocument 3 dir len: 2\n"
               "Ormek::Directory::Cache::renameDocument id: 7 folderId: 20 userId: " +
               std::to_string(userId) + " newName: " + name +
               "\n"
               "Ormek::DirectoryCache::getItem 1\n"
               "Ormek::DirectoryCache::getItem 1.2 parentId: 5 4 7\n";
    }
    static std::string parkTrace(unsigned long operationId) {
        return "queueing rename operation with op id: " + std::to_string(operationId) + "\n";
    }
    static std::string endTrace() { return "Ormek::DirectoryCache::renameDocument 4 \n"; }

    const std::shared_ptr<ObjectInternal> document = makeObject(7, 5, "old name");
    const std::shared_ptr<QueryResultInternal> directory =
        std::make_shared<QueryResultInternal>(folderFilter(5));
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    Nimra::ItemEventProtocol protocol;
    TraceCapture trace;
};

// --- renameItem ------------------------------------------------------------------------------

TEST_F(RenameTest, CachedItemGetsTheNewName) {
    cache.renameItem(7, "new name");

    EXPECT_EQ(document->name(), "new name");
    EXPECT_EQ(trace.text(), cachedNameTrace("new name"));
}

TEST_F(RenameTest, FolderIsRenamedLikeADocument) {
    const auto folder = makeContainer(30, 5, "folder");
    wired.probe.items()[30] = folder;

    cache.renameItem(30, "renamed");

    EXPECT_EQ(folder->name(), "renamed");
}

TEST_F(RenameTest, EachOfTheTwoLinesIsFlushed) {
    const FlushCounter flushes;

    cache.renameItem(7, "new name");

    EXPECT_EQ(flushes.count(), 2);
}

TEST_F(RenameTest, NameIsSetBeforeTheFirstLineIsWritten) {
    std::vector<std::string> names;
    const LineWatcher lines([&](const auto&) { names.push_back(document->name()); });

    cache.renameItem(7, "new name");

    EXPECT_THAT(names, ElementsAre("new name", "new name"));
}

TEST_F(RenameTest, RenamingAnItemChangesNothingElseOfIt) {
    document->description("described");
    document->updated(11);
    document->length(12);

    cache.renameItem(7, "new name");

    EXPECT_EQ(document->id(), 7u);
    EXPECT_EQ(document->parentId(), 5u);
    EXPECT_EQ(document->oldParentId(), 4u);
    EXPECT_EQ(document->description(), "described");
    EXPECT_EQ(document->updated(), 11u);
    EXPECT_EQ(document->length(), 12u);
    EXPECT_TRUE(document->idLoaded());
}

TEST_F(RenameTest, RenamedItemKeepsItsPlaceInItsDirectory) {
    cache.renameItem(7, "zzz");

    EXPECT_THAT(directory->items(), ElementsAre(document, wired.probe.items()[8]));
}

TEST_F(RenameTest, RenamedItemStaysInADirectoryWhoseSearchItNoLongerFits) {
    FilterInternal search = folderFilter(5);
    search.setQuery("old");
    const auto found = std::make_shared<QueryResultInternal>(search);
    found->addItem(document, false);
    wired.probe.directories().push_back(found);

    cache.renameItem(7, "new name");

    EXPECT_THAT(found->items(), ElementsAre(document));
}

TEST_F(RenameTest, NamesakeIsLeftAlone) {
    cache.renameItem(7, "other");

    EXPECT_EQ(cache.itemCount(8), 1);
    EXPECT_THAT(directory->items(), ElementsAre(document, wired.probe.items()[8]));
}

TEST_F(RenameTest, RenamingAnItemSendsNothing) {
    cache.renameItem(7, "new name");

    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

TEST_F(RenameTest, RenamingAnItemTakesNoLock) {
    EXPECT_TRUE(returnsWhileHeld([this] { cache.renameItem(7, "new name"); }, wired.probe.mutex(),
                                 wired.probe.itemsMutex()));
}

// --- renameDocument --------------------------------------------------------------------------

TEST_F(RenameTest, RecordRenamesByItsEscapedName) {
    cache.renameDocument(Nimra::Document(7, 5, 3, R"(<a> & "b's")"));

    EXPECT_EQ(document->name(), "&lt;a&gt; &amp; &quot;b&apos;s&quot;");
    EXPECT_EQ(trace.text(), cachedNameTrace("&lt;a&gt; &amp; &quot;b&apos;s&quot;"));
}

TEST_F(RenameTest, RecordWhoseNameWasChangedRenamesByTheChangedName) {
    Nimra::Document record(7, 5, 3, "as built");
    record.name = "as changed";

    cache.renameDocument(record);

    EXPECT_EQ(document->name(), "as changed");
}

TEST_F(RenameTest, RecordGivesNothingButItsName) {
    Nimra::Document record(7, 60, 61, "from the service");
    record.description = "described";
    record.length = 62;

    cache.renameDocument(record);

    EXPECT_EQ(document->name(), "from the service");
    EXPECT_EQ(document->parentId(), 5u);
    EXPECT_EQ(document->ownerId(), 0u);
    EXPECT_EQ(document->description(), "");
    EXPECT_EQ(document->length(), 0u);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

TEST_F(RenameTest, RenamingByARecordTakesNoLock) {
    EXPECT_TRUE(
        returnsWhileHeld([this] { cache.renameDocument(Nimra::Document(7, 5, 3, "new name")); },
                         wired.probe.mutex(), wired.probe.itemsMutex()));
}

// --- renameObject: the whole trace -------------------------------------------------------------

TEST_F(RenameTest, SentRenameIsTraced) {
    cache.renameObject(20, 7, 3, "new name", &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver(3, "new name") + endTrace());
}

TEST_F(RenameTest, RenameParkedForLackOfAUserIsTraced) {
    const auto id = cache.renameObject(20, 7, 0, "new name", &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver(0, "new name") + parkTrace(id) + endTrace());
}

TEST_F(RenameTest, RenameParkedForLackOfAServerIdIsTraced) {
    document->idLoaded(false);

    const auto id = cache.renameObject(20, 7, 3, "new name", &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver(3, "new name") + parkTrace(id) + endTrace());
}

TEST_F(RenameTest, RenameParkedForLackOfBothIsTraced) {
    document->idLoaded(false);

    const auto id = cache.renameObject(20, 7, 0, "new name", &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver(0, "new name") + parkTrace(id) + endTrace());
}

TEST_F(RenameTest, LongNameIsTracedWhole) {
    const std::string name(2000, 'x');

    cache.renameObject(20, 7, 3, name, &protocol);

    EXPECT_EQ(trace.text(), traceUpToHandOver(3, name) + endTrace());
}

TEST_F(RenameTest, OnlyTheLinesOfTheCachedNameAreFlushed) {
    const FlushCounter flushes;

    cache.renameObject(20, 7, 3, "new name", &protocol);

    EXPECT_EQ(flushes.count(), 2);
}

// --- renameObject: the operation ---------------------------------------------------------------

TEST_F(RenameTest, EveryArgumentArrivesInItsPlace) {
    const auto id = cache.renameObject(20, 7, 3, "new name", &protocol);

    const auto* sent = wired.onlySent<Nimra::FileOperation>();
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(sent->id(), id);
    EXPECT_EQ(sent->kind(), 6u);
    EXPECT_EQ(sent->protocol(), &protocol);
    EXPECT_EQ(sent->service(), &wired.documents);
    EXPECT_EQ(sent->document().id, 7u);
    EXPECT_EQ(sent->document().parentId, 20u);
    EXPECT_EQ(sent->document().ownerId, 3u);
    EXPECT_EQ(sent->document().name, "new name");
    EXPECT_EQ(sent->document().oldParentId, 0u);
}

TEST_F(RenameTest, FolderIdOfTheCachedItemIsNotTouched) {
    cache.renameObject(20, 7, 3, "new name", &protocol);

    EXPECT_EQ(document->parentId(), 5u);
    EXPECT_EQ(document->oldParentId(), 4u);
}

TEST_F(RenameTest, NameIsSentPlainNotEscaped) {
    cache.renameObject(20, 7, 3, "a & b", &protocol);

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->document().name, "a & b");
    EXPECT_EQ(document->name(), "a & b");
}

TEST_F(RenameTest, EmptyNameIsSetAndSent) {
    cache.renameObject(20, 7, 3, "", &protocol);

    EXPECT_EQ(document->name(), "");
    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->document().name, "");
}

TEST_F(RenameTest, CurrentNameIsSentLikeAnyOther) {
    cache.renameObject(20, 7, 3, "old name", &protocol);

    EXPECT_EQ(document->name(), "old name");
    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->document().name, "old name");
}

TEST_F(RenameTest, WithoutAUserTheItemIsRenamedAndTheOperationParked) {
    const auto first = cache.renameObject(20, 7, 3, "first", &protocol);
    const auto second = cache.renameObject(20, 7, 0, "second", &protocol);

    EXPECT_EQ(document->name(), "second");
    const auto* parked = wired.onlyParked<Nimra::FileOperation>();
    ASSERT_NE(parked, nullptr);
    EXPECT_EQ(parked->id(), second);
    EXPECT_EQ(parked->kind(), 6u);
    EXPECT_EQ(parked->document().ownerId, 0u);
    EXPECT_NE(second, 0u);
    EXPECT_NE(second, first);
}

// --- renameObject: order and locks -------------------------------------------------------------

TEST_F(RenameTest, ItemHasItsNewNameBeforeTheOperationIsSent) {
    std::string nameAtHandOver;
    const WatchingHandler handler([&](auto*) { nameAtHandOver = document->name(); });

    cache.renameObject(20, 7, 3, "new name", &protocol);

    EXPECT_EQ(nameAtHandOver, "new name");
}

TEST_F(RenameTest, ItemHasItsNewNameBeforeTheOperationIsParked) {
    std::string nameAtHandOver;
    WatchingQueue queue([&](auto*) { nameAtHandOver = document->name(); });
    cache.setOpWithoutIdsQueue(&queue);

    cache.renameObject(20, 7, 0, "new name", &protocol);

    EXPECT_EQ(nameAtHandOver, "new name");
}

TEST_F(RenameTest, TraceHasReachedTheParkLineWhenTheOperationIsParked) {
    std::string traceAtHandOver;
    WatchingQueue queue([&](auto*) { traceAtHandOver = trace.text(); });
    cache.setOpWithoutIdsQueue(&queue);

    const auto id = cache.renameObject(20, 7, 0, "new name", &protocol);

    EXPECT_EQ(traceAtHandOver, traceUpToHandOver(0, "new name") + parkTrace(id));
}

TEST_F(RenameTest, NewNameStaysWhenTheHandOverFails) {
    const WatchingHandler handler([](auto*) { throw std::runtime_error("full"); });

    EXPECT_THROW(cache.renameObject(20, 7, 3, "new name", &protocol), std::runtime_error);

    EXPECT_EQ(document->name(), "new name");
    EXPECT_EQ(trace.text(), traceUpToHandOver(3, "new name"));
}

TEST_F(RenameTest, OnlyTheLookUpOfTheFlagIsUnderALock) {
    std::string locked;
    const LineWatcher lines([&](const std::string& line) {
        if (isHeld(wired.probe.itemsMutex()) || isHeld(wired.probe.mutex())) {
            locked += line;
        }
    });

    cache.renameObject(20, 7, 0, "new name", &protocol);

    EXPECT_EQ(locked,
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 5 4 7\n");
}

TEST_F(RenameTest, TheDirectoriesMutexIsNotTaken) {
    EXPECT_TRUE(returnsWhileHeld([this] { cache.renameObject(20, 7, 3, "new name", &protocol); },
                                 wired.probe.mutex()));
}

TEST_F(RenameTest, TheFlagIsLookedUpUnderTheStoresMutex) {
    std::unique_lock held(wired.probe.itemsMutex());

    auto renamed = std::async(
        std::launch::async, [this] { return cache.renameObject(20, 7, 3, "new name", &protocol); });

    EXPECT_EQ(renamed.wait_for(20ms), std::future_status::timeout);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    held.unlock();
    EXPECT_NE(renamed.get(), 0u);
    EXPECT_EQ(wired.handler.operations().size(), 1u);
}

}  // namespace
}  // namespace Ormek::Testing
