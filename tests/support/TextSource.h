#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "service/ContentSource.h"

namespace Ormek::Testing {

/// Content that is a text.
class TextSource : public Nimra::ContentSource {
  public:
    explicit TextSource(std::string text) : _text(std::move(text)) {}

    unsigned long size() const override { return _text.size(); }
    std::size_t read(char* buffer, std::size_t size) override {
        const std::size_t count = _text.copy(buffer, size, _read);
        _read += count;
        return count;
    }

  private:
    std::string _text;
    std::size_t _read = 0;
};

}  // namespace Ormek::Testing
