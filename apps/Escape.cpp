#include "apps/Escape.h"

#include <array>

namespace App {

namespace {

unsigned byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

/// How a lead byte restricts what follows it (RFC 3629, section 4).
struct Lead {
    unsigned first, last;  ///< Lead bytes of this row.
    std::size_t length;    ///< Of the whole character.
    unsigned secondFirst, secondLast;
};

constexpr std::array<Lead, 9> Leads{{
    {0x00, 0x7F, 1, 0, 0},
    {0xC2, 0xDF, 2, 0x80, 0xBF},
    {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF},
    {0xED, 0xED, 3, 0x80, 0x9F},
    {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF},
    {0xF1, 0xF3, 4, 0x80, 0xBF},
    {0xF4, 0xF4, 4, 0x80, 0x8F},
}};

const Lead* leadOf(unsigned byte) {
    for (const Lead& lead : Leads) {
        if (byte >= lead.first && byte <= lead.last) {
            return &lead;
        }
    }
    return nullptr;
}

/// C0, DEL and, in UTF-8, C1.
bool isControl(std::string_view character) {
    const unsigned first = byteAt(character, 0);
    if (character.size() == 2) {
        return first == 0xC2 && byteAt(character, 1) < 0xA0;
    }
    return first < 0x20 || first == 0x7F;
}

void appendEscape(std::string& text, unsigned byte) {
    constexpr std::string_view Letters = "abtnvfr";
    text += '\\';
    if (byte >= '\a' && byte <= '\r') {
        text += Letters[byte - '\a'];
        return;
    }
    for (const unsigned shift : {6U, 3U, 0U}) {
        text += static_cast<char>('0' + (byte >> shift & 7U));
    }
}

enum class Backslash { Doubled, AsItIs };

std::string escape(std::string_view name, Backslash backslash) {
    std::string text;
    text.reserve(name.size());
    while (!name.empty()) {
        const std::size_t valid = utf8Length(name);
        const std::size_t length = valid == 0 ? 1 : valid;
        const std::string_view character = name.substr(0, length);
        if (valid == 0 || isControl(character)) {
            for (std::size_t i = 0; i < length; ++i) {
                appendEscape(text, byteAt(character, i));
            }
        } else {
            if (character == "\\" && backslash == Backslash::Doubled) {
                text += '\\';
            }
            text += character;
        }
        name.remove_prefix(length);
    }
    return text;
}

}  // namespace

std::size_t utf8Length(std::string_view text) {
    const Lead* lead = text.empty() ? nullptr : leadOf(byteAt(text, 0));
    if (lead == nullptr || text.size() < lead->length) {
        return 0;
    }
    if (lead->length == 1) {
        return 1;
    }
    const unsigned second = byteAt(text, 1);
    if (second < lead->secondFirst || second > lead->secondLast) {
        return 0;
    }
    for (std::size_t i = 2; i < lead->length; ++i) {
        if ((byteAt(text, i) & 0xC0U) != 0x80U) {
            return 0;
        }
    }
    return lead->length;
}

std::string escaped(std::string_view name) { return escape(name, Backslash::Doubled); }

std::string quoted(std::string_view name) { return "'" + escaped(name) + "'"; }

std::string printable(std::string_view text) { return escape(text, Backslash::AsItIs); }

}  // namespace App
