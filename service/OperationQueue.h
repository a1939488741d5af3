#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "service/Operation.h"

namespace Nimra {

/// Operations in the order they came, owned until they are taken. Safe to call from any thread.
class OperationQueue {
  public:
    /// Takes ownership of the operation, which must not be null, from the first instruction on.
    void push(Operation* operation);
    /// The operation that came first; empty when there is none.
    std::unique_ptr<Operation> take();
    /// The operation of that id, from wherever it stands; empty when there is none.
    std::unique_ptr<Operation> take(unsigned long id);
    unsigned long size() const;
    /// What is queued, in order, to look at; each is valid until it is taken.
    std::vector<Operation*> operations() const;

  private:
    mutable std::mutex _mutex;
    std::deque<std::unique_ptr<Operation>> _operations;
};

}  // namespace Nimra
