#pragma once

#include <array>
#include <streambuf>

namespace App {

/// Writes to a file descriptor, which it does not own, when it is flushed or full. After a failure
/// it writes nothing more.
class OutputBuffer : public std::streambuf {
  public:
    explicit OutputBuffer(int fd);
    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;
    ~OutputBuffer() override;

    /// The error number of the failure; 0 when there was none.
    int error() const { return _error; }

  protected:
    int_type overflow(int_type character) override;
    int sync() override;

  private:
    bool write(const char* bytes, std::size_t count);

    int _fd;
    int _error = 0;
    std::array<char, 1U << 16U> _bytes{};
};

}  // namespace App
