#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tests/model/ListingWorld.h"
#include "tests/support/AllocationFaults.h"

namespace Ormek::Testing {

/// What is done to a result set before, the call that fails, and what is done after it.
struct ListingStory {
    std::vector<ListingStep> before;
    ListingStep step;
    std::vector<ListingStep> after;
};

std::ostream& operator<<(std::ostream& out, const ListingStory& story);

/// One story, on whose call one fault after another is tried.
class ListingTrial {
  public:
    explicit ListingTrial(const ListingStory& story);

    /// Lets the first fault strike, then the second, and so on until the call passes unharmed.
    /// `arm(n)` makes the object during whose life the n-th one strikes. Each time the call throws
    /// an `Exception` and changes nothing, be it seen at once or only later, or passes as if
    /// nothing was; and nothing leaks. Returns the number of faults.
    template <class Exception, class Arm>
    unsigned long failAtEveryPoint(Arm arm) {
        unsigned long nth = 1;
        while (failAt<Exception>(arm, nth, Retry::Yes) && _wrong.empty()) {
            failAt<Exception>(arm, nth, Retry::No);
            ++nth;
        }
        if (!_wrong.empty()) {
            _wrong = "fault " + std::to_string(nth) + ": " + _wrong;
        }
        return nth - 1;
    }

    /// What was not as it must be; empty when all was well.
    const std::string& wrong() const { return _wrong; }

  private:
    enum class Retry { No, Yes };

    template <class Exception, class Arm>
    bool failAt(Arm arm, unsigned long nth, Retry retry) {
        const unsigned long blocks = AllocationFaults::liveBlocks();
        bool struck = false;
        {
            ListingWorld world;
            world.take(_story.before);
            bool thrown = false;
            std::string answer;
            {
                const auto fault = arm(nth);
                try {
                    answer = world.take(_story.step);
                } catch (const Exception&) {
                    thrown = true;
                }
                struck = fault.struck();
            }
            check(world, thrown, answer, retry);
        }
        if (_wrong.empty() && AllocationFaults::liveBlocks() != blocks) {
            _wrong = "something leaks";
        }
        return struck;
    }

    void check(ListingWorld& world, bool thrown, std::string answer, Retry retry);
    void compare(const std::string& text, const std::string& expected);

    const ListingStory& _story;
    std::string _before;
    std::string _answer;
    std::string _passed;
    std::string _passedInTheEnd;
    std::string _sparedInTheEnd;  // When the call never takes place.
    std::string _wrong;
};

}  // namespace Ormek::Testing
