#pragma once

#include <cstddef>
#include <memory>

#include "service/Document.h"

namespace Nimra {

/// The content of a document, opened for reading. It stays readable whatever becomes of the
/// document's name or of the service that opened it. Every function may be called from any thread,
/// several at the same time.
class DocumentStream {
  public:
    DocumentStream() = default;
    DocumentStream(const DocumentStream&) = delete;
    DocumentStream& operator=(const DocumentStream&) = delete;
    virtual ~DocumentStream() = default;

    /// Number of bytes the content has now. Throws ServiceError.
    virtual unsigned long size() const = 0;
    /// Puts the bytes at the positions `offset` … `offset + size - 1` into `buffer` and returns how
    /// many there are: fewer than `size` only at the end, 0 behind it. Throws ServiceError.
    virtual std::size_t read(unsigned long offset, char* buffer, std::size_t size) const = 0;
};

/// A document whose content was opened, and the content.
struct OpenedDocument {
    Document document;
    std::shared_ptr<DocumentStream> stream;
};

}  // namespace Nimra
