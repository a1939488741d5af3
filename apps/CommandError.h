#pragma once

#include <stdexcept>

namespace App {

/// Why a command was not carried out, in words for whoever gave it.
class CommandError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace App
