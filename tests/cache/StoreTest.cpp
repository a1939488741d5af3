#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <future>
#include <limits>
#include <locale>
#include <memory>
#include <mutex>
#include <streambuf>
#include <string>
#include <thread>
#include <type_traits>
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

constexpr unsigned long Greatest = std::numeric_limits<unsigned long>::max();

class StoreTest : public ::testing::Test {
  protected:
    /// Puts an entry into the store past the cache's operations.
    template <class Entry>
    std::shared_ptr<Entry> store(std::shared_ptr<Entry> entry) {
        items[entry->id()] = entry;
        return entry;
    }
    std::shared_ptr<ObjectInternal> storeObject(unsigned long id, unsigned long parentId,
                                                std::string name = "object") {
        return store(makeObject(id, parentId, std::move(name)));
    }
    std::shared_ptr<ContainerInternal> storeContainer(unsigned long id, unsigned long parentId,
                                                      std::string name = "container") {
        return store(makeContainer(id, parentId, std::move(name)));
    }
    /// Registers a directory that lists the given folders.
    std::shared_ptr<QueryResultInternal> directory(std::vector<unsigned long> dataIds) {
        FilterInternal filter = folderFilter(0);
        filter.setDataId(std::move(dataIds));
        auto result = std::make_shared<QueryResultInternal>(filter);
        world.probe.directories().push_back(result);
        return result;
    }

    WiredCache world;
    DirectoryCache& cache = world.cache;
    DirectoryCacheProbe::Items& items = world.probe.items();
    TraceCapture trace;
};

// --- A new cache -------------------------------------------------------------------------------

static_assert(std::is_default_constructible_v<DirectoryCache>);
static_assert(!std::is_copy_constructible_v<DirectoryCache>);
static_assert(!std::is_copy_assignable_v<DirectoryCache>);

TEST(NewCacheTest, HoldsNothing) {
    DirectoryCache cache;
    EXPECT_EQ(cache.itemsSize(), 0u);
    EXPECT_THAT(cache.directories(), IsEmpty());
    EXPECT_THAT(cache.keyValueDirectories(), IsEmpty());
    EXPECT_THAT(cache.keyValues(), IsEmpty());
    EXPECT_EQ(cache.loadListener(), nullptr);
}

TEST(NewCacheTest, HasNoUpdaterUntilOneIsSet) {
    DirectoryCache cache;
    ObjectUpdater updater;
    const TraceCapture trace;
    const auto updaterOfANewEntry = [&cache] {
        const auto object = cache.getObject(Nimra::Document(1, 2, 3, "name"));
        return OrmekCast::castObjectInternal(object)->objectUpdater();
    };
    EXPECT_EQ(updaterOfANewEntry(), nullptr);
    cache.setObjectUpdater(&updater);
    EXPECT_EQ(updaterOfANewEntry(), &updater);
}

TEST_F(StoreTest, TheReadOnlyViewsShowTheMembers) {
    EXPECT_EQ(&cache.directories(), &world.probe.directories());
    EXPECT_EQ(&cache.keyValueDirectories(), &world.probe.keyValueDirectories());
    EXPECT_EQ(&cache.keyValues(), &world.probe.keyValues());
}

// --- getItem -----------------------------------------------------------------------------------

TEST_F(StoreTest, GetItemReturnsTheStoredEntry) {
    const auto object = storeObject(1, 2);
    const auto container = storeContainer(3, 4);
    EXPECT_EQ(cache.getItem(1), object);
    EXPECT_EQ(cache.getItem(3), container);
}

TEST_F(StoreTest, GetItemSharesOwnership) {
    const auto object = storeObject(1, 2);
    const auto found = cache.getItem(1);
    EXPECT_EQ(object.use_count(), 3);
}

TEST_F(StoreTest, GetItemTracesParentOldParentAndId) {
    storeObject(1, 2)->oldParentId(3);
    cache.getItem(1);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 2 3 1\n");
}

TEST_F(StoreTest, GetItemTracesWhatTheEntryAnswersNotItsKey) {
    storeObject(1, 2)->id(9);
    cache.getItem(1);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 2 0 9\n");
}

TEST_F(StoreTest, GetItemOfAnUnknownIdIsEmptyAndSaysSo) {
    storeObject(1, 2);
    EXPECT_EQ(cache.getItem(5), nullptr);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem didnt find item with id: 5\n");
}

TEST_F(StoreTest, GetItemDoesNotInsertWhatItLooksUp) {
    cache.getItem(5);
    EXPECT_THAT(items, IsEmpty());
}

TEST_F(StoreTest, GetItemTreatsAnEmptyEntryAsNotFound) {
    items[5] = nullptr;
    EXPECT_EQ(cache.getItem(5), nullptr);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem didnt find item with id: 5\n");
}

TEST_F(StoreTest, GetItemInternalAnswersAndTracesLikeGetItem) {
    const auto object = storeObject(1, 2);
    EXPECT_EQ(cache.getItemInternal(1), object);
    EXPECT_EQ(cache.getItemInternal(7), nullptr);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 2 0 1\n"
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem didnt find item with id: 7\n");
}

// --- ItemInCache, itemCount, itemsSize ---------------------------------------------------------

