#include "service/DataLoaderOperation.h"

#include <utility>

namespace Nimra {

DataLoaderOperation::DataLoaderOperation(unsigned long id, ItemFilter filter,
                                         ItemEventProtocol* protocol)
    : Operation(id), _filter(std::move(filter)), _protocol(protocol) {}

DataLoaderOperation::~DataLoaderOperation() = default;

}  // namespace Nimra
