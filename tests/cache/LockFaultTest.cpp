#include <gtest/gtest.h>

#include <cerrno>
#include <mutex>
#include <ostream>
#include <string>
#include <system_error>
#include <vector>

#include "tests/cache/CacheOperations.h"
#include "tests/cache/FaultTrial.h"
#include "tests/support/LockFaults.h"
#include "tests/support/SilentOutput.h"

namespace Ormek::Testing {
namespace {

/// Skips where no lock can be made to fail.
class LockFaultTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!LockFaults::arePossible()) {
            GTEST_SKIP() << "the thread sanitizer has to see every lock itself";
        }
    }
};

// --- The faults themselves -----------------------------------------------------------------

TEST_F(LockFaultTest, TheLockFailsOnceInItsTurn) {
    std::mutex mutex;
    const LockFaults faults(2, EAGAIN);
    { const std::lock_guard lock(mutex); }
    EXPECT_FALSE(faults.struck());
    try {
        const std::lock_guard lock(mutex);
        ADD_FAILURE() << "it did not fail";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::error_code(EAGAIN, std::generic_category()));
    }
    EXPECT_TRUE(faults.struck());
    EXPECT_NO_THROW(const std::lock_guard lock(mutex));
}

// --- On every operation --------------------------------------------------------------------

/// A family of operations, and the error that its locks fail with.
struct Case {
    const char* name;
    CacheOperations (*family)();
    int error;
};

std::string nameOf(const testing::TestParamInfo<Case>& info) {
    return std::string(info.param.name) + (info.param.error == EAGAIN ? "TryAgain" : "Invalid");
}

void PrintTo(const Case& family, std::ostream* out) { *out << family.name; }

std::vector<Case> cases() {
    std::vector<Case> all;
    for (const int error : {EAGAIN, EINVAL}) {
        all.push_back({"LookUps", lookUpOperations, error});
        all.push_back({"Objects", objectOperations, error});
        all.push_back({"Containers", containerOperations, error});
        all.push_back({"Removals", removalOperations, error});
        all.push_back({"Queries", queryOperations, error});
        all.push_back({"Merges", mergeOperations, error});
        all.push_back({"Actions", actionOperations, error});
    }
    return all;
}

class CacheLockTest : public LockFaultTest, public testing::WithParamInterface<Case> {};

TEST_P(CacheLockTest, ThatFailsLeavesWhatTheStepsBeforeLeave) {
    tryEveryFault(GetParam().family(), [](FaultTrial& trial) {
        const SilentOutput output;
        return trial.failAtEveryPoint<std::system_error>(
            [](unsigned long nth) { return LockFaults(nth, GetParam().error); });
    });
}

INSTANTIATE_TEST_SUITE_P(Of, CacheLockTest, testing::ValuesIn(cases()), nameOf);

}  // namespace
}  // namespace Ormek::Testing
