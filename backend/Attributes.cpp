#include "backend/Attributes.h"

#include <linux/limits.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <string_view>
#include <vector>

#include "backend/SystemError.h"

namespace Nimra {

namespace {

constexpr std::string_view UserNamespace = "user.";

/// Full names and values.
using Attributes = std::map<std::string, std::string>;

ServiceError attributeError(int error, const std::string& what) {
    if (error == ENOTSUP) {
        return {Reason::Refused, what + ": its file system keeps no attributes"};
    }
    if (error == E2BIG || error == ERANGE || error == EINVAL) {
        return {Reason::Refused, what + ": " + "its file system does not take it"};
    }
    return systemError(error, what);
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

/// The names of an entry's attributes as listxattr(2) or llistxattr(2) gives them; they lie in
/// `buffer`, which by xattr(7) is always large enough.
struct AttributeNames {
    AttributeNames(const std::string& path, decltype(&listxattr) call) {
        const ssize_t size = call(path.c_str(), buffer.data(), buffer.size());
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

/// An open entry by the name that proc(5) gives it: the calls that take a descriptor want one that
/// is open for reading or writing.
class AttributeHolder {
  public:
    AttributeHolder(int fd, std::string text)
        : _path("/proc/self/fd/" + std::to_string(fd)), _text(std::move(text)) {}

    Attributes read() const;
    void set(const std::string& name, const std::string& value) const {
        if (setxattr(_path.c_str(), name.c_str(), value.data(), value.size(), 0) != 0) {
            throw attributeError(errno,
                                 "cannot write the attribute " + quotedName(name) + " of " + _text);
        }
    }
    void remove(const std::string& name) const {
        if (removexattr(_path.c_str(), name.c_str()) != 0 && errno != ENODATA) {
            throw attributeError(
                errno, "cannot remove the attribute " + quotedName(name) + " of " + _text);
        }
    }

  private:
    std::string _path;
    std::string _text;
};

Attributes AttributeHolder::read() const {
    std::array<char, XATTR_LIST_MAX> list;
    const ssize_t size = listxattr(_path.c_str(), list.data(), list.size());
    if (size < 0 && errno != ENOTSUP) {
        throw attributeError(errno, "cannot list the attributes of " + _text);
    }
    std::string_view names(list.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
    std::vector<char> value(XATTR_SIZE_MAX);
    Attributes found;
    while (!names.empty()) {
        const std::string name(names.substr(0, names.find('\0')));
        names.remove_prefix(name.size() + 1);
        if (!name.starts_with(UserNamespace)) {
            continue;
        }
        const ssize_t length = getxattr(_path.c_str(), name.c_str(), value.data(), value.size());
        if (length >= 0) {
            found[name].assign(value.data(), static_cast<std::size_t>(length));
        } else if (errno != ENODATA) {
            throw attributeError(errno, "cannot read the attributes of " + _text);
        }
    }
    return found;
}

/// Puts back what was changed. Removes first: there may be room for the old ones only without the
/// new.
void restore(const AttributeHolder& holder, const Attributes& changes,
             const Attributes& before) noexcept {
    try {
        for (const auto& [name, value] : changes) {
            if (!before.contains(name)) {
                holder.remove(name);
            }
        }
        for (const auto& [name, value] : changes) {
            if (const auto known = before.find(name); known != before.end()) {
                holder.set(name, known->second);
            }
        }
    } catch (...) {
        // What made this necessary is what the caller hears of.
    }
}

Attributes attributesOf(const KeyValues& values) {
    Attributes wanted;
    for (const auto& [key, value] : values) {
        const std::string name = std::string(UserNamespace) + key;
        if (key.empty() || name.size() > XATTR_NAME_MAX || key.find('\0') != std::string::npos) {
            throw ServiceError(Reason::Refused, quotedName(key) + " cannot be a key of metadata");
        }
        wanted[name] = value.first;
    }
    return wanted;
}

KeyValues keyValuesOf(const Attributes& attributes) {
    KeyValues values;
    for (const auto& [name, value] : attributes) {
        values[name.substr(UserNamespace.size())] = {value, false};
    }
    return values;
}

}  // namespace

ReadAttributes readAttributes(const std::string& path, Links links) {
    const auto list = links == Links::Followed ? listxattr : llistxattr;
    const auto get = links == Links::Followed ? getxattr : lgetxattr;
    const AttributeNames names(path, list);
    ReadAttributes found{.error = names.error};
    std::array<char, XATTR_SIZE_MAX> value;
    visitUserAttributes(names.list, [&](std::string_view attribute) {
        const ssize_t size =
            get(path.c_str(), std::string(attribute).c_str(), value.data(), value.size());
        if (size >= 0) {
            const std::string key(attribute.substr(UserNamespace.size()));
            found.values[key] = {std::string(value.data(), static_cast<std::size_t>(size)), false};
            return true;
        }
        // Removed since it was listed, or not for us to read.
        if (errno == ENODATA || errno == EACCES || errno == EPERM) {
            return true;
        }
        found.error = errno;
        return false;
    });
    return found;
}

std::pair<bool, int> lookForAttributes(const std::string& path) {
    const AttributeNames names(path, llistxattr);
    bool any = false;
    visitUserAttributes(names.list, [&any](std::string_view) {
        any = true;
        return false;
    });
    return {any, names.error};
}

KeyValues writeAttributes(int fd, const KeyValues& values, const std::string& text) {
    Attributes changes = attributesOf(values);
    const AttributeHolder holder(fd, text);
    const Attributes before = holder.read();
    Attributes after = changes;
    after.insert(before.begin(), before.end());
    KeyValues result = keyValuesOf(after);
    std::erase_if(changes, [&](const auto& change) {
        const auto known = before.find(change.first);
        return known != before.end() && known->second == change.second;
    });
    try {
        for (const auto& [name, value] : changes) {
            holder.set(name, value);
        }
    } catch (...) {
        restore(holder, changes, before);
        throw;
    }
    return result;
}

}  // namespace Nimra
