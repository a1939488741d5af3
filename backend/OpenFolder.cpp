#include "backend/OpenFolder.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "backend/Attributes.h"
#include "backend/SystemError.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

namespace {

FileDescriptor openBeneath(int folder, const std::string& path, unsigned flags) {
    open_how how{};
    how.flags = flags | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    const long fd =
        uninterrupted([&] { return syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how); });
    return FileDescriptor(static_cast<int>(fd));
}

/// The kernel takes no path of PATH_MAX bytes or more; a longer one is walked in several steps.
FileDescriptor openStepwise(int root, std::string_view path, unsigned flags) {
    FileDescriptor step;
    int base = root;
    while (path.size() >= PATH_MAX) {
        const std::size_t end = path.rfind('/', PATH_MAX - 1);
        if (end == std::string_view::npos) {
            errno = ENAMETOOLONG;
            return FileDescriptor();
        }
        step = openBeneath(base, std::string(path.substr(0, end)), O_PATH);
        if (!step) {
            return step;
        }
        base = step.get();
        path.remove_prefix(end + 1);
    }
    return openBeneath(base, path.empty() ? "." : std::string(path), flags);
}

}  // namespace

EntryKind kindOf(const struct statx& status) {
    return S_ISDIR(status.stx_mode) ? EntryKind::Folder : EntryKind::Document;
}

bool isGone(int error) { return reasonOf(error) == Reason::NotFound; }

bool isUntold(int error) { return error == EACCES || reasonOf(error) == Reason::NotReachable; }

OpenFolder::OpenFolder(const FileDescriptor& root, std::string path, Purpose purpose)
    : _path(std::move(path)),
      _fd(openStepwise(root.get(), _path, purpose == Purpose::Reading ? O_RDONLY : O_PATH)) {
    if (!_fd) {
        throw systemError(errno, "cannot open the folder " + text());
    }
}

struct statx OpenFolder::status() const {
    struct statx status {};
    if (statx(_fd.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) {
        throw systemError(errno, "cannot look at the folder " + text());
    }
    return status;
}

bool OpenFolder::isSameAs(const OpenFolder& other) const {
    const struct statx one = status();
    const struct statx two = other.status();
    return one.stx_ino == two.stx_ino && one.stx_dev_major == two.stx_dev_major &&
           one.stx_dev_minor == two.stx_dev_minor;
}

int OpenFolder::status(const char* name, struct statx& status) const {
    const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
    return statx(_fd.get(), name, flags, STATX_BASIC_STATS | STATX_BTIME, &status) == 0 ? 0 : errno;
}

/// The attribute calls take no descriptor of a folder, and opening the entry instead would need the
/// permission to read it and could block; so they go through the descriptor's name in proc(5).
std::string OpenFolder::attributePath(const char* name) const {
    return "/proc/self/fd/" + std::to_string(_fd.get()) + '/' + name;
}

std::optional<bool> OpenFolder::hasAttributes(const char* name) const {
    const auto [any, error] = lookForAttributes(attributePath(name));
    if (isGone(error)) {
        return std::nullopt;
    }
    if (error != 0 && !isUntold(error)) {
        throw systemError(error, "cannot list the attributes of " + text(name));
    }
    return any;
}

std::optional<KeyValues> OpenFolder::attributes(const char* name) const {
    ReadAttributes found = readAttributes(attributePath(name), Links::NotFollowed);
    if (isGone(found.error)) {
        return std::nullopt;
    }
    if (found.error != 0) {
        throw systemError(found.error, "cannot read the attributes of " + text(name));
    }
    return std::move(found.values);
}

FileDescriptor OpenFolder::pin(const std::string& name) const {
    constexpr int Flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    FileDescriptor entry(uninterrupted([&] { return openat(fd(), name.c_str(), Flags); }));
    if (!entry) {
        throw systemError(errno, "cannot open " + text(name));
    }
    return entry;
}

std::string OpenFolder::text() const { return quotedName(_path.empty() ? "." : _path); }

std::string OpenFolder::text(std::string_view name) const {
    return quotedName(_path.empty() ? std::string(name) : _path + '/' + std::string(name));
}

}  // namespace Nimra
