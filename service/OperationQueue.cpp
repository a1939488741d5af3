#include "service/OperationQueue.h"

#include <algorithm>
#include <utility>

namespace Nimra {

void OperationQueue::push(Operation* operation) {
    std::unique_ptr<Operation> owned(operation);
    const std::lock_guard lock(_mutex);
    _operations.push_back(std::move(owned));
}

std::unique_ptr<Operation> OperationQueue::take() {
    const std::lock_guard lock(_mutex);
    if (_operations.empty()) {
        return nullptr;
    }
    std::unique_ptr<Operation> first = std::move(_operations.front());
    _operations.pop_front();
    return first;
}

std::unique_ptr<Operation> OperationQueue::take(unsigned long id) {
    const std::lock_guard lock(_mutex);
    const auto found = std::find_if(_operations.begin(), _operations.end(),
                                    [id](const auto& queued) { return queued->id() == id; });
    if (found == _operations.end()) {
        return nullptr;
    }
    std::unique_ptr<Operation> taken = std::move(*found);
    _operations.erase(found);
    return taken;
}

unsigned long OperationQueue::size() const {
    const std::lock_guard lock(_mutex);
    return _operations.size();
}

std::vector<Operation*> OperationQueue::operations() const {
    const std::lock_guard lock(_mutex);
    std::vector<Operation*> queued;
    queued.reserve(_operations.size());
    for (const auto& operation : _operations) {
        queued.push_back(operation.get());
    }
    return queued;
}

}  // namespace Nimra
