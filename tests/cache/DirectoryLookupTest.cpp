#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

const std::string NotFound = "\nOrmek::DirectoryCache::getDirectory 2 Couldn't find directory\n";
const std::string TagsFound = "\nOrmek::DirectoryCache::gettagDirectory 1 Found directory\n";

std::string walk(std::size_t directories) {
    return "\nOrmek::DirectoryCache::getDirectory count" + std::to_string(directories) + "\n";
}

std::string tagWalk(std::size_t directories) {
    return "\nOrmek::DirectoryCache::gettagDirectory count" + std::to_string(directories) + "\n";
}

std::string entry(unsigned long id, const std::string& name) {
    return "item in directory: " + std::to_string(id) + " name: " + name + "\n";
}

std::string found(const std::shared_ptr<QueryResult>& directory) {
    return "it: " + address(directory.get()) + "\n";
}

QueryResultInternal& internal(const std::shared_ptr<QueryResult>& directory) {
    return dynamic_cast<QueryResultInternal&>(*directory);
}

class DirectoryLookupTest : public testing::Test {
  protected:
    using Entries = std::vector<std::shared_ptr<Item>>;

    std::shared_ptr<QueryResult> addDirectory(const FilterInternal& filter,
                                              const Entries& entries = {}) {
        return append(wired.probe.directories(), filter, entries);
    }

    std::shared_ptr<QueryResult> addKeyValueDirectory(const FilterInternal& filter,
                                                      const Entries& entries = {}) {
        return append(wired.probe.keyValueDirectories(), filter, entries);
    }

    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    TraceCapture trace;

  private:
    static std::shared_ptr<QueryResult> append(std::list<std::shared_ptr<QueryResult>>& list,
                                               const FilterInternal& filter,
                                               const Entries& entries) {
        list.push_back(std::make_shared<QueryResultInternal>(filter));
        internal(list.back()).addItems(0, entries);
        return list.back();
    }
};

class AddResultTest : public DirectoryLookupTest {};

// --- getDirectory ---------------------------------------------------------------------------

TEST_F(DirectoryLookupTest, EmptyListFindsNothing) {
    EXPECT_EQ(cache.getDirectory(folderFilter(5)), nullptr);

    EXPECT_EQ(trace.text(), walk(0) + NotFound);
}

TEST_F(DirectoryLookupTest, UnknownListingIsNotFound) {
    addDirectory(folderFilter(5), {makeObject(1, 5, "a")});
    addDirectory(folderFilter(6));

    EXPECT_EQ(cache.getDirectory(folderFilter(7)), nullptr);

    EXPECT_EQ(trace.text(), walk(2) + entry(1, "a") + NotFound);
}

TEST_F(DirectoryLookupTest, DirectoryIsFoundByItsFilter) {
    addDirectory(folderFilter(5));
    const auto wanted = addDirectory(folderFilter(6));
    addDirectory(folderFilter(7));

    EXPECT_EQ(cache.getDirectory(folderFilter(6)), wanted);
}

TEST_F(DirectoryLookupTest, FoundDirectoryIsShared) {
    const auto wanted = addDirectory(folderFilter(5));

    const auto result = cache.getDirectory(folderFilter(5));

    EXPECT_EQ(wanted.use_count(), 3);  // The list, and the two here.
}

TEST_F(DirectoryLookupTest, OfEqualDirectoriesTheOneAppendedFirstIsFound) {
    const auto first = addDirectory(folderFilter(5));
    addDirectory(folderFilter(5));

    EXPECT_EQ(cache.getDirectory(folderFilter(5)), first);
    EXPECT_EQ(cache.getDirectory(folderFilter(5)), first);
}

TEST_F(DirectoryLookupTest, ThreeEntriesOfAFoundDirectoryMakeSixLines) {
    const auto directory = addDirectory(
        folderFilter(5), {makeContainer(9, 5, "sub"), makeObject(1, 5, "a"), makeObject(2, 5, "")});

    cache.getDirectory(folderFilter(5));

    const std::string entries = entry(9, "sub") + entry(1, "a") + entry(2, "");
    EXPECT_EQ(trace.text(), walk(1) + entries + entries + found(directory));
}

