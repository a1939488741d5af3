#include "backend/SessionTable.h"

#include <string>

#include "backend/RandomText.h"
#include "service/ServiceError.h"

namespace Nimra {

namespace {

constexpr std::size_t TokenBytes = 16;

}  // namespace

DocumentSession SessionTable::open(unsigned long folderId, unsigned long documentId,
                                   unsigned long userId) {
    DocumentSession session{folderId, documentId, userId, randomText(TokenBytes)};
    const std::lock_guard lock(_mutex);
    const auto [held, added] = _sessions.emplace(documentId, session);
    if (!added) {
        throw ServiceError(Reason::Refused, "the document with id " + std::to_string(documentId) +
                                                " is in a session of user " +
                                                std::to_string(held->second.userId));
    }
    return session;
}

void SessionTable::release(const DocumentSession& session) {
    const std::lock_guard lock(_mutex);
    const auto held = _sessions.find(session.documentId);
    if (held == _sessions.end() || held->second.token != session.token) {
        throw ServiceError(Reason::NotFound, "there is no such session of the document with id " +
                                                 std::to_string(session.documentId));
    }
    _sessions.erase(held);
}

void SessionTable::forget(unsigned long documentId) {
    const std::lock_guard lock(_mutex);
    _sessions.erase(documentId);
}

}  // namespace Nimra
