#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

#include "tests/model/ListingTrial.h"
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
    RecordProperty("fault_points", std::to_string(tried));
    std::printf("fault points tried: %lu\n", tried);
}

}  // namespace
}  // namespace Ormek::Testing