TEST_F(DirectoryLookupTest, DirectoriesPassedByAreTracedOnceAndThoseBehindNotAtAll) {
    addDirectory(folderFilter(5), {makeObject(1, 5, "a"), makeObject(2, 5, "b")});
    const auto wanted = addDirectory(folderFilter(6), {makeObject(3, 6, "c")});
    addDirectory(folderFilter(7), {makeObject(4, 7, "d")});

    cache.getDirectory(folderFilter(6));

    EXPECT_EQ(trace.text(), walk(3) + entry(1, "a") + entry(2, "b") + entry(3, "c") +
                                entry(3, "c") + found(wanted));
}

TEST_F(DirectoryLookupTest, EntriesAreTracedAsTheyAreNow) {
    const auto object = makeObject(1, 5, "old");
    const auto directory = addDirectory(folderFilter(5), {object});
    object->id(std::numeric_limits<unsigned long>::max());
    object->name("new");

    cache.getDirectory(folderFilter(5));

    EXPECT_EQ(trace.text(), walk(1) + entry(std::numeric_limits<unsigned long>::max(), "new") +
                                entry(std::numeric_limits<unsigned long>::max(), "new") +
                                found(directory));
}

TEST_F(DirectoryLookupTest, PageOfTheListingPlaysNoPart) {
    const auto directory = addDirectory(folderFilter(5, 0, 10));

    EXPECT_EQ(cache.getDirectory(folderFilter(5, 90, 30)), directory);
}

TEST_F(DirectoryLookupTest, AnotherSearchTextIsAnotherListing) {
    addDirectory(folderFilter(5));
    auto filter = folderFilter(5);
    filter.setQuery("text");

    EXPECT_EQ(cache.getDirectory(filter), nullptr);
}

TEST_F(DirectoryLookupTest, LookupChangesNothing) {
    const auto directory = addDirectory(folderFilter(5), {makeObject(1, 5, "a")});

    cache.getDirectory(folderFilter(5));
    cache.getDirectory(folderFilter(6));

    EXPECT_EQ(cache.directories().size(), 1u);
    EXPECT_EQ(directory->items().size(), 1u);
    EXPECT_TRUE(wired.probe.items().empty());
}

TEST_F(DirectoryLookupTest, KeyValueDirectoriesAreNotSearchedForFolders) {
    addKeyValueDirectory(folderFilter(5));

    EXPECT_EQ(cache.getDirectory(folderFilter(5)), nullptr);
    EXPECT_EQ(trace.text(), walk(0) + NotFound);
}

// --- getKeyValueDirectory -------------------------------------------------------------------

TEST_F(DirectoryLookupTest, FailedKeyValueLookupTracesTheFolderLookupsWords) {
    EXPECT_EQ(cache.getKeyValueDirectory(folderFilter(16)), nullptr);

    EXPECT_EQ(trace.text(), tagWalk(0) + NotFound);
}

TEST_F(DirectoryLookupTest, UnknownKeyValueListingIsNotFound) {
    addKeyValueDirectory(folderFilter(16), {makeObject(1, 16, "never traced")});
    addKeyValueDirectory(folderFilter(17));

    EXPECT_EQ(cache.getKeyValueDirectory(folderFilter(18)), nullptr);

    EXPECT_EQ(trace.text(), tagWalk(2) + NotFound);
}

TEST_F(DirectoryLookupTest, KeyValueDirectoryIsFoundWithoutTracingEntries) {
    addKeyValueDirectory(folderFilter(16), {makeObject(1, 16, "never traced")});
    const auto wanted = addKeyValueDirectory(folderFilter(17), {makeObject(2, 17, "never traced")});

    EXPECT_EQ(cache.getKeyValueDirectory(folderFilter(17)), wanted);

    EXPECT_EQ(trace.text(), tagWalk(2) + TagsFound);
}

