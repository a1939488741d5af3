#pragma once

#include <vector>

#include "service/Operation.h"
#include "service/OperationQueue.h"

namespace Ormek {

/// Where operations are parked, in order, while an item they need has no server id. Safe to call
/// from any thread.
class QueuedOperationsManager {
  public:
    QueuedOperationsManager() = default;
    QueuedOperationsManager(const QueuedOperationsManager&) = delete;
    QueuedOperationsManager& operator=(const QueuedOperationsManager&) = delete;
    virtual ~QueuedOperationsManager();

    /// Takes ownership of the operation, from the first instruction on.
    virtual void push(Nimra::Operation* operation);
    /// Number of parked operations.
    virtual unsigned long size() const;

    /// What is parked, in order, to look at; each is valid while it stays parked.
    std::vector<Nimra::Operation*> operations() const;

  private:
    Nimra::OperationQueue _queue;
};

}  // namespace Ormek
