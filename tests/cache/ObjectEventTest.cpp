#include <gmock/gmock.h>

#include <iostream>
#include <limits>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

/// Drops what it is given and fails.
class FailingHandler : public RecordingHandler {
  public:
    void queueOperation(Nimra::Operation* operation) override {
        const std::unique_ptr<Nimra::Operation> owned(operation);
        throw std::runtime_error("full");
    }
};

class FailingQueue : public QueuedOperationsManager {
  public:
    void push(Nimra::Operation* operation) override {
        const std::unique_ptr<Nimra::Operation> owned(operation);
        throw std::runtime_error("full");
    }
};

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

/// Counts how often it is asked whether its id is loaded.
class CountingObject : public ObjectInternal {
  public:
    using ObjectInternal::idLoaded;
    using ObjectInternal::ObjectInternal;

    bool idLoaded() const override {
        ++asked;
        return ObjectInternal::idLoaded();
    }
    mutable int asked = 0;
};

/// Puts another operation in the place of this one, which gives it another id.
void renumber(Nimra::Operation* operation, unsigned long id) {
    auto* file = dynamic_cast<Nimra::FileOperation*>(operation);
    const Nimra::Document document = file->document();
    const unsigned int kind = file->kind();
    std::destroy_at(file);
    std::construct_at(file, id, document, kind, nullptr);
}

/// Document 7, "cached", lies in folder 5 of the cache. The front end's picture of it is ahead:
/// "edited", moved from folder 8 to folder 6, with metadata of its own.
class ObjectEventTest : public ::testing::Test {
  protected:
    ObjectEventTest() {
        cached->idLoaded(true);
        cached->oldParentId(4);
        wired.probe.items()[7] = cached;
        edited->oldParentId(8);
        edited->length(99);
        edited->setMimeType("image/png");
        edited->setKeyValues({{"a", {"1", true}}, {"b", {"2", false}}});
    }

    unsigned long event(unsigned int kind, unsigned long userId = 3) {
        return cache.objectEvent(*edited, userId, kind, &protocol);
    }
    const Nimra::FileOperation* sent() const { return wired.onlySent<Nimra::FileOperation>(); }
    const Nimra::FileOperation* parked() const { return wired.onlyParked<Nimra::FileOperation>(); }

    const std::shared_ptr<ObjectInternal> cached = makeObject(7, 5, "cached");
    const std::shared_ptr<ObjectInternal> edited = makeObject(7, 6, "edited");
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    Nimra::ItemEventProtocol protocol;
    TraceCapture trace;
};

std::string lookUpTrace(const std::string& parents) {
    return "Ormek::DirectoryCache::getItem 1\n"
           "Ormek::DirectoryCache::getItem 1.2 parentId: " +
           parents + " 7\n";
}

// --- Each kind: its trace and where the object's values arrive ---------------------------------

TEST_F(ObjectEventTest, Kind4MovesFromTheOldParentToTheParent) {
    const auto id = event(4);

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->id(), id);
    EXPECT_EQ(sent()->kind(), 4u);
    EXPECT_EQ(sent()->protocol(), &protocol);
    EXPECT_EQ(sent()->document().id, 7u);
    EXPECT_EQ(sent()->document().parentId, 6u);
    EXPECT_EQ(sent()->document().oldParentId, 8u);
    EXPECT_EQ(sent()->document().ownerId, 3u);
    EXPECT_EQ(sent()->document().name, "edited");
    EXPECT_EQ(trace.text(), "Ormek::DirectoryCache::moveItem itemId: 7\n" + lookUpTrace("6 8"));
}

TEST_F(ObjectEventTest, Kind4OnTheCachedObjectItselfLeavesItsParentsAndSendsTheMove) {
    cached->parentId(6);
    cached->oldParentId(8);

    cache.objectEvent(*cached, 3, 4, &protocol);

    EXPECT_EQ(cached->parentId(), 6u);
    EXPECT_EQ(cached->oldParentId(), 8u);
    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->document().parentId, 6u);
    EXPECT_EQ(sent()->document().oldParentId, 8u);
}

TEST_F(ObjectEventTest, Kind4MovesTheCachedItemAsTheObjectSays) {
    event(4);

    EXPECT_EQ(cached->parentId(), 6u);
    EXPECT_EQ(cached->oldParentId(), 8u);
    EXPECT_EQ(cached->name(), "cached");
}

