#include "backend/FileStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "backend/Attributes.h"
#include "backend/SystemError.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

namespace {

std::string nameOf(const FileDescriptor& fd) { return "/proc/self/fd/" + std::to_string(fd.get()); }

struct statx statusOf(const FileDescriptor& fd, const std::string& text) {
    struct statx status {};
    if (statx(fd.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) {
        throw systemError(errno, "cannot look at " + text);
    }
    return status;
}

/// Opening a device can have an effect and opening a pipe can wait for ever, so the entry is looked
/// at before it is opened, and cannot be exchanged in between.
FileDescriptor openForReading(const OpenFolder& folder, const std::string& name) {
    const FileDescriptor entry = folder.pin(name);
    if (!S_ISREG(statusOf(entry, folder.text(name)).stx_mode)) {
        throw ServiceError(Reason::Refused, folder.text(name) + " is not a regular file");
    }
    constexpr int Flags = O_RDONLY | O_NOCTTY | O_CLOEXEC;
    const std::string path = nameOf(entry);
    FileDescriptor fd(uninterrupted([&] { return open(path.c_str(), Flags); }));
    if (!fd) {
        throw systemError(errno, "cannot open " + folder.text(name));
    }
    return fd;
}

}  // namespace

FileStream::FileStream(const OpenFolder& folder, const std::string& name)
    : _text(folder.text(name)), _fd(openForReading(folder, name)) {}

struct statx FileStream::status() const {
    return statusOf(_fd, _text);
}

KeyValues FileStream::keyValues() const {
    ReadAttributes found = readAttributes(nameOf(_fd), Links::Followed);
    if (found.error != 0) {
        throw systemError(found.error, "cannot read the attributes of " + _text);
    }
    return std::move(found.values);
}

unsigned long FileStream::size() const { return status().stx_size; }

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
