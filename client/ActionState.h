#pragma once

#include "client/Action.h"
#include "client/Outcome.h"

namespace Ormek {

/// What a client keeps for an action. Guarded by the client's mutex.
struct Action::State {
    Outcome outcome;
};

}  // namespace Ormek
