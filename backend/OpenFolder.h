#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>

#include "backend/FileDescriptor.h"
#include "backend/FolderEntry.h"
#include "service/KeyValues.h"

namespace Nimra {

/// One folder below a root, held open, so that its entries are reached as they are in this very
/// folder whatever becomes of its path. It is opened from the root's descriptor by openat2(2),
/// which follows no symbolic link and never leaves the root; its entries are reached by their names
/// alone, and never followed either. Entry names must be single names: no '/', not "." or "..".
class OpenFolder {
  public:
    /// Reading needs the permission to read the folder, looking up the one to search it.
    enum class Purpose { Reading, LookingUp };

    /// `path` is relative to the root, its names joined by '/', of any length; empty for the root
    /// itself. Throws ServiceError when the folder cannot be opened.
    OpenFolder(const FileDescriptor& root, std::string path, Purpose purpose);

    int fd() const { return _fd.get(); }

    /// The folder's own status. Throws ServiceError.
    struct statx status() const;
    /// The status of an entry; 0 or an error number.
    int status(const char* name, struct statx& status) const;

    /// Whether this is the very same folder. Throws ServiceError.
    bool isSameAs(const OpenFolder& other) const;

    /// Whether an entry has extended attributes of the user's, the user. namespace of xattr(7).
    /// Not if nothing can be told about it; empty when there is no such entry any more. Throws
    /// ServiceError.
    std::optional<bool> hasAttributes(const char* name) const;
    /// These attributes, without "user."; those that may not be read are left out. Empty when there
    /// is no such entry any more. Throws ServiceError.
    std::optional<KeyValues> attributes(const char* name) const;

    /// An entry, not followed and not opened in the sense of a device or a pipe. Throws
    /// ServiceError.
    FileDescriptor pin(const std::string& name) const;

    /// The folder as error texts name it, and an entry of it.
    std::string text() const;
    std::string text(std::string_view name) const;

  private:
    std::string attributePath(const char* name) const;

    std::string _path;
    FileDescriptor _fd;
};

/// The kind of an entry of this status.
EntryKind kindOf(const struct statx& status);

/// Whether this error of looking at an entry says that it is not there.
bool isGone(int error);
/// Whether it says that nothing can be told about an entry that is there: its folder may be read
/// but not searched, or a file system that was mounted on it has died.
bool isUntold(int error);

}  // namespace Nimra
