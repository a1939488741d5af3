#pragma once

#include <string>

namespace Ormek::Testing {

/// A file without a name, to be read from its beginning.
class Scratch {
  public:
    explicit Scratch(const std::string& content = "");
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch();

    int fd() const { return _fd; }
    std::string content() const;

  private:
    int _fd;
};

}  // namespace Ormek::Testing
