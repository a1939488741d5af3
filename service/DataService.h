#pragma once

#include "service/ItemFilter.h"
#include "service/Page.h"

namespace Nimra {

/// Where listings are loaded from. Called by a worker on a thread of its own, one call at a time.
class DataService {
  public:
    DataService() = default;
    DataService(const DataService&) = delete;
    DataService& operator=(const DataService&) = delete;
    virtual ~DataService();

    /// One page of the listing that `filter` describes: the entries at the positions `offset` …
    /// `offset + count - 1`, fewer at the listing's end. Throws ServiceError when it cannot; what
    /// is not overridden refuses.
    virtual Page load(const ItemFilter& filter);
};

}  // namespace Nimra
