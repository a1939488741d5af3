#include "backend/Worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "service/DataLoaderOperation.h"
#include "service/DataService.h"
#include "service/FileOperation.h"
#include "service/ItemEventProtocol.h"

namespace Nimra {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::chrono::seconds Patience(20);

std::chrono::steady_clock::time_point soon() { return std::chrono::steady_clock::now() + Patience; }

/// Long enough for what must not happen; if it is not, the test is merely easier to pass.
std::chrono::steady_clock::time_point aMoment() {
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
}

/// A service whose answer is whatever a function says.
class ScriptedService : public DataService {
  public:
    using Body = std::function<Page(const ItemFilter&)>;

    explicit ScriptedService(Body body) : _body(std::move(body)) {}
    Page load(const ItemFilter& filter) override { return _body(filter); }

  private:
    Body _body;
};

/// Answers with an empty page whose total is the filter's offset.
Page echo(const ItemFilter& filter) {
    Page page;
    page.totalCount = filter.offset;
    return page;
}

/// Keeps what it is told, and does something more with each answer if asked to.
class Recorder : public ItemEventProtocol {
  public:
    struct Failure {
        unsigned long id;
        Reason reason;
        std::string text;
    };

    void pageLoaded(unsigned long id, const ItemFilter&, Page& page) override {
        loaded.push_back(id);
        totals.push_back(page.totalCount);
        note();
    }
    void failed(unsigned long id, const ServiceError& error) override {
        failures.push_back({id, error.reason(), error.what()});
        note();
    }

    std::vector<unsigned long> loaded;
    std::vector<unsigned long> totals;
    std::vector<Failure> failures;
    std::vector<std::thread::id> threads;
    std::function<void()> also;

  private:
    void note() {
        threads.push_back(std::this_thread::get_id());
        if (also) {
            also();
        }
    }
};

/// An operation that reports its end.
class MortalOperation : public DataLoaderOperation {
  public:
    MortalOperation(unsigned long id, std::function<void()> atEnd)
        : DataLoaderOperation(id, {}, nullptr), _atEnd(std::move(atEnd)) {}
    ~MortalOperation() override { _atEnd(); }

  private:
    std::function<void()> _atEnd;
};

class UnknownOperation : public Operation {
  public:
    using Operation::Operation;
};

/// Keeps a service busy until it is opened.
class Gate {
  public:
    void open() { _opened.set_value(); }
    /// From the service: tells that it has begun, then waits.
    void pass() {
        _entered.set_value();
        _isOpen.wait();
    }
    void waitUntilEntered() { _entered.get_future().wait(); }

  private:
    std::promise<void> _entered;
    std::promise<void> _opened;
    std::shared_future<void> _isOpen = _opened.get_future();
};

class WorkerTest : public testing::Test {
  protected:
    DataLoaderOperation* load(unsigned long id, DataService* from, ItemEventProtocol* to) {
        ItemFilter filter;
        filter.offset = static_cast<std::uint32_t>(id);
        auto* operation = new DataLoaderOperation(id, filter, to);
        operation->setService(from);
        return operation;
    }
    void queueLoad(unsigned long id) { worker.queueOperation(load(id, &service, &protocol)); }
    bool waitForCount(unsigned long count) { return worker.waitForFinished(count - 1, soon()); }
    /// Collects until the worker is idle, as its header says; false when that took too long.
    bool collectUntilIdle(std::chrono::steady_clock::time_point deadline) {
        unsigned long seen = 0;
        do {
            seen = worker.finishedCount();
            worker.collect();
        } while (!worker.idle() && worker.waitForFinished(seen, deadline));
        return worker.idle();
    }
    static bool readable(int fd) {
        pollfd poll{fd, POLLIN, 0};
        return ::poll(&poll, 1, 0) == 1;
    }

