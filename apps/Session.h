#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "client/Client.h"

namespace App {

/// What answering took: whether all of it came from memory, and how long.
struct Cost {
    bool loaded = false;
    std::chrono::nanoseconds elapsed{0};

    void add(const Ormek::Answer& answer);
};

/// What the commands share: the client, where they print, and which folder is the current one.
/// It owns none of what it is made of.
class Session {
  public:
    struct Surroundings {
        std::ostream& out;  ///< For what was asked for.
        std::ostream& err;  ///< For what is said about it.
        bool showProgress = false;
        std::chrono::milliseconds limit{std::chrono::seconds(30)};  ///< For one answer.
        std::function<bool()> interrupted = [] { return false; };
    };

    Session(Ormek::Client& client, Surroundings surroundings);

    Ormek::Client& client() { return _client; }
    std::ostream& out() { return _surroundings.out; }

    /// Throws CommandError on Ctrl-C, and when nobody takes the output any more.
    void checkWanted();
    /// Waits for an answer, for as long as it is wanted. Throws CommandError when there is none in
    /// time and when it is a failure.
    Ormek::Answer answerTo(const Ormek::Query& query);
    /// The entry at a path, from the root if it starts with a slash, else from the current folder.
    std::shared_ptr<Ormek::Item> find(const std::string& path, Cost& cost);
    std::shared_ptr<Ormek::Item> find(const std::string& path);

    unsigned long folder() const { return _folder; }
    void enter(unsigned long folder) { _folder = folder; }
    /// The path of the current folder, escaped.
    std::string folderPath();

    /// One line on what was printed.
    void printStatus(std::size_t shown, unsigned long total, const Cost& cost);
    void printError(const std::string& text);
    /// Shows how far something is, on a terminal only; the next call writes over it.
    void showProgress(std::size_t done, unsigned long total);
    void clearProgress();

    void quit() { _quitting = true; }
    bool isQuitting() const { return _quitting; }

  private:
    Ormek::Client& _client;
    Surroundings _surroundings;
    unsigned long _folder;
    bool _quitting = false;
};

bool isFolder(const Ormek::Item& entry);

}  // namespace App
