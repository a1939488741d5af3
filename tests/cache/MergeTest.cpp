#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <ios>
#include <iostream>
#include <memory>
#include <mutex>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/SilentOutput.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

constexpr auto Patience = std::chrono::seconds(20);
constexpr auto Moment = std::chrono::milliseconds(20);

using Entry = std::shared_ptr<Item>;
using Entries = std::vector<Entry>;
using Folders = std::vector<Nimra::Folder>;
using Documents = std::vector<Nimra::Document>;

// --- What the operations write --------------------------------------------------------------

std::string number(unsigned long value) { return std::to_string(value); }

std::string addItemsLine(const std::string& rest) {
    return "Ormek::DirectoryCache::addItems " + rest + "\n";
}

/// A line with the total that was reported and the number of entries held.
std::string counts(const std::string& label, unsigned long total, unsigned long held) {
    return addItemsLine("query " + label + " " + number(total) + " = " + number(held));
}

std::string opening(unsigned long total, unsigned long pageSize) {
    return addItemsLine("3 " + number(total)) +
           addItemsLine("3.1 filter.count " + number(pageSize));
}

std::string filterOffset(unsigned long offset) { return "filter offset? " + number(offset) + "\n"; }

std::string notInStore(unsigned long id) {
    return "Ormek::DirectoryCache::getItem 1\n"
           "Ormek::DirectoryCache::getItem didnt find item with id: " +
           number(id) + "\n";
}

std::string inStore(unsigned long parentId, unsigned long oldParentId, unsigned long id) {
    return "Ormek::DirectoryCache::getItem 1\n"
           "Ormek::DirectoryCache::getItem 1.2 parentId: " +
           number(parentId) + " " + number(oldParentId) + " " + number(id) + "\n";
}

std::string converted(const ObjectUpdater* updater) {
    return "::DirectoryCache::getContainer() " + address(updater) + "\n";
}

const std::string ContainerStored = "Ormek::DirectoryCache::cacheContainerPtr 1 \n";

std::string objectStored(unsigned long id) {
    return "--------OBJECT ID:  " + number(id) + "------------\n";
}

const std::string Refreshing = "------> addItems ELSE statement \n";
const std::string Making = "------> addItems if statement item == NULL \n";

std::string refreshed(unsigned long parentId, unsigned long oldParentId, unsigned long id,
                      const std::string& newName) {
    return "DEBUG 1\n" + inStore(parentId, oldParentId, id) +
           "DEBUG 2\nDEBUG 3\nDEBUG 4\nDEBUG 5\nDEBUG 6\n"
           "\nOrmek::DirectoryCache::addObject: " +
           newName + "\n" + objectStored(id) + "DEBUG 7\n";
}

std::string notAnObject(unsigned long parentId, unsigned long oldParentId, unsigned long id) {
    return "DEBUG 1\n" + inStore(parentId, oldParentId, id) + "DEBUG 2\nDEBUG 3\nDEBUG 8\n";
}

std::string keyedAnew(unsigned long oldId, unsigned long newId, const std::string& name) {
    const std::string label = "Ormek::DirectoryCache::updateItemId ";
    return label + "UPDATED ITEM TO NEWID: " + number(oldId) + " " + name + "\n" +  //
           label + "UPDATED ITEM TO NEWID: " + number(newId) + "\n" +               //
           label + "IDLOADED: 1\n" +                                                //
           label + "IDLOADED: " + number(newId) + "\n";
}

const std::string DocumentsAdded = addItemsLine("Items were added to dir.");

// --- Records --------------------------------------------------------------------------------

constexpr unsigned long Parent = 5;

Nimra::Folder folder(unsigned long id, std::string name = "folder") {
    return Nimra::Folder(id, Parent, 3, std::move(name));
}

Nimra::Document document(unsigned long id, std::string name = "document") {
    return Nimra::Document(id, Parent, 3, std::move(name));
}

/// A document with a value of its own in every field that the cache reads.
Nimra::Document fullDocument(unsigned long id) {
    Nimra::Document record(id, 51, 31, "new name");
    record.created = 101;
    record.updated = 102;
    record.deleted = 103;
    record.length = 104;
    record.state = 7;
    record.mimeType = "text/new";
    record.description = "new description";
    record.aclMode = 6;
    record.shares = {{31, {ShareData{1, 31, 2, 3}}}};
    record.addKeyValue("key", {"new value", true});
    return record;
}

// --- Watching -------------------------------------------------------------------------------

/// Takes the place of std::cout's buffer. Calls `onWrite` for every write; its text may be read
/// and waited for while another thread writes.
class WatchedTrace : private std::streambuf {
  public:
    WatchedTrace() : _previous(std::cout.rdbuf(this)) {}
    WatchedTrace(const WatchedTrace&) = delete;
    WatchedTrace& operator=(const WatchedTrace&) = delete;
    ~WatchedTrace() override { std::cout.rdbuf(_previous); }

    std::string text() const {
        const std::lock_guard guard(_mutex);
        return _text;
    }
    /// Whether the text becomes exactly this.
    bool becomes(const std::string& expected) {
        std::unique_lock guard(_mutex);
        return _grown.wait_for(guard, Patience, [&] { return _text == expected; });
    }

    std::function<void(const std::string&)> onWrite = [](const std::string&) {};

  private:
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        write(std::string(text, static_cast<std::size_t>(size)));
        return size;
    }
    int_type overflow(int_type character) override {
        write(std::string(1, traits_type::to_char_type(character)));
        return character;
    }
    void write(const std::string& text) {
        onWrite(text);
        const std::lock_guard guard(_mutex);
        _text += text;
        _grown.notify_all();
    }

    mutable std::mutex _mutex;
    std::condition_variable _grown;
    std::string _text;
    std::streambuf* _previous;
};

/// "store", "directories", "both" or "none", for the mutexes that are held now.
std::string heldLocks(DirectoryCacheProbe& probe) {
    const bool store = isHeld(probe.itemsMutex());
    const bool directories = isHeld(probe.mutex());
    if (store && directories) return "both";
    return store ? "store" : directories ? "directories" : "none";
}

/// Prefixes every line of `text`, for comparison with what a watched trace was seen to hold.
std::string under(const std::string& locks, const std::string& text) {
    std::string result;
    for (std::size_t start = 0; start < text.size();) {
        const auto feed = text.find('\n', start);
        const auto end = feed == std::string::npos ? text.size() : feed + 1;
        result += locks + "|" + text.substr(start, end - start);
        start = end;
    }
    return result;
}

QueryResultInternal& internal(const std::shared_ptr<QueryResult>& directory) {
    return dynamic_cast<QueryResultInternal&>(*directory);
}

