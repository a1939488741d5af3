#include "apps/Shell.h"

#include "apps/CommandError.h"
#include "apps/Commands.h"
#include "apps/Escape.h"
#include "apps/Words.h"

namespace App {

namespace {

// Only at the start of a line, where a command would stand: paths need no quotes for it.
bool isComment(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t");
    return first != std::string_view::npos && line[first] == '#';
}

}  // namespace

bool Shell::run() {
    bool allWell = true;
    while (!_session.isQuitting() && _session.out().flush()) {
        _session.actions().report();
        const auto line = _reader.next(prompt(), _session.actions());
        if (!line) {
            break;
        }
        _session.actions().report();
        if (_echo == Echo::On) {
            _session.out() << prompt() << printable(*line) << '\n';
        }
        allWell = carryOut(*line) && allWell;
    }
    return _session.actions().finish() && allWell;
}

std::string Shell::prompt() { return "ormek:" + _session.folderPath() + "> "; }

bool Shell::carryOut(const std::string& line) {
    if (isComment(line)) {
        return true;
    }
    std::string complaint;
    try {
        std::vector<std::string> words = splitWords(line);
        if (words.empty()) {
            return true;
        }
        const Command* command = findCommand(words.front());
        if (command == nullptr) {
            throw CommandError("unknown command " + quoted(words.front()) +
                               "; help lists those that there are");
        }
        complaint = words.front() + ": ";
        words.erase(words.begin());
        command->run(_session, words);
        return true;
    } catch (const std::exception& error) {
        _session.console().printError(complaint + error.what());
        return false;
    }
}

}  // namespace App
