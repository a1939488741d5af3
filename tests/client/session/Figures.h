#pragma once

#include <iosfwd>

namespace Ormek::Testing {

/// What took place in sessions.
struct Figures {
    unsigned long sessions = 0;
    unsigned long steps = 0;
    unsigned long actions = 0;        ///< That were undertaken.
    unsigned long refusedAtOnce = 0;  ///< Actions, too.
    unsigned long done = 0;           ///< Outcomes.
    unsigned long failed = 0;         ///< Outcomes, too.
    unsigned long queries = 0;
    unsigned long loads = 0;
    unsigned long calls = 0;       ///< Of the service.
    unsigned long madeToFail = 0;  ///< Of these.
    unsigned long changesElsewhere = 0;
    unsigned long offlineStretches = 0;
    unsigned long comparisons = 0;  ///< Of all listings with what is really there.
    unsigned long entriesCompared = 0;
};

std::ostream& operator<<(std::ostream& stream, const Figures& figures);

}  // namespace Ormek::Testing
