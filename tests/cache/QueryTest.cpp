#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

const std::string Asked = "in DirectoryCache::get(Ormek::FilterInternal filter\n";
const std::string NoDirectory = "\nOrmek::DirectoryCache::getDirectory 2 Couldn't find directory\n";

std::string walk(std::size_t directories) {
    return "\nOrmek::DirectoryCache::getDirectory count" + std::to_string(directories) + "\n";
}

std::string tagWalk(std::size_t directories) {
    return "\nOrmek::DirectoryCache::gettagDirectory count" + std::to_string(directories) + "\n";
}

std::string entry(unsigned long id, const std::string& name) {
    return "item in directory: " + std::to_string(id) + " name: " + name + "\n";
}

std::string conversion(const FilterInternal& filter) {
    const std::string label = " ---------------> DEBUG filterConverter filter ";
    return label + "offset: " + std::to_string(filter.getOffset()) + "\n" +      //
           label + "dataType: " + std::to_string(filter.getDataType()) + "\n" +  //
           label + "queryString: " + filter.getQuery() + "\n";
}

/// What starting the load of a filter without data types writes.
std::string load(const FilterInternal& filter) {
    const std::string step = "Ormek::DirectoryCache::loadFromService ";
    const std::string context = std::to_string(filter.contextId);
    return "----------------------> types in vector 0\n"
           "Ormek::DirectoryCache::loadDirectory 1, types.size(): 0\n" +
           step + "1\n" + step + "2\n" + conversion(filter) + step + "3\n" + step + "4\n" + step +
           "5\n" + step + (filter.contextId != 0 ? "6 " : "7 ") + context + "\n" + step + "8\n";
}

/// The address of the handle inside the cache cannot be known: any address will do.
std::string withLocalHidden(const std::string& text) {
    return std::regex_replace(text, std::regex("(::get(tag)? 1 )0x[0-9a-f]+"), "$1<local>");
}

QueryResultInternal& internal(const std::shared_ptr<QueryResult>& directory) {
    return dynamic_cast<QueryResultInternal&>(*directory);
}

FilterInternal byPassing(FilterInternal filter) {
    filter.setByPassCache(true);
    return filter;
}

FilterInternal withContext(FilterInternal filter, unsigned long contextId) {
    filter.contextId = contextId;
    return filter;
}

class QueryTest : public testing::Test {
  protected:
    /// The directory of `filter`, whose page has arrived with these entries, the last ones but
    /// `more`.
    std::shared_ptr<QueryResult> delivered(const FilterInternal& filter,
                                           const std::vector<std::shared_ptr<Item>>& entries = {},
                                           unsigned long more = 0) {
        TraceCapture unheeded;
        std::shared_ptr<QueryResult> directory;
        wired.cache.get(filter, directory);
        internal(directory).addPage(filter.getOffset(), filter.getCount());
        internal(directory).totalCount(filter.getOffset() + entries.size() + more);
        internal(directory).addItems(filter.getOffset(), entries);
        return directory;
    }

    /// The directory of `filter`, of which no page has arrived.
    std::shared_ptr<QueryResult> known(const FilterInternal& filter) {
        TraceCapture unheeded;
        std::shared_ptr<QueryResult> directory;
        wired.cache.get(filter, directory);
        return directory;
    }

    /// The key-value directory of `filter`.
    std::shared_ptr<QueryResult> knownTags(const FilterInternal& filter) {
        TraceCapture unheeded;
        std::shared_ptr<QueryResult> directory;
        wired.cache.getKeyValues(filter, directory);
        return directory;
    }

    std::size_t started() const {
        return wired.handler.operations().size() + wired.parked.operations().size();
    }

    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    TraceCapture trace;
    Nimra::ItemEventProtocol listener;
    std::shared_ptr<QueryResult> result;
};

class KeyValueQueryTest : public QueryTest {
  protected:
    const FilterInternal tags = folderFilter(16);
};

// --- get without a listener -----------------------------------------------------------------

TEST_F(QueryTest, UnknownListingGetsANewEmptyDirectory) {
    EXPECT_FALSE(cache.get(folderFilter(5), result));

    ASSERT_EQ(cache.directories().size(), 1u);
    EXPECT_EQ(cache.directories().front(), result);
    EXPECT_TRUE(internal(result).filter().equals(folderFilter(5)));
    EXPECT_TRUE(result->items().empty());
    EXPECT_FALSE(internal(result).isPageLoaded(folderFilter(5)));
    EXPECT_TRUE(cache.keyValueDirectories().empty());
}

