#include "backend/FileStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "backend/SystemError.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

namespace {

ServiceError notAFile(const std::string& text) {
    return {Reason::Refused, text + " is not a regular file"};
}

/// Opening a device can have an effect, so the kind is looked at first.
void checkIsFile(const OpenFolder& folder, const std::string& name) {
    struct statx status {};
    if (const int error = folder.status(name.c_str(), status)) {
        throw systemError(error, "cannot look at " + folder.text(name));
    }
    if (!S_ISREG(status.stx_mode)) {
        throw notAFile(folder.text(name));
    }
}

FileDescriptor openForReading(const OpenFolder& folder, const std::string& name) {
    checkIsFile(folder, name);
    constexpr int Flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    FileDescriptor fd(uninterrupted([&] { return openat(folder.fd(), name.c_str(), Flags); }));
    if (!fd) {
        throw systemError(errno, "cannot open " + folder.text(name));
    }
    return fd;
}

}  // namespace

FileStream::FileStream(const OpenFolder& folder, const std::string& name)
    : _text(folder.text(name)), _fd(openForReading(folder, name)) {
    // It may have been exchanged since it was looked at.
    if (!S_ISREG(status().st_mode)) {
        throw notAFile(_text);
    }
}

struct stat FileStream::status() const {
    struct stat status {};
    if (fstat(_fd.get(), &status) != 0) {
        throw systemError(errno, "cannot look at " + _text);
    }
    return status;
}

unsigned long FileStream::size() const { return static_cast<unsigned long>(status().st_size); }

std::size_t FileStream::read(unsigned long offset, char* buffer, std::size_t size) const {
    constexpr auto End = static_cast<unsigned long>(std::numeric_limits<off_t>::max());
    const std::size_t wanted = std::min(size, End - std::min(offset, End));
    std::size_t filled = 0;
    while (filled < wanted) {
        const ssize_t got = uninterrupted([&] {
            return pread(_fd.get(), buffer + filled, wanted - filled,
                         static_cast<off_t>(offset + filled));
        });
        if (got < 0) {
            throw systemError(errno, "cannot read " + _text);
        }
        if (got == 0) {
            break;
        }
        filled += static_cast<std::size_t>(got);
    }
    return filled;
}

}  // namespace Nimra
