#pragma once

#include <memory>
#include <string>

#include "apps/Actions.h"
#include "apps/Console.h"
#include "client/Client.h"

namespace App {

/// What the commands share: the client, where they print, what was begun, and which folder is the
/// current one. It owns none of what it is made of, and must be gone before the client is.
class Session {
  public:
    using Surroundings = Console::Surroundings;

    Session(Ormek::Client& client, Surroundings surroundings);

    Ormek::Client& client() { return _client; }
    Console& console() { return _console; }
    std::ostream& out() { return _console.out(); }
    Actions& actions() { return _actions; }

    /// Waits for an answer, for as long as it is wanted. Throws CommandError when there is none in
    /// time and when it is a failure.
    Ormek::Answer answerTo(const Ormek::Query& query);
    /// The entry at a path, from the root if it starts with a slash, else from the current folder.
    std::shared_ptr<Ormek::Item> find(const std::string& path, Cost& cost);
    std::shared_ptr<Ormek::Item> find(const std::string& path);
    /// The same; null when there is none. While the service is off, what is not held is taken for
    /// not being there.
    std::shared_ptr<Ormek::Item> findIfThere(const std::string& path);

    unsigned long folder() const { return _folder; }
    void enter(unsigned long folder) { _folder = folder; }
    /// The path of the current folder, escaped.
    std::string folderPath();

    void quit() { _quitting = true; }
    bool isQuitting() const { return _quitting; }

  private:
    Ormek::Query ask(const std::string& path);

    Ormek::Client& _client;
    Console _console;
    Actions _actions;
    unsigned long _folder;
    bool _quitting = false;
};

bool isFolder(const Ormek::Item& entry);

}  // namespace App