TEST_F(QueryTest, UnknownListingIsTraced) {
    cache.get(folderFilter(5), result);

    EXPECT_EQ(withLocalHidden(trace.text()),
              Asked + walk(0) + NoDirectory +
                  "\nOrmek::DirectoryCache::get 1 <local> Added directory" + address(&result) +
                  "\n");
}

TEST_F(QueryTest, NewDirectoryStandsBehindTheOthers) {
    auto first = known(folderFilter(5));
    auto second = known(folderFilter(6));

    cache.get(folderFilter(7), result);

    EXPECT_EQ(std::vector(cache.directories().begin(), cache.directories().end()),
              (std::vector{first, second, result}));
}

TEST_F(QueryTest, CallersPointerIsReplacedByTheNewDirectory) {
    const auto other = known(folderFilter(5));
    result = other;

    EXPECT_FALSE(cache.get(folderFilter(6), result));

    EXPECT_NE(result, other);
    EXPECT_EQ(result, cache.directories().back());
}

TEST_F(QueryTest, CallersPointerIsReplacedByTheKnownDirectory) {
    const auto other = known(folderFilter(5));
    const auto wanted = delivered(folderFilter(6));
    result = other;

    EXPECT_TRUE(cache.get(folderFilter(6), result));

    EXPECT_EQ(result, wanted);
}

TEST_F(QueryTest, HeldPageIsInMemory) {
    const auto directory = delivered(folderFilter(5), {makeObject(1, 5, "a")});

    EXPECT_TRUE(cache.get(folderFilter(5), result));

    EXPECT_EQ(result, directory);
    EXPECT_EQ(cache.directories().size(), 1u);
}

TEST_F(QueryTest, HeldPageIsTracedWithItsEntriesTwice) {
    const auto directory =
        delivered(folderFilter(5), {makeContainer(9, 5, "sub"), makeObject(1, 5, "a")});

    cache.get(folderFilter(5), result);

    const std::string entries = entry(9, "sub") + entry(1, "a");
    EXPECT_EQ(trace.text(), Asked + walk(1) + entries + entries +
                                "it: " + address(directory.get()) + "\n" +
                                "\nOrmek::DirectoryCache::get 3 Page already loaded\n");
}

TEST_F(QueryTest, PageThatHasNotArrivedIsNotInMemory) {
    const auto directory = known(folderFilter(5));

    EXPECT_FALSE(cache.get(folderFilter(5), result));

    EXPECT_EQ(result, directory);
    EXPECT_EQ(cache.directories().size(), 1u);
    EXPECT_EQ(trace.text(), Asked + walk(1) + "it: " + address(directory.get()) + "\n" +
                                "\nOrmek::DirectoryCache::get 2 Page not loaded\n");
}

TEST_F(QueryTest, EveryPageOfAListingHasTheSameDirectory) {
    const auto firstPage = known(folderFilter(5, 0, 10));

    cache.get(folderFilter(5, 10, 10), result);

    EXPECT_EQ(result, firstPage);
    EXPECT_EQ(cache.directories().size(), 1u);
}

TEST_F(QueryTest, EmptyPageThatHasArrivedIsInMemory) {
    delivered(folderFilter(5));

    EXPECT_TRUE(cache.get(folderFilter(5), result));
    EXPECT_TRUE(result->items().empty());
}

TEST_F(QueryTest, WithoutAListenerTheByPassFlagPlaysNoPart) {
    EXPECT_FALSE(cache.get(byPassing(folderFilter(5)), result));
    const auto made = result;
    EXPECT_EQ(cache.directories().size(), 1u);

    delivered(folderFilter(5));
    EXPECT_TRUE(cache.get(byPassing(folderFilter(5)), result));
    EXPECT_EQ(result, made);
}

TEST_F(QueryTest, WithoutAListenerNothingIsLoaded) {
    cache.get(folderFilter(5), result);
    cache.get(folderFilter(5), result);

    EXPECT_EQ(started(), 0u);
    EXPECT_EQ(cache.loadListener(), nullptr);
}

