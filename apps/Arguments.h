#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace App {

/// The options and paths, or whatever else is no option, that were given to a command.
///
/// Options may stand anywhere before a "--". A value is the next word, or what follows a "=". Flags
/// of one letter can be written together. What is given twice counts the last time. Every error is
/// a CommandError.
class Arguments {
  public:
    enum class Kind { Flag, Value };
    struct Option {
        std::string_view name;  ///< With its dashes.
        Kind kind;
    };
    struct Paths {
        std::size_t least, most;
    };

    Arguments(const std::vector<std::string>& words, std::initializer_list<Option> options,
              Paths paths);

    bool has(std::string_view name) const;
    std::optional<std::string> text(std::string_view name) const;
    std::optional<std::uint32_t> number(std::string_view name) const;
    const std::vector<std::string>& paths() const { return _paths; }
    /// The first path, if there is one.
    std::optional<std::string> path() const;

  private:
    void readLong(const std::string& word, std::initializer_list<Option> options,
                  std::vector<std::string>::const_iterator& next,
                  std::vector<std::string>::const_iterator end);
    void readLetters(const std::string& word, std::initializer_list<Option> options);

    std::map<std::string, std::string, std::less<>> _options;
    std::vector<std::string> _paths;
};

/// A whole number, without sign or anything beside its digits. Throws CommandError.
unsigned long wholeNumber(const std::string& digits,
                          unsigned long largest = std::numeric_limits<unsigned long>::max());

}  // namespace App
