#include <gmock/gmock.h>

#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

/// Puts another operation in the place of this one, which gives it another id.
void renumber(Nimra::Operation* operation, unsigned long id) {
    auto* file = dynamic_cast<Nimra::FileOperation*>(operation);
    const Nimra::Document document = file->document();
    std::destroy_at(file);
    std::construct_at(file, id, document, 2u, nullptr);
}

/// A new document 70 that is to lie in folder 5, which the server knows.
class CreateObjectTest : public ::testing::Test {
  protected:
    CreateObjectTest() {
        folder->idLoaded(true);
        folder->oldParentId(4);
        wired.probe.items()[5] = folder;
    }

    unsigned long create() { return cache.createObject(object, keyValues, 3, &protocol); }
    void putNewDocumentIntoFolderZero() {
        folder->id(0);
        wired.probe.items() = {{0, folder}};
        object->parentId(0);
    }

    static std::string folderTrace() {
        return "Ormek::DirectoryCache::getItem 1\n"
               "Ormek::DirectoryCache::getItem 1.2 parentId: 2 4 5\n";
    }
    static std::string beforeTrace(unsigned long size) {
        return "-----------Ormek::UPLOAD ADDING OP TO QUEUE, SIZE BEFORE: " + std::to_string(size) +
               "--------------\n";
    }
    static std::string afterTrace(unsigned long size) {
        return "-----------Ormek::UPLOAD ADDING OP TO QUEUE, SIZE AFTER: " + std::to_string(size) +
               "--------------\n";
    }

    const std::shared_ptr<ContainerInternal> folder = makeContainer(5, 2, "folder");
    const std::shared_ptr<ObjectInternal> object = makeObject(70, 5, "new document");
    KeyValueMap keyValues{{"b", {"2", false}}, {"a", {"1", true}}};
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    Nimra::ItemEventProtocol protocol;
    TraceCapture trace;
};

// --- The whole trace ---------------------------------------------------------------------------

TEST_F(CreateObjectTest, SentCreationTracesNothingButTheLookUpOfItsFolder) {
    create();

    EXPECT_EQ(trace.text(), folderTrace());
}

TEST_F(CreateObjectTest, CreationParkedForLackOfAServerIdTracesTheSizeOfTheQueue) {
    folder->idLoaded(false);

    create();

    EXPECT_EQ(trace.text(), folderTrace() + beforeTrace(0) + afterTrace(1));
}

TEST_F(CreateObjectTest, SizesGrowWithTheQueue) {
    folder->idLoaded(false);
    create();
    create();
    trace.clear();

    create();

    EXPECT_EQ(trace.text(), folderTrace() + beforeTrace(2) + afterTrace(3));
}

TEST_F(CreateObjectTest, CreationParkedForLackOfAnyFolderIdIsTraced) {
    putNewDocumentIntoFolderZero();

    create();

    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem 1.2 parentId: 2 4 0\n" +
                  beforeTrace(0) + afterTrace(1));
}

TEST_F(CreateObjectTest, DroppedCreationTracesNothingButTheFailedLookUp) {
    object->parentId(90);

    create();

    EXPECT_EQ(trace.text(),
              "Ormek::DirectoryCache::getItem 1\n"
              "Ormek::DirectoryCache::getItem didnt find item with id: 90\n");
}

// --- Sent, parked or dropped -------------------------------------------------------------------

TEST_F(CreateObjectTest, FolderWithAServerIdSends) {
    const auto id = create();

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->id(), id);
    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