TEST_F(QueryTest, DirectoryKeepsTheFilterItWasMadeFor) {
    auto filter = folderFilter(5);
    cache.get(filter, result);

    filter.setDataId({6});
    filter.setQuery("changed");

    EXPECT_TRUE(internal(result).filter().equals(folderFilter(5)));
}

// --- get with a listener --------------------------------------------------------------------

TEST_F(QueryTest, FirstQueryAddsADirectoryAndStartsALoad) {
    const auto id = cache.get(folderFilter(5), result, &listener);

    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_NE(id, 0u);
    EXPECT_EQ(operation->id(), id);
    EXPECT_EQ(operation->service(), &wired.listings);
    EXPECT_EQ(operation->protocol(), &listener);
    EXPECT_EQ(operation->filter().dataId, std::vector<unsigned long>{5});
    ASSERT_EQ(cache.directories().size(), 1u);
    EXPECT_EQ(cache.directories().back(), result);
    EXPECT_EQ(cache.loadListener(), &listener);
    EXPECT_EQ(wired.parked.size(), 0u);
}

TEST_F(QueryTest, FirstQueryIsTraced) {
    cache.get(folderFilter(5, 20, 10), result, &listener);

    EXPECT_EQ(withLocalHidden(trace.text()),
              "!filter.getbyPassCache = (true) 1\n" + Asked + walk(0) + NoDirectory +
                  "\nOrmek::DirectoryCache::get 1 <local> Added directory" + address(&result) +
                  "\n" + load(folderFilter(5, 20, 10)));
}

TEST_F(QueryTest, HeldPageIsAnsweredFromMemory) {
    const auto directory = delivered(folderFilter(5), {makeObject(1, 5, "a")});

    EXPECT_EQ(cache.get(folderFilter(5), result, &listener), 0u);

    EXPECT_EQ(result, directory);
    EXPECT_EQ(started(), 0u);
    EXPECT_EQ(cache.loadListener(), nullptr);
}

TEST_F(QueryTest, AnswerFromMemoryIsTraced) {
    const auto directory = delivered(folderFilter(5), {makeObject(1, 5, "a")});

    cache.get(folderFilter(5), result, &listener);

    EXPECT_EQ(trace.text(), "!filter.getbyPassCache = (true) 1\n" + Asked + walk(1) +
                                entry(1, "a") + entry(1, "a") + "it: " + address(directory.get()) +
                                "\n" + "\nOrmek::DirectoryCache::get 3 Page already loaded\n" +
                                "Ormek::DirectoryCache::get found the directory " +
                                address(&result) + "\n");
}

TEST_F(QueryTest, PageThatHasNotArrivedIsLoadedIntoTheSameDirectory) {
    const auto directory = delivered(folderFilter(5, 0, 1), {makeObject(1, 5, "a")}, 199);

    const auto id = cache.get(folderFilter(5, 100, 100), result, &listener);

    EXPECT_EQ(result, directory);
    EXPECT_EQ(cache.directories().size(), 1u);
    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->id(), id);
    EXPECT_EQ(operation->filter().offset, 100u);
    EXPECT_EQ(trace.text(), "!filter.getbyPassCache = (true) 1\n" + Asked + walk(1) +
                                entry(1, "a") + entry(1, "a") + "it: " + address(directory.get()) +
                                "\n" + "\nOrmek::DirectoryCache::get 2 Page not loaded\n" +
                                load(folderFilter(5, 100, 100)));
}

TEST_F(QueryTest, QueryIsLoadedAgainUntilItsPageArrives) {
    const auto first = cache.get(folderFilter(5), result, &listener);
    const auto second = cache.get(folderFilter(5), result, &listener);

    EXPECT_NE(first, second);
    EXPECT_EQ(wired.handler.operations().size(), 2u);
}

TEST_F(QueryTest, ByPassLeavesAnEmptyResultEmptyAndLoads) {
    const auto id = cache.get(byPassing(folderFilter(5)), result, &listener);

    EXPECT_EQ(result, nullptr);
    EXPECT_TRUE(cache.directories().empty());
    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->id(), id);
    EXPECT_EQ(cache.loadListener(), &listener);
    EXPECT_EQ(trace.text(), "!filter.getbyPassCache = (true) 0\n" + load(folderFilter(5)));
}