    ScriptedService service{echo};
    Recorder protocol;
    Worker worker;
};

TEST_F(WorkerTest, AnswersComeInOrderWithTheirIds) {
    for (unsigned long id = 1; id <= 100; ++id) {
        queueLoad(id);
    }
    ASSERT_TRUE(waitForCount(100));
    EXPECT_EQ(worker.collect(), 100U);

    ASSERT_EQ(protocol.loaded.size(), 100U);
    for (unsigned long id = 1; id <= 100; ++id) {
        EXPECT_EQ(protocol.loaded[id - 1], id);
        EXPECT_EQ(protocol.totals[id - 1], id);
    }
}

TEST_F(WorkerTest, ServicesRunOnTheWorkersThreadProtocolsOnTheCollectors) {
    std::thread::id ran;
    ScriptedService noting([&ran](const ItemFilter&) {
        ran = std::this_thread::get_id();
        return Page();
    });
    worker.queueOperation(load(1, &noting, &protocol));
    ASSERT_TRUE(waitForCount(1));
    EXPECT_THAT(protocol.threads, IsEmpty());
    worker.collect();

    EXPECT_NE(ran, std::this_thread::get_id());
    EXPECT_THAT(protocol.threads, ElementsAre(std::this_thread::get_id()));
}

TEST_F(WorkerTest, AFinishedOperationLivesUntilItIsCollectedAndDiesThere) {
    std::atomic<bool> ended = false;
    std::thread::id where;
    worker.queueOperation(new MortalOperation(1, [&] {
        where = std::this_thread::get_id();
        ended = true;
    }));
    ASSERT_TRUE(waitForCount(1));
    EXPECT_FALSE(ended);
    EXPECT_EQ(worker.collect(), 1U);
    EXPECT_TRUE(ended);
    EXPECT_EQ(where, std::this_thread::get_id());
}

TEST_F(WorkerTest, AMissingServiceIsAFailedAnswer) {
    worker.queueOperation(load(7, nullptr, &protocol));
    ASSERT_TRUE(waitForCount(1));
    worker.collect();
    ASSERT_EQ(protocol.failures.size(), 1U);
    EXPECT_EQ(protocol.failures[0].id, 7U);
    EXPECT_EQ(protocol.failures[0].reason, Reason::Refused);
    EXPECT_THAT(protocol.failures[0].text, HasSubstr("service"));
}

TEST_F(WorkerTest, WhateverAServiceThrowsIsAFailedAnswer) {
    const std::vector<ScriptedService::Body> bodies = {
        [](const ItemFilter&) -> Page { throw ServiceError(Reason::NoSpace, "full"); },
        [](const ItemFilter&) -> Page { throw std::runtime_error("odd"); },
        [](const ItemFilter&) -> Page { throw std::bad_alloc(); },
        [](const ItemFilter&) -> Page { throw 5; },
    };
    std::vector<std::unique_ptr<ScriptedService>> services;
    for (const auto& body : bodies) {
        services.push_back(std::make_unique<ScriptedService>(body));
        worker.queueOperation(load(services.size(), services.back().get(), &protocol));
    }
    queueLoad(5);
    ASSERT_TRUE(waitForCount(5));
    EXPECT_EQ(worker.collect(), 5U);

    ASSERT_EQ(protocol.failures.size(), 4U);
    EXPECT_EQ(protocol.failures[0].reason, Reason::NoSpace);
    EXPECT_EQ(protocol.failures[0].text, "full");
    EXPECT_EQ(protocol.failures[1].reason, Reason::Internal);
    EXPECT_EQ(protocol.failures[1].text, "odd");
    EXPECT_EQ(protocol.failures[2].reason, Reason::Internal);
    EXPECT_EQ(protocol.failures[2].text, "out of memory");
    EXPECT_EQ(protocol.failures[3].reason, Reason::Internal);
    EXPECT_NE(protocol.failures[3].text, "");
    EXPECT_THAT(protocol.loaded, ElementsAre(5));
}

TEST_F(WorkerTest, WhatItCannotExecuteIsRefused) {
    worker.queueOperation(new FileOperation(3, Document(1, 2, 3, "a"), 6, &protocol));
    worker.queueOperation(new UnknownOperation(4));
    ASSERT_TRUE(waitForCount(2));
    EXPECT_EQ(worker.collect(), 2U);
    ASSERT_EQ(protocol.failures.size(), 1U);
    EXPECT_EQ(protocol.failures[0].id, 3U);
    EXPECT_EQ(protocol.failures[0].reason, Reason::Refused);
    EXPECT_THAT(protocol.failures[0].text, HasSubstr("kind 6"));
}

TEST_F(WorkerTest, NoProtocolAndNoOperationDoNoHarm) {
    ScriptedService failing([](const ItemFilter&) -> Page { throw std::runtime_error("odd"); });
    worker.queueOperation(nullptr);
    worker.queueOperation(load(1, &service, nullptr));
    worker.queueOperation(load(2, &failing, nullptr));
    worker.queueOperation(new FileOperation(3, Document(1, 2, 3, "a"), 6, nullptr));
    ASSERT_TRUE(waitForCount(3));
    EXPECT_EQ(worker.collect(), 3U);
}

TEST_F(WorkerTest, AnAnswerThatThereWasNoMemoryToTakeIsToldAgainFirst) {
    for (unsigned long id = 1; id <= 3; ++id) {
        queueLoad(id);
    }
    ASSERT_TRUE(waitForCount(3));
    protocol.also = [this] {
        if (protocol.loaded.size() == 2) {
            throw std::bad_alloc();
        }
    };
    EXPECT_THROW(worker.collect(), std::bad_alloc);
    EXPECT_TRUE(readable(worker.fd()));
    EXPECT_FALSE(worker.idle());
    EXPECT_EQ(worker.collect(), 2U);
    EXPECT_THAT(protocol.loaded, ElementsAre(1, 2, 2, 3));
    EXPECT_FALSE(readable(worker.fd()));
    EXPECT_EQ(worker.finishedCount(), 3U);
}

TEST_F(WorkerTest, AStoppedWorkerTellsNothingAgain) {
    queueLoad(1);
    ASSERT_TRUE(waitForCount(1));
    worker.stop();
    protocol.also = [] { throw std::bad_alloc(); };
    EXPECT_THROW(worker.collect(), std::bad_alloc);
    EXPECT_EQ(worker.collect(), 0U);
    EXPECT_THAT(protocol.loaded, ElementsAre(1));
}

TEST_F(WorkerTest, AThrowingProtocolLosesNoOtherAnswer) {
    for (unsigned long id = 1; id <= 3; ++id) {
        queueLoad(id);
    }
    ASSERT_TRUE(waitForCount(3));
    protocol.also = [this] {
        if (protocol.loaded.size() == 2) {
            throw std::runtime_error("no");
        }
    };
    EXPECT_THROW(worker.collect(), std::runtime_error);
    EXPECT_THAT(protocol.loaded, ElementsAre(1, 2));
    EXPECT_TRUE(readable(worker.fd()));
    EXPECT_EQ(worker.collect(), 1U);
    EXPECT_THAT(protocol.loaded, ElementsAre(1, 2, 3));
}

TEST_F(WorkerTest, AProtocolMayCollect) {
    for (unsigned long id = 1; id <= 3; ++id) {
        queueLoad(id);
    }
    ASSERT_TRUE(waitForCount(3));
    unsigned long inside = 0;
    protocol.also = [&] { inside += worker.collect(); };
    const unsigned long outside = worker.collect();
    EXPECT_THAT(protocol.loaded, ElementsAre(1, 2, 3));
    EXPECT_EQ(outside, 1U);
    EXPECT_EQ(inside, 2U);
}

TEST_F(WorkerTest, AProtocolMayQueueAndDoesNotKeepTheCollectorForever) {
    unsigned long next = 2;
    protocol.also = [&] {
        if (next <= 5) {
            queueLoad(next);
            waitForCount(next);
            ++next;
        }
    };
    queueLoad(1);
    ASSERT_TRUE(waitForCount(1));
    EXPECT_EQ(worker.collect(), 1U);
    EXPECT_EQ(worker.collect(), 1U);
    EXPECT_THAT(protocol.loaded, ElementsAre(1, 2));
}

TEST_F(WorkerTest, WaitingEndsAtTheDeadline) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
    EXPECT_FALSE(worker.waitForFinished(0, deadline));
    EXPECT_GE(std::chrono::steady_clock::now(), deadline);
    EXPECT_EQ(worker.finishedCount(), 0U);
}

