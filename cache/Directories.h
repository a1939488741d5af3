#pragma once

#include <list>
#include <memory>

#include "model/QueryResultInternal.h"

namespace Ormek {

/// Every directory of the cache is one of these; a pointer that is not breaks a precondition.
inline QueryResultInternal& internalOf(const std::shared_ptr<QueryResult>& directory) {
    return *dynamic_cast<QueryResultInternal*>(directory.get());
}

/// The first directory in list order whose filter fulfils the condition; null when there is none.
template <class Condition>
QueryResultInternal* firstDirectory(const std::list<std::shared_ptr<QueryResult>>& directories,
                                    Condition condition) {
    for (const auto& directory : directories) {
        QueryResultInternal& internal = internalOf(directory);
        if (condition(internal.filter())) {
            return &internal;
        }
    }
    return nullptr;
}

}  // namespace Ormek
