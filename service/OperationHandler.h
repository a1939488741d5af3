#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "service/Operation.h"

namespace Nimra {

/// A named queue of operations, in order, kept until a worker takes them. Derive to be told at
/// once. Safe to call from any thread.
class OperationHandler {
  public:
    OperationHandler() = default;
    OperationHandler(const OperationHandler&) = delete;
    OperationHandler& operator=(const OperationHandler&) = delete;
    virtual ~OperationHandler();

    /// The handler of that name. One that has none gets a plain one, which lives as long as the
    /// process, so the answer is never null and nothing queued before a worker starts is lost.
    static OperationHandler* getHandler(std::string name);
    /// Puts `handler` in the place of whichever has that name; null removes it. Not owned: it must
    /// stay valid until it is replaced. Operations queued in a plain one stay there, and are back
    /// when the name has no other handler.
    static void registerHandler(std::string name, OperationHandler* handler);
    /// An id that was never given before in this process, starting at 1.
    static unsigned long createId();

    /// Takes ownership of the operation, which must not be null, from the first instruction on. The
    /// cache still reads its id when this has returned: whoever takes it keeps it until the cache's
    /// call is over, too.
    virtual void queueOperation(Operation* operation);

    /// What is queued, in order, to look at; each is valid until it is taken.
    std::vector<Operation*> operations() const;
    /// The operation that was queued first; empty when there is none.
    std::unique_ptr<Operation> take();
    /// The operation of that id, from wherever it stands; empty when there is none.
    std::unique_ptr<Operation> take(unsigned long id);

  private:
    mutable std::mutex _mutex;
    std::deque<std::unique_ptr<Operation>> _operations;
};

}  // namespace Nimra
