#include "backend/EntryName.h"

#include <linux/limits.h>

#include <cstddef>

#include "backend/RandomText.h"
#include "backend/SystemError.h"

namespace Nimra {

namespace {

constexpr std::string_view TemporaryPrefix = ".ormek-";
constexpr std::string_view TemporarySuffix = ".part";
constexpr std::size_t TemporaryBytes = 16;
constexpr std::size_t TemporaryLength =
    TemporaryPrefix.size() + 2 * TemporaryBytes + TemporarySuffix.size();

[[noreturn]] void refuse(const std::string& text) { throw ServiceError(Reason::Refused, text); }

}  // namespace

void checkName(const std::string& name) {
    if (name.size() > NAME_MAX) {
        refuse("a name of " + std::to_string(name.size()) + " bytes is too long for an entry");
    }
    if (name.empty() || name == "." || name == ".." ||
        name.find_first_of(std::string_view("/\0", 2)) != std::string::npos) {
        refuse(quotedName(name) + " is not a name that an entry can have");
    }
}

void checkNewName(const std::string& name) {
    checkName(name);
    if (isTemporaryName(name)) {
        refuse("names such as " + quotedName(name) + " are kept for files under way");
    }
}

std::string makeTemporaryName() {
    return std::string(TemporaryPrefix) + randomText(TemporaryBytes) + std::string(TemporarySuffix);
}

bool isTemporaryName(std::string_view name) {
    if (name.size() != TemporaryLength || !name.starts_with(TemporaryPrefix) ||
        !name.ends_with(TemporarySuffix)) {
        return false;
    }
    const auto digits = name.substr(TemporaryPrefix.size(), 2 * TemporaryBytes);
    return digits.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace Nimra
