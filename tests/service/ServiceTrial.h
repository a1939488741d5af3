#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/service/ServiceOperations.h"
#include "tests/support/AllocationFaults.h"
#include "tests/support/FaultPoints.h"

namespace Ormek::Testing {

/// Lets the n-th fault strike during a call; whether there was one. It reaches the caller, nothing
/// has left, nothing parked or queued is lost, nothing leaks, and the call can be repeated.
template <class Exception, class Arm>
bool failServiceAt(const ServiceOperation& operation, unsigned long nth, Arm arm) {
    SCOPED_TRACE(std::string(operation.name) + ", fault " + std::to_string(nth));
    ServiceWorld passing;
    const std::string before = passing.state();
    const std::string expected = operation.act(passing);
    const std::string after = passing.state();

    const unsigned long blocks = AllocationFaults::liveBlocks();
    bool struck = false;
    {
        ServiceWorld world;
        bool thrown = false;
        std::string answer;
        {
            const auto fault = arm(nth);
            try {
                answer = operation.act(world);
            } catch (const Exception&) {
                thrown = true;
            }
            struck = fault.struck();
        }
        EXPECT_EQ(world.state(), thrown ? before : after);
        if (thrown) {
            answer = operation.act(world);
        }
        EXPECT_EQ(answer, expected);
        EXPECT_EQ(world.state(), after);
    }
    EXPECT_EQ(AllocationFaults::liveBlocks(), blocks);
    return struck;
}

/// Tries every fault on every call. Notes and prints how many there were.
template <class Exception, class Arm>
void tryEveryServiceFault(Arm arm) {
    unsigned long tried = 0;
    for (const ServiceOperation& operation : serviceOperations()) {
        unsigned long nth = 1;
        while (failServiceAt<Exception>(operation, nth, arm) && !testing::Test::HasFailure()) {
            ++nth;
        }
        tried += nth - 1;
    }
    noteFaultPoints(tried);
}

}  // namespace Ormek::Testing