class MergeTest : public testing::Test {
  protected:
    /// A result set that the cache does not know.
    static std::shared_ptr<QueryResult> resultSet(const FilterInternal& listing) {
        return std::make_shared<QueryResultInternal>(listing);
    }

    /// A directory of the cache.
    std::shared_ptr<QueryResult> addDirectory(const FilterInternal& listing) {
        wired.probe.directories().push_back(resultSet(listing));
        return wired.probe.directories().back();
    }

    template <class Kind>
    std::shared_ptr<Kind> stored(std::shared_ptr<Kind> item) {
        wired.probe.items()[item->id()] = item;
        return item;
    }

    Entry inTheStore(unsigned long id) {
        const auto found = wired.probe.items().find(id);
        return found == wired.probe.items().end() ? nullptr : found->second;
    }

    std::shared_ptr<ObjectInternal> objectAt(unsigned long id) {
        return std::dynamic_pointer_cast<ObjectInternal>(inTheStore(id));
    }

    std::shared_ptr<ContainerInternal> containerAt(unsigned long id) {
        return std::dynamic_pointer_cast<ContainerInternal>(inTheStore(id));
    }

    std::string convertedHere() const { return converted(&wired.updater); }

    /// The trace of `call`, every line with the locks under which it was written.
    std::string withLocks(const std::function<void()>& call) {
        WatchedTrace watched;
        std::string seen;
        watched.onWrite = [&](const std::string& text) {
            seen += under(heldLocks(wired.probe), text);
        };
        call();
        return seen;
    }

    const FilterInternal filter = folderFilter(Parent);
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    TraceCapture trace;
    std::shared_ptr<QueryResult> result = resultSet(filter);
};

class MergeFoldersTest : public MergeTest {};
class MergeDocumentsTest : public MergeTest {};
class RemoteMoveTest : public MergeTest {};

// --- Folders and documents ------------------------------------------------------------------

TEST_F(MergeTest, EmptyPageRecordsThePageAndTheTotal) {
    const auto page = folderFilter(Parent, 20, 10);

    cache.addItems(page, result, Folders(), Documents(), 20);

    EXPECT_TRUE(internal(result).isPageLoaded(page));
    EXPECT_EQ(result->totalCount(), 20u);
    EXPECT_TRUE(result->items().empty());
    EXPECT_TRUE(wired.probe.items().empty());
    EXPECT_EQ(trace.text(), opening(20, 10) + counts("count", 20, 0) + counts("count2c", 20, 0) +
                                filterOffset(20) + counts("count2a", 20, 0) +
                                counts("count2b", 20, 0));
}

TEST_F(MergeTest, EmptyPageIsPlacedAtItsOffset) {
    internal(result).addItems(0, {makeObject(1, Parent, "stays"), makeObject(2, Parent, "leaves")});

    cache.addItems(folderFilter(Parent, 1, 10), result, Folders(), Documents(), 1);

    ASSERT_EQ(result->items().size(), 1u);
    EXPECT_EQ(result->items().front()->name(), "stays");
}

TEST_F(MergeTest, NewEntriesAreMadeAndListedFoldersFirst) {
    cache.addItems(filter, result, Folders{folder(9), folder(8)},
                   Documents{document(2), document(1)}, 4);

    EXPECT_EQ(wired.probe.items().size(), 4u);
    EXPECT_EQ(result->items(), (Entries{containerAt(9), containerAt(8), objectAt(2), objectAt(1)}));
    for (const auto& item : result->items()) {
        ASSERT_NE(item, nullptr);
        EXPECT_TRUE(item->idLoaded());
        EXPECT_EQ(item->parentId(), Parent);
    }
}

TEST_F(MergeTest, NewEntriesAreTraced) {
    cache.addItems(filter, result, Folders{folder(9), folder(8)}, Documents{document(1)}, 3);

    EXPECT_EQ(trace.text(), opening(3, 100) + counts("count", 3, 0) +                //
                                convertedHere() + notInStore(9) + ContainerStored +  //
                                convertedHere() + notInStore(8) + ContainerStored +  //
                                counts("count2c", 3, 0) +                            //
                                notInStore(1) + Making + objectStored(1) +           //
                                filterOffset(0) + counts("count2a", 3, 0) +
                                counts("count2b", 3, 3));
}

TEST_F(MergeTest, CachedEntriesAreTraced) {
    stored(makeContainer(9, 70, "old folder"))->oldParentId(71);
    stored(makeObject(1, 72, "old document"))->oldParentId(73);

    cache.addItems(filter, result, Folders{folder(9)}, Documents{document(1, "new")}, 2);

    EXPECT_EQ(trace.text(), opening(2, 100) + counts("count", 2, 0) +        //
                                convertedHere() + inStore(70, 71, 9) +       //
                                counts("count2c", 2, 0) +                    //
                                inStore(72, 73, 1) + Refreshing +            //
                                refreshed(72, 73, 1, "new") +                //
                                filterOffset(0) + counts("count2a", 2, 0) +  //
                                counts("count2b", 2, 2));
}

TEST_F(MergeTest, CountLinesFollowTheDirectoryThatIsEditedMeanwhile) {
    const auto directory = addDirectory(filter);
    stored(makeObject(1, Parent, "old"));

    cache.addItems(filter, directory, Folders(), Documents{document(1, "new")}, 1);

    EXPECT_EQ(trace.text(),
              opening(1, 100) + counts("count", 1, 0) + counts("count2c", 1, 0) +
                  inStore(Parent, 0, 1) + Refreshing + refreshed(Parent, 0, 1, "new") +  //
                  filterOffset(0) + counts("count2a", 1, 1) + counts("count2b", 1, 1));
}

TEST_F(MergeTest, PageIsThatOfTheFilterPassed) {
    const auto page = folderFilter(Parent, 2, 3);

    cache.addItems(page, result, Folders{folder(9)}, Documents{document(1), document(2)}, 5);

    EXPECT_TRUE(internal(result).isPageLoaded(page));
    EXPECT_FALSE(internal(result).isPageLoaded(folderFilter(Parent, 0, 3)));
    EXPECT_EQ(result->totalCount(), 5u);
    EXPECT_EQ(result->page(2, 3), (Entries{containerAt(9), objectAt(1), objectAt(2)}));
    EXPECT_TRUE(result->page(0, 2).empty());
    EXPECT_TRUE(internal(result).filter().equals(filter));
}

TEST_F(MergeTest, PagesStandInTheOrderOfTheListing) {
    cache.addItems(folderFilter(Parent, 2, 2), result, Folders(),
                   Documents{document(3), document(4)}, 4);
    cache.addItems(folderFilter(Parent, 0, 2), result, Folders{folder(9)}, Documents{document(2)},
                   4);

    EXPECT_EQ(result->items(), (Entries{containerAt(9), objectAt(2), objectAt(3), objectAt(4)}));
}

