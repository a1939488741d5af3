#include <gmock/gmock.h>

#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <string>

#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

/// Keeps what it is given, and the trace up to that moment.
class TracingQueue : public QueuedOperationsManager {
  public:
    explicit TracingQueue(const TraceCapture& trace) : _trace(trace) {}
    void push(Nimra::Operation* operation) override {
        QueuedOperationsManager::push(operation);
        traceAtHandOver = _trace.text();
    }
    std::string traceAtHandOver;

  private:
    const TraceCapture& _trace;
};

/// Document 7 lies in folder 5 and stands in its directory.
class RequestAboutADocumentTest : public ::testing::Test {
  protected:
    RequestAboutADocumentTest() {
        document->idLoaded(true);
        document->oldParentId(4);
        document->length(11);
        document->setMimeType("text/plain");
        document->setKeyValues({{"own", {"value", true}}});
        directory->addItem(document, false);
        wired.probe.items()[7] = document;
        wired.probe.directories() = {directory};
    }

    static std::string lookUpTrace() {
        return "Ormek::DirectoryCache::getItem 1\n"
               "Ormek::DirectoryCache::getItem 1.2 parentId: 5 4 7\n";
    }
    static std::string parkTrace(unsigned long operationId) {
        return "queueing rename operation with op id: " + std::to_string(operationId) + "\n";
    }
    static std::string endTrace() { return "Ormek::DirectoryCache::renameDocument 4 \n"; }

    void expectCacheUntouched() {
        EXPECT_EQ(cache.itemsSize(), 1u);
        EXPECT_EQ(document->name(), "document");
        EXPECT_EQ(document->parentId(), 5u);
        EXPECT_EQ(document->oldParentId(), 4u);
        EXPECT_EQ(document->length(), 11u);
        EXPECT_EQ(document->mimeType(), "text/plain");
        EXPECT_THAT(document->keyValues(), ElementsAre(Pair("own", Pair("value", true))));
        EXPECT_THAT(directory->items(), ElementsAre(document));
    }

    const std::shared_ptr<ObjectInternal> document = makeObject(7, 5, "document");
    const std::shared_ptr<QueryResultInternal> directory =
        std::make_shared<QueryResultInternal>(folderFilter(5));
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    Nimra::ItemEventProtocol protocol;
    TraceCapture trace;
};

// --- getStreams --------------------------------------------------------------------------------

class StreamsTest : public RequestAboutADocumentTest {
  protected:
    unsigned long getStreams(unsigned long userId) {
        return cache.getStreams(20, 7, userId, "name", &protocol);
    }
    static std::string traceUpToHandOver(unsigned long userId) {
        return "Ormek::Directory::Cache::getStreams id: 7 parentId: 20 userId: " +
               std::to_string(userId) + " Name: name\n" + lookUpTrace();
    }
};

TEST_F(StreamsTest, SentRequestIsTraced) {
    getStreams(3);

    EXPECT_EQ(trace.text(), traceUpToHandOver(3) + endTrace());
}

TEST_F(StreamsTest, RequestParkedForLackOfAUserIsTraced) {
    const auto id = getStreams(0);

    EXPECT_EQ(trace.text(), traceUpToHandOver(0) + parkTrace(id) + endTrace());
}

TEST_F(StreamsTest, RequestParkedForLackOfAServerIdIsTraced) {
    document->idLoaded(false);

    const auto id = getStreams(3);

    EXPECT_EQ(trace.text(), traceUpToHandOver(3) + parkTrace(id) + endTrace());
}

TEST_F(StreamsTest, RequestParkedForLackOfBothIsTraced) {
    document->idLoaded(false);

    const auto id = getStreams(0);

    EXPECT_EQ(trace.text(), traceUpToHandOver(0) + parkTrace(id) + endTrace());
}

