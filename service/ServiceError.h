#pragma once

#include <stdexcept>
#include <string>

namespace Nimra {

/// Why a service did not do what it was asked, for a program to test.
enum class Reason { NotFound, Exists, NoPermission, NoSpace, NotReachable, Refused, Internal };

/// What a service throws when it cannot do what it was asked; `what()` is for people.
class ServiceError : public std::runtime_error {
  public:
    ServiceError(Reason reason, const std::string& text)
        : std::runtime_error(text), _reason(reason) {}

    Reason reason() const { return _reason; }

  private:
    Reason _reason;
};

}  // namespace Nimra
