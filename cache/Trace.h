#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>

namespace Ormek {

/// One trace line under construction, in a local buffer. A text that does not fit goes out in
/// further writes; nothing is allocated. Numbers are plain decimal whatever the stream's locale
/// and flags are.
class TraceLine {
  public:
    void add(std::string_view text) {
        if (text.size() > Capacity - _size) {
            addInPieces(text);
            return;
        }
        // Never null: a text of no length may lie nowhere.
        std::memcpy(_buffer.data() + _size, text.empty() ? "" : text.data(), text.size());
        _size += text.size();
    }
    void add(const char* text) { add(std::string_view(text)); }
    void add(unsigned long number);
    void add(long number);
    void add(unsigned int number) { add(static_cast<unsigned long>(number)); }
    void add(int number) { add(static_cast<long>(number)); }
    /// As the stream prints it: hexadecimal, "0" for null.
    void add(const void* pointer);
    void write();
    /// Appends what has not been written to a text instead.
    void moveTo(std::string& text) {
        text.append(_buffer.data(), _size);
        _size = 0;
    }

  private:
    static constexpr std::size_t Capacity = 512;

    void addInPieces(std::string_view text);
    template <class Number>
    void addDigits(Number number, int base);

    std::array<char, Capacity> _buffer;
    std::size_t _size = 0;
};

/// Whether anybody reads the trace. Asked first where making the pieces of a line costs something.
inline bool tracing() { return !std::cout.fail(); }

/// Writes one line made of `pieces` to std::cout, or does nothing when that has failed.
template <class... Pieces>
void trace(const Pieces&... pieces) {
    if (!tracing()) {
        return;
    }
    TraceLine line;
    (line.add(pieces), ...);
    line.write();
}

/// The same, and flushes the stream.
template <class... Pieces>
void traceAndFlush(const Pieces&... pieces) {
    trace(pieces...);
    if (tracing()) {
        std::cout.flush();
    }
}

}  // namespace Ormek