TEST_F(ObjectEventTest, Kind5RemovesFromTheParentOfTheObject) {
    const auto listing = std::make_shared<QueryResultInternal>(folderFilter(6));
    listing->addItem(cached, false);
    wired.probe.directories() = {listing};

    const auto id = event(5);

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->id(), id);
    EXPECT_EQ(sent()->kind(), 5u);
    EXPECT_EQ(sent()->protocol(), &protocol);
    EXPECT_EQ(sent()->document().id, 7u);
    EXPECT_EQ(sent()->document().parentId, 6u);
    EXPECT_EQ(sent()->document().oldParentId, 0u);
    EXPECT_EQ(sent()->document().ownerId, 3u);
    EXPECT_EQ(sent()->document().name, "");
    EXPECT_THAT(listing->items(), IsEmpty());
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::removeDocument 1\n"
              "Ormek::DirectoryCache::removeDocument 2 items len: 1\n"
              "Ormek::DirectoryCache::removeDocument 2 dir len: 1\n"
              "Ormek::DirectoryCache::removeDocument 3 items len: 1\n"
              "Ormek::DirectoryCache::removeDocument 3 dir len: 1\n" +
                  lookUpTrace("5 4") + "Ormek::DirectoryCache::removeDocument Sending operation\n");
}

TEST_F(ObjectEventTest, Kind6RenamesToTheNameOfTheObject) {
    const auto id = event(6);

    EXPECT_EQ(cached->name(), "edited");
    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->id(), id);
    EXPECT_EQ(sent()->kind(), 6u);
    EXPECT_EQ(sent()->protocol(), &protocol);
    EXPECT_EQ(sent()->document().id, 7u);
    EXPECT_EQ(sent()->document().parentId, 6u);
    EXPECT_EQ(sent()->document().oldParentId, 0u);
    EXPECT_EQ(sent()->document().ownerId, 3u);
    EXPECT_EQ(sent()->document().name, "edited");
    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::objectEvent Rename obj name: edited\n"
              "Ormek::DirectoryCache::renameDocument 1\n"
              "Ormek::DirectoryCache::renameDocument 2 items len: 1\n"
              "Ormek::DirectoryCache::renameDocument 2 dir len: 0\n"
              "Ormek::DirectoryCache::renameDocument 2 newName: edited\n"
              "Orm::DirectoryCache::renameItem newName: edited\n"
              "Orm::DirectoryCache::rename tempItem->name(): edited\n"
              "Ormek::DirectoryCache::renameDocument 3 items len: 1\n"
              "Ormek::DirectoryCache::renameDocument 3 dir len: 0\n"
              "Ormek::Directory::Cache::renameDocument id: 7 folderId: 6 userId: 3 "
              "newName: edited\n" +
                  lookUpTrace("5 4") + "Ormek::DirectoryCache::renameDocument 4 \n");
}

TEST_F(ObjectEventTest, Kind6FlushesItsLineAndTheTwoOfTheCachedName) {
    const FlushCounter flushes;

    event(6);

    EXPECT_EQ(flushes.count(), 3);
}

TEST_F(ObjectEventTest, Kind10AsksForStreams) {
    const auto id = event(10);

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->id(), id);
    EXPECT_EQ(sent()->kind(), 10u);
    EXPECT_EQ(sent()->protocol(), &protocol);
    EXPECT_EQ(sent()->document().id, 7u);
    EXPECT_EQ(sent()->document().parentId, 6u);
    EXPECT_EQ(sent()->document().oldParentId, 0u);
    EXPECT_EQ(sent()->document().ownerId, 3u);
    EXPECT_EQ(sent()->document().name, "edited");
    EXPECT_EQ(sent()->document().length, 0u);
    EXPECT_EQ(trace.text(),
              "Ormek::Directory::Cache::getStreams id: 7 parentId: 6 userId: 3 Name: edited\n" +
                  lookUpTrace("5 4") + "Ormek::DirectoryCache::renameDocument 4 \n");
}

