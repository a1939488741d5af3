#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

std::string step(const std::string& rest) {
    return "Ormek::DirectoryCache::loadFromService " + rest + "\n";
}

std::string conversion(const FilterInternal& filter) {
    const std::string label = " ---------------> DEBUG filterConverter filter ";
    return label + "offset: " + std::to_string(filter.getOffset()) + "\n" +      //
           label + "dataType: " + std::to_string(filter.getDataType()) + "\n" +  //
           label + "queryString: " + filter.getQuery() + "\n";
}

std::string sending(const FilterInternal& filter) {
    return step("1") + step("2") + conversion(filter) + step("3") + step("4") + step("5") +
           step("6 " + std::to_string(filter.contextId)) + step("8");
}

std::string parking(const FilterInternal& filter) {
    return step("1") + step("2") + conversion(filter) + step("3") + step("4") + step("5") +
           step("7 0") + step("8");
}

std::string typeLine(int type) {
    return "----------------------> types in vector " + std::to_string(type) + "\n";
}

std::string typeCount(int count) {
    return "Ormek::DirectoryCache::loadDirectory 1, types.size(): " + std::to_string(count) + "\n";
}

FilterInternal withTypes(FilterInternal filter, const std::vector<std::int32_t>& types) {
    filter.setDataTypes(types);
    return filter;
}

FilterInternal withContext(FilterInternal filter, unsigned long contextId) {
    filter.contextId = contextId;
    return filter;
}

FilterInternal fullFilter() {
    FilterInternal filter;
    filter.setUserId(3);
    filter.setDataType(8);
    filter.setDataId({5, 6});
    filter.setTagLabels({{"artist", "x"}, {"year", "y"}});
    filter.setPath("/path");
    filter.setUrl("url:");
    filter.setQuery("blue");
    filter.setGroup("group");
    filter.setAscending(false);
    filter.setDeleted(true);
    filter.setContainerFirst(false);
    filter.serviceFlag = true;
    filter.setOffset(40);
    filter.setCount(20);
    filter.setOrder({{FilterOrder::Name, "desc"}});
    filter.contextId = 5;
    return filter;
}

class LoadTest : public testing::Test {
  protected:
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    TraceCapture trace;
    Nimra::ItemEventProtocol listener;
    Nimra::DataService service;
};

// --- loadDirectory --------------------------------------------------------------------------

TEST_F(LoadTest, TwoDataTypesMakeThreeTypeLines) {
    const auto filter = withTypes(folderFilter(5), {8, 4});

    cache.loadDirectory(filter, nullptr, &listener);

    EXPECT_EQ(trace.text(),
              typeLine(4) + typeLine(8) + typeLine(0) + typeCount(2) + sending(filter));
}

TEST_F(LoadTest, NoDataTypesMakeOneTypeLine) {
    cache.loadDirectory(folderFilter(5), nullptr, &listener);

    EXPECT_EQ(trace.text(), typeLine(0) + typeCount(0) + sending(folderFilter(5)));
}

TEST_F(LoadTest, DirectoryLoadThatIsParkedIsTraced) {
    const auto filter = withTypes(withContext(folderFilter(5), 0), {31});

    cache.loadDirectory(filter, nullptr, &listener);

    EXPECT_EQ(trace.text(), typeLine(31) + typeLine(0) + typeCount(1) + parking(filter));
}

TEST_F(LoadTest, DataTypesTakeNoPartInTheChoiceOfTheService) {
    wired.services = {{0, &wired.listings}, {5, &service}};

    cache.loadDirectory(withTypes(folderFilter(5), {5}), nullptr, &listener);

    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->service(), &wired.listings);
}

TEST_F(LoadTest, MissingServiceIsInsertedAsNull) {
    wired.services.clear();

    const auto id = cache.loadDirectory(folderFilter(5), nullptr, &listener);

    EXPECT_EQ(wired.services, (std::map<int, Nimra::DataService*>{{0, nullptr}}));
    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->id(), id);
    EXPECT_EQ(operation->service(), nullptr);
}

TEST_F(LoadTest, MissingServiceIsParkedAllTheSame) {
    wired.services.clear();

    cache.loadDirectory(withContext(folderFilter(5), 0), nullptr, &listener);

    auto* operation = wired.onlyParked<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->service(), nullptr);
}

