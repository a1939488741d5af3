#pragma once

#include <chrono>

namespace Ormek {

/// What a client has done so far and what it holds now.
struct Statistics {
    unsigned long answeredFromMemory = 0;  ///< Queries.
    unsigned long loads = 0;               ///< Loads started, failed ones included.
    unsigned long joinedLoads = 0;         ///< Queries that waited for another one's load.
    unsigned long failedLoads = 0;
    unsigned long entries = 0;             ///< Folders and documents in the cache.
    unsigned long keyValueEntries = 0;     ///< Tags in the cache.
    unsigned long directories = 0;         ///< Listings in the cache, those of tags included.
    unsigned long parkedOperations = 0;    ///< Operations that wait for an id.
    std::chrono::nanoseconds inMemory{0};  ///< Spent on queries answered from memory.
    std::chrono::nanoseconds inLoads{0};   ///< From question to answer, over all others.
};

}  // namespace Ormek
