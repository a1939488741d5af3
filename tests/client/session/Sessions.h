#pragma once

#include <cstdint>

#include "tests/client/session/Figures.h"
#include "tests/client/session/Session.h"

namespace Ormek::Testing {

/// Which sessions to try.
struct Sessions {
    Session::Place place;
    Session::Manner manner;
    int count;
    int longest;  ///< About so many steps has the last one, the others less.
    std::uint64_t seed = 14;
};

/// Whether all of them go well. Says on standard error how one fails; if it would repeat itself
/// exactly, in as few steps as it takes.
bool goWell(const Sessions& sessions, Figures& figures);

}  // namespace Ormek::Testing