TEST_F(StoreTest, ItemInCacheIsTrueForAStoredId) {
    storeObject(1, 2);
    EXPECT_TRUE(cache.ItemInCache(1));
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::ItemInCache: \n"
              "Ormek::DirectoryCache::ItemInCache: -----------> true \n");
}

TEST_F(StoreTest, ItemInCacheIsFalseForAnUnknownId) {
    storeObject(1, 2);
    EXPECT_FALSE(cache.ItemInCache(2));
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::ItemInCache: \n"
              "Ormek::DirectoryCache::ItemInCache: -----------> false \n");
    EXPECT_EQ(items.size(), 1u);
}

TEST_F(StoreTest, ItemInCacheAsksForTheKeyNotForTheEntrysId) {
    storeObject(1, 2)->id(9);
    EXPECT_TRUE(cache.ItemInCache(1));
    EXPECT_FALSE(cache.ItemInCache(9));
}

TEST_F(StoreTest, ItemInCacheCountsAnEmptyEntry) {
    items[5] = nullptr;
    EXPECT_TRUE(cache.ItemInCache(5));
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::ItemInCache: \n"
              "Ormek::DirectoryCache::ItemInCache: -----------> true \n");
}

TEST_F(StoreTest, ItemCountIsZeroOrOne) {
    EXPECT_EQ(cache.itemCount(1), 0);
    auto object = makeObject(1, 2, "object");
    cache.cacheObjectPtr(object);
    cache.cacheObjectPtr(object);
    cache.cacheItemPtr(makeObject(1, 3, "another"));
    EXPECT_EQ(cache.itemCount(1), 1);
    EXPECT_EQ(cache.itemCount(2), 0);
}

TEST_F(StoreTest, ItemsSizeIsTheNumberOfEntries) {
    EXPECT_EQ(cache.itemsSize(), 0u);
    storeObject(1, 2);
    storeContainer(2, 3);
    EXPECT_EQ(cache.itemsSize(), 2u);
}

TEST_F(StoreTest, TheCountsCountAnEmptyEntry) {
    items[5] = nullptr;
    EXPECT_EQ(cache.itemCount(5), 1);
    EXPECT_EQ(cache.itemsSize(), 1u);
}

TEST_F(StoreTest, TheCountsTraceNothing) {
    storeObject(1, 2);
    cache.itemCount(1);
    cache.itemsSize();
    EXPECT_EQ(trace.text(), "");
}

// --- ItemHasChild ------------------------------------------------------------------------------

TEST_F(StoreTest, ItemHasChildLooksAtTheFirstEntryAlone) {
    storeObject(1, 0);
    storeObject(2, 0);
    const auto first = items.begin();
    const auto second = std::next(first);
    OrmekCast::castItemInternal(first->second)->parentId(10);
    OrmekCast::castItemInternal(second->second)->parentId(20);
    EXPECT_TRUE(cache.ItemHasChild(10));
    EXPECT_FALSE(cache.ItemHasChild(20));
}

TEST_F(StoreTest, ItemHasChildIsFalseWhenTheFirstEntryIsEmpty) {
    storeObject(1, 10);
    storeObject(2, 10);
    items.begin()->second = nullptr;
    EXPECT_FALSE(cache.ItemHasChild(10));
    EXPECT_FALSE(cache.ItemHasChild(0));
}

TEST_F(StoreTest, ItemHasChildTracesNothing) {
    storeObject(1, 10);
    cache.ItemHasChild(10);
    EXPECT_EQ(trace.text(), "");
}

// --- getChildren -------------------------------------------------------------------------------

TEST_F(StoreTest, GetChildrenReturnsTheChildrenInIterationOrder) {
    for (const unsigned long id : {5ul, 40ul, 3ul, 1000ul, 17ul}) {
        storeObject(id, id == 3 ? 8 : 7);
    }
    storeContainer(6, 7);
    std::vector<std::shared_ptr<Item>> expected;
    for (const auto& [id, item] : items) {
        if (item->parentId() == 7) {
            expected.push_back(item);
        }
    }
    ASSERT_EQ(expected.size(), 5u);
    EXPECT_EQ(cache.getChildren(7), expected);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(StoreTest, GetChildrenOfAnIdThatNobodyNamesIsEmpty) {
    storeObject(1, 7);
    EXPECT_THAT(cache.getChildren(1), IsEmpty());
}

TEST_F(StoreTest, GetChildrenSkipsEmptyEntries) {
    items[5] = nullptr;
    const auto child = storeObject(1, 0);
    EXPECT_THAT(cache.getChildren(0), ElementsAre(child));
}

// --- printAllItems -----------------------------------------------------------------------------

TEST_F(StoreTest, PrintAllItemsPrintsSixLinesForAnEntry) {
    const auto object = storeObject(1, 2, "a name");
    object->oldParentId(3);
    object->type(-4);
    object->driveId(5);
    cache.printAllItems();
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::printAllItems PRINTING ALL ITEMS\n"
              "NAME: a name\n"
              "ID: 1\n"
              "PARENT ID: 2\n"
              "OLD PARENT ID: 3\n"
              "TYPE: -4\n"
              "DRIVE ID: 5\n");
}

