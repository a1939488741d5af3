#include <gtest/gtest.h>

#include <ios>
#include <map>
#include <new>
#include <ostream>
#include <string>
#include <vector>

#include "tests/cache/CacheOperations.h"
#include "tests/cache/FaultTrial.h"
#include "tests/support/AllocationFaults.h"
#include "tests/support/SilentOutput.h"

namespace Ormek::Testing {
namespace {

/// A family of operations, with the trace on or off.
struct Case {
    const char* name;
    CacheOperations (*family)();
    std::ios_base::iostate output;
};

std::string nameOf(const testing::TestParamInfo<Case>& info) {
    return std::string(info.param.name) +
           (info.param.output == std::ios_base::goodbit ? "Traced" : "WithTheStreamFailed");
}

void PrintTo(const Case& family, std::ostream* out) { *out << family.name; }

std::vector<Case> cases() {
    std::vector<Case> all;
    for (const auto output : {std::ios_base::goodbit, std::ios_base::failbit}) {
        all.push_back({"LookUps", lookUpOperations, output});
        all.push_back({"Objects", objectOperations, output});
        all.push_back({"Containers", containerOperations, output});
        all.push_back({"Removals", removalOperations, output});
        all.push_back({"Queries", queryOperations, output});
        all.push_back({"Merges", mergeOperations, output});
        all.push_back({"Actions", actionOperations, output});
    }
    return all;
}

/// Lets the first allocation fail, then the second, and so on until `act` passes on a world of its
/// own; `check` sees what a failure leaves.
template <class Act, class Check>
void failAtEveryAllocation(Act act, Check check) {
    bool failed = true;
    for (unsigned long nth = 1; failed; ++nth) {
        const SilentOutput silent;
        CacheWorld world;
        {
            const AllocationFaults faults(nth);
            try {
                act(world);
            } catch (const std::bad_alloc&) {
            }
            failed = faults.struck();
        }
        check(world);
    }
}

class CacheOperationTest : public testing::TestWithParam<Case> {};

TEST_P(CacheOperationTest, WithoutMemoryLeavesWhatTheStepsBeforeLeave) {
    tryEveryFault(GetParam().family(), [](FaultTrial& trial) {
        const SilentOutput output(GetParam().output);
        return trial.failAtEveryPoint<std::bad_alloc>(
            [](unsigned long nth) { return AllocationFaults(nth); });
    });
}

TEST(CacheAllocationFaultTest, SharesAreReplacedWholeOrStay) {
    using Shares = std::map<unsigned long, std::vector<ShareData>>;
    const Shares before = CacheWorld().stored(CacheWorld::Document)->shares();
    failAtEveryAllocation(
        [](CacheWorld& world) { world.cache.updateObject(world.knownDocument, false); },
        [&](CacheWorld& world) {
            const Shares shares = world.stored(CacheWorld::Document)->shares();
            EXPECT_TRUE(shares == before || shares == world.knownDocument.shares);
        });
}

TEST(CacheAllocationFaultTest, AFolderIsCachedAndMarkedAsLoadedInOne) {
    const auto isMarked = [](CacheWorld& world) {
        const auto found = world.probe.items().find(CacheWorld::NewFolder);
        EXPECT_TRUE(found == world.probe.items().end() || found->second->idLoaded());
    };
    failAtEveryAllocation(
        [](CacheWorld& world) {
            const auto result = world.probe.directories().front();
            world.cache.addItems(world.loadedPage, result, std::vector{world.newFolder},
                                 std::vector<Nimra::Document>(), 1);
        },
        isMarked);
    failAtEveryAllocation(
        [](CacheWorld& world) {
            const auto result = world.probe.directories().front();
            world.cache.addItems(world.loadedPage, result, std::vector{world.newFolder}, 1);
        },
        isMarked);
}

INSTANTIATE_TEST_SUITE_P(Of, CacheOperationTest, testing::ValuesIn(cases()), nameOf);

}  // namespace
}  // namespace Ormek::Testing
