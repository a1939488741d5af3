#pragma once

#include <memory>

#include "service/Document.h"
#include "service/DocumentSession.h"
#include "service/DocumentStream.h"
#include "service/ItemFilter.h"
#include "service/Page.h"
#include "service/ServiceError.h"

namespace Nimra {

/// Whoever waits for the answer to an operation. Derive and override what is of interest; the
/// bodies here do nothing.
///
/// Every operation is answered under the id that the cache returned for it, and has exactly one
/// outcome: a call of any of these functions but `progress`, after which nothing more is said about
/// it. All calls come on the thread that owns the cache, between its calls into the cache, and may
/// call the cache.
class ItemEventProtocol {
  public:
    ItemEventProtocol() = default;
    virtual ~ItemEventProtocol();

    /// A load has ended; `page` is the receiver's to move from.
    virtual void pageLoaded(unsigned long operationId, const ItemFilter& filter, Page& page);
    /// A creation, move, removal, renaming or saving of metadata has taken effect. `document` is
    /// the record as the server has it now, under the server's id, which a creation gives; after a
    /// removal it is the record that was asked with. A folder's has type 8, the one that a creation
    /// has made included.
    virtual void finished(unsigned long operationId, const Document& document);
    /// The content of a document is open for reading. `document` is as the server has it.
    virtual void streamsOpened(unsigned long operationId, const Document& document,
                               std::shared_ptr<DocumentStream> stream);
    /// A session was given, and is held until it is released.
    virtual void sessionOpened(unsigned long operationId, const DocumentSession& session);
    /// An operation has failed; nothing of it took effect.
    virtual void failed(unsigned long operationId, const ServiceError& error);

    /// How far an upload is: `done` of `total` bytes, where a total of 0 is not known. Comes any
    /// number of times, each with a later state, and never after the outcome; a state that was
    /// overtaken before it could be told is left out.
    virtual void progress(unsigned long operationId, unsigned long done, unsigned long total);
};

}  // namespace Nimra
