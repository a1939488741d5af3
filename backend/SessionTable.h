#pragma once

#include <mutex>
#include <unordered_map>

#include "service/DocumentSession.h"

namespace Nimra {

/// Who works on which document: at most one session each. Safe to call from any thread.
class SessionTable {
  public:
    /// Throws ServiceError when the document has a session.
    DocumentSession open(unsigned long folderId, unsigned long documentId, unsigned long userId);
    /// Throws ServiceError when the document has not this session.
    void release(const DocumentSession& session);
    /// Ends the session of a document that is no more, if it has one.
    void forget(unsigned long documentId);

  private:
    std::mutex _mutex;
    std::unordered_map<unsigned long, DocumentSession> _sessions;
};

}  // namespace Nimra
