#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace Ormek::Testing {

/// A text with every address in it replaced by "<address>".
std::string withoutAddresses(std::string text);

/// Records what is written to std::cout during its life.
class TraceCapture {
  public:
    TraceCapture() : _previous(std::cout.rdbuf(_text.rdbuf())) {}
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;
    ~TraceCapture() { std::cout.rdbuf(_previous); }

    /// All of it since the start or the last clear(), byte by byte.
    std::string text() const { return _text.str(); }
    std::string normalised() const { return withoutAddresses(text()); }
    void clear() { _text.str(""); }

  private:
    std::ostringstream _text;
    std::streambuf* _previous;
};

/// A pointer as the trace prints it: "0" for null.
inline std::string address(const void* pointer) {
    std::ostringstream text;
    text << pointer;
    return text.str();
}

}  // namespace Ormek::Testing
