#include "tests/apps/Scratch.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace Ormek::Testing {

Scratch::Scratch(const std::string& content) : _fd(::memfd_create("scratch", MFD_CLOEXEC)) {
    if (_fd < 0 || ::write(_fd, content.data(), content.size()) < 0) {
        throw std::system_error(errno, std::generic_category(), "a file without a name");
    }
    ::lseek(_fd, 0, SEEK_SET);
}

Scratch::~Scratch() { ::close(_fd); }

std::string Scratch::content() const {
    std::string all;
    std::array<char, 4096> part{};
    ssize_t length = 0;
    while ((length = ::pread(_fd, part.data(), part.size(), static_cast<off_t>(all.size()))) > 0) {
        all.append(part.data(), static_cast<std::size_t>(length));
    }
    return all;
}

}  // namespace Ormek::Testing
