#pragma once

#include <cstddef>
#include <string>

namespace Nimra {

/// Hexadecimal digits of as many bytes that nobody can foretell. Throws ServiceError.
std::string randomText(std::size_t bytes);

}  // namespace Nimra