TEST_F(StoreTest, PrintAllItemsPrintsTheEntriesInIterationOrder) {
    storeObject(1, 2, "one");
    storeContainer(300, 4, "two");
    storeObject(5, 6, "three");
    std::string expected = "Ormek::DirectoryCache::printAllItems PRINTING ALL ITEMS\n";
    for (const auto& [id, item] : items) {
        expected += "NAME: " + item->name() + "\nID: " + std::to_string(item->id()) +
                    "\nPARENT ID: " + std::to_string(item->parentId()) +
                    "\nOLD PARENT ID: 0\nTYPE: " + std::to_string(item->type()) + "\nDRIVE ID: 0\n";
    }
    cache.printAllItems();
    EXPECT_EQ(trace.text(), expected);
}

TEST_F(StoreTest, PrintAllItemsOfAnEmptyStorePrintsItsHeadingAlone) {
    cache.printAllItems();
    EXPECT_EQ(trace.text(), "Ormek::DirectoryCache::printAllItems PRINTING ALL ITEMS\n");
}

TEST_F(StoreTest, PrintAllItemsSkipsEmptyEntries) {
    items[5] = nullptr;
    cache.printAllItems();
    EXPECT_EQ(trace.text(), "Ormek::DirectoryCache::printAllItems PRINTING ALL ITEMS\n");
}

// --- Directories by data id --------------------------------------------------------------------

