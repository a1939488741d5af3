#pragma once

#include <vector>

#include "client/Outcome.h"

namespace Ormek {

/// An action that is not under way yet, and what it waits for.
struct WaitingAction {
    unsigned long operationId = 0;
    ActionKind kind = ActionKind::Open;
    unsigned long entryId = 0;                 ///< What it is to be done to.
    bool forService = false;                   ///< The client is offline.
    bool forEarlier = false;                   ///< An earlier action on one of its entries waits.
    std::vector<unsigned long> forCreationOf;  ///< Entries that the service does not know yet.
};

}  // namespace Ormek
