#include "apps/Console.h"

#include "apps/CommandError.h"
#include "apps/Escape.h"
#include "apps/Format.h"

namespace App {

void Cost::add(const Ormek::Answer& answer) {
    loaded = loaded || answer.source != Ormek::AnswerSource::Memory;
    elapsed += answer.elapsed;
}

void Console::checkWanted() {
    if (interrupted()) {
        throw CommandError("interrupted");
    }
    if (!out()) {
        throw CommandError("the output cannot be written");
    }
}

void Console::printStatus(std::size_t shown, unsigned long total, const Cost& cost) {
    if (out().flush()) {
        say(std::to_string(shown) + " of " + std::to_string(total) + " entries, " +
            (cost.loaded ? "loaded" : "from memory") + ", " + formatDuration(cost.elapsed));
    }
}

void Console::printError(const std::string& text) {
    if (out().flush()) {
        say("ormek: " + text);
    }
}

void Console::say(const std::string& text) {
    clearProgress();
    out().flush();
    _surroundings.err << printable(text) + "\n" << std::flush;
}

void Console::showProgress(unsigned long done, unsigned long total) {
    if (_surroundings.showProgress && out().flush()) {
        _surroundings.err << "\r" + std::to_string(done) + " of " + std::to_string(total)
                          << std::flush;
        _progressShown = true;
    }
}

void Console::clearProgress() {
    if (_progressShown) {
        _surroundings.err << "\r\033[K" << std::flush;
        _progressShown = false;
    }
}

}  // namespace App