TEST_F(StoreTest, GetDirectoryReturnsTheFirstThatMatches) {
    directory({9});
    const auto first = directory({8, 7});
    directory({7});
    EXPECT_EQ(cache.getDirectory(7), first);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(StoreTest, GetDirectoryIsEmptyWhenNoneMatches) {
    directory({7});
    EXPECT_EQ(cache.getDirectory(8), nullptr);
    EXPECT_EQ(cache.directories().size(), 1u);
}

TEST_F(StoreTest, GetDirectoryLooksAtNoKeyValueDirectory) {
    world.probe.keyValueDirectories().push_back(
        std::make_shared<QueryResultInternal>(folderFilter(7)));
    EXPECT_EQ(cache.getDirectory(7), nullptr);
}

TEST_F(StoreTest, RemoveItemFromDirectoriesTakesItOutOfTheFirstMatchAlone) {
    const auto object = storeObject(1, 7);
    const auto other = directory({9});
    const auto first = directory({7});
    const auto second = directory({7});
    for (const auto& result : {other, first, second}) {
        result->addItem(object, false);
    }
    cache.removeItemFromDirectories(7, 1);
    EXPECT_THAT(other->items(), ElementsAre(object));
    EXPECT_THAT(first->items(), IsEmpty());
    EXPECT_THAT(second->items(), ElementsAre(object));
}

TEST_F(StoreTest, RemoveItemFromDirectoriesStopsAtTheFirstMatchEvenIfTheItemIsNotThere) {
    const auto object = storeObject(1, 7);
    directory({7});
    const auto second = directory({7});
    second->addItem(object, false);
    cache.removeItemFromDirectories(7, 1);
    EXPECT_THAT(second->items(), ElementsAre(object));
}

TEST_F(StoreTest, RemoveItemFromDirectoriesLeavesTheStoreAlone) {
    const auto object = storeObject(1, 7);
    directory({7})->addItem(object, false);
    cache.removeItemFromDirectories(7, 1);
    EXPECT_EQ(items.at(1), object);
    EXPECT_EQ(trace.text(), "");
}

TEST_F(StoreTest, RemoveItemFromDirectoriesTakesTheDataIdFirst) {
    const auto seven = makeObject(7, 1, "seven");
    const auto one = makeObject(1, 7, "one");
    const auto result = directory({7});
    result->addItem(seven, false);
    result->addItem(one, false);
    cache.removeItemFromDirectories(7, 1);
    EXPECT_THAT(result->items(), ElementsAre(seven));
}

// --- Casts -------------------------------------------------------------------------------------

TEST_F(StoreTest, CastsToTheEntrysOwnKindShareOwnership) {
    const auto object = makeObject(1, 2, "object");
    const auto container = makeContainer(3, 4, "container");
    const std::shared_ptr<Object> asObject = cache.castObject(object);
    const std::shared_ptr<Container> asContainer = cache.castContainer(container);
    EXPECT_EQ(asObject, object);
    EXPECT_EQ(asContainer, container);
    EXPECT_EQ(object.use_count(), 2);
    EXPECT_EQ(container.use_count(), 2);
}

TEST_F(StoreTest, CastsToTheOtherKindAreEmptyAndKeepTheArgument) {
    const std::shared_ptr<Item> object = makeObject(1, 2, "object");
    const std::shared_ptr<Item> container = makeContainer(3, 4, "container");
    EXPECT_EQ(cache.castObject(container), nullptr);
    EXPECT_EQ(cache.castContainer(object), nullptr);
    EXPECT_EQ(object.use_count(), 1);
    EXPECT_EQ(container.use_count(), 1);
    EXPECT_EQ(object->id(), 1u);
    EXPECT_EQ(container->id(), 3u);
}

TEST_F(StoreTest, CastsOfAnEmptyPointerAreEmpty) {
    EXPECT_EQ(cache.castObject(nullptr), nullptr);
    EXPECT_EQ(cache.castContainer(nullptr), nullptr);
}

TEST_F(StoreTest, CastsTakePlainValuesToo) {
    EXPECT_NE(cache.castObject(std::make_shared<Object>()), nullptr);
    EXPECT_NE(cache.castContainer(std::make_shared<Container>()), nullptr);
    EXPECT_EQ(trace.text(), "");
}

// --- The service's form of a filter ------------------------------------------------------------

FilterInternal filledFilter() {
    FilterInternal filter;
    filter.serviceFlag = true;
    filter.contextId = 1;
    filter.setUserId(2);
    filter.setUrl("url");
    filter.setTagLabels({{"key", "label"}});
    filter.setQuery("query");
    filter.setPath("path");
    filter.setContainerFirst(false);
    filter.setAscending(false);
    filter.setCount(3);
    filter.setDataId({5, 4});
    filter.setDataType(6);
    filter.setOffset(7);
    filter.setDeleted(true);
    filter.setGroup("group");
    filter.setOrder({{FilterOrder::Name, "asc"}});
    return filter;
}

TEST_F(StoreTest, FilterConverterCarriesEveryFieldOver) {
    const Nimra::ItemFilter converted = cache.filterConverter(filledFilter());
    EXPECT_EQ(converted.userId, 2u);
    EXPECT_EQ(converted.dataType, 6);
    EXPECT_THAT(converted.dataId, ElementsAre(5, 4));
    EXPECT_THAT(converted.tagLabels, ElementsAre(Pair("key", "label")));
    EXPECT_EQ(converted.path, "path");
    EXPECT_EQ(converted.url, "url");
    EXPECT_EQ(converted.query, "query");
    EXPECT_EQ(converted.group, "group");
    EXPECT_FALSE(converted.ascending);
    EXPECT_TRUE(converted.deleted);
    EXPECT_FALSE(converted.containerFirst);
    EXPECT_TRUE(converted.serviceFlag);
    EXPECT_EQ(converted.offset, 7u);
    EXPECT_EQ(converted.count, 3u);
}

TEST_F(StoreTest, FilterConverterKeepsTheThreeSortFlagsApart) {
    FilterInternal filter;
    filter.setAscending(false);
    EXPECT_FALSE(cache.filterConverter(filter).ascending);
    EXPECT_TRUE(cache.filterConverter(filter).containerFirst);
    EXPECT_FALSE(cache.filterConverter(filter).deleted);
    filter.setAscending(true);
    filter.setContainerFirst(false);
    EXPECT_TRUE(cache.filterConverter(filter).ascending);
    EXPECT_FALSE(cache.filterConverter(filter).containerFirst);
    EXPECT_FALSE(cache.filterConverter(filter).serviceFlag);
}

TEST_F(StoreTest, FilterConverterDropsTheOrder) {
    FilterInternal filter = filledFilter();
    ASSERT_NE(filter.order(), "");
    EXPECT_EQ(cache.filterConverter(filter).order(), Nimra::ItemFilter().order());
}

TEST_F(StoreTest, FilterConverterLeavesTheTwoTrailingTexts) {
    const Nimra::ItemFilter converted = cache.filterConverter(filledFilter());
    EXPECT_EQ(converted._order, Nimra::ItemFilter()._order);
    EXPECT_EQ(converted.cursor, Nimra::ItemFilter().cursor);
}

TEST_F(StoreTest, FilterConverterAnswersTheSameTwice) {
    const FilterInternal filter = filledFilter();
    const Nimra::ItemFilter first = cache.filterConverter(filter);
    const Nimra::ItemFilter second = cache.filterConverter(filter);
    EXPECT_EQ(first.userId, second.userId);
    EXPECT_EQ(first.dataType, second.dataType);
    EXPECT_EQ(first.dataId, second.dataId);
    EXPECT_EQ(first.tagLabels, second.tagLabels);
    EXPECT_EQ(first.path, second.path);
    EXPECT_EQ(first.url, second.url);
    EXPECT_EQ(first.query, second.query);
    EXPECT_EQ(first.group, second.group);
    EXPECT_EQ(first.ascending, second.ascending);
    EXPECT_EQ(first.deleted, second.deleted);
    EXPECT_EQ(first.containerFirst, second.containerFirst);
    EXPECT_EQ(first.serviceFlag, second.serviceFlag);
    EXPECT_EQ(first.offset, second.offset);
    EXPECT_EQ(first.count, second.count);
    EXPECT_EQ(first.order(), second.order());
    EXPECT_EQ(first.cursor, second.cursor);
}

TEST_F(StoreTest, FilterConverterTracesThreeLines) {
    cache.filterConverter(filledFilter());
    EXPECT_EQ(trace.text(),
              " ---------------> DEBUG filterConverter filter offset: 7\n"
              " ---------------> DEBUG filterConverter filter dataType: 6\n"
              " ---------------> DEBUG filterConverter filter queryString: query\n");
}

TEST_F(StoreTest, FilterConverterTracesTheGreatestOffsetUnsigned) {
    FilterInternal filter;
    filter.setOffset(4294967295u);
    cache.filterConverter(filter);
    EXPECT_EQ(trace.text(),
              " ---------------> DEBUG filterConverter filter offset: 4294967295\n"
              " ---------------> DEBUG filterConverter filter dataType: 0\n"
              " ---------------> DEBUG filterConverter filter queryString: \n");
}

TEST_F(StoreTest, FilterConverterTouchesNothingInTheCache) {
    storeObject(4, 5);
    const auto result = directory({5});
    cache.filterConverter(filledFilter());
    EXPECT_EQ(items.size(), 1u);
    EXPECT_EQ(cache.directories().size(), 1u);
    EXPECT_THAT(result->items(), IsEmpty());
}

// --- The trace's form --------------------------------------------------------------------------

TEST_F(StoreTest, TheTraceWritesTheGreatestIdsUnsigned) {
    storeObject(Greatest, Greatest - 1)->oldParentId(Greatest - 2);
    cache.getItem(Greatest);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 18446744073709551614 "
              "18446744073709551613 18446744073709551615\n");
}