TEST_F(CreateObjectTest, FolderWithoutAServerIdParks) {
    folder->idLoaded(false);

    const auto id = create();

    ASSERT_NE(wired.onlyParked<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlyParked<Nimra::FileOperation>()->id(), id);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_F(CreateObjectTest, FolderZeroParksEvenWhenItsIdIsLoaded) {
    putNewDocumentIntoFolderZero();

    const auto id = create();

    ASSERT_NE(wired.onlyParked<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlyParked<Nimra::FileOperation>()->id(), id);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_F(CreateObjectTest, FolderIsAskedForItsIdNotTheKeyItIsStoredUnder) {
    folder->id(0);

    create();

    EXPECT_NE(wired.onlyParked<Nimra::FileOperation>(), nullptr);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_F(CreateObjectTest, WithoutAUserTheOperationIsSentAtOnce) {
    cache.createObject(object, keyValues, 0, &protocol);

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->document().ownerId, 0u);
    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

TEST_F(CreateObjectTest, DocumentsOwnFlagPlaysNoPart) {
    object->idLoaded(true);
    folder->idLoaded(false);
    create();
    object->idLoaded(false);
    folder->idLoaded(true);
    create();

    EXPECT_EQ(wired.parked.operations().size(), 1u);
    EXPECT_EQ(wired.handler.operations().size(), 1u);
}

TEST_F(CreateObjectTest, FolderThatIsNotCachedDropsTheOperationAndStillGivesAnId) {
    object->parentId(90);

    const auto first = create();
    const auto second = create();

    EXPECT_NE(first, 0u);
    EXPECT_NE(second, first);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

TEST_F(CreateObjectTest, EmptyEntryInTheStoreIsAFolderThatIsNotCached) {
    wired.probe.items()[5] = nullptr;

    EXPECT_NE(create(), 0u);

    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

TEST_F(CreateObjectTest, FolderThatIsNotCachedIsNotEntered) {
    object->parentId(90);

    create();

    EXPECT_EQ(wired.probe.items().count(90), 0u);
}

// --- The operation -----------------------------------------------------------------------------

TEST_F(CreateObjectTest, EveryArgumentArrivesInItsPlace) {
    const auto id = create();

    const auto* sent = wired.onlySent<Nimra::FileOperation>();
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(sent->id(), id);
    EXPECT_EQ(sent->kind(), 2u);
    EXPECT_EQ(sent->protocol(), &protocol);
    EXPECT_EQ(sent->service(), &wired.documents);
    EXPECT_EQ(sent->document().id, 70u);
    EXPECT_EQ(sent->document().parentId, 5u);
    EXPECT_EQ(sent->document().ownerId, 3u);
    EXPECT_EQ(sent->document().name, "new document");
    EXPECT_THAT(sent->document().keyValues(),
                ElementsAre(Pair("a", Pair("1", true)), Pair("b", Pair("2", false))));
}

TEST_F(CreateObjectTest, NothingElseOfTheObjectIsSent) {
    object->oldParentId(4);
    object->ownerId(60);
    object->description("described");
    object->length(61);
    object->setMimeType("text/plain");
    object->setKeyValues({{"own", {"value", true}}});

    create();

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    const Nimra::Document& sent = wired.onlySent<Nimra::FileOperation>()->document();
    EXPECT_EQ(sent.oldParentId, 0u);
    EXPECT_EQ(sent.ownerId, 3u);
    EXPECT_EQ(sent.description, "");
    EXPECT_EQ(sent.length, 0u);
    EXPECT_EQ(sent.mimeType, "");
    EXPECT_EQ(sent.keyValues().count("own"), 0u);
}

TEST_F(CreateObjectTest, EmptyKeyValuesAddNothing) {
    object->setKeyValues({{"own", {"value", true}}});
    keyValues.clear();

    create();

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_THAT(wired.onlySent<Nimra::FileOperation>()->document().keyValues(), IsEmpty());
}

TEST_F(CreateObjectTest, PlainValueIsSentLikeAnyObject) {
    const auto plain = std::make_shared<Object>(*object);

    cache.createObject(plain, {}, 3, &protocol);

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->document().id, 70u);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->document().name, "new document");
}

TEST_F(CreateObjectTest, EveryCreationHasAnIdOfItsOwn) {
    const auto sent = create();
    folder->idLoaded(false);
    const auto parked = create();

    EXPECT_NE(sent, 0u);
    EXPECT_NE(parked, 0u);
    EXPECT_NE(parked, sent);
}

/// Notes the order in which its values are asked for.
class AskedObject : public ObjectInternal {
  public:
    using ObjectInternal::id;
    using ObjectInternal::name;
    using ObjectInternal::ObjectInternal;
    using ObjectInternal::parentId;

    std::string name() const override {
        asked.emplace_back("name");
        return ObjectInternal::name();
    }
    unsigned long parentId() const override {
        asked.emplace_back("parentId");
        return ObjectInternal::parentId();
    }
    unsigned long id() const override {
        asked.emplace_back("id");
        return ObjectInternal::id();
    }
    mutable std::vector<std::string> asked;
};

TEST_F(CreateObjectTest, ObjectIsAskedForItsNameThenItsFolderThenItsId) {
    const auto asked = std::make_shared<AskedObject>(nullptr);
    asked->parentId(5);

    cache.createObject(asked, keyValues, 3, &protocol);

    EXPECT_THAT(asked->asked, ElementsAre("name", "parentId", "id"));
}

// --- The service -------------------------------------------------------------------------------

TEST_F(CreateObjectTest, PlainDocumentServiceIsNoNetworkService) {
    Nimra::DocumentService plain;
    wired.services[4] = &plain;

    create();

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->service(), nullptr);
}

TEST_F(CreateObjectTest, PlainDataServiceIsNoNetworkService) {
    wired.services[4] = &wired.listings;

    create();

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->service(), nullptr);
}

TEST_F(CreateObjectTest, MissingServiceIsInsertedAsNull) {
    wired.services.clear();

    create();

    EXPECT_THAT(wired.services, ElementsAre(Pair(4, nullptr)));
    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->service(), nullptr);
}

TEST_F(CreateObjectTest, MissingServiceIsInsertedForADroppedCreationToo) {
    wired.services.clear();
    object->parentId(90);

    create();

    EXPECT_THAT(wired.services, ElementsAre(Pair(4, nullptr)));
}

// --- The cache, the hand-over and the locks ----------------------------------------------------

TEST_F(CreateObjectTest, CacheIsLeftAlone) {
    const auto directory = std::make_shared<QueryResultInternal>(folderFilter(5));
    wired.probe.directories() = {directory};

    create();

    EXPECT_EQ(cache.itemsSize(), 1u);
    EXPECT_EQ(cache.itemCount(70), 0);
    EXPECT_THAT(directory->items(), IsEmpty());
    EXPECT_THAT(cache.keyValues(), IsEmpty());
}

