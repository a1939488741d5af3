#include "service/QueuedOperationsManager.h"

namespace Ormek {

QueuedOperationsManager::~QueuedOperationsManager() = default;

void QueuedOperationsManager::push(Nimra::Operation* operation) { _queue.push(operation); }

unsigned long QueuedOperationsManager::size() const { return _queue.size(); }

std::vector<Nimra::Operation*> QueuedOperationsManager::operations() const {
    return _queue.operations();
}

}  // namespace Ormek