TEST_F(DirectoryLookupTest, OfEqualKeyValueDirectoriesTheOneAppendedFirstIsFound) {
    const auto first = addKeyValueDirectory(folderFilter(16));
    addKeyValueDirectory(folderFilter(16));

    EXPECT_EQ(cache.getKeyValueDirectory(folderFilter(16)), first);
}

TEST_F(DirectoryLookupTest, FolderDirectoriesAreNotSearchedForKeyValues) {
    addDirectory(folderFilter(16));

    EXPECT_EQ(cache.getKeyValueDirectory(folderFilter(16)), nullptr);
}

TEST_F(DirectoryLookupTest, LookupsTakeNoLock) {
    addDirectory(folderFilter(5), {makeObject(1, 5, "a")});
    addKeyValueDirectory(folderFilter(16));

    EXPECT_TRUE(returnsWhileBothAreHeld(wired.probe, [this] {
        cache.getDirectory(folderFilter(5));
        cache.getDirectory(folderFilter(6));
        cache.getKeyValueDirectory(folderFilter(16));
        cache.getKeyValueDirectory(folderFilter(17));
    }));
}

// --- add ------------------------------------------------------------------------------------

TEST_F(AddResultTest, BothListsStayAsTheyWere) {
    const auto directory = addDirectory(folderFilter(5));
    const auto keyValueDirectory = addKeyValueDirectory(folderFilter(16));

    const auto copy = cache.add(*directory);

    EXPECT_NE(copy, directory);
    EXPECT_EQ(cache.directories(), std::list{directory});
    EXPECT_EQ(cache.keyValueDirectories(), std::list{keyValueDirectory});
    EXPECT_TRUE(wired.probe.items().empty());
    EXPECT_TRUE(cache.keyValues().empty());
}

TEST_F(AddResultTest, CopyIsKnownToTheCallerAlone) {
    const auto directory = addDirectory(folderFilter(5));

    const auto copy = cache.add(*directory);

    EXPECT_EQ(copy.use_count(), 1);
    EXPECT_EQ(cache.getDirectory(folderFilter(5)), directory);
}

TEST_F(AddResultTest, CopyIsWhole) {
    const auto object = makeObject(1, 5, "a");
    const auto directory = addDirectory(folderFilter(5));
    internal(directory).addPage(0, 100);
    internal(directory).totalCount(1);
    internal(directory).addItems(0, {object});

    const auto copy = cache.add(*directory);

    EXPECT_EQ(copy->items(), Entries{object});
    EXPECT_EQ(copy->totalCount(), 1u);
    EXPECT_TRUE(internal(copy).isPageLoaded(folderFilter(5)));
    EXPECT_TRUE(internal(copy).filter().equals(folderFilter(5)));
}

TEST_F(AddResultTest, CopyAndSourceGoTheirOwnWays) {
    const auto directory = addDirectory(folderFilter(5), {makeObject(1, 5, "a")});

    const auto copy = cache.add(*directory);
    internal(copy).removeItem(1);
    internal(directory).addItem(makeObject(2, 5, "b"), false);

    EXPECT_EQ(copy->items().size(), 0u);
    EXPECT_EQ(directory->items().size(), 2u);
}

TEST_F(AddResultTest, PlainResultSetBecomesADirectory) {
    const auto copy = cache.add(QueryResult());

    EXPECT_TRUE(copy->items().empty());
    EXPECT_FALSE(internal(copy).isPageLoaded(folderFilter(5)));
}

TEST_F(AddResultTest, NothingIsTraced) {
    const auto directory = addDirectory(folderFilter(5), {makeObject(1, 5, "a")});

    cache.add(*directory);

    EXPECT_EQ(trace.text(), "");
}

TEST_F(AddResultTest, NoLockIsTaken) {
    const auto directory = addDirectory(folderFilter(5), {makeObject(1, 5, "a")});

    EXPECT_TRUE(returnsWhileBothAreHeld(wired.probe, [&] { cache.add(*directory); }));
}

}  // namespace
}  // namespace Ormek::Testing