/// Puts std::cout's state back as it was.
class StreamState {
  public:
    StreamState() : _locale(std::cout.getloc()) { _flags.copyfmt(std::cout); }
    ~StreamState() {
        std::cout.clear();
        std::cout.copyfmt(_flags);
        std::cout.imbue(_locale);
    }
    StreamState(const StreamState&) = delete;
    StreamState& operator=(const StreamState&) = delete;

  private:
    std::ios _flags{nullptr};
    std::locale _locale;
};

struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(StoreTest, TheTraceIgnoresTheStreamsFlagsAndLocale) {
    storeObject(1234567, 255);
    const StreamState restored;
    std::cout.imbue(std::locale(std::locale::classic(), new Grouping));
    std::cout << std::hex << std::showbase << std::showpos;
    std::cout.width(60);
    std::cout.fill('*');
    cache.getItem(1234567);
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 255 0 1234567\n");
}

TEST_F(StoreTest, NothingIsTracedWhileTheStreamHasFailed) {
    const StreamState restored;
    std::cout.setstate(std::ios::failbit);
    const auto object = storeObject(1, 2);
    EXPECT_EQ(cache.getItem(1), object);
    cache.printAllItems();
    std::cout.clear();
    EXPECT_EQ(trace.text(), "");
    cache.getItem(5);
    EXPECT_NE(trace.text(), "");
}

TEST_F(StoreTest, ALongNameIsTracedWhole) {
    const std::string name(100000, 'n');
    cache.addObjectPtr(makeObject(1, 2, name), false);
    EXPECT_EQ(trace.text(), "\nOrmek::DirectoryCache::addObject: " + name +
                                "\n--------OBJECT ID:  1------------\n");
}

/// Keeps each write to std::cout apart.
class Writes : public std::streambuf {
  public:
    Writes() : _previous(std::cout.rdbuf(this)) {}
    ~Writes() override { std::cout.rdbuf(_previous); }

    std::vector<std::string> writes;

  protected:
    int_type overflow(int_type character) override {
        writes.emplace_back(1, traits_type::to_char_type(character));
        return traits_type::not_eof(character);
    }
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        writes.emplace_back(text, static_cast<std::size_t>(size));
        return size;
    }

  private:
    std::streambuf* _previous;
};

TEST_F(StoreTest, EveryTraceLineIsOneWrite) {
    storeObject(1, 2);
    const Writes recorded;
    cache.getItem(1);
    EXPECT_THAT(recorded.writes,
                ElementsAre("Ormek::DirectoryCache::getItem 1\n",
                            "Ormek::DirectoryCache::getItem 1.2 parentId: 2 0 1\n"));
}

// --- Locks -------------------------------------------------------------------------------------

/// A cache with the object 1, the container 2 and a directory, both in folder 10, and an operation
/// that runs on a thread of its own.
class LockedStore {
  public:
    LockedStore() {
        auto directory = std::make_shared<QueryResultInternal>(folderFilter(10));
        world.probe.directories().push_back(directory);
        for (const std::shared_ptr<Item>& item : std::vector<std::shared_ptr<Item>>{
                 makeObject(1, 10, "object"), makeContainer(2, 10, "container")}) {
            world.probe.items()[item->id()] = item;
            directory->addItem(item, false);
        }
    }

    void start(std::function<void(DirectoryCache&)> operation) {
        _running = std::async(std::launch::async,
                              [this, operation = std::move(operation)] { operation(world.cache); });
    }
    bool endsSoon() {
        return _running.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    }
    bool stillRuns() {
        return _running.wait_for(std::chrono::milliseconds(20)) == std::future_status::timeout;
    }
    void end() { _running.get(); }

    /// Waits until `held`, which does not belong to this thread, is taken by the operation.
    static bool becomesTaken(std::mutex& mutex) {
        return becomes([&mutex] {
            std::unique_lock<std::mutex> lock(mutex, std::try_to_lock);
            return !lock.owns_lock();
        });
    }
    /// Waits until the store has an entry under `id`.
    bool becomesStored(unsigned long id) {
        return becomes([this, id] {
            const std::lock_guard<std::mutex> lock(world.probe.itemsMutex());
            return world.probe.items().count(id) == 1;
        });
    }
    /// Takes an entry out as another thread could.
    void vanish(unsigned long id) {
        const std::lock_guard<std::mutex> lock(world.probe.itemsMutex());
        world.probe.items().erase(id);
    }
    QueryResult& directory() { return *world.probe.directories().front(); }

