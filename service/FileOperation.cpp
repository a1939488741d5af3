#include "service/FileOperation.h"

#include <utility>

namespace Nimra {

FileOperation::FileOperation(unsigned long id, Document document, unsigned int kind,
                             ItemEventProtocol* protocol)
    : Operation(id), _document(std::move(document)), _kind(kind), _protocol(protocol) {}

FileOperation::~FileOperation() = default;

}  // namespace Nimra