TEST_F(CreateObjectTest, ObjectIsLeftAlone) {
    create();

    EXPECT_EQ(object->name(), "new document");
    EXPECT_EQ(object->parentId(), 5u);
    EXPECT_EQ(object->ownerId(), 0u);
    EXPECT_THAT(object->keyValues(), IsEmpty());
    EXPECT_FALSE(object->idLoaded());
    EXPECT_FALSE(object->dataLoaded());
}

TEST_F(CreateObjectTest, SizeIsTracedBeforeAndAfterTheOperationIsParked) {
    folder->idLoaded(false);
    std::string traceAtHandOver;
    WatchingQueue queue([&](auto*) { traceAtHandOver = trace.text(); });
    cache.setOpWithoutIdsQueue(&queue);

    create();

    EXPECT_EQ(traceAtHandOver, folderTrace() + beforeTrace(0));
    EXPECT_EQ(trace.text(), folderTrace() + beforeTrace(0) + afterTrace(1));
}

TEST_F(CreateObjectTest, IdIsReadBackAfterTheOperationWasSent) {
    const WatchingHandler handler([](auto* operation) { renumber(operation, 123456789); });

    EXPECT_EQ(create(), 123456789u);
}

TEST_F(CreateObjectTest, IdIsReadBackAfterTheOperationWasParked) {
    folder->idLoaded(false);
    WatchingQueue queue([](auto* operation) { renumber(operation, 123456789); });
    cache.setOpWithoutIdsQueue(&queue);

    EXPECT_EQ(create(), 123456789u);
}

TEST_F(CreateObjectTest, NoLockIsHeldWhileTheOperationIsSent) {
    std::vector<bool> held;
    const WatchingHandler handler([&](auto*) {
        held = {isHeld(wired.probe.itemsMutex()), isHeld(wired.probe.mutex())};
    });

    create();

    EXPECT_THAT(held, ElementsAre(false, false));
}

TEST_F(CreateObjectTest, NoLockIsHeldWhileTheOperationIsParked) {
    folder->idLoaded(false);
    std::vector<bool> held;
    WatchingQueue queue([&](auto*) {
        held = {isHeld(wired.probe.itemsMutex()), isHeld(wired.probe.mutex())};
    });
    cache.setOpWithoutIdsQueue(&queue);

    create();

    EXPECT_THAT(held, ElementsAre(false, false));
}

TEST_F(CreateObjectTest, FolderAndObjectAreHeldWhileTheOperationIsSent) {
    const long folderHolders = folder.use_count();
    const long objectHolders = object.use_count();
    long folderHoldersThen = 0;
    long objectHoldersThen = 0;
    const WatchingHandler handler([&](auto*) {
        folderHoldersThen = folder.use_count();
        objectHoldersThen = object.use_count();
    });

    create();

    EXPECT_EQ(folderHoldersThen, folderHolders + 1);
    // The argument, and its write side.
    EXPECT_EQ(objectHoldersThen, objectHolders + 2);
}

TEST_F(CreateObjectTest, FolderAndObjectAreHeldWhileTheOperationIsParked) {
    folder->idLoaded(false);
    const long folderHolders = folder.use_count();
    const long objectHolders = object.use_count();
    long folderHoldersThen = 0;
    long objectHoldersThen = 0;
    WatchingQueue queue([&](auto*) {
        folderHoldersThen = folder.use_count();
        objectHoldersThen = object.use_count();
    });
    cache.setOpWithoutIdsQueue(&queue);

    create();

    EXPECT_EQ(folderHoldersThen, folderHolders + 1);
    EXPECT_EQ(objectHoldersThen, objectHolders + 2);
}

TEST_F(CreateObjectTest, FailureOfTheHandlerReachesTheCaller) {
    const WatchingHandler handler([](auto*) { throw std::runtime_error("full"); });

    EXPECT_THROW(create(), std::runtime_error);

    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

TEST_F(CreateObjectTest, FailureOfTheQueueReachesTheCaller) {
    folder->idLoaded(false);
    WatchingQueue queue([](auto*) { throw std::runtime_error("full"); });
    cache.setOpWithoutIdsQueue(&queue);

    EXPECT_THROW(create(), std::runtime_error);

    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    EXPECT_EQ(trace.text(), folderTrace() + beforeTrace(0));
}

TEST_F(CreateObjectTest, DirectoriesMutexIsNotTaken) {
    EXPECT_TRUE(returnsWhileHeld([this] { create(); }, wired.probe.mutex()));
}

TEST_F(CreateObjectTest, FolderIsLookedUpUnderTheStoresMutex) {
    std::unique_lock held(wired.probe.itemsMutex());

    auto created = std::async(std::launch::async, [this] { return create(); });

    EXPECT_EQ(created.wait_for(20ms), std::future_status::timeout);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
    held.unlock();
    created.get();
    EXPECT_EQ(wired.handler.operations().size(), 1u);
}

}  // namespace
}  // namespace Ormek::Testing
