#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/Arguments.h"
#include "apps/CommandError.h"
#include "apps/Escape.h"
#include "apps/Words.h"
#include "fuzz/Input.h"

namespace Ormek::Fuzzing {

/// The program's command line: any bytes as a line, as a name, as options and paths. What is
/// written as the program writes it is read back as it was.
class CommandLine {
  public:
    explicit CommandLine(Input input) : _input(input) {}

    void run() {
        const unsigned kind = _input.below(3);
        const std::string text = _input.rest();
        if (kind == 0) {
            return lookAtName(text);
        }
        std::vector<std::string> words;
        try {
            words = App::splitWords(text);
        } catch (const App::CommandError&) {
            return;
        }
        lookAtWords(words);
        if (kind == 2) {
            lookAtArguments(words);
        }
    }

  private:
    // A word in $'…', as a user types what the program has printed.
    static std::string quoted(std::string_view name) {
        std::string text = "$'";
        for (const char character : App::escaped(name)) {
            text += character == '\'' ? "\\'" : std::string(1, character);
        }
        return text + "'";
    }

    static void lookAtName(const std::string& name) {
        const std::string escaped = App::escaped(name);
        for (std::string_view rest = escaped; !rest.empty();) {
            const std::size_t length = App::utf8Length(rest);
            check(length != 0, "an escaped name is not UTF-8");
            check(length <= rest.size(), "a character is longer than its text");
            const auto first = static_cast<unsigned char>(rest.front());
            check(first >= 0x20 && first != 0x7F, "an escaped name has a control character");
            rest.remove_prefix(length);
        }
        check(App::printable(escaped) == escaped, "an escaped name is escaped again");
        check(App::splitWords(quoted(name)) == std::vector{name}, "a name is not read back");
    }

    static void lookAtWords(const std::vector<std::string>& words) {
        std::string line;
        for (const std::string& word : words) {
            line += " " + quoted(word);
        }
        check(App::splitWords(line) == words, "words are not read back");
    }

    static App::Arguments parse(const std::vector<std::string>& words) {
        using Kind = App::Arguments::Kind;
        return {words,
                {{"-1", Kind::Flag},
                 {"-l", Kind::Flag},
                 {"--all", Kind::Flag},
                 {"--count", Kind::Value},
                 {"--search", Kind::Value}},
                {1, 3}};
    }

    static void lookAtArguments(const std::vector<std::string>& words) {
        try {
            const App::Arguments arguments = parse(words);
            const std::size_t paths = arguments.paths().size();
            check(paths >= 1 && paths <= 3, "too few or too many paths");
            check(arguments.path() == arguments.paths().front(), "the first path");
            const App::Arguments again = parse(written(arguments));
            check(again.paths() == arguments.paths(), "paths are not read back");
            for (const char* name : {"-1", "-l", "--all", "--count", "--search"}) {
                check(again.has(name) == arguments.has(name), "an option is not read back");
                check(again.text(name) == arguments.text(name), "a value is not read back");
            }
            const std::optional<std::uint32_t> count = arguments.number("--count");
            check(count.has_value() == arguments.has("--count"), "a number from nowhere");
        } catch (const App::CommandError& error) {
            check(*error.what() != '\0', "an error without a word");
            const std::string text = error.what();
            check(App::printable(text) == text, "an error that cannot be printed");
        }
    }

    // The same arguments in one of many ways to give them.
    static std::vector<std::string> written(const App::Arguments& arguments) {
        std::vector<std::string> words;
        for (const char* flag : {"-1", "-l", "--all"}) {
            if (arguments.has(flag)) {
                words.emplace_back(flag);
            }
        }
        if (const auto value = arguments.text("--search")) {
            words.insert(words.end(), {"--search", *value});
        }
        if (const auto value = arguments.text("--count")) {
            words.push_back("--count=" + *value);
        }
        words.emplace_back("--");
        words.insert(words.end(), arguments.paths().begin(), arguments.paths().end());
        return words;
    }

    Input _input;
};

inline void commandLine(Input input) { CommandLine(input).run(); }

}  // namespace Ormek::Fuzzing