    TraceCapture trace;
    WiredCache world;

  private:
    static bool becomes(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }

    std::future<void> _running;
};

struct Operation {
    const char* name;
    std::function<void(DirectoryCache&)> run;
};

std::string operationName(const ::testing::TestParamInfo<Operation>& info) {
    return info.param.name;
}

const Nimra::Document SomeDocument(1, 10, 3, "object");
const Nimra::Folder SomeFolder(2, 10, 3, "container");

template <class Value>
Value changeable(const Value& value) {
    return value;
}

const std::vector<Operation> WithoutLock = {
    {"setServices", [](DirectoryCache& c) { c.setServices(nullptr); }},
    {"setObjectUpdater", [](DirectoryCache& c) { c.setObjectUpdater(nullptr); }},
    {"setOpWithoutIdsQueue", [](DirectoryCache& c) { c.setOpWithoutIdsQueue(nullptr); }},
    {"getItem", [](DirectoryCache& c) { c.getItem(1); }},
    {"ItemInCacheById", [](DirectoryCache& c) { c.ItemInCache(1); }},
    {"ItemInCacheByName", [](DirectoryCache& c) { c.ItemInCache(10, "object"); }},
    {"ItemHasChild", [](DirectoryCache& c) { c.ItemHasChild(10); }},
    {"itemCount", [](DirectoryCache& c) { c.itemCount(1); }},
    {"itemsSize", [](DirectoryCache& c) { c.itemsSize(); }},
    {"getChildren", [](DirectoryCache& c) { c.getChildren(10); }},
    {"getDirectory", [](DirectoryCache& c) { c.getDirectory(10); }},
    {"castContainer", [](DirectoryCache& c) { c.castContainer(makeContainer(1, 2, "")); }},
    {"castObject", [](DirectoryCache& c) { c.castObject(makeObject(1, 2, "")); }},
    {"printAllItems", [](DirectoryCache& c) { c.printAllItems(); }},
    {"filterConverter", [](DirectoryCache& c) { c.filterConverter(folderFilter(10)); }},
    {"cacheObject", [](DirectoryCache& c) { c.cacheObject(*makeObject(5, 10, "")); }},
    {"cacheObjectPtr", [](DirectoryCache& c) { c.cacheObjectPtr(makeObject(5, 10, "")); }},
    {"getObject", [](DirectoryCache& c) { c.getObject(SomeDocument); }},
    {"getObjectFromTag", [](DirectoryCache& c) { c.getObjectFromTag(Nimra::Tag()); }},
    {"cacheKeyValue", [](DirectoryCache& c) { c.cacheKeyValue("key", *makeObject(5, 10, "")); }},
    {"cacheKeyValuePtr",
     [](DirectoryCache& c) { c.cacheKeyValuePtr("key", makeObject(5, 10, "")); }},
    {"cacheContainer", [](DirectoryCache& c) { c.cacheContainer(*makeContainer(5, 10, "")); }},
    {"cacheContainerPtr", [](DirectoryCache& c) { c.cacheContainerPtr(makeContainer(5, 10, "")); }},
    {"cacheItemPtr", [](DirectoryCache& c) { c.cacheItemPtr(makeObject(5, 10, "")); }},
    {"getContainer", [](DirectoryCache& c) { c.getContainer(SomeFolder); }},
    {"itemToFolder", [](DirectoryCache& c) { c.itemToFolder(makeObject(5, 10, "").get()); }},
};

const std::vector<Operation> WithTheStoresMutexAlone = {
    {"getItemInternal", [](DirectoryCache& c) { c.getItemInternal(1); }},
    {"cacheObjectInternal",
     [](DirectoryCache& c) { c.cacheObjectInternal(*makeObject(5, 10, "")); }},
    {"cacheObjectPtrInternal",
     [](DirectoryCache& c) { c.cacheObjectPtrInternal(makeObject(5, 10, "")); }},
    {"addOrReplaceObjectPtr",
     [](DirectoryCache& c) { c.addOrReplaceObjectPtr(makeObject(5, 10, ""), false); }},
    {"updateObject",
     [](DirectoryCache& c) {
         auto document = changeable(SomeDocument);
         c.updateObject(document, false);
     }},
    {"updateObjectMetaData",
     [](DirectoryCache& c) {
         auto document = changeable(SomeDocument);
         c.updateObjectMetaData(document);
     }},
    {"cacheContainerInternal",
     [](DirectoryCache& c) { c.cacheContainerInternal(*makeContainer(5, 10, "")); }},
    {"cacheContainerPtrInternal",
     [](DirectoryCache& c) { c.cacheContainerPtrInternal(makeContainer(5, 10, "")); }},
    {"removeItemFromCache", [](DirectoryCache& c) { c.removeItemFromCache(1); }},
    {"updateItemId", [](DirectoryCache& c) { c.updateItemId(1, 5); }},
    {"updateItemParentIds", [](DirectoryCache& c) { c.updateItemParentIds(10, 11); }},
    {"onRemoteObjectMoved", [](DirectoryCache& c) { c.onRemoteObjectMoved(11, 1); }},
};