TEST_F(WorkerTest, ACollectedAnswerWakesTheOtherWaitersToo) {
    Gate gate;
    ScriptedService slow([&gate](const ItemFilter&) {
        gate.pass();
        return Page();
    });
    worker.queueOperation(load(1, &slow, &protocol));
    const unsigned long seen = worker.finishedCount();
    std::mutex owner;
    std::atomic<int> woken = 0;
    std::atomic<unsigned long> collected = 0;
    std::vector<std::thread> waiters;
    const auto deadline = soon();
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back([&] {
            if (worker.waitForFinished(seen, deadline) &&
                std::chrono::steady_clock::now() < deadline) {
                ++woken;
            }
            const std::lock_guard lock(owner);
            collected += worker.collect();
        });
    }
    gate.waitUntilEntered();
    // Long enough for all of them to sleep; if it is not, the test is merely easier to pass.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    gate.open();
    for (auto& waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(woken, 4);
    EXPECT_EQ(collected, 1U);
    EXPECT_THAT(protocol.loaded, ElementsAre(1));
    EXPECT_EQ(worker.finishedCount(), seen + 1);
}

TEST_F(WorkerTest, ItsDescriptorIsReadableWhileAnswersWait) {
    EXPECT_FALSE(readable(worker.fd()));
    queueLoad(1);
    queueLoad(2);
    ASSERT_TRUE(waitForCount(2));
    EXPECT_TRUE(readable(worker.fd()));
    bool between = false;
    protocol.also = [&] {
        if (protocol.loaded.size() == 1) {
            between = readable(worker.fd());
        }
    };
    worker.collect();
    EXPECT_TRUE(between);
    EXPECT_FALSE(readable(worker.fd()));
    queueLoad(3);
    ASSERT_TRUE(waitForCount(3));
    EXPECT_TRUE(readable(worker.fd()));
}

