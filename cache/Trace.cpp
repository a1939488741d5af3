#include "cache/Trace.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>

namespace Ormek {

namespace {

constexpr std::size_t NumberLength = std::numeric_limits<unsigned long>::digits10 + 3;

template <class Number>
std::string_view digits(char (&buffer)[NumberLength], Number number, int base) {
    const auto end = std::to_chars(buffer, buffer + NumberLength, number, base).ptr;
    return {buffer, static_cast<std::size_t>(end - buffer)};
}

void writeOut(std::string_view text) {
    std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace

void TraceLine::add(std::string_view text) {
    if (text.size() > Capacity - _size) {
        write();
    }
    if (text.size() > Capacity) {
        writeOut(text);
        return;
    }
    if (text.empty()) {
        return;
    }
    std::memcpy(_buffer + _size, text.data(), text.size());
    _size += text.size();
}

void TraceLine::add(unsigned long number) {
    char buffer[NumberLength];
    add(digits(buffer, number, 10));
}

void TraceLine::add(long number) {
    char buffer[NumberLength];
    add(digits(buffer, number, 10));
}

void TraceLine::add(const void* pointer) {
    if (!pointer) {
        add("0");
        return;
    }
    char buffer[NumberLength];
    add("0x");
    add(digits(buffer, reinterpret_cast<std::uintptr_t>(pointer), 16));
}

void TraceLine::write() {
    if (_size != 0) {
        writeOut({_buffer, _size});
        _size = 0;
    }
}

}  // namespace Ormek