TEST_F(ObjectEventTest, Kind13SavesTheMetaDataOfTheObject) {
    const auto id = event(13);

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->id(), id);
    EXPECT_EQ(sent()->kind(), 13u);
    EXPECT_EQ(sent()->protocol(), &protocol);
    EXPECT_EQ(sent()->document().id, 7u);
    EXPECT_EQ(sent()->document().parentId, 6u);
    EXPECT_EQ(sent()->document().oldParentId, 0u);
    EXPECT_EQ(sent()->document().ownerId, 3u);
    EXPECT_EQ(sent()->document().name, "edited");
    EXPECT_EQ(sent()->document().length, 99u);
    EXPECT_EQ(sent()->document().mimeType, "image/png");
    EXPECT_THAT(sent()->document().keyValues(),
                ElementsAre(Pair("a", Pair("1", true)), Pair("b", Pair("2", false))));
    EXPECT_EQ(trace.text(),
              "Ormek::Directory::Cache::saveMetaData id: 7 parentId: 6 userId: 3 Name: edited\n" +
                  lookUpTrace("5 4") + "Ormek::DirectoryCache::renameDocument 4 \n");
}

TEST_F(ObjectEventTest, Kind13WithoutKeyValuesSavesLengthAndMimeTypeOnly) {
    edited->setKeyValues({});

    event(13);

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->document().length, 99u);
    EXPECT_EQ(sent()->document().mimeType, "image/png");
    EXPECT_THAT(sent()->document().keyValues(), IsEmpty());
}

// --- Each kind: its trace when it is parked ----------------------------------------------------

std::string parkTrace(unsigned long operationId) {
    return "queueing rename operation with op id: " + std::to_string(operationId) +
           "\nOrmek::DirectoryCache::renameDocument 4 \n";
}

TEST_F(ObjectEventTest, ParkedKind4IsTraced) {
    event(4, 0);

    EXPECT_EQ(trace.text(), "Ormek::DirectoryCache::moveItem itemId: 7\n" + lookUpTrace("6 8") +
                                "Ormek::DirectoryCache::moveObject Queueing operation\n");
}

TEST_F(ObjectEventTest, ParkedKind5IsTraced) {
    const auto id = event(5, 0);

    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::removeDocument 1\n"
              "Ormek::DirectoryCache::removeDocument 2 items len: 1\n"
              "Ormek::DirectoryCache::removeDocument 2 dir len: 0\n"
              "Ormek::DirectoryCache::removeDocument 3 items len: 1\n"
              "Ormek::DirectoryCache::removeDocument 3 dir len: 0\n" +
                  lookUpTrace("5 4") +
                  "Ormek::DirectoryCache::removeDocument Queueing operation operationId: " +
                  std::to_string(id) + "\n");
}

TEST_F(ObjectEventTest, ParkedKind6IsTraced) {
    const auto id = event(6, 0);

    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::objectEvent Rename obj name: edited\n"
              "Ormek::DirectoryCache::renameDocument 1\n"
              "Ormek::DirectoryCache::renameDocument 2 items len: 1\n"
              "Ormek::DirectoryCache::renameDocument 2 dir len: 0\n"
              "Ormek::DirectoryCache::renameDocument 2 newName: edited\n"
              "Orm::DirectoryCache::renameItem newName: edited\n"
              "Orm::DirectoryCache::rename tempItem->name(): edited\n"
              "Ormek::DirectoryCache::renameDocument 3 items len: 1\n"
              "Ormek::DirectoryCache::renameDocument 3 dir len: 0\n"
              "Ormek::Directory::Cache::renameDocument id: 7 folderId: 6 userId: 0 "
              "newName: edited\n" +
                  lookUpTrace("5 4") + parkTrace(id));
}

TEST_F(ObjectEventTest, ParkedKind10IsTraced) {
    const auto id = event(10, 0);

    EXPECT_EQ(trace.text(),
              "Ormek::Directory::Cache::getStreams id: 7 parentId: 6 userId: 0 Name: edited\n" +
                  lookUpTrace("5 4") + parkTrace(id));
}

TEST_F(ObjectEventTest, ParkedKind13IsTraced) {
    const auto id = event(13, 0);

    EXPECT_EQ(trace.text(),
              "Ormek::Directory::Cache::saveMetaData id: 7 parentId: 6 userId: 0 Name: edited\n" +
                  lookUpTrace("5 4") + parkTrace(id));
}

// --- The object speaks as it is at the moment of the call --------------------------------------