TEST_F(MergeTest, WholePageReplacesWhatStoodThere) {
    cache.addItems(filter, result, Folders{folder(9)}, Documents{document(1), document(2)}, 3);

    cache.addItems(filter, result, Folders(), Documents{document(2)}, 1);

    EXPECT_EQ(result->items(), Entries{objectAt(2)});
    EXPECT_NE(inTheStore(9), nullptr);
    EXPECT_NE(inTheStore(1), nullptr);
}

TEST_F(MergeTest, DeliveredPageIsAnsweredFromMemory) {
    Nimra::ItemEventProtocol listener;
    cache.get(filter, result, &listener);
    const auto directory = result;

    cache.addItems(filter, directory, Folders{folder(9)}, Documents{document(1)}, 2);

    EXPECT_EQ(cache.get(filter, result, &listener), 0u);
    EXPECT_EQ(result, directory);
    EXPECT_EQ(result->items(), (Entries{containerAt(9), objectAt(1)}));
}

TEST_F(MergeTest, PageMayGoToADirectoryThatTheCacheDoesNotKnow) {
    const auto known = addDirectory(filter);

    cache.addItems(filter, result, Folders{folder(9)}, Documents{document(1)}, 2);

    EXPECT_EQ(result->items().size(), 2u);
    EXPECT_TRUE(known->items().empty());
    EXPECT_FALSE(internal(known).isPageLoaded(filter));
}

TEST_F(MergeTest, NewEntriesAreMadeWithTheUpdaterAndTheRecordsFields) {
    auto folderRecord = folder(9, "sub");
    folderRecord.driveId = 44;
    folderRecord.created = 45;

    cache.addItems(filter, result, Folders{folderRecord}, Documents{fullDocument(1)}, 2);

    ASSERT_NE(containerAt(9), nullptr);
    EXPECT_EQ(containerAt(9)->objectUpdater(), &wired.updater);
    EXPECT_EQ(containerAt(9)->name(), "sub");
    EXPECT_EQ(containerAt(9)->driveId(), 44u);
    EXPECT_EQ(containerAt(9)->created(), 45u);
    EXPECT_EQ(containerAt(9)->type(), 8);
    ASSERT_NE(objectAt(1), nullptr);
    EXPECT_EQ(objectAt(1)->objectUpdater(), &wired.updater);
    EXPECT_EQ(objectAt(1)->name(), "new name");
    EXPECT_EQ(objectAt(1)->length(), 104u);
    EXPECT_EQ(objectAt(1)->_state, 7);
    EXPECT_EQ(objectAt(1)->type(), 4);
}

TEST_F(MergeTest, OnlyRefreshedDocumentsHaveTheirDataLoaded) {
    stored(makeObject(1, Parent, "old"));

    cache.addItems(filter, result, Folders{folder(9)}, Documents{document(1), document(2)}, 3);

    EXPECT_TRUE(objectAt(1)->dataLoaded());
    EXPECT_FALSE(objectAt(2)->dataLoaded());
    EXPECT_FALSE(containerAt(9)->dataLoaded());
}

TEST_F(MergeTest, CachedFolderIsListedAsItIs) {
    const auto kept = stored(makeContainer(9, 70, "old"));

    cache.addItems(filter, result, Folders{folder(9, "new")}, Documents(), 1);

    EXPECT_EQ(inTheStore(9), kept);
    EXPECT_EQ(result->items(), Entries{kept});
    EXPECT_EQ(kept->name(), "old");
    EXPECT_EQ(kept->parentId(), 70u);
    EXPECT_TRUE(kept->idLoaded());
}

TEST_F(MergeTest, CachedDocumentKeepsItsObjectAndIsRefreshed) {
    const auto kept = stored(makeObject(1, 70, "old"));
    kept->oldParentId(71);
    kept->driveId(72);
    kept->type(0);

    cache.addItems(filter, result, Folders(), Documents{fullDocument(1)}, 1);

    EXPECT_EQ(inTheStore(1), kept);
    EXPECT_EQ(result->items(), Entries{kept});
    EXPECT_EQ(kept->id(), 1u);
    EXPECT_EQ(kept->parentId(), 51u);
    EXPECT_EQ(kept->name(), "new name");
    EXPECT_EQ(kept->ownerId(), 31u);
    EXPECT_EQ(kept->created(), 101u);
    EXPECT_EQ(kept->updated(), 102u);
    EXPECT_EQ(kept->deleted(), 103u);
    EXPECT_EQ(kept->length(), 104u);
    EXPECT_EQ(kept->_state, 7);
    EXPECT_EQ(kept->type(), 4);
    EXPECT_EQ(kept->keyValues(), fullDocument(1).keyValues());
    EXPECT_EQ(kept->mimeType(), "text/new");
    EXPECT_EQ(kept->description(), "new description");
    EXPECT_EQ(kept->shares(), fullDocument(1).shares);
    EXPECT_EQ(kept->ACLMap(), (std::map<unsigned long, int>{{31, 6}}));
    EXPECT_TRUE(kept->dataLoaded());
    EXPECT_TRUE(kept->idLoaded());
    EXPECT_EQ(kept->oldParentId(), 71u);
    EXPECT_EQ(kept->driveId(), 72u);
}

TEST_F(MergeTest, RefreshReplacesSharesAndKeyValuesWholeAndAddsAnAccessRow) {
    const auto kept = stored(makeObject(1, Parent, "old"));
    kept->shares({{99, {ShareData{}}}});
    kept->setKeyValues({{"gone", {"x", false}}});
    kept->setACLMap(99, 1);

    cache.addItems(filter, result, Folders(), Documents{fullDocument(1)}, 1);

    EXPECT_EQ(kept->shares(), fullDocument(1).shares);
    EXPECT_EQ(kept->keyValues(), fullDocument(1).keyValues());
    EXPECT_EQ(kept->ACLMap(), (std::map<unsigned long, int>{{31, 6}, {99, 1}}));
}

TEST_F(MergeTest, RefreshedDocumentIsListedOnceInItsOwnDirectory) {
    const auto directory = addDirectory(filter);
    cache.addItems(filter, directory, Folders(), Documents{document(1, "a"), document(2, "b")}, 2);

    cache.addItems(filter, directory, Folders(), Documents{document(1, "c"), document(2, "b")}, 2);

    EXPECT_EQ(directory->items(), (Entries{objectAt(1), objectAt(2)}));
    EXPECT_EQ(objectAt(1)->name(), "c");
    EXPECT_TRUE(internal(directory).isPageCurrent(filter));
}