const std::vector<Operation> WithTheDirectoriesMutexAlone = {
    {"removeItemFromDirectories", [](DirectoryCache& c) { c.removeItemFromDirectories(10, 1); }},
};

const std::vector<Operation> WithBothOneAfterTheOther = {
    {"addObject", [](DirectoryCache& c) { c.addObject(*makeObject(5, 10, ""), false); }},
    {"addObjectPtr", [](DirectoryCache& c) { c.addObjectPtr(makeObject(5, 10, ""), false); }},
    {"addDocument", [](DirectoryCache& c) { c.addDocument(Nimra::Document(5, 10, 3, ""), false); }},
};

const std::vector<Operation> WithBothNestedAfterCaching = {
    {"addContainer", [](DirectoryCache& c) { c.addContainer(*makeContainer(5, 10, "")); }},
    {"addContainerPtr",
     [](DirectoryCache& c) { c.addContainerPtr(makeContainer(5, 10, ""), false); }},
    {"addFolder", [](DirectoryCache& c) { c.addFolder(Nimra::Folder(5, 10, 3, ""), false); }},
};

const std::vector<Operation> WithBothNestedFromTheStart = {
    {"removeItem", [](DirectoryCache& c) { c.removeItem(10, 1); }},
    {"removeFolder", [](DirectoryCache& c) { c.removeFolder(SomeFolder); }},
    {"removeContainer", [](DirectoryCache& c) { c.removeContainer(*makeContainer(2, 10, "")); }},
    {"replaceContainer", [](DirectoryCache& c) { c.replaceContainer(*makeContainer(2, 10, "")); }},
};

class OperationWithoutLock : public ::testing::TestWithParam<Operation> {};

TEST_P(OperationWithoutLock, RunsWhileBothMutexesAreHeldElsewhere) {
    LockedStore store;
    std::unique_lock<std::mutex> directories(store.world.probe.mutex());
    std::unique_lock<std::mutex> items(store.world.probe.itemsMutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.endsSoon());
    items.unlock();
    directories.unlock();
    store.end();
}

INSTANTIATE_TEST_SUITE_P(Store, OperationWithoutLock, ::testing::ValuesIn(WithoutLock),
                         operationName);

class OperationWithTheStoresMutex : public ::testing::TestWithParam<Operation> {};

TEST_P(OperationWithTheStoresMutex, WaitsForTheStoresMutex) {
    LockedStore store;
    std::unique_lock<std::mutex> items(store.world.probe.itemsMutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.stillRuns());
    items.unlock();
    EXPECT_TRUE(store.endsSoon());
    store.end();
}

TEST_P(OperationWithTheStoresMutex, RunsWhileTheDirectoriesMutexIsHeldElsewhere) {
    LockedStore store;
    std::unique_lock<std::mutex> directories(store.world.probe.mutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.endsSoon());
    directories.unlock();
    store.end();
}

INSTANTIATE_TEST_SUITE_P(Store, OperationWithTheStoresMutex,
                         ::testing::ValuesIn(WithTheStoresMutexAlone), operationName);

class OperationWithTheDirectoriesMutex : public ::testing::TestWithParam<Operation> {};

TEST_P(OperationWithTheDirectoriesMutex, WaitsForTheDirectoriesMutex) {
    LockedStore store;
    std::unique_lock<std::mutex> directories(store.world.probe.mutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.stillRuns());
    directories.unlock();
    EXPECT_TRUE(store.endsSoon());
    store.end();
}

TEST_P(OperationWithTheDirectoriesMutex, RunsWhileTheStoresMutexIsHeldElsewhere) {
    LockedStore store;
    std::unique_lock<std::mutex> items(store.world.probe.itemsMutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.endsSoon());
    items.unlock();
    store.end();
}

INSTANTIATE_TEST_SUITE_P(Store, OperationWithTheDirectoriesMutex,
                         ::testing::ValuesIn(WithTheDirectoriesMutexAlone), operationName);

class OperationWithOneMutexAfterTheOther : public ::testing::TestWithParam<Operation> {};

TEST_P(OperationWithOneMutexAfterTheOther, WaitsForTheStoresMutexFirst) {
    LockedStore store;
    std::unique_lock<std::mutex> items(store.world.probe.itemsMutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.stillRuns());
    EXPECT_FALSE(store.world.probe.items().count(5));
    EXPECT_TRUE(std::unique_lock<std::mutex>(store.world.probe.mutex(), std::try_to_lock));
    items.unlock();
    EXPECT_TRUE(store.endsSoon());
    store.end();
}

TEST_P(OperationWithOneMutexAfterTheOther, WaitsForTheDirectoriesMutexWithoutTheStores) {
    LockedStore store;
    std::unique_lock<std::mutex> directories(store.world.probe.mutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.becomesStored(5));
    EXPECT_TRUE(store.stillRuns());
    EXPECT_TRUE(std::unique_lock<std::mutex>(store.world.probe.itemsMutex(), std::try_to_lock));
    EXPECT_EQ(store.directory().items().size(), 2u);
    directories.unlock();
    EXPECT_TRUE(store.endsSoon());
    store.end();
    EXPECT_EQ(store.directory().items().size(), 3u);
}

