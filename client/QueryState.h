#pragma once

#include <chrono>
#include <deque>
#include <string>

#include "client/Answer.h"
#include "client/ListOptions.h"
#include "client/Query.h"

namespace Ormek {

/// What a client keeps for a question. Guarded by the client's mutex.
struct Query::State {
    /// What is left of a path that is looked up part by part.
    struct Walk {
        std::string path;           ///< As it was asked for, for messages.
        unsigned long entryId = 0;  ///< How far the walk has come.
        std::deque<std::string> rest;
        Freshness freshness = Freshness::Cached;  ///< Of the last part.
    };

    Answer answer;
    std::chrono::steady_clock::time_point asked;
    Walk walk;
};

}  // namespace Ormek