TEST_F(WorkerTest, PendingCountsTheQueuedAndTheRunning) {
    Gate gate;
    ScriptedService slow([&gate](const ItemFilter&) {
        gate.pass();
        return Page();
    });
    EXPECT_EQ(worker.pending(), 0U);
    worker.queueOperation(load(1, &slow, &protocol));
    queueLoad(2);
    gate.waitUntilEntered();
    EXPECT_EQ(worker.pending(), 2U);
    EXPECT_EQ(worker.operations().size(), 1U);
    gate.open();
    ASSERT_TRUE(waitForCount(2));
    EXPECT_EQ(worker.pending(), 0U);
}

TEST_F(WorkerTest, WhatIsStillQueuedCanBeTakenBack) {
    Gate gate;
    ScriptedService slow([&gate](const ItemFilter&) {
        gate.pass();
        return Page();
    });
    worker.queueOperation(load(1, &slow, &protocol));
    queueLoad(2);
    queueLoad(3);
    gate.waitUntilEntered();
    const auto taken = worker.take();
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->id(), 2U);
    gate.open();
    ASSERT_TRUE(waitForCount(2));
    worker.collect();
    EXPECT_THAT(protocol.loaded, ElementsAre(1, 3));
}

TEST_F(WorkerTest, WhatIsFirstHasStartedOnceItIsQueued) {
    Gate gate;
    ScriptedService slow([&gate](const ItemFilter&) {
        gate.pass();
        return Page();
    });
    worker.queueOperation(load(1, &slow, &protocol));
    queueLoad(2);
    EXPECT_EQ(worker.operations().size(), 1U);
    EXPECT_FALSE(worker.cancel(1));
    EXPECT_TRUE(worker.cancel(2));
    gate.waitUntilEntered();
    gate.open();
    ASSERT_TRUE(waitForCount(2));
}

