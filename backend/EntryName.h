#pragma once

#include <string>
#include <string_view>

namespace Nimra {

/// Refuses what cannot be the name of an entry of a folder. Throws ServiceError.
void checkName(const std::string& name);
/// The same, and refuses what a service would not list.
void checkNewName(const std::string& name);

/// A name for a file while it is written, ".ormek-<32 hexadecimal digits>.part". Throws
/// ServiceError.
std::string makeTemporaryName();
/// Whether it is such a name. Folders never list a file that has one.
bool isTemporaryName(std::string_view name);

}  // namespace Nimra
