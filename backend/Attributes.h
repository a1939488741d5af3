#pragma once

#include <string>
#include <utility>

#include "service/KeyValues.h"

namespace Nimra {

/// How the calls for extended attributes treat a path that is a symbolic link.
enum class Links { Followed, NotFollowed };

/// The key values that the extended attributes of an entry in the user. namespace of xattr(7) make,
/// without "user."; those that may not be read are left out. `error` is 0 if they could be had: a
/// file system without attributes is no failure, nor is an entry that shows none or has more than
/// the system can tell.
struct ReadAttributes {
    KeyValues values = {};
    int error = 0;
};
ReadAttributes readAttributes(const std::string& path, Links links);
/// Whether there are any, and the error.
std::pair<bool, int> lookForAttributes(const std::string& path);

/// Gives an open entry the key values as extended attributes in the user. namespace of xattr(7),
/// and leaves all others that it has as they are; the flags have no counterpart. Returns the key
/// values that it has then, the flags false. The descriptor may be one that was opened with O_PATH.
/// `text` names the entry in errors. Throws ServiceError; the attributes of the key values are then
/// what they were before, unless even that cannot be written.
KeyValues writeAttributes(int fd, const KeyValues& values, const std::string& text);

}  // namespace Nimra