TEST_F(WorkerTest, APausedWorkerStartsNothingAndKeepsTheOrder) {
    EXPECT_FALSE(worker.paused());
    worker.pause();
    worker.pause();
    EXPECT_TRUE(worker.paused());
    for (unsigned long id = 1; id <= 3; ++id) {
        queueLoad(id);
    }
    EXPECT_FALSE(worker.waitForFinished(0, aMoment()));
    EXPECT_EQ(worker.pending(), 3U);
    EXPECT_EQ(worker.operations().size(), 3U);
    EXPECT_FALSE(readable(worker.fd()));

    worker.resume();
    EXPECT_FALSE(worker.paused());
    ASSERT_TRUE(waitForCount(3));
    worker.collect();
    EXPECT_THAT(protocol.loaded, ElementsAre(1, 2, 3));
    worker.resume();
    queueLoad(4);
    EXPECT_TRUE(waitForCount(4));
}

TEST_F(WorkerTest, WhatRunsGoesOnThroughAPause) {
    Gate gate;
    ScriptedService slow([&gate](const ItemFilter& filter) {
        gate.pass();
        return echo(filter);
    });
    worker.queueOperation(load(1, &slow, &protocol));
    queueLoad(2);
    gate.waitUntilEntered();
    worker.pause();
    gate.open();
    ASSERT_TRUE(waitForCount(1));
    EXPECT_FALSE(worker.waitForFinished(1, aMoment()));
    worker.collect();
    EXPECT_THAT(protocol.loaded, ElementsAre(1));
    EXPECT_EQ(worker.pending(), 1U);
    worker.resume();
    ASSERT_TRUE(waitForCount(2));
}

TEST_F(WorkerTest, AServiceMayPauseTheWorkerThatRunsIt) {
    ScriptedService pausing([this](const ItemFilter&) {
        worker.pause();
        return Page();
    });
    worker.queueOperation(load(1, &pausing, &protocol));
    ASSERT_TRUE(waitForCount(1));
    queueLoad(2);
    EXPECT_FALSE(worker.waitForFinished(1, aMoment()));
    protocol.also = [this] { worker.resume(); };
    EXPECT_EQ(worker.collect(), 1U);
    EXPECT_TRUE(waitForCount(2));
}

TEST_F(WorkerTest, WhatAPauseHoldsBackCanBeCancelled) {
    worker.pause();
    queueLoad(1);
    queueLoad(2);
    EXPECT_TRUE(worker.cancel(1));
    EXPECT_EQ(worker.finishedCount(), 1U);
    worker.resume();
    ASSERT_TRUE(waitForCount(2));
    worker.collect();
    ASSERT_EQ(protocol.failures.size(), 1U);
    EXPECT_EQ(protocol.failures[0].text, "cancelled before it was started");
    EXPECT_THAT(protocol.loaded, ElementsAre(2));
}

TEST_F(WorkerTest, StoppingFailsWhatAPauseHoldsBack) {
    worker.pause();
    queueLoad(1);
    queueLoad(2);
    worker.stop();
    worker.resume();
    EXPECT_EQ(worker.pending(), 0U);
    EXPECT_EQ(worker.collect(), 2U);
    EXPECT_THAT(protocol.loaded, IsEmpty());
    ASSERT_EQ(protocol.failures.size(), 2U);
    EXPECT_EQ(protocol.failures[1].reason, Reason::NotReachable);
}

TEST_F(WorkerTest, WhatIsTakenOverStaysBehindAPause) {
    OperationHandler before;
    before.queueOperation(load(1, &service, &protocol));
    worker.pause();
    worker.takeOver(before);
    EXPECT_FALSE(worker.waitForFinished(0, aMoment()));
    worker.resume();
    EXPECT_TRUE(waitForCount(1));
}

