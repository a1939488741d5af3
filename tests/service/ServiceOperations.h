#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "service/OperationHandler.h"
#include "service/QueuedOperationsManager.h"

namespace Ormek::Testing {

/// A handler and a parked queue in the middle of their lives.
class ServiceWorld {
  public:
    ServiceWorld();

    /// A new operation as the cache makes them.
    std::unique_ptr<Nimra::Operation> newOperation() const;
    /// What is queued and parked, in order, with everything in it, and what is waited for.
    std::string state() const;

    Nimra::OperationHandler handler;
    QueuedOperationsManager parked;
};

/// One call of either, which answers with what it gave back. It does all of its work or none.
struct ServiceOperation {
    const char* name;
    std::function<std::string(ServiceWorld&)> act;
};

/// Every call, in every branch.
std::vector<ServiceOperation> serviceOperations();

}  // namespace Ormek::Testing