TEST_F(MergeTest, RefreshedDocumentAlsoJoinsTheFirstDirectoryItMatches) {
    const auto first = addDirectory(filter);
    const auto second = addDirectory(filter);
    const auto kept = stored(makeObject(1, 70, "old"));

    cache.addItems(filter, result, Folders(), Documents{document(1)}, 1);

    EXPECT_EQ(first->items(), Entries{kept});
    EXPECT_TRUE(second->items().empty());
    EXPECT_EQ(result->items(), Entries{kept});
}

TEST_F(MergeTest, NamesakeOnAnotherPageStays) {
    const auto directory = addDirectory(filter);
    cache.addItems(folderFilter(Parent, 0, 1), directory, Folders(), Documents{document(1, "x")},
                   2);
    stored(makeObject(2, 70, "cached, not listed"));

    cache.addItems(folderFilter(Parent, 1, 1), directory, Folders(), Documents{document(2, "x")},
                   2);

    EXPECT_EQ(directory->items(), (Entries{objectAt(1), objectAt(2)}));
}

TEST_F(MergeTest, RepeatedRecordsAreListedOncePerRepetition) {
    cache.addItems(filter, result, Folders{folder(9), folder(9)},
                   Documents{document(1), document(1)}, 4);

    EXPECT_EQ(wired.probe.items().size(), 2u);
    EXPECT_EQ(result->items(), (Entries{containerAt(9), containerAt(9), objectAt(1), objectAt(1)}));
}

TEST_F(MergeTest, FolderRecordUnderTheIdOfAnObjectListsTheObject) {
    const auto kept = stored(makeObject(9, Parent, "object"));

    cache.addItems(filter, result, Folders{folder(9)}, Documents(), 1);

    EXPECT_EQ(inTheStore(9), kept);
    EXPECT_EQ(result->items(), Entries{kept});
    EXPECT_EQ(kept->name(), "object");
    EXPECT_EQ(kept->type(), 4);
    EXPECT_TRUE(kept->idLoaded());
    EXPECT_EQ(trace.text(), opening(1, 100) + counts("count", 1, 0) + convertedHere() +
                                inStore(Parent, 0, 9) + counts("count2c", 1, 0) + filterOffset(0) +
                                counts("count2a", 1, 0) + counts("count2b", 1, 1));
}

TEST_F(MergeTest, DocumentRecordUnderTheIdOfAContainerListsNothing) {
    const auto kept = stored(makeContainer(1, Parent, "container"));

    cache.addItems(filter, result, Folders(), Documents{document(1), document(2)}, 2);

    EXPECT_EQ(inTheStore(1), kept);
    EXPECT_EQ(kept->name(), "container");
    EXPECT_TRUE(kept->idLoaded());
    EXPECT_EQ(result->items(), Entries{objectAt(2)});
    EXPECT_EQ(result->page(1, 1), Entries{objectAt(2)});
    EXPECT_EQ(trace.text(), opening(2, 100) + counts("count", 2, 0) + counts("count2c", 2, 0) +
                                inStore(Parent, 0, 1) + Refreshing + notAnObject(Parent, 0, 1) +
                                notInStore(2) + Making + objectStored(2) + filterOffset(0) +
                                counts("count2a", 2, 0) + counts("count2b", 2, 1));
}

TEST_F(MergeTest, FolderAndDocumentOfOneIdListTheFolderAlone) {
    cache.addItems(filter, result, Folders{folder(1)}, Documents{document(1)}, 2);

    ASSERT_NE(containerAt(1), nullptr);
    EXPECT_EQ(result->items(), Entries{containerAt(1)});
}

TEST_F(MergeTest, EmptyEntriesOfTheStoreStayEmptyAndKeepTheirPosition) {
    wired.probe.items()[9] = nullptr;
    wired.probe.items()[1] = nullptr;

    cache.addItems(filter, result, Folders{folder(9), folder(8)},
                   Documents{document(1), document(2)}, 4);

    EXPECT_EQ(wired.probe.items().size(), 4u);
    EXPECT_EQ(inTheStore(9), nullptr);
    EXPECT_EQ(inTheStore(1), nullptr);
    EXPECT_EQ(result->items(), (Entries{containerAt(8), objectAt(2)}));
    EXPECT_EQ(result->page(1, 1), Entries{containerAt(8)});
    EXPECT_EQ(result->page(3, 1), Entries{objectAt(2)});
    EXPECT_EQ(trace.text(), opening(4, 100) + counts("count", 4, 0) +                //
                                convertedHere() + notInStore(9) + ContainerStored +  //
                                convertedHere() + notInStore(8) + ContainerStored +  //
                                counts("count2c", 4, 0) +                            //
                                notInStore(1) + Making + objectStored(1) +           //
                                notInStore(2) + Making + objectStored(2) +           //
                                filterOffset(0) + counts("count2a", 4, 0) +
                                counts("count2b", 4, 2));
}

TEST_F(MergeTest, LocksAreNarrowAndNeverTakenTogether) {
    stored(makeContainer(9, Parent, "cached"));
    stored(makeObject(1, Parent, "cached"));

    const auto seen = withLocks([&] {
        cache.addItems(filter, result, Folders{folder(9), folder(8)},
                       Documents{document(1, "new"), document(2)}, 4);
    });

    EXPECT_EQ(seen, under("none", opening(4, 100) + counts("count", 4, 0)) +  //
                        under("none", convertedHere()) +                      //
                        under("store", inStore(Parent, 0, 9)) +               //
                        under("none", convertedHere()) +                      //
                        under("store", notInStore(8) + ContainerStored) +     //
                        under("none", counts("count2c", 4, 0)) +              //
                        under("store", inStore(Parent, 0, 1)) +               //
                        under("none", Refreshing + "DEBUG 1\n") +             //
                        under("store", inStore(Parent, 0, 1)) +               //
                        under("none",
                              "DEBUG 2\nDEBUG 3\nDEBUG 4\nDEBUG 5\nDEBUG 6\n"
                              "\nOrmek::DirectoryCache::addObject: new\n") +  //
                        under("store", objectStored(1)) +                     //
                        under("none", "DEBUG 7\n") +                          //
                        under("store", notInStore(2)) +                       //
                        under("none", Making) +                               //
                        under("store", objectStored(2)) +                     //
                        under("none", filterOffset(0)) +                      //
                        under("directories", counts("count2a", 4, 0) + counts("count2b", 4, 4)));
}

