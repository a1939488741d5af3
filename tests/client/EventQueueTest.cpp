#include "client/EventQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace Ormek {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EventQueueTest : public ::testing::Test {
  protected:
    EventQueue::Listener noteIn(std::vector<unsigned long>& numbers) {
        return [&numbers](const Event& event) { numbers.push_back(numberOf(event)); };
    }
    static Event event(unsigned long number) { return ListingInvalidated{number}; }
    static unsigned long numberOf(const Event& event) {
        return std::get<ListingInvalidated>(event).folderId;
    }

    EventQueue queue;
    std::vector<unsigned long> first;
    std::vector<unsigned long> second;
};

/// Does something when it is destroyed with the last copy of the listener that holds it.
struct Farewell {
    std::function<void()> say;
    ~Farewell() { say(); }
};

TEST_F(EventQueueTest, EveryListenerHearsEveryEventInOrder) {
    EXPECT_FALSE(queue.hasListeners());
    EXPECT_EQ(queue.subscribe(noteIn(first)), 1U);
    EXPECT_EQ(queue.subscribe(noteIn(second)), 2U);
    EXPECT_TRUE(queue.hasListeners());
    queue.push(event(1));
    queue.push(event(2));
    EXPECT_THAT(first, IsEmpty());
    queue.deliver();
    queue.push(event(3));
    queue.deliver();
    queue.deliver();
    EXPECT_THAT(first, ElementsAre(1, 2, 3));
    EXPECT_THAT(second, ElementsAre(1, 2, 3));
}

TEST_F(EventQueueTest, OnlyLaterEventsAreTold) {
    queue.push(event(1));
    queue.subscribe(noteIn(first));
    queue.push(event(2));
    queue.subscribe(noteIn(second));
    queue.push(event(3));
    queue.deliver();
    EXPECT_THAT(first, ElementsAre(2, 3));
    EXPECT_THAT(second, ElementsAre(3));
}

TEST_F(EventQueueTest, WhoeverUnsubscribedHearsNothingMore) {
    const unsigned long id = queue.subscribe(noteIn(first));
    queue.subscribe(noteIn(second));
    queue.push(event(1));
    queue.unsubscribe(id);
    queue.unsubscribe(id);
    queue.unsubscribe(0);
    queue.unsubscribe(99);
    queue.deliver();
    EXPECT_THAT(first, IsEmpty());
    EXPECT_THAT(second, ElementsAre(1));
    EXPECT_EQ(queue.subscribe(noteIn(first)), 3U);
}

TEST_F(EventQueueTest, EventsThatNobodyIsLeftToHearAreDropped) {
    const unsigned long id = queue.subscribe(noteIn(first));
    queue.push(event(1));
    queue.unsubscribe(id);
    EXPECT_FALSE(queue.hasListeners());
    queue.subscribe(noteIn(second));
    queue.push(event(2));
    queue.deliver();
    EXPECT_THAT(first, IsEmpty());
    EXPECT_THAT(second, ElementsAre(2));
}

TEST_F(EventQueueTest, WhatAListenerAddsIsToldBehindWhatIsThere) {
    queue.subscribe([&](const Event& told) {
        first.push_back(numberOf(told));
        if (numberOf(told) < 3) {
            queue.push(event(numberOf(told) + 10));
            queue.deliver();
        }
    });
    queue.subscribe(noteIn(second));
    queue.push(event(1));
    queue.push(event(2));
    queue.deliver();
    EXPECT_THAT(first, ElementsAre(1, 2, 11, 12));
    EXPECT_THAT(second, ElementsAre(1, 2, 11, 12));
}

TEST_F(EventQueueTest, ListenersComeAndGoWhileTheyAreTold) {
    unsigned long id = 0;
    id = queue.subscribe([&](const Event& told) {
        first.push_back(numberOf(told));
        queue.unsubscribe(id);
        queue.subscribe(noteIn(second));
    });
    queue.push(event(1));
    queue.push(event(2));
    queue.deliver();
    queue.push(event(3));
    queue.deliver();
    EXPECT_THAT(first, ElementsAre(1));
    EXPECT_THAT(second, ElementsAre(3));
}

TEST_F(EventQueueTest, ThrowingListenerLosesNoEventOfOthersNorAnyButThatOfItsOwn) {
    queue.subscribe([&](const Event& told) {
        first.push_back(numberOf(told));
        if (numberOf(told) == 1) {
            throw std::runtime_error("no");
        }
    });
    queue.subscribe(noteIn(second));
    queue.push(event(1));
    queue.push(event(2));
    EXPECT_THROW(queue.deliver(), std::runtime_error);
    EXPECT_THAT(second, IsEmpty());
    queue.deliver();
    EXPECT_THAT(first, ElementsAre(1, 2));
    EXPECT_THAT(second, ElementsAre(1, 2));
}

TEST_F(EventQueueTest, ListenersAreCalledAndDestroyedUnderNoLock) {
    unsigned long id = 0;
    {
        auto farewell = std::make_shared<Farewell>();
        farewell->say = [this] {
            first.push_back(99);
            queue.push(event(2));
            queue.unsubscribe(1);
        };
        id = queue.subscribe([this, farewell, &id](const Event& told) {
            first.push_back(numberOf(told));
            queue.unsubscribe(id);
            std::thread([this] { queue.push(event(1)); }).join();
        });
    }
    queue.subscribe(noteIn(second));
    queue.push(event(0));
    queue.deliver();
    EXPECT_THAT(first, ElementsAre(0, 99));
    EXPECT_THAT(second, ElementsAre(0, 1, 2));
}

TEST_F(EventQueueTest, EventsAreDestroyedUnderNoLock) {
    struct Stream : Nimra::DocumentStream {
        explicit Stream(EventQueue& events) : queue(events) {}
        ~Stream() override { queue.push(ListingInvalidated{7}); }
        unsigned long size() const override { return 0; }
        std::size_t read(unsigned long, char*, std::size_t) const override { return 0; }
        EventQueue& queue;
    };
    std::vector<unsigned long> numbers;
    queue.subscribe([&](const Event& told) {
        numbers.push_back(std::holds_alternative<Outcome>(told) ? 0 : numberOf(told));
    });
    Outcome outcome;
    outcome.stream = std::make_shared<Stream>(queue);
    queue.push(std::move(outcome));
    queue.deliver();
    queue.deliver();
    EXPECT_THAT(numbers, ElementsAre(0, 7));
}

TEST_F(EventQueueTest, SeveralThreadsPushAndDeliverAtOnceInOrder) {
    constexpr unsigned long Each = 2000;
    std::atomic<int> inside{0};
    bool overlapped = false;
    std::vector<unsigned long> last(4);
    bool inOrder = true;
    unsigned long heard = 0;
    queue.subscribe([&](const Event& told) {
        overlapped = overlapped || ++inside != 1;
        const unsigned long number = numberOf(told);
        inOrder = inOrder && last[number % 4] < number;
        last[number % 4] = number;
        ++heard;
        --inside;
    });
    std::vector<std::thread> threads;
    for (unsigned long thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            for (unsigned long number = 1; number <= Each; ++number) {
                queue.push(event(number * 4 + thread));
                queue.deliver();
                if (number % 100 == 0) {
                    queue.unsubscribe(queue.subscribe([](const Event&) {}));
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    queue.deliver();
    EXPECT_EQ(heard, 4 * Each);
    EXPECT_TRUE(inOrder);
    EXPECT_FALSE(overlapped);
}

}  // namespace
}  // namespace Ormek
