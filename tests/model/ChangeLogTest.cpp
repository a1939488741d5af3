#include "model/ChangeLog.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/support/Crowd.h"
#include "tests/support/Fakes.h"

namespace Ormek::Testing {
namespace {

TEST(ChangeLogTest, ChangesAreToldInOrder) {
    const auto one = makeObject(1, 7, "one");
    const auto other = makeObject(2, 7, "other");
    ChangeLog log;
    EXPECT_EQ(log.count(), 0u);
    log.add(*one, 11);
    log.add(*other, 22);
    log.add(*one, 33);
    ASSERT_EQ(log.count(), 3u);
    const Item* const items[] = {one.get(), other.get(), one.get()};
    for (unsigned long number = 0; number < 3; ++number) {
        const auto change = log.at(number);
        ASSERT_TRUE(change);
        EXPECT_EQ(change->item, items[number]);
        EXPECT_EQ(change->before, 11 * (number + 1));
    }
}

TEST(ChangeLogTest, WhatIsTooLongAgoIsForgottenAndNeverMistaken) {
    constexpr unsigned long Many = 10'000;
    const auto item = makeObject(1, 7, "item");
    ChangeLog log;
    for (std::uint64_t before = 0; before < Many; ++before) {
        log.add(*item, before);
    }
    ASSERT_EQ(log.count(), Many);
    unsigned long number = Many;
    while (number > 0 && log.at(number - 1)) {
        --number;
        ASSERT_EQ(log.at(number)->before, number);
    }
    EXPECT_GE(Many - number, 500u) << "an index cannot follow";
    for (unsigned long forgotten = 0; forgotten < number; ++forgotten) {
        ASSERT_FALSE(log.at(forgotten)) << forgotten;
    }
}

TEST(ChangeLogTest, SeveralThreadsLoseNoChangeAndReadNoneByHalf) {
    constexpr unsigned long Many = 300'000;
    const auto one = makeObject(1, 7, "one");
    const auto other = makeObject(2, 7, "other");
    ChangeLog log;
    unsigned long torn = 0;
    {
        Crowd crowd;
        crowd.add([&] {
            for (unsigned long added = 0; added < Many; ++added) {
                log.add(*one, 1);
            }
        });
        crowd.add([&] {
            for (unsigned long added = 0; added < Many; ++added) {
                log.add(*other, 2);
                const auto change = log.at(log.count() - 1);
                torn += change && (change->item == one.get()) != (change->before == 1) ? 1 : 0;
            }
        });
    }
    EXPECT_EQ(log.count(), 2 * Many);
    EXPECT_EQ(torn, 0U);
}

}  // namespace
}  // namespace Ormek::Testing