TEST_F(QueryTest, ByPassLeavesTheCallersDirectoryAsItIs) {
    delivered(folderFilter(5));
    const auto other = known(folderFilter(6));
    result = other;

    const auto id = cache.get(byPassing(folderFilter(5)), result, &listener);

    EXPECT_NE(id, 0u);
    EXPECT_EQ(result, other);
    EXPECT_EQ(cache.directories().size(), 2u);
    EXPECT_EQ(trace.text(), "!filter.getbyPassCache = (true) 0\n" + load(folderFilter(5)));
}

TEST_F(QueryTest, ByPassLoadsEvenAHeldPage) {
    delivered(folderFilter(5));

    EXPECT_NE(cache.get(byPassing(folderFilter(5)), result, &listener), 0u);
    EXPECT_EQ(wired.handler.operations().size(), 1u);
}

TEST_F(QueryTest, QueryOfAFolderWithoutServerIdIsParked) {
    const auto filter = withContext(folderFilter(5), 0);

    const auto id = cache.get(filter, result, &listener);

    auto* operation = wired.onlyParked<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->id(), id);
    EXPECT_TRUE(wired.handler.operations().empty());
    EXPECT_EQ(withLocalHidden(trace.text()),
              "!filter.getbyPassCache = (true) 1\n" + Asked + walk(0) + NoDirectory +
                  "\nOrmek::DirectoryCache::get 1 <local> Added directory" + address(&result) +
                  "\n" + load(filter));
}

TEST_F(QueryTest, ByPassingQueryOfAFolderWithoutServerIdIsParked) {
    const auto filter = byPassing(withContext(folderFilter(5), 0));

    cache.get(filter, result, &listener);

    EXPECT_EQ(wired.parked.size(), 1u);
    EXPECT_EQ(trace.text(), "!filter.getbyPassCache = (true) 0\n" + load(filter));
}

TEST_F(QueryTest, QueryMayHaveNoListener) {
    cache.get(folderFilter(5), result, &listener);

    cache.get(folderFilter(5), result, nullptr);

    EXPECT_EQ(cache.loadListener(), nullptr);
    const auto operations = wired.handler.operations();
    ASSERT_EQ(operations.size(), 2u);
    auto* operation = dynamic_cast<Nimra::DataLoaderOperation*>(operations.back());
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->protocol(), nullptr);
}

TEST_F(QueryTest, AnswerFromMemoryKeepsTheListenerOfTheLastLoad) {
    cache.get(folderFilter(5), result, &listener);
    delivered(folderFilter(6));
    Nimra::ItemEventProtocol other;

    cache.get(folderFilter(6), result, &other);

    EXPECT_EQ(cache.loadListener(), &listener);
}

TEST_F(QueryTest, FolderQueriesNeverUseKeyValueDirectories) {
    knownTags(folderFilter(5));

    EXPECT_FALSE(cache.get(folderFilter(5), result));
    EXPECT_EQ(cache.directories().size(), 1u);
    EXPECT_EQ(cache.keyValueDirectories().size(), 1u);
    EXPECT_NE(cache.directories().front(), cache.keyValueDirectories().front());
}

TEST_F(QueryTest, QueriesTakeNoLock) {
    EXPECT_TRUE(returnsWhileBothAreHeld(wired.probe, [this] {
        cache.get(folderFilter(5), result);
        cache.get(folderFilter(5), result);
    }));
    EXPECT_TRUE(returnsWhileBothAreHeld(wired.probe, [this] {
        cache.get(folderFilter(6), result, &listener);
        cache.get(byPassing(folderFilter(5)), result, &listener);
        cache.get(withContext(folderFilter(5), 0), result, &listener);
    }));
    delivered(folderFilter(7), {makeObject(1, 7, "a")});
    EXPECT_TRUE(returnsWhileBothAreHeld(wired.probe,
                                        [this] { cache.get(folderFilter(7), result, &listener); }));
}

// --- getKeyValues without a listener --------------------------------------------------------