TEST_F(MergeTest, EditWaitsForTheDirectoriesMutexAndNothingElseDoes) {
    WatchedTrace watched;
    std::future<void> done;
    {
        const std::lock_guard held(wired.probe.mutex());
        done = std::async(std::launch::async, [this] {
            cache.addItems(filter, result, Folders{folder(9)}, Documents{document(1)}, 2);
        });
        EXPECT_TRUE(watched.becomes(opening(2, 100) + counts("count", 2, 0) + convertedHere() +
                                    notInStore(9) + ContainerStored + counts("count2c", 2, 0) +
                                    notInStore(1) + Making + objectStored(1) + filterOffset(0)));
        EXPECT_EQ(done.wait_for(Moment), std::future_status::timeout);
        EXPECT_TRUE(internal(result).isPageLoaded(filter));
        EXPECT_EQ(result->totalCount(), 2u);
        EXPECT_TRUE(result->items().empty());
    }
    done.get();
    EXPECT_EQ(result->items().size(), 2u);
}

TEST_F(MergeTest, LookUpWaitsForTheStoresMutex) {
    WatchedTrace watched;
    std::future<void> done;
    {
        const std::lock_guard held(wired.probe.itemsMutex());
        done = std::async(std::launch::async, [this] {
            cache.addItems(filter, result, Folders(), Documents{document(1)}, 1);
        });
        EXPECT_TRUE(
            watched.becomes(opening(1, 100) + counts("count", 1, 0) + counts("count2c", 1, 0)));
        EXPECT_EQ(done.wait_for(Moment), std::future_status::timeout);
    }
    done.get();
    EXPECT_EQ(result->items().size(), 1u);
}

TEST_F(MergeTest, EmptyPageDoesNotTouchTheStoresMutex) {
    std::future<void> done;
    const std::lock_guard held(wired.probe.itemsMutex());
    done = std::async(std::launch::async, [this] {
        cache.addItems(filter, result, Folders(), Documents(), 0);
        cache.addItems(filter, result, Folders(), 0);
        cache.addItems(filter, result, Documents(), 0);
    });
    EXPECT_EQ(done.wait_for(Patience), std::future_status::ready);
}

/// Entries that tell, when they go, which mutexes are held.
template <class Kind>
class Leaving : public Kind {
  public:
    template <class... Arguments>
    Leaving(DirectoryCacheProbe& probe, std::string& locks, Arguments&&... arguments)
        : Kind(std::forward<Arguments>(arguments)...), _probe(probe), _locks(locks) {}
    ~Leaving() override { _locks = heldLocks(_probe); }

  private:
    DirectoryCacheProbe& _probe;
    std::string& _locks;
};

using LeavingObject = Leaving<ObjectInternal>;
using LeavingContainer = Leaving<ContainerInternal>;

TEST_F(MergeTest, DirectoryIsEditedUnderTheDirectoriesMutex) {
    std::string locks;
    internal(result).addItems(0, {std::make_shared<LeavingObject>(wired.probe, locks, nullptr)});

    cache.addItems(filter, result, Folders{folder(9)}, Documents(), 1);

    EXPECT_EQ(locks, "directories");
}

TEST_F(MergeFoldersTest, DirectoryIsEditedUnderTheDirectoriesMutex) {
    std::string locks;
    internal(result).addItems(
        0, {std::make_shared<LeavingContainer>(wired.probe, locks, folder(99), nullptr)});

    cache.addItems(filter, result, Folders{folder(9)}, 1);

    EXPECT_EQ(locks, "directories");
}

TEST_F(MergeDocumentsTest, DirectoryIsEditedUnderTheDirectoriesMutex) {
    std::string locks;
    internal(result).addItems(0, {std::make_shared<LeavingObject>(wired.probe, locks, nullptr)});

    cache.addItems(filter, result, Documents{document(1)}, 1);

    EXPECT_EQ(locks, "directories");
}

// --- Folders alone --------------------------------------------------------------------------

TEST_F(MergeFoldersTest, EmptyPageRecordsThePageAndTheTotal) {
    const auto page = folderFilter(Parent, 20, 10);

    cache.addItems(page, result, Folders(), 20);

    EXPECT_TRUE(internal(result).isPageLoaded(page));
    EXPECT_EQ(result->totalCount(), 20u);
    EXPECT_TRUE(result->items().empty());
    EXPECT_EQ(trace.text(), addItemsLine("1 20") + addItemsLine("3 20") + addItemsLine("2 20"));
}

TEST_F(MergeFoldersTest, NewFoldersAreMadeAndListed) {
    cache.addItems(filter, result, Folders{folder(9, "b"), folder(8, "a")}, 2);

    ASSERT_NE(containerAt(9), nullptr);
    ASSERT_NE(containerAt(8), nullptr);
    EXPECT_EQ(result->items(), (Entries{containerAt(9), containerAt(8)}));
    EXPECT_TRUE(containerAt(9)->idLoaded());
    EXPECT_TRUE(containerAt(8)->idLoaded());
    EXPECT_EQ(containerAt(9)->name(), "b");
    EXPECT_EQ(containerAt(9)->objectUpdater(), &wired.updater);
    EXPECT_EQ(wired.probe.items().size(), 2u);
}

TEST_F(MergeFoldersTest, EveryNumberedLinePrintsTheTotal) {
    const auto kept = stored(makeContainer(9, 70, "cached"));
    kept->oldParentId(71);

    cache.addItems(filter, result, Folders{folder(9), folder(8)}, 1234);

    EXPECT_EQ(trace.text(),
              addItemsLine("1 1234") + addItemsLine("3 1234") +       //
                  convertedHere() + inStore(70, 71, 9) +              //
                  addItemsLine("4 1234") + addItemsLine("6 1234") +   //
                  addItemsLine("8" + address(inTheStore(9).get())) +  //
                  addItemsLine("7 1234") +                            //
                  convertedHere() + notInStore(8) +                   //
                  addItemsLine("4 1234") + ContainerStored +          //
                  addItemsLine("5 1234") + addItemsLine("6 1234") +   //
                  addItemsLine("8" + address(inTheStore(8).get())) +  //
                  addItemsLine("7 1234") +                            //
                  addItemsLine("2 1234"));
}

TEST_F(MergeFoldersTest, CachedFolderIsListedAsItIs) {
    const auto kept = stored(makeContainer(9, 70, "old"));

    cache.addItems(filter, result, Folders{folder(9, "new")}, 1);

    EXPECT_EQ(inTheStore(9), kept);
    EXPECT_EQ(result->items(), Entries{kept});
    EXPECT_EQ(kept->name(), "old");
    EXPECT_TRUE(kept->idLoaded());
}

TEST_F(MergeFoldersTest, PageIsThatOfTheFilterPassed) {
    const auto page = folderFilter(Parent, 2, 3);

    cache.addItems(page, result, Folders{folder(9)}, 3);

    EXPECT_TRUE(internal(result).isPageLoaded(page));
    EXPECT_FALSE(internal(result).isPageLoaded(folderFilter(Parent, 0, 3)));
    EXPECT_EQ(result->totalCount(), 3u);
    EXPECT_EQ(result->page(2, 1), Entries{containerAt(9)});
}

