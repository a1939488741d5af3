#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace App {

/// Splits a line into words as a shell does: words are separated by blanks; a backslash takes the
/// next character as it is; '…' takes everything; in "…" a backslash takes effect before " \ $ `
/// only; $'…' has the escapes of C, \n, \033 and \xe9 among them, so that any name can be typed on
/// one line. Nothing else is special. Throws CommandError for what is left open.
std::vector<std::string> splitWords(std::string_view line);

}  // namespace App
