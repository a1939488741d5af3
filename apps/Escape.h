#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace App {

/// The length in bytes of the UTF-8 character that `text` starts with; 0 when it starts with none.
/// Overlong forms, surrogates and what lies beyond U+10FFFF are not characters.
std::size_t utf8Length(std::string_view text);

/// A name as one line of valid UTF-8 that says every byte of it: control characters, backslashes
/// and bytes that are not UTF-8 are escaped as in C, by a letter where C has one, else by three
/// octal digits.
std::string escaped(std::string_view name);

/// The same between single quotes, as names stand in sentences.
std::string quoted(std::string_view name);

/// A text that may have escaped names in it, as one such line: its backslashes stay as they are.
std::string printable(std::string_view text);

}  // namespace App
