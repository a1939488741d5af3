#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Ormek::Testing {

/// Names that have broken scripts before.
extern const std::vector<std::string> AwkwardNames;

/// The names in a folder, sorted.
std::vector<std::string> namesIn(const std::filesystem::path& folder);
std::string contentOf(const std::filesystem::path& file);
/// Bytes of every value, in no order; the same for the same size and seed.
std::string randomBytes(std::size_t size, unsigned long seed = 1);

/// The parts of a text that has a NUL at the end of each.
std::vector<std::string> splitAtNuls(const std::string& text);
/// A name as one word of a command.
std::string word(const std::string& name);

}  // namespace Ormek::Testing
