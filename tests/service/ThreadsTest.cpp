#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "service/FileOperation.h"
#include "service/LocalIds.h"
#include "service/OperationHandler.h"
#include "service/QueuedOperationsManager.h"
#include "tests/support/Crowd.h"

namespace Ormek::Testing {
namespace {

using Ids = std::vector<unsigned long>;

constexpr unsigned long Threads = 3;
constexpr unsigned long Rounds = 100;

Ids merged(const std::vector<Ids>& all) {
    Ids ids;
    for (const Ids& some : all) {
        ids.insert(ids.end(), some.begin(), some.end());
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

TEST(HandlerThreadsTest, EveryOperationIsTakenOnceWhileOthersAreQueued) {
    Nimra::OperationHandler handler;
    std::vector<Ids> given(Threads);
    std::vector<Ids> taken(Threads);
    Working working(Threads);
    Crowd crowd;
    for (Ids& ids : given) {
        crowd.add([&] {
            for (unsigned long round = 0; round < Rounds; ++round) {
                const unsigned long id = Nimra::OperationHandler::createId();
                ids.push_back(id);
                handler.queueOperation(std::make_unique<Nimra::Operation>(id).release());
            }
            working.oneIsDone();
        });
    }
    for (Ids& ids : taken) {
        crowd.add([&] {
            for (bool last = false; !last;) {
                last = !working.goesOn();
                while (const auto operation = handler.take()) {
                    ids.push_back(operation->id());
                }
            }
        });
    }
    crowd.finish();
    EXPECT_EQ(merged(taken), merged(given));
}

TEST(HandlerThreadsTest, AHandlerIsMadeOnceForAllThreadsThatAskForIt) {
    std::vector<std::vector<Nimra::OperationHandler*>> found(Threads);
    Crowd crowd;
    for (auto& handlers : found) {
        crowd.add([&] {
            for (unsigned long round = 0; round < Rounds; ++round) {
                handlers.push_back(Nimra::OperationHandler::getHandler(
                    "made for several threads, " + std::to_string(round)));
            }
        });
    }
    crowd.finish();
    EXPECT_EQ(found[0], found[1]);
    EXPECT_EQ(found[0], found[2]);
}

TEST(HandlerThreadsTest, WhoeverAsksWhileAHandlerIsReplacedGetsTheOldOrTheNewOne) {
    const std::string name = "replaced beside other threads";
    Nimra::OperationHandler* const plain = Nimra::OperationHandler::getHandler(name);
    Nimra::OperationHandler mine;
    Working working(1);
    Crowd crowd;
    crowd.add([&] {
        for (unsigned long round = 0; round < Rounds; ++round) {
            Nimra::OperationHandler::registerHandler(name, round % 2 == 0 ? &mine : nullptr);
        }
        working.oneIsDone();
    });
    crowd.add([&] {
        while (working.goesOn()) {
            Nimra::OperationHandler* const found = Nimra::OperationHandler::getHandler(name);
            EXPECT_TRUE(found == plain || found == &mine);
        }
    });
    crowd.finish();
    EXPECT_EQ(Nimra::OperationHandler::getHandler(name), plain);
}

/// A renaming that waits for the id of its document.
std::unique_ptr<Nimra::Operation> waitingFor(unsigned long localId, unsigned long id) {
    return std::make_unique<Nimra::FileOperation>(id, Nimra::Document(localId, 7, 5, "name"), 6,
                                                  nullptr);
}

TEST(ParkedThreadsTest, WhatIsCancelledIsNotTakenAndNothingIsLost) {
    QueuedOperationsManager parked;
    std::vector<Ids> given(Threads);
    std::vector<Ids> left(Threads + 2);
    Working working(Threads);
    Crowd crowd;
    for (Ids& ids : given) {
        crowd.add([&] {
            for (unsigned long round = 0; round < Rounds; ++round) {
                const unsigned long id = Nimra::OperationHandler::createId();
                const unsigned long local = Nimra::createLocalId();
                ids.push_back(id);
                parked.push(waitingFor(local, id).release());
                if (round % 2 == 0) {
                    parked.idKnown(local, id);
                }
            }
            working.oneIsDone();
        });
    }
    crowd.add([&] {
        while (working.goesOn()) {
            for (const auto& operation : parked.takeReady()) {
                left[0].push_back(operation->id());
            }
        }
    });
    crowd.add([&] {
        while (working.goesOn()) {
            for (const QueuedOperationsManager::Waiting& waiting : parked.waiting()) {
                if (const auto operation = parked.cancel(waiting.operationId)) {
                    left[1].push_back(operation->id());
                }
            }
        }
    });
    crowd.finish();
    for (const Nimra::Operation* operation : parked.operations()) {
        left[2].push_back(operation->id());
    }
    EXPECT_EQ(merged(left), merged(given));
}

}  // namespace
}  // namespace Ormek::Testing
