#include "apps/OutputBuffer.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace App {

OutputBuffer::OutputBuffer(int fd) : _fd(fd) { setp(_bytes.begin(), _bytes.end()); }

OutputBuffer::~OutputBuffer() { OutputBuffer::sync(); }

OutputBuffer::int_type OutputBuffer::overflow(int_type character) {
    if (sync() != 0) {
        return traits_type::eof();
    }
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
        sputc(traits_type::to_char_type(character));
    }
    return traits_type::not_eof(character);
}

int OutputBuffer::sync() {
    const bool written = write(pbase(), static_cast<std::size_t>(pptr() - pbase()));
    setp(_bytes.begin(), _bytes.end());
    return written ? 0 : -1;
}

bool OutputBuffer::write(const char* bytes, std::size_t count) {
    while (_error == 0 && count != 0) {
        const ssize_t written = ::write(_fd, bytes, count);
        if (written >= 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        } else if (errno == EAGAIN) {
            // Somebody who shares the terminal or pipe made it non-blocking.
            pollfd writable{_fd, POLLOUT, 0};
            ::poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            _error = errno;
        }
    }
    return _error == 0;
}

}  // namespace App
