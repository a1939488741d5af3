#pragma once

#include <stdexcept>
#include <string>

namespace Ormek::Testing {

/// Something that a session promises does not hold.
class Broken : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

inline void expect(bool holds, const std::string& promise) {
    if (!holds) {
        throw Broken(promise);
    }
}

}  // namespace Ormek::Testing