TEST_F(LoadTest, SecondOfTwoListenersIsRecorded) {
    Nimra::ItemEventProtocol second;

    cache.loadDirectory(folderFilter(5), nullptr, &listener);
    EXPECT_EQ(cache.loadListener(), &listener);

    cache.loadDirectory(folderFilter(5), nullptr, &second);
    EXPECT_EQ(cache.loadListener(), &second);
}

TEST_F(LoadTest, ListenerOfAParkedLoadIsRecordedToo) {
    cache.loadDirectory(withContext(folderFilter(5), 0), nullptr, &listener);

    EXPECT_EQ(cache.loadListener(), &listener);
}

TEST_F(LoadTest, DirectoryIsNotKept) {
    const std::shared_ptr<QueryResult> directory =
        std::make_shared<QueryResultInternal>(folderFilter(5));

    cache.loadDirectory(folderFilter(5), directory, &listener);

    EXPECT_EQ(directory.use_count(), 1);
    EXPECT_TRUE(directory->items().empty());
    EXPECT_TRUE(cache.directories().empty());
}

TEST_F(LoadTest, LoadLeavesTheStoreAlone) {
    cache.loadDirectory(folderFilter(5), nullptr, &listener);

    EXPECT_TRUE(wired.probe.items().empty());
    EXPECT_TRUE(cache.keyValues().empty());
    EXPECT_TRUE(cache.keyValueDirectories().empty());
    EXPECT_EQ(wired.services.size(), 3u);
}

// --- loadFromService ------------------------------------------------------------------------

TEST_F(LoadTest, LoadIsSentWhenItsContextIdIsKnown) {
    const auto filter = withContext(folderFilter(5), 42);

    const auto id = cache.loadFromService(&service, filter, &listener);

    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_NE(id, 0u);
    EXPECT_EQ(operation->id(), id);
    EXPECT_EQ(operation->service(), &service);
    EXPECT_EQ(operation->protocol(), &listener);
    EXPECT_EQ(wired.parked.size(), 0u);
    EXPECT_EQ(trace.text(), step("1") + step("2") + conversion(filter) + step("3") + step("4") +
                                step("5") + step("6 42") + step("8"));
}

TEST_F(LoadTest, LoadIsParkedWhenItsContextIdIsNot) {
    const auto filter = withContext(folderFilter(5), 0);

    const auto id = cache.loadFromService(&service, filter, &listener);

    auto* operation = wired.onlyParked<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_NE(id, 0u);
    EXPECT_EQ(operation->id(), id);
    EXPECT_EQ(operation->service(), &service);
    EXPECT_EQ(operation->protocol(), &listener);
    EXPECT_TRUE(wired.handler.operations().empty());
    EXPECT_EQ(trace.text(), step("1") + step("2") + conversion(filter) + step("3") + step("4") +
                                step("5") + step("7 0") + step("8"));
}

TEST_F(LoadTest, EveryLoadHasAnIdOfItsOwn) {
    const auto sent = cache.loadFromService(&service, folderFilter(5), &listener);
    const auto parked = cache.loadFromService(&service, withContext(folderFilter(5), 0), &listener);
    const auto again = cache.loadFromService(&service, folderFilter(5), &listener);

    EXPECT_NE(sent, parked);
    EXPECT_NE(parked, again);
    EXPECT_NE(sent, again);
}

TEST_F(LoadTest, ServiceAndListenerMayBeNull) {
    cache.loadFromService(nullptr, folderFilter(5), nullptr);

    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->service(), nullptr);
    EXPECT_EQ(operation->protocol(), nullptr);
    EXPECT_EQ(trace.text(), sending(folderFilter(5)));
}

TEST_F(LoadTest, LoadFromAServiceRecordsNoListener) {
    cache.loadFromService(&service, folderFilter(5), &listener);

    EXPECT_EQ(cache.loadListener(), nullptr);
}