TEST_F(WorkerTest, AWorkerIsIdleWhenAllIsDoneAndCollected) {
    Gate gate;
    ScriptedService slow([&gate](const ItemFilter&) {
        gate.pass();
        return Page();
    });
    EXPECT_TRUE(worker.idle());
    worker.queueOperation(load(1, &slow, &protocol));
    EXPECT_FALSE(worker.idle()) << "queued";
    gate.waitUntilEntered();
    EXPECT_FALSE(worker.idle()) << "running";
    gate.open();
    ASSERT_TRUE(waitForCount(1));
    EXPECT_FALSE(worker.idle()) << "finished";
    worker.collect();
    EXPECT_TRUE(worker.idle());
}

TEST_F(WorkerTest, WhatAPauseHoldsBackDoesNotKeepAWorkerFromBeingIdle) {
    Gate gate;
    ScriptedService slow([&gate](const ItemFilter&) {
        gate.pass();
        return Page();
    });
    worker.queueOperation(load(1, &slow, &protocol));
    queueLoad(2);
    queueLoad(3);
    gate.waitUntilEntered();
    worker.pause();
    EXPECT_FALSE(worker.idle()) << "one is running";
    gate.open();
    EXPECT_TRUE(collectUntilIdle(soon()));
    EXPECT_EQ(worker.pending(), 2U);
    EXPECT_TRUE(worker.cancel(2));
    EXPECT_FALSE(worker.idle()) << "the cancelled one waits to be collected";
    worker.collect();
    EXPECT_TRUE(worker.idle());
    worker.resume();
    EXPECT_FALSE(worker.idle());
    EXPECT_TRUE(collectUntilIdle(soon()));
    EXPECT_THAT(protocol.loaded, ElementsAre(1, 3));
}

TEST_F(WorkerTest, AStoppedWorkerIsIdleOnceItsAnswersAreCollected) {
    worker.pause();
    queueLoad(1);
    EXPECT_TRUE(worker.idle());
    worker.stop();
    EXPECT_FALSE(worker.idle());
    worker.collect();
    EXPECT_TRUE(worker.idle());
}

TEST_F(WorkerTest, ALoopUntilIdleSleepsPastNoPauseAndNoOtherCollector) {
    constexpr int Rounds = 3000;
    const auto deadline = soon();
    std::atomic<int> round = 0;
    std::thread pausing([&] {
        for (int next = 1; next <= Rounds; ++next) {
            while (round < next) {
                std::this_thread::yield();
            }
            for (int i = 0; i < next % 20; ++i) {
                worker.finishedCount();
            }
            worker.pause();
        }
    });
    std::thread collecting([&] {
        while (round < Rounds) {
            worker.collect();
            std::this_thread::yield();
        }
    });
    while (round < Rounds) {
        for (unsigned long id = 1; id <= 3; ++id) {
            worker.queueOperation(load(id, &service, nullptr));
        }
        ++round;
        // Whoever misses the end here sleeps until the deadline.
        EXPECT_TRUE(collectUntilIdle(deadline));
        while (!worker.paused()) {
            std::this_thread::yield();
        }
        worker.resume();
    }
    pausing.join();
    collecting.join();
    EXPECT_TRUE(collectUntilIdle(deadline));
    EXPECT_LT(std::chrono::steady_clock::now(), deadline);
    EXPECT_EQ(worker.finishedCount(), 3UL * Rounds);
}

TEST_F(WorkerTest, StoppingFinishesTheRunningAndFailsTheQueued) {
    Gate gate;
    ScriptedService slow([&gate](const ItemFilter& filter) {
        gate.pass();
        return echo(filter);
    });
    worker.queueOperation(load(1, &slow, &protocol));
    queueLoad(2);
    queueLoad(3);
    gate.waitUntilEntered();
    std::thread opener([&gate] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        gate.open();
    });
    worker.stop();
    opener.join();
    EXPECT_EQ(worker.pending(), 0U);
    EXPECT_EQ(worker.finishedCount(), 3U);
    EXPECT_TRUE(readable(worker.fd()));
    EXPECT_THAT(protocol.threads, IsEmpty());

    EXPECT_EQ(worker.collect(), 3U);
    EXPECT_THAT(protocol.loaded, ElementsAre(1));
    ASSERT_EQ(protocol.failures.size(), 2U);
    EXPECT_EQ(protocol.failures[0].id, 2U);
    EXPECT_EQ(protocol.failures[0].reason, Reason::NotReachable);
    EXPECT_EQ(protocol.failures[0].text, "the service was shut down before this was started");
    EXPECT_EQ(protocol.failures[1].id, 3U);
}

