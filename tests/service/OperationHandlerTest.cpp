#include "service/OperationHandler.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "service/DataLoaderOperation.h"
#include "service/DataService.h"
#include "service/DocumentService.h"
#include "service/DocumentServiceNetwork.h"
#include "service/FileOperation.h"
#include "service/ItemEventProtocol.h"
#include "service/QueuedOperationsManager.h"
#include "service/ServiceError.h"

namespace Nimra {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct WatchedOperation : Operation {
    WatchedOperation(unsigned long id, int& deaths) : Operation(id), _deaths(deaths) {}
    ~WatchedOperation() override { ++_deaths; }
    int& _deaths;
};

std::vector<unsigned long> idsOf(const std::vector<Operation*>& operations) {
    std::vector<unsigned long> ids;
    for (const Operation* operation : operations) {
        ids.push_back(operation->id());
    }
    return ids;
}

/// Leaves the registry as it was found, whatever a test does.
class OperationHandlerTest : public ::testing::Test {
  protected:
    ~OperationHandlerTest() override {
        OperationHandler::registerHandler("OperationHandlerTest", nullptr);
        while (named().take()) {
        }
    }
    static OperationHandler& named() {
        return *OperationHandler::getHandler("OperationHandlerTest");
    }

    int deaths = 0;
};

TEST_F(OperationHandlerTest, ANameThatHasNoHandlerGetsOne) {
    EXPECT_NE(OperationHandler::getHandler("nobody registered this"), nullptr);
}

TEST_F(OperationHandlerTest, ANameKeepsItsHandler) {
    EXPECT_EQ(OperationHandler::getHandler("a name"), OperationHandler::getHandler("a name"));
}

TEST_F(OperationHandlerTest, EveryNameHasAHandlerOfItsOwn) {
    EXPECT_NE(OperationHandler::getHandler("one name"), OperationHandler::getHandler("another"));
    EXPECT_NE(OperationHandler::getHandler("Requests"), OperationHandler::getHandler("requests"));
}

TEST_F(OperationHandlerTest, OperationsAreKeptInOrderUntilTheyAreTaken) {
    OperationHandler handler;
    handler.queueOperation(new WatchedOperation(3, deaths));
    handler.queueOperation(new WatchedOperation(1, deaths));
    handler.queueOperation(new WatchedOperation(2, deaths));
    EXPECT_THAT(idsOf(handler.operations()), ElementsAre(3, 1, 2));
    EXPECT_EQ(handler.take()->id(), 3u);
    EXPECT_EQ(handler.take()->id(), 1u);
    EXPECT_THAT(idsOf(handler.operations()), ElementsAre(2));
    EXPECT_EQ(handler.take()->id(), 2u);
    EXPECT_THAT(handler.operations(), IsEmpty());
}

TEST_F(OperationHandlerTest, NothingQueuedMeansNothingTaken) {
    OperationHandler handler;
    EXPECT_EQ(handler.take(), nullptr);
}

TEST_F(OperationHandlerTest, TakenFromTheMiddleLeavesTheOthersInOrder) {
    OperationHandler handler;
    for (unsigned long id = 1; id <= 3; ++id) {
        handler.queueOperation(new Operation(id));
    }
    EXPECT_EQ(handler.take(2)->id(), 2u);
    EXPECT_EQ(handler.take(2), nullptr);
    EXPECT_EQ(handler.take()->id(), 1u);
    EXPECT_EQ(handler.take()->id(), 3u);
    EXPECT_EQ(handler.take(), nullptr);
}

TEST_F(OperationHandlerTest, LookingTakesNothing) {
    OperationHandler handler;
    Operation* const operation = new WatchedOperation(1, deaths);
    handler.queueOperation(operation);
    EXPECT_THAT(handler.operations(), ElementsAre(operation));
    EXPECT_THAT(handler.operations(), ElementsAre(operation));
    EXPECT_EQ(deaths, 0);
}

TEST_F(OperationHandlerTest, TakingHandsOverTheOperationItself) {
    OperationHandler handler;
    Operation* const operation = new WatchedOperation(1, deaths);
    handler.queueOperation(operation);
    auto taken = handler.take();
    EXPECT_EQ(taken.get(), operation);
    EXPECT_EQ(deaths, 0);
    taken.reset();
    EXPECT_EQ(deaths, 1);
}

TEST_F(OperationHandlerTest, AnOperationIsTakenByItsIdOutOfTheMiddle) {
    OperationHandler handler;
    handler.queueOperation(new WatchedOperation(3, deaths));
    Operation* const operation = new WatchedOperation(1, deaths);
    handler.queueOperation(operation);
    handler.queueOperation(new WatchedOperation(2, deaths));
    EXPECT_EQ(handler.take(1).get(), operation);
    EXPECT_EQ(handler.take(1), nullptr);
    EXPECT_THAT(idsOf(handler.operations()), ElementsAre(3, 2));
}

TEST_F(OperationHandlerTest, AHandlerTakesItsOperationsWithIt) {
    {
        OperationHandler handler;
        handler.queueOperation(new WatchedOperation(1, deaths));
        handler.queueOperation(new WatchedOperation(2, deaths));
        EXPECT_EQ(deaths, 0);
    }
    EXPECT_EQ(deaths, 2);
}

TEST_F(OperationHandlerTest, ARegisteredHandlerTakesThePlaceOfTheNamesOwn) {
    OperationHandler& before = named();
    OperationHandler mine;
    OperationHandler::registerHandler("OperationHandlerTest", &mine);
    EXPECT_EQ(&named(), &mine);
    EXPECT_NE(&before, &mine);
}

TEST_F(OperationHandlerTest, RegisteringAgainReplacesTheHandler) {
    OperationHandler first;
    OperationHandler second;
    OperationHandler::registerHandler("OperationHandlerTest", &first);
    OperationHandler::registerHandler("OperationHandlerTest", &second);
    EXPECT_EQ(&named(), &second);
}

TEST_F(OperationHandlerTest, RegisteringNullRemovesTheHandler) {
    OperationHandler mine;
    OperationHandler::registerHandler("OperationHandlerTest", &mine);
    OperationHandler::registerHandler("OperationHandlerTest", nullptr);
    EXPECT_NE(&named(), &mine);
}

TEST_F(OperationHandlerTest, RegisteringTouchesNoOtherName) {
    OperationHandler* const other = OperationHandler::getHandler("another");
    OperationHandler mine;
    OperationHandler::registerHandler("OperationHandlerTest", &mine);
    EXPECT_EQ(OperationHandler::getHandler("another"), other);
}

TEST_F(OperationHandlerTest, NothingQueuedBeforeAWorkerStartsIsLost) {
    named().queueOperation(new WatchedOperation(1, deaths));
    OperationHandler mine;
    OperationHandler::registerHandler("OperationHandlerTest", &mine);
    EXPECT_THAT(mine.operations(), IsEmpty());
    OperationHandler::registerHandler("OperationHandlerTest", nullptr);
    EXPECT_THAT(idsOf(named().operations()), ElementsAre(1));
    EXPECT_EQ(deaths, 0);
}

TEST_F(OperationHandlerTest, ARegisteredHandlerIsNotOwned) {
    struct Watched : OperationHandler {
        explicit Watched(int& count) : _count(count) {}
        ~Watched() override { ++_count; }
        int& _count;
    };
    int destroyed = 0;
    auto mine = std::make_unique<Watched>(destroyed);
    OperationHandler::registerHandler("OperationHandlerTest", mine.get());
    OperationHandler::registerHandler("OperationHandlerTest", nullptr);
    EXPECT_EQ(destroyed, 0);
    mine.reset();
    EXPECT_EQ(destroyed, 1);
}

TEST_F(OperationHandlerTest, ADerivedHandlerIsToldAtOnce) {
    struct Telling : OperationHandler {
        void queueOperation(Operation* operation) override {
            told.push_back(operation->id());
            OperationHandler::queueOperation(operation);
        }
        std::vector<unsigned long> told;
    };
    Telling telling;
    OperationHandler::registerHandler("OperationHandlerTest", &telling);
    named().queueOperation(new WatchedOperation(8, deaths));
    EXPECT_THAT(telling.told, ElementsAre(8));
}

TEST_F(OperationHandlerTest, SeveralThreadsMayQueueAtOnce) {
    OperationHandler handler;
    std::vector<std::thread> threads;
    for (unsigned long t = 0; t < 4; ++t) {
        threads.emplace_back([&handler, t] {
            for (unsigned long i = 1; i <= 100; ++i) {
                handler.queueOperation(new Operation(t * 1000 + i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<unsigned long> ids = idsOf(handler.operations());
    EXPECT_EQ(ids.size(), 400u);
    EXPECT_EQ(std::set<unsigned long>(ids.begin(), ids.end()).size(), 400u);
}

TEST_F(OperationHandlerTest, IdsAreNeverZeroAndNeverRepeated) {
    std::vector<std::vector<unsigned long>> drawn(4);
    std::vector<std::thread> threads;
    for (std::vector<unsigned long>& ids : drawn) {
        threads.emplace_back([&ids] {
            for (int i = 0; i < 1000; ++i) {
                ids.push_back(OperationHandler::createId());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<unsigned long> all;
    for (const std::vector<unsigned long>& ids : drawn) {
        all.insert(ids.begin(), ids.end());
    }
    EXPECT_EQ(all.size(), 4000u);
    EXPECT_EQ(all.count(0), 0u);
}

TEST(OperationHandlerDeathTest, TheFirstIdOfAProcessIsOne) {
    // A process of its own, since any other test may have drawn ids in this one.
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(std::_Exit(OperationHandler::createId() == 1 ? 0 : 1), ::testing::ExitedWithCode(0),
                "");
}

// --- Operations --------------------------------------------------------------------------------

TEST(OperationTest, ItsIdIsWhatItIsMadeWith) { EXPECT_EQ(Operation(77).id(), 77u); }

TEST(FileOperationTest, ItShowsWhatItIsMadeWith) {
    ItemEventProtocol protocol;
    const FileOperation operation(5, Document(1, 2, 3, "name"), 6, &protocol);
    EXPECT_EQ(operation.id(), 5u);
    EXPECT_EQ(operation.document().id, 1u);
    EXPECT_EQ(operation.document().parentId, 2u);
    EXPECT_EQ(operation.document().ownerId, 3u);
    EXPECT_EQ(operation.document().name, "name");
    EXPECT_EQ(operation.kind(), 6u);
    EXPECT_EQ(operation.protocol(), &protocol);
    EXPECT_EQ(operation.service(), nullptr);
}

TEST(FileOperationTest, ItKeepsItsOwnCopyOfTheDocument) {
    Document document(1, 2, 3, "name");
    document.setKeyValue("a", {"first", true});
    const FileOperation operation(5, document, 6, nullptr);
    document.name = "changed";
    document.setKeyValue("a", {"changed", false});
    EXPECT_EQ(operation.document().name, "name");
    EXPECT_EQ(operation.document().keyValues().at("a").first, "first");
}

TEST(FileOperationTest, SetServiceTakesNullToo) {
    DocumentServiceNetwork service;
    FileOperation operation(5, Document(1, 2, 3, "name"), 6, nullptr);
    operation.setService(&service);
    EXPECT_EQ(operation.service(), &service);
    operation.setService(nullptr);
    EXPECT_EQ(operation.service(), nullptr);
}

TEST(DataLoaderOperationTest, ItShowsWhatItIsMadeWith) {
    ItemEventProtocol protocol;
    ItemFilter filter;
    filter.query = "text";
    const DataLoaderOperation operation(5, filter, &protocol);
    filter.query = "changed";
    EXPECT_EQ(operation.id(), 5u);
    EXPECT_EQ(operation.filter().query, "text");
    EXPECT_EQ(operation.protocol(), &protocol);
    EXPECT_EQ(operation.service(), nullptr);
}

TEST(DataLoaderOperationTest, SetServiceTakesNullToo) {
    DataService service;
    DataLoaderOperation operation(5, ItemFilter(), nullptr);
    operation.setService(&service);
    EXPECT_EQ(operation.service(), &service);
    operation.setService(nullptr);
    EXPECT_EQ(operation.service(), nullptr);
}

template <class Kind>
struct Watched : Kind {
    template <class... Arguments>
    explicit Watched(int& deaths, Arguments&&... arguments)
        : Kind(std::forward<Arguments>(arguments)...), _deaths(deaths) {}
    ~Watched() override { ++_deaths; }
    int& _deaths;
};

TEST(OperationTest, DeletionThroughTheBaseRunsTheDerivedDestructor) {
    int deaths = 0;
    std::unique_ptr<Operation>(
        new Watched<FileOperation>(deaths, 1ul, Document(1, 2, 3, ""), 4u, nullptr))
        .reset();
    std::unique_ptr<Operation>(new Watched<DataLoaderOperation>(deaths, 1ul, ItemFilter(), nullptr))
        .reset();
    EXPECT_EQ(deaths, 2);
}

static_assert(std::is_base_of_v<Operation, FileOperation>);
static_assert(std::is_base_of_v<Operation, DataLoaderOperation>);

// --- Parked operations -------------------------------------------------------------------------

TEST(QueuedOperationsManagerTest, OperationsAreParkedInOrder) {
    Ormek::QueuedOperationsManager parked;
    EXPECT_EQ(parked.size(), 0u);
    EXPECT_THAT(parked.operations(), IsEmpty());
    parked.push(new Operation(3));
    parked.push(new Operation(1));
    EXPECT_EQ(parked.size(), 2u);
    EXPECT_THAT(idsOf(parked.operations()), ElementsAre(3, 1));
}

TEST(QueuedOperationsManagerTest, LookingTakesNothing) {
    Ormek::QueuedOperationsManager parked;
    Operation* const operation = new Operation(1);
    parked.push(operation);
    EXPECT_THAT(parked.operations(), ElementsAre(operation));
    EXPECT_THAT(parked.operations(), ElementsAre(operation));
    EXPECT_EQ(parked.size(), 1u);
}

TEST(QueuedOperationsManagerTest, ItTakesItsOperationsWithIt) {
    int deaths = 0;
    {
        Ormek::QueuedOperationsManager parked;
        parked.push(new WatchedOperation(1, deaths));
        parked.push(new WatchedOperation(2, deaths));
        EXPECT_EQ(deaths, 0);
    }
    EXPECT_EQ(deaths, 2);
}

TEST(QueuedOperationsManagerTest, PushAndSizeCanBeOverridden) {
    struct Counting : Ormek::QueuedOperationsManager {
        void push(Operation* operation) override {
            ++pushed;
            QueuedOperationsManager::push(operation);
        }
        unsigned long size() const override { return 42; }
        int pushed = 0;
    };
    Counting counting;
    Ormek::QueuedOperationsManager& parked = counting;
    parked.push(new Operation(1));
    EXPECT_EQ(counting.pushed, 1);
    EXPECT_EQ(parked.size(), 42u);
    EXPECT_THAT(idsOf(parked.operations()), ElementsAre(1));
}

TEST(QueuedOperationsManagerTest, SeveralThreadsMayParkAtOnce) {
    Ormek::QueuedOperationsManager parked;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&parked] {
            for (unsigned long i = 1; i <= 100; ++i) {
                parked.push(new Operation(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(parked.size(), 400u);
}

// --- Services and listeners --------------------------------------------------------------------

template <class Service>
void expectRefusal(Service&& service) {
    try {
        service.load(ItemFilter());
        FAIL() << "nothing was thrown";
    } catch (const ServiceError& error) {
        EXPECT_EQ(error.reason(), Reason::Refused);
        EXPECT_STRNE(error.what(), "");
    }
}

TEST(DataServiceTest, WhatIsNotOverriddenRefusesWithAReason) {
    expectRefusal(DataService());
    expectRefusal(DocumentService());
    expectRefusal(DocumentServiceNetwork());
}

TEST(DataServiceTest, AServiceOfAnotherClassIsNoDocumentServiceNetwork) {
    DataService plain;
    DocumentService document;
    DocumentServiceNetwork network;
    const auto cast = [](DataService& service) {
        return dynamic_cast<DocumentServiceNetwork*>(&service);
    };
    EXPECT_EQ(cast(plain), nullptr);
    EXPECT_EQ(cast(document), nullptr);
    EXPECT_EQ(cast(network), &network);
}

TEST(ServiceErrorTest, ItTellsReasonAndText) {
    const ServiceError error(Reason::NoSpace, "the disk is full");
    EXPECT_EQ(error.reason(), Reason::NoSpace);
    EXPECT_STREQ(error.what(), "the disk is full");
}

TEST(ItemEventProtocolTest, WhatIsNotOverriddenLeavesThePageAlone) {
    ItemEventProtocol protocol;
    Page page;
    page.folders.emplace_back(1, 2, 3, "name");
    page.totalCount = 9;
    EXPECT_NO_THROW(protocol.pageLoaded(1, ItemFilter(), page));
    EXPECT_NO_THROW(protocol.failed(1, ServiceError(Reason::Refused, "no")));
    EXPECT_EQ(page.folders.size(), 1u);
    EXPECT_EQ(page.totalCount, 9u);
}

/// What an embedder derives from or simply needs an instance of.
template <class... Classes>
constexpr bool Embeddable = ((std::is_default_constructible_v<Classes> &&
                              std::has_virtual_destructor_v<Classes> &&
                              !std::is_abstract_v<Classes>)&&...);

static_assert(Embeddable<DataService, DocumentService, DocumentServiceNetwork, ItemEventProtocol,
                         OperationHandler, Ormek::QueuedOperationsManager>);
static_assert(std::is_base_of_v<DataService, DocumentService>);
static_assert(std::is_base_of_v<DocumentService, DocumentServiceNetwork>);

}  // namespace
}  // namespace Nimra
