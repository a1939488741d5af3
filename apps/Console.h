#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>

#include "client/Answer.h"

namespace App {

/// What answering took: whether all of it came from memory, and how long.
struct Cost {
    bool loaded = false;
    std::chrono::nanoseconds elapsed{0};

    void add(const Ormek::Answer& answer);
};

/// Where the program speaks. What was asked for goes to `out()`. Everything that is said about it,
/// or about actions, is a line on the other stream, which comes after all that `out()` was given
/// before: so the order is right when both go to the same place. It owns neither stream.
class Console {
  public:
    struct Surroundings {
        std::ostream& out;  ///< For what was asked for.
        std::ostream& err;  ///< For what is said about it.
        bool showProgress = false;
        /// For one answer. While an upload before it goes on, it does not count.
        std::chrono::milliseconds limit{std::chrono::seconds(30)};
        std::function<bool()> interrupted = [] { return false; };
    };

    explicit Console(Surroundings surroundings) : _surroundings(std::move(surroundings)) {}

    std::ostream& out() { return _surroundings.out; }
    std::chrono::milliseconds limit() const { return _surroundings.limit; }

    /// Whether Ctrl-C was pressed since the last time this was asked.
    bool interrupted() { return _surroundings.interrupted(); }
    /// Throws CommandError on Ctrl-C, and when nobody takes the output any more.
    void checkWanted();

    /// One line on what was printed. It counts for nothing when that did not get there.
    void printStatus(std::size_t shown, unsigned long total, const Cost& cost);
    void printError(const std::string& text);
    /// One line on what is done, which counts whatever became of the output.
    void say(const std::string& text);
    /// Shows how far something is, on a terminal only; the next call writes over it.
    void showProgress(unsigned long done, unsigned long total);
    void clearProgress();

  private:
    Surroundings _surroundings;
    bool _progressShown = false;
};

}  // namespace App