TEST_F(KeyValueQueryTest, UnknownListingGetsANewDirectory) {
    EXPECT_FALSE(cache.getKeyValues(tags, result));

    ASSERT_EQ(cache.keyValueDirectories().size(), 1u);
    EXPECT_EQ(cache.keyValueDirectories().front(), result);
    EXPECT_TRUE(internal(result).filter().equals(tags));
    EXPECT_TRUE(cache.directories().empty());
    EXPECT_EQ(started(), 0u);
}

TEST_F(KeyValueQueryTest, UnknownListingIsTraced) {
    cache.getKeyValues(tags, result);

    EXPECT_EQ(withLocalHidden(trace.text()),
              tagWalk(0) + NoDirectory +
                  "\nOrmek::DirectoryCache::gettag 1 <local> Added directory" + address(&result) +
                  " " + address(result.get()) + "\n");
}

TEST_F(KeyValueQueryTest, NewDirectoryStandsBehindTheOthers) {
    const auto first = knownTags(tags);

    cache.getKeyValues(folderFilter(17), result);

    EXPECT_EQ(std::vector(cache.keyValueDirectories().begin(), cache.keyValueDirectories().end()),
              (std::vector{first, result}));
}

TEST_F(KeyValueQueryTest, KnownListingCountsAsAnsweredWithoutAnyPage) {
    const auto directory = knownTags(tags);
    ASSERT_FALSE(internal(directory).isPageLoaded(tags));
    result = known(folderFilter(5));

    EXPECT_TRUE(cache.getKeyValues(tags, result));

    EXPECT_EQ(result, directory);
    EXPECT_EQ(cache.keyValueDirectories().size(), 1u);
}

TEST_F(KeyValueQueryTest, KnownListingIsTraced) {
    const auto directory = knownTags(tags);
    internal(directory).addItems(0, {makeObject(1, 16, "never traced")});

    cache.getKeyValues(tags, result);

    EXPECT_EQ(trace.text(), tagWalk(1) +
                                "\nOrmek::DirectoryCache::gettagDirectory 1 Found directory\n" +
                                "Ormek::DirectoryCache::gettag dir found " + address(&result) +
                                " " + address(directory.get()) + "\n");
}

TEST_F(KeyValueQueryTest, KeyValueQueriesNeverUseFolderDirectories) {
    delivered(tags);

    EXPECT_FALSE(cache.getKeyValues(tags, result));
    EXPECT_EQ(cache.keyValueDirectories().size(), 1u);
    EXPECT_EQ(cache.directories().size(), 1u);
}

// --- getKeyValues with a listener -----------------------------------------------------------

TEST_F(KeyValueQueryTest, FirstQueryStartsALoadFromTheTagService) {
    const auto id = cache.getKeyValues(tags, result, &listener);

    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_NE(id, 0u);
    EXPECT_EQ(operation->id(), id);
    EXPECT_EQ(operation->service(), &wired.tags);
    EXPECT_EQ(operation->protocol(), &listener);
    EXPECT_EQ(operation->filter().dataId, std::vector<unsigned long>{16});
    EXPECT_EQ(result, cache.keyValueDirectories().back());
}

TEST_F(KeyValueQueryTest, FirstQueryIsTraced) {
    cache.getKeyValues(tags, result, &listener);

    EXPECT_EQ(withLocalHidden(trace.text()),
              tagWalk(0) + NoDirectory +
                  "\nOrmek::DirectoryCache::gettag 1 <local> Added directory" + address(&result) +
                  " " + address(result.get()) + "\n" +
                  "Ormek::DirectoryCache::gettag found dir failed " + address(result.get()) + "\n" +
                  conversion(tags));
}

TEST_F(KeyValueQueryTest, SecondQueryIsAnsweredEvenIfTheLoadNeverEnds) {
    cache.getKeyValues(tags, result, &listener);
    const auto directory = result;

    EXPECT_EQ(cache.getKeyValues(tags, result, &listener), 0u);

    EXPECT_EQ(result, directory);
    EXPECT_EQ(started(), 1u);
}

TEST_F(KeyValueQueryTest, SecondQueryIsTraced) {
    const auto directory = knownTags(tags);

    cache.getKeyValues(tags, result, &listener);

    EXPECT_EQ(trace.text(), tagWalk(1) +
                                "\nOrmek::DirectoryCache::gettagDirectory 1 Found directory\n" +
                                "Ormek::DirectoryCache::gettag dir found " + address(&result) +
                                " " + address(directory.get()) + "\n" +
                                "Ormek::DirectoryCache::gettag found dir returning " +
                                address(directory.get()) + "\n");
}