TEST_F(LoadTest, OperationCarriesTheWholeFilter) {
    cache.loadFromService(&service, fullFilter(), &listener);

    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    const auto& filter = operation->filter();
    EXPECT_EQ(filter.userId, 3u);
    EXPECT_EQ(filter.dataType, 8);
    EXPECT_EQ(filter.dataId, (std::vector<unsigned long>{5, 6}));
    EXPECT_EQ(filter.tagLabels,
              (std::map<std::string, std::string>{{"artist", "x"}, {"year", "y"}}));
    EXPECT_EQ(filter.path, "/path");
    EXPECT_EQ(filter.url, "url:");
    EXPECT_EQ(filter.query, "blue");
    EXPECT_EQ(filter.group, "group");
    EXPECT_FALSE(filter.ascending);
    EXPECT_TRUE(filter.deleted);
    EXPECT_FALSE(filter.containerFirst);
    EXPECT_TRUE(filter.serviceFlag);
    EXPECT_EQ(filter.offset, 40u);
    EXPECT_EQ(filter.count, 20u);
    EXPECT_EQ(trace.text(), sending(fullFilter()));
}

TEST_F(LoadTest, OperationNeverCarriesTheOrder) {
    cache.loadFromService(&service, fullFilter(), &listener);

    auto* operation = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(operation, nullptr);
    EXPECT_EQ(operation->filter().order(), Nimra::ItemFilter().order());
    EXPECT_EQ(operation->filter().cursor, Nimra::ItemFilter().cursor);
}

TEST_F(LoadTest, HandOverStandsBetweenTheLastTwoSteps) {
    const auto start =
        step("1") + step("2") + conversion(folderFilter(5)) + step("3") + step("4") + step("5");
    std::string whenHandedOver;
    const auto note = [&](auto*) { whenHandedOver = trace.text(); };
    const WatchingHandler handler(note);
    WatchingQueue parked(note);
    cache.setOpWithoutIdsQueue(&parked);

    cache.loadFromService(&service, folderFilter(5), &listener);
    EXPECT_EQ(whenHandedOver, start + step("6 5"));

    trace.clear();
    cache.loadFromService(&service, withContext(folderFilter(5), 0), &listener);
    EXPECT_EQ(whenHandedOver, start + step("7 0"));
}

TEST_F(LoadTest, ServiceIsSetBeforeTheHandOver) {
    Nimra::DataService* whenHandedOver = nullptr;
    const WatchingHandler handler([&](auto* operation) {
        whenHandedOver = dynamic_cast<Nimra::DataLoaderOperation&>(*operation).service();
    });

    cache.loadFromService(&service, folderFilter(5), &listener);

    EXPECT_EQ(whenHandedOver, &service);
}

TEST_F(LoadTest, ReceiverThatThrowsKeepsTheOperation) {
    const auto refuse = [](auto*) { throw std::runtime_error("full"); };
    WatchingHandler handler(refuse);
    WatchingQueue parked(refuse);
    cache.setOpWithoutIdsQueue(&parked);

    EXPECT_THROW(cache.loadFromService(&service, folderFilter(5), &listener), std::runtime_error);
    ASSERT_EQ(handler.operations().size(), 1u);
    EXPECT_NE(handler.take()->id(), 0u);

    EXPECT_THROW(cache.loadFromService(&service, withContext(folderFilter(5), 0), &listener),
                 std::runtime_error);
    ASSERT_EQ(parked.operations().size(), 1u);
    EXPECT_NE(parked.operations().front()->id(), 0u);
}

TEST_F(LoadTest, HandlerIsTheOneRegisteredAtTheTimeOfTheLoad) {
    cache.loadFromService(&service, folderFilter(5), &listener);
    {
        const RecordingHandler handler;
        cache.loadFromService(&service, folderFilter(5), &listener);
        EXPECT_EQ(handler.operations().size(), 1u);
    }
    EXPECT_EQ(wired.handler.operations().size(), 1u);
}

TEST_F(LoadTest, LoadsTakeNoLock) {
    EXPECT_TRUE(returnsWhileBothAreHeld(wired.probe, [this] {
        cache.loadDirectory(folderFilter(5), nullptr, &listener);
        cache.loadDirectory(withContext(folderFilter(5), 0), nullptr, &listener);
        cache.loadFromService(&service, folderFilter(5), &listener);
        cache.loadFromService(&service, withContext(folderFilter(5), 0), &listener);
    }));
}

}  // namespace
}  // namespace Ormek::Testing
