#pragma once

#include <cstddef>

namespace Nimra {

/// What an upload sends: read once, from its beginning, in pieces, so that content of any size
/// needs little memory. Whoever carries out the upload owns it and reads it on a thread of its own;
/// it is destroyed with its operation, on the thread that collects the answers.
class ContentSource {
  public:
    ContentSource() = default;
    ContentSource(const ContentSource&) = delete;
    ContentSource& operator=(const ContentSource&) = delete;
    virtual ~ContentSource() = default;

    /// Number of bytes in all; 0 when that is not known beforehand. One that is known is a promise:
    /// content of another size fails the upload.
    virtual unsigned long size() const = 0;
    /// Puts up to `size` of the next bytes, at least one, into `buffer` and returns how many; 0 at
    /// the end. Throws ServiceError when they cannot be had.
    virtual std::size_t read(char* buffer, std::size_t size) = 0;
};

}  // namespace Nimra