TEST_F(MergeFoldersTest, DocumentsOfThePageStay) {
    cache.addItems(filter, result, Folders{folder(9), folder(8)}, Documents{document(1)}, 3);

    cache.addItems(filter, result, Folders{folder(8), folder(7)}, 3);

    EXPECT_EQ(result->items(), (Entries{containerAt(8), containerAt(7), objectAt(1)}));
}

TEST_F(MergeFoldersTest, RepeatedFolderIsListedOncePerRepetition) {
    cache.addItems(filter, result, Folders{folder(9), folder(9)}, 2);

    EXPECT_EQ(wired.probe.items().size(), 1u);
    EXPECT_EQ(result->items(), (Entries{containerAt(9), containerAt(9)}));
}

TEST_F(MergeFoldersTest, FolderRecordUnderTheIdOfAnObjectListsTheObject) {
    const auto kept = stored(makeObject(9, Parent, "object"));

    cache.addItems(filter, result, Folders{folder(9)}, 1);

    EXPECT_EQ(inTheStore(9), kept);
    EXPECT_EQ(result->items(), Entries{kept});
    EXPECT_TRUE(kept->idLoaded());
    EXPECT_EQ(kept->name(), "object");
}

TEST_F(MergeFoldersTest, EmptyEntryOfTheStoreIsTracedAsNullAndKeepsItsPosition) {
    wired.probe.items()[9] = nullptr;

    cache.addItems(filter, result, Folders{folder(9), folder(8)}, 2);

    EXPECT_EQ(wired.probe.items().count(9), 1u);
    EXPECT_EQ(inTheStore(9), nullptr);
    EXPECT_EQ(result->items(), Entries{containerAt(8)});
    EXPECT_EQ(result->page(1, 1), Entries{containerAt(8)});
    EXPECT_EQ(trace.text(),
              addItemsLine("1 2") + addItemsLine("3 2") +                                   //
                  convertedHere() + notInStore(9) + addItemsLine("4 2") +                   //
                  ContainerStored + addItemsLine("5 2") + addItemsLine("6 2") +             //
                  addItemsLine("80") + addItemsLine("7 2") +                                //
                  convertedHere() + notInStore(8) + addItemsLine("4 2") +                   //
                  ContainerStored + addItemsLine("5 2") + addItemsLine("6 2") +             //
                  addItemsLine("8" + address(inTheStore(8).get())) + addItemsLine("7 2") +  //
                  addItemsLine("2 2"));
}

TEST_F(MergeFoldersTest, LocksAreNarrowAndNeverTakenTogether) {
    stored(makeContainer(9, Parent, "cached"));

    const auto seen = withLocks([&] {
        cache.addItems(filter, result, Folders{folder(9), folder(8)}, 2);
    });

    EXPECT_EQ(seen, under("none", addItemsLine("1 2") + addItemsLine("3 2")) +  //
                        under("none", convertedHere()) +                        //
                        under("store", inStore(Parent, 0, 9)) +                 //
                        under("none", addItemsLine("4 2") + addItemsLine("6 2") +
                                          addItemsLine("8" + address(inTheStore(9).get())) +
                                          addItemsLine("7 2")) +  //
                        under("none", convertedHere()) +          //
                        under("store", notInStore(8)) +           //
                        under("none", addItemsLine("4 2")) +      //
                        under("store", ContainerStored) +         //
                        under("none", addItemsLine("5 2") + addItemsLine("6 2") +
                                          addItemsLine("8" + address(inTheStore(8).get())) +
                                          addItemsLine("7 2")) +  //
                        under("none", addItemsLine("2 2")));
}

TEST_F(MergeFoldersTest, EditWaitsForTheDirectoriesMutexAndNothingElseDoes) {
    WatchedTrace watched;
    std::future<void> done;
    {
        const std::lock_guard held(wired.probe.mutex());
        done = std::async(std::launch::async,
                          [this] { cache.addItems(filter, result, Folders(), 0); });
        EXPECT_TRUE(watched.becomes(addItemsLine("1 0") + addItemsLine("3 0")));
        EXPECT_EQ(done.wait_for(Moment), std::future_status::timeout);
        EXPECT_TRUE(internal(result).isPageLoaded(filter));
    }
    done.get();
    EXPECT_EQ(watched.text(), addItemsLine("1 0") + addItemsLine("3 0") + addItemsLine("2 0"));
}

TEST_F(MergeFoldersTest, LookUpWaitsForTheStoresMutex) {
    WatchedTrace watched;
    std::future<void> done;
    {
        const std::lock_guard held(wired.probe.itemsMutex());
        done = std::async(std::launch::async,
                          [this] { cache.addItems(filter, result, Folders{folder(9)}, 1); });
        EXPECT_TRUE(watched.becomes(addItemsLine("1 1") + addItemsLine("3 1") + convertedHere()));
        EXPECT_EQ(done.wait_for(Moment), std::future_status::timeout);
    }
    done.get();
    EXPECT_EQ(result->items().size(), 1u);
}

// --- Documents alone ------------------------------------------------------------------------

TEST_F(MergeDocumentsTest, EmptyPageRecordsThePageAndTheTotal) {
    const auto page = folderFilter(Parent, 20, 10);

    cache.addItems(page, result, Documents(), 20);

    EXPECT_TRUE(internal(result).isPageLoaded(page));
    EXPECT_EQ(result->totalCount(), 20u);
    EXPECT_TRUE(result->items().empty());
    EXPECT_EQ(trace.text(), addItemsLine("2 20") + DocumentsAdded);
}

TEST_F(MergeDocumentsTest, NewDocumentsAreMadeKeyedAndListed) {
    cache.addItems(filter, result, Documents{document(2), fullDocument(1)}, 2);

    ASSERT_NE(objectAt(2), nullptr);
    ASSERT_NE(objectAt(1), nullptr);
    EXPECT_EQ(result->items(), (Entries{objectAt(2), objectAt(1)}));
    EXPECT_EQ(wired.probe.items().size(), 2u);
    EXPECT_TRUE(objectAt(1)->idLoaded());
    EXPECT_TRUE(objectAt(2)->idLoaded());
    EXPECT_FALSE(objectAt(1)->dataLoaded());
    EXPECT_EQ(objectAt(1)->objectUpdater(), &wired.updater);
    EXPECT_EQ(objectAt(1)->mimeType(), "text/new");
}

TEST_F(MergeDocumentsTest, NewDocumentIsTraced) {
    cache.addItems(filter, result, Documents{document(1, "a")}, 1);

    EXPECT_EQ(trace.text(), addItemsLine("2 1") + notInStore(1) + objectStored(1) +
                                keyedAnew(1, 1, "a") + DocumentsAdded);
}

