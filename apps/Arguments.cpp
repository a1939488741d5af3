#include "apps/Arguments.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "apps/CommandError.h"
#include "apps/Escape.h"

namespace App {

namespace {

const Arguments::Option& known(std::string_view name,
                               std::initializer_list<Arguments::Option> options) {
    const auto* found = std::find_if(options.begin(), options.end(),
                                     [name](const auto& option) { return option.name == name; });
    if (found == options.end()) {
        throw CommandError("unknown option " + quoted(name));
    }
    return *found;
}

}  // namespace

Arguments::Arguments(const std::vector<std::string>& words, std::initializer_list<Option> options,
                     Paths paths) {
    auto next = words.begin();
    while (next != words.end()) {
        const std::string& word = *next++;
        if (word == "--") {
            _paths.insert(_paths.end(), next, words.end());
            break;
        }
        if (word.starts_with("--")) {
            readLong(word, options, next, words.end());
        } else if (word.size() > 1 && word.front() == '-') {
            readLetters(word, options);
        } else {
            _paths.push_back(word);
        }
    }
    if (_paths.size() < paths.least) {
        throw CommandError("an argument is missing");
    }
    if (_paths.size() > paths.most) {
        throw CommandError("one argument too many: " + quoted(_paths[paths.most]));
    }
}

void Arguments::readLong(const std::string& word, std::initializer_list<Option> options,
                         std::vector<std::string>::const_iterator& next,
                         std::vector<std::string>::const_iterator end) {
    const std::size_t equals = word.find('=');
    const Option& option = known(word.substr(0, equals), options);
    std::string value;
    if (option.kind == Kind::Flag) {
        if (equals != std::string::npos) {
            throw CommandError(std::string(option.name) + " takes no value");
        }
    } else if (equals != std::string::npos) {
        value = word.substr(equals + 1);
    } else if (next != end) {
        value = *next++;
    } else {
        throw CommandError(std::string(option.name) + " needs a value");
    }
    _options.insert_or_assign(std::string(option.name), value);
}

void Arguments::readLetters(const std::string& word, std::initializer_list<Option> options) {
    for (const char letter : word.substr(1)) {
        _options.insert_or_assign(std::string(known(std::string{'-', letter}, options).name), "");
    }
}

bool Arguments::has(std::string_view name) const { return _options.find(name) != _options.end(); }

std::optional<std::string> Arguments::text(std::string_view name) const {
    const auto found = _options.find(name);
    return found == _options.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::uint32_t> Arguments::number(std::string_view name) const {
    const std::optional<std::string> digits = text(name);
    if (!digits) {
        return std::nullopt;
    }
    constexpr unsigned long Largest = std::numeric_limits<std::uint32_t>::max();
    try {
        return static_cast<std::uint32_t>(wholeNumber(*digits, Largest));
    } catch (const CommandError& error) {
        throw CommandError(std::string(name) + ": " + error.what());
    }
}

std::optional<std::string> Arguments::path() const {
    return _paths.empty() ? std::nullopt : std::optional(_paths.front());
}

unsigned long wholeNumber(const std::string& digits, unsigned long largest) {
    unsigned long value = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    if (error == std::errc::result_out_of_range || value > largest) {
        throw CommandError(quoted(digits) + " is too large");
    }
    if (error != std::errc() || stop != end) {
        throw CommandError(quoted(digits) + " is not a whole number");
    }
    return value;
}

}  // namespace App
