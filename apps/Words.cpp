#include "apps/Words.h"

#include "apps/CommandError.h"

namespace App {

namespace {

constexpr std::string_view Blanks = " \t\r\n";

class Splitter {
  public:
    explicit Splitter(std::string_view line) : _line(line) {}

    std::vector<std::string> split() {
        std::vector<std::string> words;
        while (skipBlanks()) {
            words.push_back(word());
        }
        return words;
    }

  private:
    bool atEnd() const { return _next == _line.size(); }
    bool at(char wanted) const { return !atEnd() && _line[_next] == wanted; }
    char take(const char* unfinished) {
        if (atEnd()) {
            throw CommandError(unfinished);
        }
        return _line[_next++];
    }

    bool skipBlanks() {
        _next = std::min(_line.find_first_not_of(Blanks, _next), _line.size());
        return !atEnd();
    }

    std::string word() {
        std::string text;
        while (!atEnd() && Blanks.find(_line[_next]) == std::string_view::npos) {
            const char character = _line[_next++];
            if (character == '\\') {
                text += take("a backslash ends the line");
            } else if (character == '\'') {
                singleQuoted(text);
            } else if (character == '"') {
                doubleQuoted(text);
            } else if (character == '$' && at('\'')) {
                ++_next;
                escapeQuoted(text);
            } else {
                text += character;
            }
        }
        return text;
    }

    void singleQuoted(std::string& text) {
        while (true) {
            const char character = take("a ' is not closed");
            if (character == '\'') {
                return;
            }
            text += character;
        }
    }

    void doubleQuoted(std::string& text) {
        constexpr std::string_view Escapable = "\"\\$`";
        constexpr const char* Unfinished = "a \" is not closed";
        while (true) {
            const char character = take(Unfinished);
            if (character == '"') {
                return;
            }
            if (character == '\\' && !atEnd() &&
                Escapable.find(_line[_next]) != std::string_view::npos) {
                text += take(Unfinished);
            } else {
                text += character;
            }
        }
    }

    void escapeQuoted(std::string& text) {
        constexpr const char* Unfinished = "a $' is not closed";
        while (true) {
            const char character = take(Unfinished);
            if (character == '\'') {
                return;
            }
            if (character == '\\') {
                escape(text, take(Unfinished));
            } else {
                text += character;
            }
        }
    }

    void escape(std::string& text, char kind) {
        constexpr std::string_view Letters = "abtnvfr";
        const std::size_t letter = Letters.find(kind);
        if (letter != std::string_view::npos) {
            text += static_cast<char>('\a' + static_cast<int>(letter));
        } else if (kind == 'x') {
            text += number("0123456789abcdef", "0123456789ABCDEF", 2);
        } else if (kind >= '0' && kind <= '7') {
            --_next;
            text += number("01234567", "01234567", 3);
        } else {
            text += kind;
        }
    }

    char number(std::string_view digits, std::string_view upperDigits, std::size_t longest) {
        unsigned value = 0;
        std::size_t length = 0;
        while (length < longest && !atEnd()) {
            const std::size_t digit =
                std::min(digits.find(_line[_next]), upperDigits.find(_line[_next]));
            if (digit == std::string_view::npos) {
                break;
            }
            value = value * static_cast<unsigned>(digits.size()) + static_cast<unsigned>(digit);
            ++_next;
            ++length;
        }
        if (length == 0) {
            throw CommandError("\\x needs a hexadecimal number");
        }
        return static_cast<char>(value);
    }

    std::string_view _line;
    std::size_t _next = 0;
};

}  // namespace

std::vector<std::string> splitWords(std::string_view line) { return Splitter(line).split(); }

}  // namespace App
