#pragma once

#include <functional>
#include <iostream>
#include <streambuf>
#include <string>
#include <utility>

namespace Ormek::Testing {

/// Calls a function for each line that is written to std::cout during its life.
class LineWatcher : private std::streambuf {
  public:
    explicit LineWatcher(std::function<void(const std::string&)> watch)
        : _watch(std::move(watch)), _previous(std::cout.rdbuf(this)) {}
    LineWatcher(const LineWatcher&) = delete;
    LineWatcher& operator=(const LineWatcher&) = delete;
    ~LineWatcher() override { std::cout.rdbuf(_previous); }

  private:
    std::streamsize xsputn(const char* text, std::streamsize length) override {
        _watch(std::string(text, static_cast<std::size_t>(length)));
        return length;
    }

    std::function<void(const std::string&)> _watch;
    std::streambuf* _previous;
};

}  // namespace Ormek::Testing
