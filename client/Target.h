#pragma once

#include <string>
#include <utility>
#include <variant>

namespace Ormek {

/// What an action is about: an entry's id, or its path from the root. A path is looked up among
/// what is held, without asking the service; `Client::find` brings in what is not.
class Target {
  public:
    Target(unsigned long id) : _which(id) {}
    Target(std::string path) : _which(std::move(path)) {}
    Target(const char* path) : _which(std::string(path)) {}

    const std::variant<unsigned long, std::string>& which() const { return _which; }

  private:
    std::variant<unsigned long, std::string> _which;
};

}  // namespace Ormek
