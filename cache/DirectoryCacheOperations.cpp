// Operations: how a request reaches the service layer, and moves that the service reports.

#include <utility>

#include "cache/DirectoryCache.h"

namespace Ormek {

Nimra::OperationHandler* DirectoryCache::requests() {
    return Nimra::OperationHandler::getHandler("Requests");
}

std::unique_ptr<Nimra::DataLoaderOperation> DirectoryCache::newLoad(
    Nimra::ItemFilter filter, Nimra::ItemEventProtocol* listener) {
    return std::make_unique<Nimra::DataLoaderOperation>(Nimra::OperationHandler::createId(),
                                                        std::move(filter), listener);
}

Nimra::DataService* DirectoryCache::serviceFor(int dataType) { return (*_services)[dataType]; }

unsigned long DirectoryCache::handOver(std::unique_ptr<Nimra::Operation> operation,
                                       Nimra::OperationHandler* handler, bool ready) {
    Nimra::Operation* handed = operation.release();
    if (ready) {
        handler->queueOperation(handed);
    } else {
        _opWithoutIdsQueue->push(handed);
    }
    return handed->id();
}

bool DirectoryCache::onRemoteObjectMoved(unsigned long newParentId, unsigned long itemId) {
    const std::shared_ptr<ItemInternal> item = OrmekCast::castItemInternal(getItemInternal(itemId));
    if (item->parentId() == newParentId) {
        return false;
    }
    item->oldParentId(item->parentId());
    item->parentId(newParentId);
    return true;
}

}  // namespace Ormek