INSTANTIATE_TEST_SUITE_P(Store, OperationWithOneMutexAfterTheOther,
                         ::testing::ValuesIn(WithBothOneAfterTheOther), operationName);

class OperationThatNestsAfterCaching : public ::testing::TestWithParam<Operation> {};

TEST_P(OperationThatNestsAfterCaching, WaitsForTheStoresMutexFirst) {
    LockedStore store;
    std::unique_lock<std::mutex> items(store.world.probe.itemsMutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.stillRuns());
    EXPECT_TRUE(std::unique_lock<std::mutex>(store.world.probe.mutex(), std::try_to_lock));
    items.unlock();
    EXPECT_TRUE(store.endsSoon());
    store.end();
}

TEST_P(OperationThatNestsAfterCaching, ThenTakesTheStoresMutexInsideTheDirectories) {
    LockedStore store;
    std::unique_lock<std::mutex> directories(store.world.probe.mutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.becomesStored(5));
    EXPECT_TRUE(store.stillRuns());
    std::unique_lock<std::mutex> items(store.world.probe.itemsMutex());
    directories.unlock();
    EXPECT_TRUE(LockedStore::becomesTaken(store.world.probe.mutex()));
    EXPECT_TRUE(store.stillRuns());
    items.unlock();
    EXPECT_TRUE(store.endsSoon());
    store.end();
}

TEST_P(OperationThatNestsAfterCaching, AddsNothingWhenTheContainerHasVanishedMeanwhile) {
    LockedStore store;
    std::unique_lock<std::mutex> directories(store.world.probe.mutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.becomesStored(5));
    store.vanish(5);
    directories.unlock();
    EXPECT_TRUE(store.endsSoon());
    store.end();
    EXPECT_EQ(store.directory().items().size(), 2u);
    EXPECT_THAT(store.trace.text(), ::testing::HasSubstr("didnt find item with id: 5\n"));
}

INSTANTIATE_TEST_SUITE_P(Store, OperationThatNestsAfterCaching,
                         ::testing::ValuesIn(WithBothNestedAfterCaching), operationName);

class OperationThatNestsFromTheStart : public ::testing::TestWithParam<Operation> {};

TEST_P(OperationThatNestsFromTheStart, WaitsForTheDirectoriesMutexFirst) {
    LockedStore store;
    std::unique_lock<std::mutex> directories(store.world.probe.mutex());
    store.start(GetParam().run);
    EXPECT_TRUE(store.stillRuns());
    EXPECT_TRUE(std::unique_lock<std::mutex>(store.world.probe.itemsMutex(), std::try_to_lock));
    EXPECT_EQ(store.directory().items().size(), 2u);
    directories.unlock();
    EXPECT_TRUE(store.endsSoon());
    store.end();
}

TEST_P(OperationThatNestsFromTheStart, TakesTheStoresMutexInsideTheDirectories) {
    LockedStore store;
    std::unique_lock<std::mutex> items(store.world.probe.itemsMutex());
    store.start(GetParam().run);
    EXPECT_TRUE(LockedStore::becomesTaken(store.world.probe.mutex()));
    EXPECT_TRUE(store.stillRuns());
    EXPECT_FALSE(std::unique_lock<std::mutex>(store.world.probe.mutex(), std::try_to_lock));
    items.unlock();
    EXPECT_TRUE(store.endsSoon());
    store.end();
}

INSTANTIATE_TEST_SUITE_P(Store, OperationThatNestsFromTheStart,
                         ::testing::ValuesIn(WithBothNestedFromTheStart), operationName);

TEST(ObjectThatVanishesMeanwhile, LeavesAnEmptyEntryBehindAddObject) {
    LockedStore store;
    std::shared_ptr<Object> returned = makeObject(9, 9, "not touched");
    std::unique_lock<std::mutex> directories(store.world.probe.mutex());
    store.start([&returned](DirectoryCache& cache) {
        returned = cache.addObject(*makeObject(5, 10, "vanishing"), false);
    });
    EXPECT_TRUE(store.becomesStored(5));
    store.vanish(5);
    directories.unlock();
    store.end();
    EXPECT_EQ(returned, nullptr);
    EXPECT_EQ(store.world.cache.itemCount(5), 1);
    EXPECT_EQ(store.world.cache.getItem(5), nullptr);
    EXPECT_EQ(store.directory().items().back()->name(), "vanishing");
}

TEST(ObjectThatVanishesMeanwhile, LeavesAnEmptyEntryBehindAddObjectPtr) {
    LockedStore store;
    const auto object = makeObject(5, 10, "vanishing");
    std::shared_ptr<Object> returned = object;
    std::unique_lock<std::mutex> directories(store.world.probe.mutex());
    store.start([&returned, &object](DirectoryCache& cache) {
        returned = cache.addObjectPtr(object, false);
    });
    EXPECT_TRUE(store.becomesStored(5));
    store.vanish(5);
    directories.unlock();
    store.end();
    EXPECT_EQ(returned, nullptr);
    EXPECT_EQ(store.world.cache.itemCount(5), 1);
    EXPECT_EQ(store.world.cache.getItem(5), nullptr);
    EXPECT_EQ(store.directory().items().back(), object);
}

}  // namespace
}  // namespace Ormek
