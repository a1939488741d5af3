#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <functional>
#include <system_error>
#include <vector>

#include "model/QueryResultInternal.h"
#include "tests/model/ListingTrial.h"
#include "tests/support/Fakes.h"
#include "tests/support/FaultPoints.h"
#include "tests/support/LockFaults.h"

namespace Ormek::Testing {
namespace {

TEST(ListingLockTest, ThatFailsChangesNothing) {
    if (!LockFaults::arePossible()) {
        GTEST_SKIP() << "the thread sanitizer has to see every lock itself";
    }
    using Step = ListingStep;
    unsigned long tried = 0;
    for (int kind = 0; kind <= Step::Last; ++kind) {
        const ListingStory story{{{Step::AddPage, 0, 3},
                                  {Step::TotalCount, 9, 0},
                                  {Step::AddItems, 0, 3},
                                  {Step::RemoveByName, 3, 0}},
                                 {static_cast<Step::Kind>(kind), 2, 3},
                                 {{Step::AddInFront, 3, 0}}};
        ListingTrial trial(story);
        tried += trial.failAtEveryPoint<std::system_error>(
            [](unsigned long nth) { return LockFaults(nth, EAGAIN); });
        EXPECT_EQ(trial.wrong(), "") << story;
    }
    noteFaultPoints(tried);
}

/// Whether the call reports the failure of its n-th lock.
template <class Call>
bool reportsLock(unsigned long nth, Call call) {
    const LockFaults faults(nth, EAGAIN);
    try {
        call();
    } catch (const std::system_error&) {
        return true;
    }
    return false;
}

TEST(ListingLockTest, IsTakenByEveryCall) {
    if (!LockFaults::arePossible()) {
        GTEST_SKIP() << "the thread sanitizer has to see every lock itself";
    }
    QueryResultInternal result(folderFilter(7));
    const std::vector<std::function<void()>> calls = {
        [&] { result.count(); },
        [&] { result.QueryResult::totalCount(); },
        [&] { result.items(); },
        [&] { result.page(0, 1); },
        [&] { result.itemByName("name"); },
        [&] { result.contains(1); },
        [&] { result.isPageLoaded(folderFilter(7)); },
        [&] { result.isPageCurrent(folderFilter(7)); },
        [&] { result.heldPositionOf(1); },
        [&] { result.invalidate(); },
        [&] { result.addPage(0, 1); },
        [&] { result.totalCount(1); },
        [&] { result.addItems(0, {}); },
        [&] { result.addItem(nullptr, true); },
        [&] { result.removeItem(1); },
        [&] { result.removeItemByName(nullptr); },
        [&] { result.restoreItem(nullptr, 0); },
        [&] { result.replaceItem(nullptr, true); },
    };
    for (std::size_t number = 0; number < calls.size(); ++number) {
        EXPECT_TRUE(reportsLock(1, calls[number])) << number;
    }
}

TEST(ListingLockTest, IsTakenOnBothSidesOfACopy) {
    if (!LockFaults::arePossible()) {
        GTEST_SKIP() << "the thread sanitizer has to see every lock itself";
    }
    QueryResultInternal directory(folderFilter(7));
    QueryResult copy(directory);
    QueryResult other;
    const auto assign = [&] { other = copy; };
    const auto assignDirectory = [&] { other = directory; };
    for (const unsigned long nth : {1UL, 2UL, 3UL}) {  // Entries, filter, and where they go.
        EXPECT_TRUE(reportsLock(nth, assign)) << nth;
    }
    EXPECT_FALSE(reportsLock(4, assign));
    for (const unsigned long nth : {1UL, 2UL}) {  // Its filter never changes.
        EXPECT_TRUE(reportsLock(nth, assignDirectory)) << nth;
    }
    EXPECT_FALSE(reportsLock(3, assignDirectory));
}

}  // namespace
}  // namespace Ormek::Testing