TEST_F(WorkerTest, AfterStoppingEverythingFailsAtOnce) {
    worker.stop();
    worker.stop();
    queueLoad(1);
    EXPECT_EQ(worker.pending(), 0U);
    EXPECT_EQ(worker.collect(), 1U);
    ASSERT_EQ(protocol.failures.size(), 1U);
    EXPECT_EQ(protocol.failures[0].reason, Reason::NotReachable);
}

TEST(WorkerLifeTest, DestructionCallsNoProtocolAndFreesEverything) {
    Recorder protocol;
    ScriptedService service(echo);
    std::atomic<int> ended = 0;
    {
        Worker worker;
        for (unsigned long id = 1; id <= 20; ++id) {
            auto* operation = new DataLoaderOperation(id, {}, &protocol);
            operation->setService(&service);
            worker.queueOperation(operation);
            worker.queueOperation(new MortalOperation(100 + id, [&ended] { ++ended; }));
        }
    }
    EXPECT_EQ(ended, 20);
    EXPECT_THAT(protocol.loaded, IsEmpty());
    EXPECT_THAT(protocol.failures, IsEmpty());
}

TEST_F(WorkerTest, TakesOverWhatAnotherHandlerKept) {
    OperationHandler before;
    before.queueOperation(load(1, &service, &protocol));
    before.queueOperation(load(2, &service, &protocol));
    worker.takeOver(before);
    worker.takeOver(worker);
    queueLoad(3);
    EXPECT_THAT(before.operations(), IsEmpty());
    ASSERT_TRUE(waitForCount(3));
    worker.collect();
    EXPECT_THAT(protocol.loaded, ElementsAre(1, 2, 3));
}

TEST_F(WorkerTest, SignalsOfTheProgramStayOffItsThread) {
    sigset_t mask;
    sigemptyset(&mask);
    ScriptedService asking([&mask](const ItemFilter&) {
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        return Page();
    });
    worker.queueOperation(load(1, &asking, nullptr));
    ASSERT_TRUE(waitForCount(1));
    EXPECT_EQ(sigismember(&mask, SIGINT), 1);
    EXPECT_EQ(sigismember(&mask, SIGSEGV), 0);
    sigset_t own;
    pthread_sigmask(SIG_BLOCK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGINT), 0);
}

TEST_F(WorkerTest, ManyThreadsMayPauseAndResumeWhileOthersQueue) {
    constexpr unsigned long Each = 200;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (unsigned long id = 1; id <= Each; ++id) {
                queueLoad(id);
            }
        });
        threads.emplace_back([&] {
            for (unsigned long round = 0; round < Each; ++round) {
                worker.pause();
                worker.resume();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(waitForCount(2 * Each));
    EXPECT_EQ(worker.collect(), 2 * Each);
}

TEST_F(WorkerTest, ManyThreadsMayQueueAndCollectAtOnce) {
    constexpr int Threads = 4;
    constexpr unsigned long Each = 200;
    std::atomic<unsigned long> collected = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < Threads; ++i) {
        threads.emplace_back([&] {
            for (unsigned long id = 1; id <= Each; ++id) {
                worker.queueOperation(load(id, &service, nullptr));
                collected += worker.collect();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(waitForCount(Threads * Each));
    collected += worker.collect();
    EXPECT_EQ(collected, Threads * Each);
    EXPECT_FALSE(readable(worker.fd()));
}

}  // namespace
}  // namespace Nimra
