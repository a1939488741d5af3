#include "service/ItemEventProtocol.h"

namespace Nimra {

ItemEventProtocol::~ItemEventProtocol() = default;

void ItemEventProtocol::pageLoaded(unsigned long /*operationId*/, const ItemFilter& /*filter*/,
                                   Page& /*page*/) {}

void ItemEventProtocol::failed(unsigned long /*operationId*/, const ServiceError& /*error*/) {}

}  // namespace Nimra