TEST_F(MergeDocumentsTest, CachedDocumentIsTraced) {
    stored(makeObject(1, 72, "old"))->oldParentId(73);

    cache.addItems(filter, result, Documents{document(1, "new"), document(2, "b")}, 2);

    EXPECT_EQ(trace.text(),
              addItemsLine("2 2") + inStore(72, 73, 1) + refreshed(72, 73, 1, "new") +  //
                  notInStore(2) + objectStored(2) + keyedAnew(2, 2, "b") + DocumentsAdded);
}

TEST_F(MergeDocumentsTest, CachedDocumentKeepsItsObjectAndIsRefreshed) {
    const auto kept = stored(makeObject(1, 70, "old"));
    kept->oldParentId(71);
    kept->type(16);

    cache.addItems(filter, result, Documents{fullDocument(1)}, 1);

    EXPECT_EQ(inTheStore(1), kept);
    EXPECT_EQ(result->items(), Entries{kept});
    EXPECT_EQ(kept->name(), "new name");
    EXPECT_EQ(kept->parentId(), 51u);
    EXPECT_EQ(kept->oldParentId(), 71u);
    EXPECT_EQ(kept->type(), 4);
    EXPECT_EQ(kept->length(), 104u);
    EXPECT_TRUE(kept->dataLoaded());
}

TEST_F(MergeDocumentsTest, IdOfARefreshedDocumentIsNotMarkedAsLoaded) {
    stored(makeObject(1, Parent, "old"));
    stored(makeObject(2, Parent, "old"))->idLoaded(true);

    cache.addItems(filter, result, Documents{document(1), document(2)}, 2);

    EXPECT_FALSE(objectAt(1)->idLoaded());
    EXPECT_TRUE(objectAt(2)->idLoaded());
}

TEST_F(MergeDocumentsTest, ObjectStoredMeanwhileUnderAnotherIdIsKeyedAnew) {
    const auto meanwhile = makeObject(30, Parent, "meanwhile");
    WatchedTrace watched;
    watched.onWrite = [&](const std::string& text) {
        if (text == objectStored(1)) wired.probe.items() = {{1, meanwhile}, {30, meanwhile}};
    };

    cache.addItems(filter, result, Documents{document(1, "dropped")}, 1);

    EXPECT_EQ(meanwhile->id(), 1u);
    EXPECT_TRUE(meanwhile->idLoaded());
    EXPECT_EQ(wired.probe.items().size(), 1u);
    EXPECT_EQ(inTheStore(1), meanwhile);
    EXPECT_EQ(result->items(), Entries{meanwhile});
    EXPECT_EQ(watched.text(), addItemsLine("2 1") + notInStore(1) + objectStored(1) +
                                  keyedAnew(30, 1, "meanwhile") + DocumentsAdded);
}

TEST_F(MergeDocumentsTest, PageIsThatOfTheFilterPassed) {
    const auto page = folderFilter(Parent, 2, 3);

    cache.addItems(page, result, Documents{document(1)}, 3);

    EXPECT_TRUE(internal(result).isPageLoaded(page));
    EXPECT_FALSE(internal(result).isPageLoaded(folderFilter(Parent, 0, 3)));
    EXPECT_EQ(result->totalCount(), 3u);
    EXPECT_EQ(result->page(2, 1), Entries{objectAt(1)});
}

TEST_F(MergeDocumentsTest, FoldersOfThePageStay) {
    cache.addItems(filter, result, Folders{folder(9)}, Documents{document(1), document(2)}, 3);

    cache.addItems(filter, result, Documents{document(2), document(3)}, 3);

    EXPECT_EQ(result->items(), (Entries{containerAt(9), objectAt(2), objectAt(3)}));
}

TEST_F(MergeDocumentsTest, RepeatedDocumentIsListedOncePerRepetition) {
    cache.addItems(filter, result, Documents{document(1), document(1)}, 2);

    EXPECT_EQ(wired.probe.items().size(), 1u);
    EXPECT_EQ(result->items(), (Entries{objectAt(1), objectAt(1)}));
}

TEST_F(MergeDocumentsTest, DocumentRecordUnderTheIdOfAContainerListsNothing) {
    const auto kept = stored(makeContainer(1, Parent, "container"));

    cache.addItems(filter, result, Documents{document(1), document(2, "b")}, 2);

    EXPECT_EQ(inTheStore(1), kept);
    EXPECT_EQ(kept->name(), "container");
    EXPECT_FALSE(kept->idLoaded());
    EXPECT_EQ(result->page(0, 2), Entries{objectAt(2)});
    EXPECT_EQ(result->page(1, 1), Entries{objectAt(2)});
    EXPECT_EQ(trace.text(), addItemsLine("2 2") + inStore(Parent, 0, 1) +
                                notAnObject(Parent, 0, 1) + notInStore(2) + objectStored(2) +
                                keyedAnew(2, 2, "b") + DocumentsAdded);
}

TEST_F(MergeDocumentsTest, EmptyEntryOfTheStoreStaysEmptyAndKeepsItsPosition) {
    wired.probe.items()[1] = nullptr;

    cache.addItems(filter, result, Documents{document(1), document(2, "b")}, 2);

    EXPECT_EQ(wired.probe.items().count(1), 1u);
    EXPECT_EQ(inTheStore(1), nullptr);
    EXPECT_EQ(result->items(), Entries{objectAt(2)});
    EXPECT_EQ(result->page(1, 1), Entries{objectAt(2)});
    EXPECT_EQ(trace.text(), addItemsLine("2 2") + notInStore(1) + objectStored(1) + notInStore(2) +
                                objectStored(2) + keyedAnew(2, 2, "b") + DocumentsAdded);
}

TEST_F(MergeDocumentsTest, LocksAreNarrowAndNeverTakenTogether) {
    stored(makeObject(1, Parent, "cached"));

    const auto seen = withLocks([&] {
        cache.addItems(filter, result, Documents{document(1, "new"), document(2, "b")}, 2);
    });

    EXPECT_EQ(seen, under("none", addItemsLine("2 2")) +         //
                        under("store", inStore(Parent, 0, 1)) +  //
                        under("none", "DEBUG 1\n") +             //
                        under("store", inStore(Parent, 0, 1)) +  //
                        under("none",
                              "DEBUG 2\nDEBUG 3\nDEBUG 4\nDEBUG 5\nDEBUG 6\n"
                              "\nOrmek::DirectoryCache::addObject: new\n") +  //
                        under("store", objectStored(1)) +                     //
                        under("none", "DEBUG 7\n") +                          //
                        under("store", notInStore(2) + objectStored(2) + keyedAnew(2, 2, "b")) +
                        under("none", DocumentsAdded));
}

