#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "model/Item.h"
#include "service/ServiceError.h"

namespace Ormek {

enum class AnswerState {
    Pending,   ///< A load is under way.
    Answered,  ///< The rest of the answer is filled in.
    Failed,    ///< `error` says why, if there was memory to; asking again tries again.
};

enum class AnswerSource {
    Memory,
    Load,
    JoinedLoad,  ///< A load that another query had started.
};

/// The answer to a query, or how it stands.
struct Answer {
    AnswerState state = AnswerState::Pending;
    AnswerSource source = AnswerSource::Memory;
    /// The page asked for, or the one entry looked up; never an empty pointer. Entries are shared
    /// with the cache and live: see `Client::read`.
    std::vector<std::shared_ptr<Item>> entries;
    unsigned long held = 0;   ///< Entries of this listing in memory.
    unsigned long total = 0;  ///< Entries of this listing, as the service reported last.
    std::chrono::nanoseconds elapsed{0};       ///< From the question to the answer.
    std::optional<Nimra::ServiceError> error;  ///< Of a failed answer.
};

}  // namespace Ormek
