#pragma once

#include <ios>
#include <iostream>
#include <streambuf>

namespace Ormek::Testing {

/// Takes what is written to std::cout during its life, and drops it without an allocation.
class SilentOutput {
  public:
    /// With a stream in a failed state nothing is even written.
    explicit SilentOutput(std::ios_base::iostate state = std::ios_base::goodbit)
        : _previousState(std::cout.rdstate()), _previous(std::cout.rdbuf(&_sink)) {
        std::cout.setstate(state);
    }
    SilentOutput(const SilentOutput&) = delete;
    SilentOutput& operator=(const SilentOutput&) = delete;
    ~SilentOutput() {
        std::cout.rdbuf(_previous);
        std::cout.clear(_previousState);
    }

  private:
    class Sink : public std::streambuf {
        std::streamsize xsputn(const char*, std::streamsize size) override { return size; }
        int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    };

    Sink _sink;
    std::ios_base::iostate _previousState;
    std::streambuf* _previous;
};

}  // namespace Ormek::Testing