TEST_F(StreamsTest, ParkLineIsWrittenBeforeTheOperationIsParked) {
    TracingQueue queue(trace);
    cache.setOpWithoutIdsQueue(&queue);

    const auto id = getStreams(0);

    EXPECT_EQ(queue.traceAtHandOver, traceUpToHandOver(0) + parkTrace(id));
}

TEST_F(StreamsTest, EveryArgumentArrivesInItsPlace) {
    const auto id = cache.getStreams(20, 7, 3, "name", &protocol);

    const auto* sent = wired.onlySent<Nimra::FileOperation>();
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(sent->id(), id);
    EXPECT_EQ(sent->kind(), 10u);
    EXPECT_EQ(sent->protocol(), &protocol);
    EXPECT_EQ(sent->service(), &wired.documents);
    EXPECT_EQ(sent->document().id, 7u);
    EXPECT_EQ(sent->document().parentId, 20u);
    EXPECT_EQ(sent->document().ownerId, 3u);
    EXPECT_EQ(sent->document().name, "name");
    EXPECT_EQ(sent->document().oldParentId, 0u);
}

TEST_F(StreamsTest, MetaDataOfTheCachedDocumentIsNotSent) {
    getStreams(3);

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    const Nimra::Document& sent = wired.onlySent<Nimra::FileOperation>()->document();
    EXPECT_EQ(sent.length, 0u);
    EXPECT_EQ(sent.mimeType, "");
    EXPECT_THAT(sent.keyValues(), IsEmpty());
}

TEST_F(StreamsTest, DocumentWithoutAServerIdParksTheOperation) {
    document->idLoaded(false);

    const auto id = getStreams(3);

    const auto* parked = wired.onlyParked<Nimra::FileOperation>();
    ASSERT_NE(parked, nullptr);
    EXPECT_EQ(parked->id(), id);
    EXPECT_EQ(parked->kind(), 10u);
    EXPECT_EQ(parked->document().ownerId, 3u);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_F(StreamsTest, CacheIsLeftAlone) {
    getStreams(3);

    expectCacheUntouched();
}

TEST_F(StreamsTest, DirectoriesMutexIsNotTaken) {
    EXPECT_TRUE(returnsWhileHeld([this] { getStreams(3); }, wired.probe.mutex()));
}

TEST_F(StreamsTest, FlagIsLookedUpUnderTheStoresMutex) {
    std::unique_lock held(wired.probe.itemsMutex());

    auto asked = std::async(std::launch::async, [this] { return getStreams(3); });

    EXPECT_EQ(asked.wait_for(20ms), std::future_status::timeout);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    held.unlock();
    asked.get();
    EXPECT_EQ(wired.handler.operations().size(), 1u);
}

// --- saveMetaData ------------------------------------------------------------------------------

class SaveMetaDataTest : public RequestAboutADocumentTest {
  protected:
    unsigned long save(unsigned long userId) {
        return cache.saveMetaData(userId, 20, 7, "name", 99, "image/png", keyValues, &protocol);
    }
    static std::string traceUpToHandOver(unsigned long userId) {
        return "Ormek::Directory::Cache::saveMetaData id: 7 parentId: 20 userId: " +
               std::to_string(userId) + " Name: name\n" + lookUpTrace();
    }

    KeyValueMap keyValues{{"b", {"2", false}}, {"a", {"1", true}}};
};

TEST_F(SaveMetaDataTest, SentRequestIsTraced) {
    save(3);

    EXPECT_EQ(trace.text(), traceUpToHandOver(3) + endTrace());
}

TEST_F(SaveMetaDataTest, RequestParkedForLackOfAUserIsTraced) {
    const auto id = save(0);

    EXPECT_EQ(trace.text(), traceUpToHandOver(0) + parkTrace(id) + endTrace());
}

TEST_F(SaveMetaDataTest, RequestParkedForLackOfAServerIdIsTraced) {
    document->idLoaded(false);

    const auto id = save(3);

    EXPECT_EQ(trace.text(), traceUpToHandOver(3) + parkTrace(id) + endTrace());
}

TEST_F(SaveMetaDataTest, RequestParkedForLackOfBothIsTraced) {
    document->idLoaded(false);

    const auto id = save(0);

    EXPECT_EQ(trace.text(), traceUpToHandOver(0) + parkTrace(id) + endTrace());
}

TEST_F(SaveMetaDataTest, ParkLineIsWrittenBeforeTheOperationIsParked) {
    TracingQueue queue(trace);
    cache.setOpWithoutIdsQueue(&queue);

    const auto id = save(0);

    EXPECT_EQ(queue.traceAtHandOver, traceUpToHandOver(0) + parkTrace(id));
}

TEST_F(SaveMetaDataTest, EveryArgumentArrivesInItsPlace) {
    const auto id = cache.saveMetaData(3, 20, 7, "name", 99, "image/png", keyValues, &protocol);

    const auto* sent = wired.onlySent<Nimra::FileOperation>();
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(sent->id(), id);
    EXPECT_EQ(sent->kind(), 13u);
    EXPECT_EQ(sent->protocol(), &protocol);
    EXPECT_EQ(sent->service(), &wired.documents);
    EXPECT_EQ(sent->document().id, 7u);
    EXPECT_EQ(sent->document().parentId, 20u);
    EXPECT_EQ(sent->document().ownerId, 3u);
    EXPECT_EQ(sent->document().name, "name");
    EXPECT_EQ(sent->document().length, 99u);
    EXPECT_EQ(sent->document().mimeType, "image/png");
    EXPECT_THAT(sent->document().keyValues(),
                ElementsAre(Pair("a", Pair("1", true)), Pair("b", Pair("2", false))));
    EXPECT_EQ(sent->document().oldParentId, 0u);
}

TEST_F(SaveMetaDataTest, EmptyKeyValuesLeaveOnlyLengthAndMimeType) {
    keyValues.clear();

    save(3);

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    const Nimra::Document& sent = wired.onlySent<Nimra::FileOperation>()->document();
    EXPECT_EQ(sent.length, 99u);
    EXPECT_EQ(sent.mimeType, "image/png");
    EXPECT_THAT(sent.keyValues(), IsEmpty());
}

TEST_F(SaveMetaDataTest, LengthHas64Bits) {
    constexpr auto Greatest = std::numeric_limits<unsigned long>::max();

    cache.saveMetaData(3, 20, 7, "name", Greatest, "image/png", {}, &protocol);

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->document().length, Greatest);
}

