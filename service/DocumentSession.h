#pragma once

#include <string>

namespace Nimra {

/// The right to work on a document that nobody else has at the same time. It lasts until it is
/// released or the service ends.
struct DocumentSession {
    unsigned long folderId = 0;
    unsigned long documentId = 0;
    unsigned long userId = 0;
    std::string token;  ///< Proves to the service that a session is the one it gave.
};

}  // namespace Nimra
