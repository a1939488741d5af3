#pragma once

#include "service/Document.h"
#include "service/Operation.h"

namespace Nimra {

class DocumentService;
class ItemEventProtocol;

/// A request to do something to a document: 2 create, 4 move, 5 remove, 6 rename, 10 streams,
/// 13 save metadata. A folder can be meant as well: a creation makes one if the record has type 8,
/// the others do not look at the type. Service and protocol are not owned; either may be null.
class FileOperation : public Operation {
  public:
    FileOperation(unsigned long id, Document document, unsigned int kind,
                  ItemEventProtocol* protocol);
    ~FileOperation() override;

    const Document& document() const { return _document; }
    /// To put ids right while the operation is parked; no longer once a worker may have it.
    Document& document() { return _document; }
    unsigned int kind() const { return _kind; }
    ItemEventProtocol* protocol() const { return _protocol; }
    DocumentService* service() const { return _service; }

    void setService(DocumentService* service) { _service = service; }

  private:
    Document _document;
    unsigned int _kind;
    ItemEventProtocol* _protocol;
    DocumentService* _service = nullptr;
};

}  // namespace Nimra