TEST_F(SaveMetaDataTest, ParkedOperationCarriesTheMetaDataToo) {
    const auto id = save(0);

    const auto* parked = wired.onlyParked<Nimra::FileOperation>();
    ASSERT_NE(parked, nullptr);
    EXPECT_EQ(parked->id(), id);
    EXPECT_EQ(parked->kind(), 13u);
    EXPECT_EQ(parked->document().ownerId, 0u);
    EXPECT_EQ(parked->document().length, 99u);
    EXPECT_EQ(parked->document().mimeType, "image/png");
    EXPECT_EQ(parked->document().keyValues(), keyValues);
}

TEST_F(SaveMetaDataTest, CacheIsLeftAlone) {
    save(3);

    expectCacheUntouched();
}

TEST_F(SaveMetaDataTest, DirectoriesMutexIsNotTaken) {
    EXPECT_TRUE(returnsWhileHeld([this] { save(3); }, wired.probe.mutex()));
}

TEST_F(SaveMetaDataTest, FlagIsLookedUpUnderTheStoresMutex) {
    std::unique_lock held(wired.probe.itemsMutex());

    auto saved = std::async(std::launch::async, [this] { return save(3); });

    EXPECT_EQ(saved.wait_for(20ms), std::future_status::timeout);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    held.unlock();
    saved.get();
    EXPECT_EQ(wired.handler.operations().size(), 1u);
}

}  // namespace
}  // namespace Ormek::Testing
