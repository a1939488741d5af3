#pragma once

#include <string>

#include "service/KeyValues.h"

namespace Nimra {

/// Makes the extended attributes that an open entry has in the user. namespace of xattr(7) those of
/// the key values and no others; the flags have no counterpart. The descriptor may be one that was
/// opened with O_PATH. `text` names the entry in errors. Throws ServiceError; the entry then has
/// what it had before, unless even that cannot be written.
void replaceAttributes(int fd, const KeyValues& values, const std::string& text);

}  // namespace Nimra
