#include "service/OperationHandler.h"

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

void OperationHandler::queueOperation(Operation* operation) { _queue.push(operation); }

std::vector<Operation*> OperationHandler::operations() const { return _queue.operations(); }

std::unique_ptr<Operation> OperationHandler::take() { return _queue.take(); }

std::unique_ptr<Operation> OperationHandler::take(unsigned long id) { return _queue.take(id); }

}  // namespace Nimra
