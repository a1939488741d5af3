#pragma once

#include "service/ItemFilter.h"
#include "service/Page.h"
#include "service/ServiceError.h"

namespace Nimra {

/// Whoever waits for the answer to an operation. Derive and override what is of interest; the
/// bodies here do nothing.
///
/// Every operation is answered once, under the id that the cache returned for it. All calls come
/// on the thread that owns the cache, between its calls into the cache, and may call the cache.
class ItemEventProtocol {
  public:
    ItemEventProtocol() = default;
    virtual ~ItemEventProtocol();

    /// A load has ended; `page` is the receiver's to move from.
    virtual void pageLoaded(unsigned long operationId, const ItemFilter& filter, Page& page);
    /// An operation has failed; nothing of it took effect.
    virtual void failed(unsigned long operationId, const ServiceError& error);
};

}  // namespace Nimra