TEST_F(ObjectEventTest, PlainValueSpeaksForItsSource) {
    Object plain(*edited);
    edited->name("changed since");

    cache.objectEvent(plain, 3, 13, &protocol);

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->document().id, 7u);
    EXPECT_EQ(sent()->document().parentId, 6u);
    EXPECT_EQ(sent()->document().name, "edited");
    EXPECT_EQ(sent()->document().length, 99u);
    EXPECT_EQ(sent()->document().mimeType, "image/png");
}

TEST_F(ObjectEventTest, ValuesAreReadAtTheMomentOfTheCall) {
    edited->name("later");
    edited->parentId(60);

    event(10);

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->document().name, "later");
    EXPECT_EQ(sent()->document().parentId, 60u);
}

// --- Every other kind --------------------------------------------------------------------------

class UnknownKindTest : public ObjectEventTest,
                        public ::testing::WithParamInterface<unsigned int> {};

TEST_P(UnknownKindTest, IsRefusedWithAWord) {
    EXPECT_EQ(event(GetParam()), 0u);

    EXPECT_EQ(trace.text(), "ERROR, Operation not implemented. \n");
}

TEST_P(UnknownKindTest, SendsNothingAndLeavesTheCacheAlone) {
    wired.services.clear();
    const auto listing = std::make_shared<QueryResultInternal>(folderFilter(6));
    listing->addItem(cached, false);
    wired.probe.directories() = {listing};

    event(GetParam());

    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    EXPECT_THAT(wired.parked.operations(), IsEmpty());
    EXPECT_THAT(wired.services, IsEmpty());
    EXPECT_EQ(cached->name(), "cached");
    EXPECT_EQ(cached->parentId(), 5u);
    EXPECT_EQ(cached->oldParentId(), 4u);
    EXPECT_EQ(cache.itemsSize(), 1u);
    EXPECT_THAT(listing->items(), ElementsAre(cached));
}

INSTANTIATE_TEST_SUITE_P(Kinds, UnknownKindTest,
                         ::testing::Values(0, 1, 2, 3, 7, 8, 9, 11, 12, 14, 16,
                                           std::numeric_limits<unsigned int>::max()),
                         ::testing::PrintToStringParamName());

// --- What the five kinds have in common: the way in which their operations leave ---------------

class DispatchTest : public ObjectEventTest, public ::testing::WithParamInterface<unsigned int> {
  protected:
    unsigned long act(unsigned long userId = 3) { return event(GetParam(), userId); }
};

INSTANTIATE_TEST_SUITE_P(Kinds, DispatchTest, ::testing::Values(4, 5, 6, 10, 13),
                         ::testing::PrintToStringParamName());

TEST_P(DispatchTest, IsSentWithAUserAndAServerId) {
    const auto id = act();

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->id(), id);
    EXPECT_EQ(sent()->kind(), GetParam());
    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

TEST_P(DispatchTest, IsParkedWithoutAUserEvenWithAServerId) {
    const auto id = act(0);

    ASSERT_NE(parked(), nullptr);
    EXPECT_EQ(parked()->id(), id);
    EXPECT_EQ(parked()->kind(), GetParam());
    EXPECT_EQ(parked()->document().ownerId, 0u);
    EXPECT_EQ(parked()->protocol(), &protocol);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_P(DispatchTest, IsParkedWithoutAServerIdWhateverTheUser) {
    cached->idLoaded(false);

    const auto id = act();

    ASSERT_NE(parked(), nullptr);
    EXPECT_EQ(parked()->id(), id);
    EXPECT_EQ(parked()->document().ownerId, 3u);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_P(DispatchTest, IsParkedWithNeither) {
    cached->idLoaded(false);

    const auto id = act(0);

    ASSERT_NE(parked(), nullptr);
    EXPECT_EQ(parked()->id(), id);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_P(DispatchTest, FlagOfTheCachedItemDecidesNotThatOfTheObject) {
    cached->idLoaded(false);
    edited->idLoaded(true);

    act();

    EXPECT_NE(parked(), nullptr);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_P(DispatchTest, FlagIsReadEvenWithoutAUser) {
    const auto counting = std::make_shared<CountingObject>(nullptr);
    wired.probe.items()[7] = counting;

    act(0);

    EXPECT_EQ(counting->asked, 1);
}

TEST_P(DispatchTest, EveryOperationHasAFreshIdSentOrParked) {
    std::set<unsigned long> ids;
    ids.insert(act());
    ids.insert(act(0));
    cached->idLoaded(false);
    ids.insert(act());

    EXPECT_EQ(ids.size(), 3u);
    EXPECT_EQ(ids.count(0), 0u);
}

TEST_P(DispatchTest, ProtocolMayBeNull) {
    cache.objectEvent(*edited, 3, GetParam(), nullptr);

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->protocol(), nullptr);
}

TEST_P(DispatchTest, NetworkServiceOfTheDocumentsKeyCarriesTheOperation) {
    Nimra::DocumentServiceNetwork another;
    wired.services[4] = &another;

    act();

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->service(), &another);
}

TEST_P(DispatchTest, PlainDocumentServiceIsNoNetworkService) {
    Nimra::DocumentService plain;
    wired.services[4] = &plain;

    act();

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->service(), nullptr);
}

TEST_P(DispatchTest, PlainDataServiceIsNoNetworkService) {
    wired.services[4] = &wired.listings;

    act();

    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->service(), nullptr);
}

