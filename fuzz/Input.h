#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace Ormek::Fuzzing {

/// What a run of a fuzz target throws when something does not hold.
class Broken : public std::logic_error {
  public:
    using std::logic_error::logic_error;
};

inline void check(bool holds, const char* what) {
    if (!holds) {
        throw Broken(what);
    }
}

/// The bytes that decide about one run, taken from the front; behind the last one come zeros.
class Input {
  public:
    Input(const std::uint8_t* bytes, std::size_t size) : _next(bytes), _end(bytes + size) {}

    bool isEmpty() const { return _next == _end; }

    std::uint8_t byte() { return isEmpty() ? std::uint8_t{0} : *_next++; }
    bool flag() { return (byte() & 1U) != 0; }
    /// 0 … limit - 1, for a limit up to 256.
    unsigned below(unsigned limit) { return byte() % limit; }
    unsigned long number() {
        unsigned long value = 0;
        for (int count = 0; count < 8; ++count) {
            value = value << 8U | byte();
        }
        return value;
    }
    /// Up to so many bytes, as many as a byte says.
    std::string text(std::size_t most) {
        const std::size_t wanted = std::min<std::size_t>(byte(), most);
        const std::size_t size = std::min(wanted, static_cast<std::size_t>(_end - _next));
        std::string taken(_next, _next + size);
        _next += size;
        return taken;
    }
    std::string rest() {
        std::string taken(_next, _end);
        _next = _end;
        return taken;
    }

  private:
    const std::uint8_t* _next;
    const std::uint8_t* _end;
};

}  // namespace Ormek::Fuzzing
