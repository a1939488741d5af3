#pragma once

#include <string>
#include <string_view>

#include "service/ServiceError.h"

namespace Nimra {

/// What an error number of a system call means to whoever asked a service.
Reason reasonOf(int error);

/// The failure of a system call: "<what>: <the system's text for the error number>".
ServiceError systemError(int error, const std::string& what);

/// A file name of any bytes between quotes, safe to print: what is not printable UTF-8, the quote
/// and the backslash are escaped as in a C string.
std::string quotedName(std::string_view name);

}  // namespace Nimra
