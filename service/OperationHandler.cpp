#include "service/OperationHandler.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <utility>

namespace Nimra {

namespace {

/// Who answers to which name. A handler that was registered goes before the plain one.
struct Registry {
    struct Entry {
        OperationHandler* registered = nullptr;
        std::unique_ptr<OperationHandler> plain;
    };

    std::mutex mutex;
    std::map<std::string, Entry> entries;
};

Registry& registry() {
    // Never destroyed: a handler may be removed by the last destructor of the process.
    static Registry& theRegistry = *new Registry;
    return theRegistry;
}

}  // namespace

OperationHandler::~OperationHandler() = default;

OperationHandler* OperationHandler::getHandler(std::string name) {
    Registry& handlers = registry();
    const std::lock_guard lock(handlers.mutex);
    Registry::Entry& entry = handlers.entries[std::move(name)];
    if (entry.registered) {
        return entry.registered;
    }
    if (!entry.plain) {
        entry.plain = std::make_unique<OperationHandler>();
    }
    return entry.plain.get();
}

void OperationHandler::registerHandler(std::string name, OperationHandler* handler) {
    Registry& handlers = registry();
    const std::lock_guard lock(handlers.mutex);
    handlers.entries[std::move(name)].registered = handler;
}

unsigned long OperationHandler::createId() {
    static std::atomic<unsigned long> last{0};
    return ++last;
}

void OperationHandler::queueOperation(Operation* operation) {
    std::unique_ptr<Operation> owned(operation);
    const std::lock_guard lock(_mutex);
    _operations.push_back(std::move(owned));
}

std::vector<Operation*> OperationHandler::operations() const {
    const std::lock_guard lock(_mutex);
    std::vector<Operation*> queued;
    queued.reserve(_operations.size());
    for (const auto& operation : _operations) {
        queued.push_back(operation.get());
    }
    return queued;
}

std::unique_ptr<Operation> OperationHandler::take() {
    const std::lock_guard lock(_mutex);
    if (_operations.empty()) {
        return nullptr;
    }
    std::unique_ptr<Operation> first = std::move(_operations.front());
    _operations.pop_front();
    return first;
}

std::unique_ptr<Operation> OperationHandler::take(unsigned long id) {
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

}  // namespace Nimra
