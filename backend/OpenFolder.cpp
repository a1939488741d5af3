#include "backend/OpenFolder.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "backend/SystemError.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

namespace {

constexpr std::string_view UserNamespace = "user.";

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

/// Calls `visit` with each user attribute in a list of names as listxattr(2) gives it, until it
/// returns false.
template <class Visit>
void visitUserAttributes(std::string_view list, Visit visit) {
    while (!list.empty()) {
        const std::string_view name = list.substr(0, list.find('\0'));
        if (name.starts_with(UserNamespace) && !visit(name)) {
            return;
        }
        list.remove_prefix(std::min(name.size() + 1, list.size()));
    }
}

/// The names of an entry's attributes; they lie in `buffer`, which by xattr(7) is always large
/// enough. A file system without attributes is no failure, nor is an entry that shows none or has
/// more than the system can tell.
struct AttributeNames {
    explicit AttributeNames(const std::string& path) {
        const ssize_t size = llistxattr(path.c_str(), buffer.data(), buffer.size());
        if (size >= 0) {
            list = {buffer.data(), static_cast<std::size_t>(size)};
        } else if (errno != ENOTSUP && errno != EACCES && errno != EPERM && errno != E2BIG) {
            error = errno;
        }
    }

    std::array<char, XATTR_LIST_MAX> buffer;
    std::string_view list;
    int error = 0;
};

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
    const AttributeNames names(attributePath(name));
    if (isGone(names.error)) {
        return std::nullopt;
    }
    if (isUntold(names.error)) {
        return false;
    }
    if (names.error != 0) {
        throw systemError(names.error, "cannot list the attributes of " + text(name));
    }
    bool any = false;
    visitUserAttributes(names.list, [&any](std::string_view) {
        any = true;
        return false;
    });
    return any;
}

std::optional<KeyValues> OpenFolder::attributes(const char* name) const {
    const std::string path = attributePath(name);
    const AttributeNames names(path);
    int error = names.error;
    KeyValues found;
    std::array<char, XATTR_SIZE_MAX> value;
    visitUserAttributes(names.list, [&](std::string_view attribute) {
        const ssize_t size =
            lgetxattr(path.c_str(), std::string(attribute).c_str(), value.data(), value.size());
        if (size >= 0) {
            const std::string key(attribute.substr(UserNamespace.size()));
            found[key] = {std::string(value.data(), static_cast<std::size_t>(size)), false};
            return true;
        }
        // Removed since it was listed, or not for us to read.
        if (errno == ENODATA || errno == EACCES || errno == EPERM) {
            return true;
        }
        error = errno;
        return false;
    });
    if (isGone(error)) {
        return std::nullopt;
    }
    if (error != 0) {
        throw systemError(error, "cannot read the attributes of " + text(name));
    }
    return found;
}

std::string OpenFolder::text() const { return quotedName(_path.empty() ? "." : _path); }

std::string OpenFolder::text(std::string_view name) const {
    return quotedName(_path.empty() ? std::string(name) : _path + '/' + std::string(name));
}

}  // namespace Nimra
