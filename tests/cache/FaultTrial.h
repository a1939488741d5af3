#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/cache/CacheOperations.h"
#include "tests/support/AllocationFaults.h"

namespace Ormek::Testing {

/// One operation of the cache, on which one fault after another is tried.
class FaultTrial {
  public:
    explicit FaultTrial(const CacheOperation& operation);

    /// Lets the first fault strike, then the second, and so on until the operation passes unharmed.
    /// `arm(n)` makes the object during whose life the n-th one strikes. Each time the fault
    /// reaches the caller as an `Exception`, or has no effect at all; no mutex stays held, nothing
    /// leaks, what has changed is what some number of the operation's first steps changes, and no
    /// fewer than at an earlier fault; and the cache then works on. Returns the number of faults.
    template <class Exception, class Arm>
    unsigned long failAtEveryPoint(Arm arm) {
        _reached = 0;
        unsigned long nth = 1;
        while (failAt<Exception>(arm, nth) && !testing::Test::HasFailure()) {
            ++nth;
        }
        return nth - 1;
    }

  private:
    enum class Outcome { Unharmed, Absorbed, Thrown };

    template <class Exception, class Arm>
    bool failAt(Arm arm, unsigned long nth) {
        SCOPED_TRACE(std::string(_operation.name) + ", fault " + std::to_string(nth));
        const unsigned long before = AllocationFaults::liveBlocks();
        Outcome outcome = Outcome::Unharmed;
        {
            CacheWorld world;
            _operation.arrange(world);
            outcome = act<Exception>(world, arm, nth);
            check(world, outcome);
        }
        checkBlocks(before, outcome);
        return outcome != Outcome::Unharmed;
    }

    template <class Exception, class Arm>
    Outcome act(CacheWorld& world, Arm arm, unsigned long nth) {
        const auto fault = arm(nth);
        try {
            _operation.act(world);
        } catch (const Exception&) {
            EXPECT_TRUE(fault.struck());
            return Outcome::Thrown;
        }
        return fault.struck() ? Outcome::Absorbed : Outcome::Unharmed;
    }

    void check(CacheWorld& world, Outcome outcome);
    void checkState(CacheWorld& world, Outcome outcome);
    void checkThatItWorksOn(CacheWorld& world);
    void checkBlocks(unsigned long before, Outcome outcome) const;

    const CacheOperation& _operation;
    std::vector<std::string> _states;  // After so many of its steps.
    unsigned long _reached = 0;
};

/// The same for a whole family. Notes and prints how many faults were tried.
void tryEveryFault(const CacheOperations& family,
                   const std::function<unsigned long(FaultTrial&)>& trial);

}  // namespace Ormek::Testing
