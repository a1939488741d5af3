#include "cache/Trace.h"

#include <charconv>
#include <cstdint>
#include <limits>

namespace Ormek {

namespace {

void writeOut(std::string_view text) {
    std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace

void TraceLine::addInPieces(std::string_view text) {
    write();
    if (text.size() > Capacity) {
        writeOut(text);
    } else {
        add(text);
    }
}

template <class Number>
void TraceLine::addDigits(Number number, int base) {
    constexpr std::size_t Longest = std::numeric_limits<unsigned long>::digits10 + 3;
    if (Capacity - _size < Longest) {
        write();
    }
    char* const begin = _buffer.data() + _size;
    char* const end = std::to_chars(begin, begin + Longest, number, base).ptr;
    _size += static_cast<std::size_t>(end - begin);
}

void TraceLine::add(unsigned long number) { addDigits(number, 10); }

void TraceLine::add(long number) { addDigits(number, 10); }

void TraceLine::add(const void* pointer) {
    if (!pointer) {
        add("0");
        return;
    }
    add("0x");
    addDigits(reinterpret_cast<std::uintptr_t>(pointer), 16);
}

void TraceLine::write() {
    if (_size != 0) {
        writeOut({_buffer.data(), _size});
        _size = 0;
    }
}

}  // namespace Ormek
