#pragma once

#include <iostream>
#include <streambuf>

namespace Ormek::Fuzzing {

/// For its life, std::cout either takes everything and keeps nothing, or has failed.
class TraceSink {
  public:
    explicit TraceSink(bool failed) : _previous(std::cout.rdbuf(&_buffer)) {
        std::cout.clear(failed ? std::ios_base::failbit : std::ios_base::goodbit);
    }
    TraceSink(const TraceSink&) = delete;
    TraceSink& operator=(const TraceSink&) = delete;
    ~TraceSink() { std::cout.rdbuf(_previous); }

  private:
    class Buffer : public std::streambuf {
        std::streamsize xsputn(const char*, std::streamsize size) override { return size; }
        int_type overflow(int_type) override { return 0; }
    };

    Buffer _buffer;
    std::streambuf* _previous;
};

}  // namespace Ormek::Fuzzing