TEST_F(KeyValueQueryTest, QueryWithoutServerIdIsParkedAndStillReturnsItsId) {
    const auto id = cache.getKeyValues(withContext(tags, 0), result, &listener);

    auto* operation = wired.onlyParked<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_NE(id, 0u);
    EXPECT_EQ(operation->id(), id);
    EXPECT_EQ(operation->service(), &wired.tags);
    EXPECT_TRUE(wired.handler.operations().empty());
}

TEST_F(KeyValueQueryTest, ParkedQueryIsTracedLikeASentOne) {
    cache.getKeyValues(withContext(tags, 0), result, &listener);

    EXPECT_EQ(withLocalHidden(trace.text()),
              tagWalk(0) + NoDirectory +
                  "\nOrmek::DirectoryCache::gettag 1 <local> Added directory" + address(&result) +
                  " " + address(result.get()) + "\n" +
                  "Ormek::DirectoryCache::gettag found dir failed " + address(result.get()) + "\n" +
                  conversion(tags));
}

TEST_F(KeyValueQueryTest, MissingServiceIsInsertedAsNull) {
    wired.services.erase(16);

    cache.getKeyValues(tags, result, &listener);

    ASSERT_EQ(wired.services.count(16), 1u);
    EXPECT_EQ(wired.services.at(16), nullptr);
    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->service(), nullptr);
}

TEST_F(KeyValueQueryTest, AnswerFromMemoryInsertsNoService) {
    wired.services.erase(16);
    knownTags(tags);

    cache.getKeyValues(tags, result, &listener);

    EXPECT_EQ(wired.services.count(16), 0u);
}

TEST_F(KeyValueQueryTest, ListenerIsNotRecorded) {
    cache.getKeyValues(tags, result, &listener);

    EXPECT_EQ(cache.loadListener(), nullptr);
}

TEST_F(KeyValueQueryTest, ByPassFlagPlaysNoPart) {
    const auto directory = knownTags(tags);

    EXPECT_EQ(cache.getKeyValues(byPassing(tags), result, &listener), 0u);

    EXPECT_EQ(result, directory);
    EXPECT_EQ(started(), 0u);
}

TEST_F(KeyValueQueryTest, OperationCarriesTheWholeFilter) {
    auto filter = folderFilter(16, 40, 20);
    filter.setUserId(3);
    filter.setDataType(16);
    filter.setQuery("blue");
    filter.setGroup("group");
    filter.setPath("/path");
    filter.setUrl("url:");
    filter.setTagLabels({{"artist", "x"}});
    filter.setAscending(false);
    filter.setContainerFirst(false);
    filter.setDeleted(true);
    filter.serviceFlag = true;

    cache.getKeyValues(filter, result, &listener);

    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    const auto& sent = operation->filter();
    EXPECT_EQ(sent.userId, 3u);
    EXPECT_EQ(sent.dataType, 16);
    EXPECT_EQ(sent.dataId, std::vector<unsigned long>{16});
    EXPECT_EQ(sent.tagLabels, (std::map<std::string, std::string>{{"artist", "x"}}));
    EXPECT_EQ(sent.path, "/path");
    EXPECT_EQ(sent.url, "url:");
    EXPECT_EQ(sent.query, "blue");
    EXPECT_EQ(sent.group, "group");
    EXPECT_FALSE(sent.ascending);
    EXPECT_TRUE(sent.deleted);
    EXPECT_FALSE(sent.containerFirst);
    EXPECT_TRUE(sent.serviceFlag);
    EXPECT_EQ(sent.offset, 40u);
    EXPECT_EQ(sent.count, 20u);
}

TEST_F(KeyValueQueryTest, QueriesTakeNoLock) {
    EXPECT_TRUE(returnsWhileBothAreHeld(wired.probe, [this] {
        cache.getKeyValues(tags, result);
        cache.getKeyValues(tags, result);
        cache.getKeyValues(tags, result, &listener);
        cache.getKeyValues(folderFilter(17), result, &listener);
        cache.getKeyValues(withContext(folderFilter(18), 0), result, &listener);
    }));
}

}  // namespace
}  // namespace Ormek::Testing