TEST_F(MergeDocumentsTest, EditWaitsForTheDirectoriesMutexAndNothingElseDoes) {
    WatchedTrace watched;
    std::future<void> done;
    {
        const std::lock_guard held(wired.probe.mutex());
        done = std::async(std::launch::async,
                          [this] { cache.addItems(filter, result, Documents(), 0); });
        EXPECT_TRUE(watched.becomes(addItemsLine("2 0")));
        EXPECT_EQ(done.wait_for(Moment), std::future_status::timeout);
    }
    done.get();
    EXPECT_EQ(watched.text(), addItemsLine("2 0") + DocumentsAdded);
}

TEST_F(MergeDocumentsTest, LookUpWaitsForTheStoresMutex) {
    WatchedTrace watched;
    std::future<void> done;
    {
        const std::lock_guard held(wired.probe.itemsMutex());
        done = std::async(std::launch::async,
                          [this] { cache.addItems(filter, result, Documents{document(1)}, 1); });
        EXPECT_TRUE(watched.becomes(addItemsLine("2 1")));
        EXPECT_EQ(done.wait_for(Moment), std::future_status::timeout);
    }
    done.get();
    EXPECT_EQ(result->items().size(), 1u);
}

// --- Moves made elsewhere -------------------------------------------------------------------

TEST_F(RemoteMoveTest, AnotherParentIsTakenOverAndThePreviousOneRemembered) {
    const auto object = stored(makeObject(1, 70, "a"));
    object->oldParentId(60);

    EXPECT_TRUE(cache.onRemoteObjectMoved(80, 1));

    EXPECT_EQ(object->parentId(), 80u);
    EXPECT_EQ(object->oldParentId(), 70u);
}

TEST_F(RemoteMoveTest, CurrentParentChangesNothing) {
    const auto object = stored(makeObject(1, 70, "a"));
    object->oldParentId(60);

    EXPECT_FALSE(cache.onRemoteObjectMoved(70, 1));

    EXPECT_EQ(object->parentId(), 70u);
    EXPECT_EQ(object->oldParentId(), 60u);
}

TEST_F(RemoteMoveTest, FoldersAreMovedToo) {
    const auto container = stored(makeContainer(9, 70, "sub"));

    EXPECT_TRUE(cache.onRemoteObjectMoved(80, 9));

    EXPECT_EQ(container->parentId(), 80u);
    EXPECT_EQ(container->oldParentId(), 70u);
}

TEST_F(RemoteMoveTest, OnlyTheLookUpIsTraced) {
    stored(makeObject(1, 70, "a"))->oldParentId(60);

    cache.onRemoteObjectMoved(80, 1);
    EXPECT_EQ(trace.text(), inStore(70, 60, 1));

    trace.clear();
    cache.onRemoteObjectMoved(80, 1);
    EXPECT_EQ(trace.text(), inStore(80, 70, 1));
}

TEST_F(RemoteMoveTest, DirectoriesAndOperationsAreLeftAlone) {
    const auto from = addDirectory(folderFilter(70));
    const auto to = addDirectory(folderFilter(80));
    const auto object = stored(makeObject(1, 70, "a"));
    internal(from).addItems(0, {object});

    cache.onRemoteObjectMoved(80, 1);

    EXPECT_EQ(from->items(), Entries{object});
    EXPECT_TRUE(to->items().empty());
    EXPECT_TRUE(wired.handler.operations().empty());
    EXPECT_EQ(wired.parked.size(), 0u);
}

TEST_F(RemoteMoveTest, StoresMutexIsTakenForTheLookUp) {
    const auto object = stored(makeObject(1, 70, "a"));

    EXPECT_EQ(withLocks([&] { cache.onRemoteObjectMoved(80, 1); }),
              under("store", inStore(70, 0, 1)));
}

TEST_F(RemoteMoveTest, DirectoriesMutexIsNotTouched) {
    stored(makeObject(1, 70, "a"));
    std::future<bool> moved;
    const std::lock_guard held(wired.probe.mutex());

    moved = std::async(std::launch::async, [this] { return cache.onRemoteObjectMoved(80, 1); });

    EXPECT_EQ(moved.wait_for(Patience), std::future_status::ready);
}

/// An object that tells which mutexes are held when it is asked for its parent.
class AskedObject : public ObjectInternal {
  public:
    explicit AskedObject(DirectoryCacheProbe& probe) : ObjectInternal(nullptr), _probe(probe) {}
    unsigned long parentId() const override {
        lastLocks = heldLocks(_probe);
        return ObjectInternal::parentId();
    }
    mutable std::string lastLocks;

  private:
    DirectoryCacheProbe& _probe;
};

TEST_F(RemoteMoveTest, ParentIsReadAndWrittenAfterTheLookUpsLockIsReleased) {
    const auto object = std::make_shared<AskedObject>(wired.probe);
    wired.probe.items()[1] = object;

    EXPECT_TRUE(cache.onRemoteObjectMoved(80, 1));

    EXPECT_EQ(object->lastLocks, "none");
}

/// An object that waits for a sign when it is asked for its parent for the first time.
class WaitingObject : public ObjectInternal {
  public:
    using ObjectInternal::ObjectInternal;
    using ObjectInternal::parentId;

    unsigned long parentId() const override {
        if (!_isAsked.exchange(true)) {
            asked.set_value();
            sign.get_future().wait_for(Patience);
        }
        return ObjectInternal::parentId();
    }
    mutable std::promise<void> asked;
    mutable std::promise<void> sign;

  private:
    mutable std::atomic<bool> _isAsked{false};
};

TEST_F(RemoteMoveTest, NoMutexIsNeededOnceTheItemIsFound) {
    const SilentOutput untraced(std::ios_base::failbit);  // The trace asks for the parent, too.
    const auto object = std::make_shared<WaitingObject>(nullptr);
    wired.probe.items()[1] = object;
    auto asked = object->asked.get_future();

    auto moved =
        std::async(std::launch::async, [this] { return cache.onRemoteObjectMoved(80, 1); });

    ASSERT_EQ(asked.wait_for(Patience), std::future_status::ready);
    {
        const std::unique_lock store(wired.probe.itemsMutex(), std::try_to_lock);
        const std::unique_lock directories(wired.probe.mutex(), std::try_to_lock);
        EXPECT_TRUE(store.owns_lock());
        EXPECT_TRUE(directories.owns_lock());
        object->sign.set_value();
        EXPECT_EQ(moved.wait_for(Patience), std::future_status::ready);
    }
    EXPECT_TRUE(moved.get());
    EXPECT_EQ(object->parentId(), 80u);
}

}  // namespace
}  // namespace Ormek::Testing
