#pragma once

#include "service/ItemFilter.h"
#include "service/Operation.h"

namespace Nimra {

class DataService;
class ItemEventProtocol;

/// A request for one page of a listing. Service and protocol are not owned; either may be null.
class DataLoaderOperation : public Operation {
  public:
    DataLoaderOperation(unsigned long id, ItemFilter filter, ItemEventProtocol* protocol);
    ~DataLoaderOperation() override;

    const ItemFilter& filter() const { return _filter; }
    /// To put ids right while the operation is parked; no longer once a worker may have it.
    ItemFilter& filter() { return _filter; }
    ItemEventProtocol* protocol() const { return _protocol; }
    DataService* service() const { return _service; }

    void setService(DataService* service) { _service = service; }

  private:
    ItemFilter _filter;
    ItemEventProtocol* _protocol;
    DataService* _service = nullptr;
};

}  // namespace Nimra
