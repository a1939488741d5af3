#pragma once

#include <string>
#include <string_view>

#include "service/ServiceError.h"

namespace Nimra {

/// What an error number of a system call means to whoever asked a service.
Reason reasonOf(int error);

/// The failure of a system call: "<what>: <the system's text for the error number>".
ServiceError systemError(int error, const std::string& what);

/// The same for a call that gives an entry a name, or asks for one. EINVAL and ENOSYS are then said
/// by a file system that has no such names or cannot tell whether it overwrites, and of a folder
/// that is to be put below itself: Reason::Refused.
ServiceError namingError(int error, const std::string& what);

/// A file name of any bytes between quotes, safe to print: what is not printable UTF-8, the quote
/// and the backslash are escaped as in a C string.
std::string quotedName(std::string_view name);

}  // namespace Nimra
