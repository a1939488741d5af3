#pragma once

namespace Nimra {

/// A request on its way to the service. Owned by whoever it was handed to last.
class Operation {
  public:
    explicit Operation(unsigned long id) : _id(id) {}
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;
    virtual ~Operation();

    virtual unsigned long id() const;

  private:
    unsigned long _id;
};

}  // namespace Nimra
