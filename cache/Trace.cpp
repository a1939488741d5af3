#include "cache/Trace.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>

namespace Ormek {

namespace {

using NumberBuffer = std::array<char, std::numeric_limits<unsigned long>::digits10 + 3>;

template <class Number>
std::string_view digits(NumberBuffer& buffer, Number number, int base) {
    char* const begin = buffer.data();
    const char* const end = std::to_chars(begin, begin + buffer.size(), number, base).ptr;
    return {begin, static_cast<std::size_t>(end - begin)};
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
    std::memcpy(_buffer.data() + _size, text.data(), text.size());
    _size += text.size();
}

void TraceLine::add(unsigned long number) {
    NumberBuffer buffer;
    add(digits(buffer, number, 10));
}

void TraceLine::add(long number) {
    NumberBuffer buffer;
    add(digits(buffer, number, 10));
}

void TraceLine::add(const void* pointer) {
    if (!pointer) {
        add("0");
        return;
    }
    NumberBuffer buffer;
    add("0x");
    add(digits(buffer, reinterpret_cast<std::uintptr_t>(pointer), 16));
}

void TraceLine::write() {
    if (_size != 0) {
        writeOut({_buffer.data(), _size});
        _size = 0;
    }
}

}  // namespace Ormek
