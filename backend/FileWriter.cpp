#include "backend/FileWriter.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

#include "backend/Attributes.h"
#include "backend/Durability.h"
#include "backend/EntryName.h"
#include "backend/SystemError.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

namespace {

constexpr mode_t Mode = 0666;

/// The descriptor is -1 where the file system has no files without a name.
FileDescriptor openNameless(const OpenFolder& folder) {
    constexpr int Flags = O_TMPFILE | O_RDWR | O_CLOEXEC;
    FileDescriptor fd(uninterrupted([&] { return openat(folder.fd(), ".", Flags, Mode); }));
    // Some file systems say EPERM of a folder that was removed.
    if (!fd && errno == EPERM && folder.status().stx_nlink == 0) {
        errno = ENOENT;
    }
    const bool unsupported = errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL;
    if (!fd && !unsupported) {
        throw systemError(errno, "cannot create a file in the folder " + folder.text());
    }
    return fd;
}

struct CloseListing {
    void operator()(DIR* listing) const { closedir(listing); }
};

/// Whether that lock of a file could be had.
bool lock(const FileDescriptor& file, int kind) {
    return uninterrupted([&] { return flock(file.get(), kind | LOCK_NB); }) == 0;
}

/// Whether an entry is a file that was changed last before that time.
bool isOldFile(const OpenFolder& folder, const char* name, std::time_t before) {
    struct statx status {};
    const int error = folder.status(name, status);
    if (error != 0 && !isGone(error)) {
        throw systemError(error, "cannot look at " + folder.text(name));
    }
    return error == 0 && S_ISREG(status.stx_mode) && status.stx_mtime.tv_sec < before;
}

/// Whether nobody holds the lock of a file. What may not be opened counts as held.
bool isAbandoned(const OpenFolder& folder, const char* name) {
    constexpr int Flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const FileDescriptor fd(uninterrupted([&] { return openat(folder.fd(), name, Flags); }));
    // The lock that a file takes which is open for reading, also where flock(2) is made of
    // fcntl(2).
    if (fd && lock(fd, LOCK_SH)) {
        return true;
    }
    const bool held = fd ? errno == EWOULDBLOCK : reasonOf(errno) != Reason::Internal;
    if (!held) {
        throw systemError(errno, "cannot tell whether " + folder.text(name) + " is being written");
    }
    return false;
}

void removeIfAbandoned(const OpenFolder& folder, const char* name) {
    if (isAbandoned(folder, name) && unlinkat(folder.fd(), name, 0) != 0 && !isGone(errno)) {
        throw systemError(errno, "cannot remove " + folder.text(name));
    }
}

}  // namespace

FileWriter::FileWriter(const OpenFolder& folder, std::string name, Staging staging)
    : _folder(folder), _name(std::move(name)) {
    if (staging == Staging::NamelessIfPossible) {
        _fd = openNameless(folder);
    }
    if (!_fd) {
        openNamed();
    }
}

FileWriter::~FileWriter() {
    if (!_temporaryName.empty()) {
        unlinkat(_folder.fd(), _temporaryName.c_str(), 0);
    }
}

void FileWriter::openNamed() {
    std::string name = makeTemporaryName();
    constexpr int Flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    _fd = FileDescriptor(
        uninterrupted([&] { return openat(_folder.fd(), name.c_str(), Flags, Mode); }));
    if (!_fd) {
        throw failure(errno);
    }
    _temporaryName = std::move(name);
    // Without a lock it could at worst be taken for abandoned; publishing it would fail then.
    lock(_fd, LOCK_EX);
}

void FileWriter::write(const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = uninterrupted([&] { return ::write(_fd.get(), data, size); });
        if (written < 0) {
            throw failure(errno);
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

void FileWriter::setAttributes(const KeyValues& values) {
    writeAttributes(_fd.get(), values, _folder.text(_name));
}

struct statx FileWriter::status() const {
    struct statx status {};
    if (statx(_fd.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) {
        throw failure(errno);
    }
    return status;
}

void FileWriter::publish() {
    if (uninterrupted([this] { return fsync(_fd.get()); }) != 0) {
        throw failure(errno);
    }
    giveName();
    _temporaryName.clear();
    makeDurable(_folder.fd(), _fd.get());
}

void FileWriter::giveName() {
    const int error = _temporaryName.empty() ? linkNameless() : renameTemporary();
    if (error != 0) {
        throw namingError(error, "cannot create " + _folder.text(_name));
    }
}

// Each of these calls fails where the name is taken.

int FileWriter::linkNameless() const {
    const std::string self = "/proc/self/fd/" + std::to_string(_fd.get());
    return linkat(AT_FDCWD, self.c_str(), _folder.fd(), _name.c_str(), AT_SYMLINK_FOLLOW) == 0
               ? 0
               : errno;
}

int FileWriter::renameTemporary() const {
    if (renameat2(_folder.fd(), _temporaryName.c_str(), _folder.fd(), _name.c_str(),
                  RENAME_NOREPLACE) == 0) {
        return 0;
    }
    const bool unsupported = errno == EINVAL || errno == ENOSYS;
    return unsupported ? linkTemporary() : errno;
}

int FileWriter::linkTemporary() const {
    if (linkat(_folder.fd(), _temporaryName.c_str(), _folder.fd(), _name.c_str(), 0) != 0) {
        // So says a file system without hard links, though nobody lacks a permission.
        return errno == EPERM ? EINVAL : errno;
    }
    // One that stays counts as left behind.
    unlinkat(_folder.fd(), _temporaryName.c_str(), 0);
    return 0;
}

ServiceError FileWriter::failure(int error) const {
    return systemError(error, "cannot create " + _folder.text(_name));
}

void removeAbandonedFiles(const OpenFolder& folder, std::time_t before) {
    constexpr int Flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    FileDescriptor fd(uninterrupted([&] { return openat(folder.fd(), ".", Flags); }));
    const std::unique_ptr<DIR, CloseListing> listing(fd ? fdopendir(fd.get()) : nullptr);
    if (!listing) {
        throw systemError(errno, "cannot read the folder " + folder.text());
    }
    // The listing closes its descriptor itself.
    fd.release();
    const auto next = [&listing] {
        errno = 0;
        return readdir64(listing.get());
    };
    while (const dirent64* entry = next()) {
        if (isTemporaryName(entry->d_name) && isOldFile(folder, entry->d_name, before)) {
            removeIfAbandoned(folder, entry->d_name);
        }
    }
    if (errno != 0) {
        throw systemError(errno, "cannot read the folder " + folder.text());
    }
}

}  // namespace Nimra