TEST_P(DispatchTest, MissingServiceIsInsertedAsNullAndTheOperationSent) {
    wired.services.clear();

    act();

    EXPECT_THAT(wired.services, ElementsAre(Pair(4, nullptr)));
    ASSERT_NE(sent(), nullptr);
    EXPECT_EQ(sent()->service(), nullptr);
}

TEST_P(DispatchTest, MissingServiceIsInsertedAsNullAndTheOperationParked) {
    wired.services.clear();

    act(0);

    EXPECT_THAT(wired.services, ElementsAre(Pair(4, nullptr)));
    ASSERT_NE(parked(), nullptr);
    EXPECT_EQ(parked()->service(), nullptr);
}

TEST_P(DispatchTest, IdIsReadBackAfterTheOperationWasSent) {
    const WatchingHandler handler([](auto* operation) { renumber(operation, 123456789); });

    EXPECT_EQ(act(), 123456789u);
}

TEST_P(DispatchTest, IdIsReadBackAfterTheOperationWasParked) {
    WatchingQueue queue([](auto* operation) { renumber(operation, 123456789); });
    cache.setOpWithoutIdsQueue(&queue);

    EXPECT_EQ(act(0), 123456789u);
}

TEST_P(DispatchTest, NoLockIsHeldWhileTheOperationIsSent) {
    std::vector<bool> held;
    const WatchingHandler handler([&](auto*) {
        held = {isHeld(wired.probe.itemsMutex()), isHeld(wired.probe.mutex())};
    });

    act();

    EXPECT_THAT(held, ElementsAre(false, false));
}

TEST_P(DispatchTest, NoLockIsHeldWhileTheOperationIsParked) {
    std::vector<bool> held;
    WatchingQueue queue([&](auto*) {
        held = {isHeld(wired.probe.itemsMutex()), isHeld(wired.probe.mutex())};
    });
    cache.setOpWithoutIdsQueue(&queue);

    act(0);

    EXPECT_THAT(held, ElementsAre(false, false));
}

TEST_P(DispatchTest, FailureOfTheHandlerReachesTheCallerAndNothingIsParked) {
    const FailingHandler handler;

    EXPECT_THROW(act(), std::runtime_error);

    EXPECT_THAT(wired.parked.operations(), IsEmpty());
    EXPECT_FALSE(isHeld(wired.probe.itemsMutex()));
    EXPECT_FALSE(isHeld(wired.probe.mutex()));
}

TEST_P(DispatchTest, FailureOfTheQueueReachesTheCallerAndNothingIsSent) {
    FailingQueue queue;
    cache.setOpWithoutIdsQueue(&queue);

    EXPECT_THROW(act(0), std::runtime_error);

    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    EXPECT_FALSE(isHeld(wired.probe.itemsMutex()));
    EXPECT_FALSE(isHeld(wired.probe.mutex()));
}

TEST_P(DispatchTest, OperationsAreSentInTheOrderOfTheCalls) {
    const auto first = act();
    const auto second = act();

    std::vector<unsigned long> ids;
    for (const auto* operation : wired.handler.operations()) {
        ids.push_back(operation->id());
    }
    EXPECT_THAT(ids, ElementsAre(first, second));
}

}  // namespace
}  // namespace Ormek::Testing
