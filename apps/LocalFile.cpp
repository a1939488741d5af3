#include "apps/LocalFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "apps/CommandError.h"
#include "apps/Escape.h"
#include "backend/SystemError.h"

namespace App {

namespace {

void checkIsFile(const struct stat& status, const std::string& text) {
    if (!S_ISREG(status.st_mode)) {
        throw CommandError(text + " is not a regular file");
    }
}

[[noreturn]] void fail(const std::string& text) {
    throw CommandError(text + ": " + std::generic_category().message(errno));
}

}  // namespace

// Opening a device can have an effect, so the kind is looked at first; and it may be exchanged
// before it is opened.
LocalFile::LocalFile(const std::string& path, std::shared_ptr<const std::atomic<bool>> givenUp)
    : _text(quoted(path)), _givenUp(std::move(givenUp)) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        fail(_text);
    }
    checkIsFile(status, _text);
    _fd = Nimra::FileDescriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!_fd || ::fstat(_fd.get(), &status) != 0) {
        fail(_text);
    }
    checkIsFile(status, _text);
    _size = static_cast<unsigned long>(status.st_size);
}

std::size_t LocalFile::read(char* buffer, std::size_t size) {
    while (true) {
        if (_givenUp->load()) {
            throw Nimra::ServiceError(Nimra::Reason::Refused, "the upload was given up");
        }
        const ssize_t count = ::read(_fd.get(), buffer, size);
        if (count >= 0) {
            return static_cast<std::size_t>(count);
        }
        if (errno != EINTR) {
            throw Nimra::systemError(errno, "cannot read " + _text);
        }
    }
}

}  // namespace App
