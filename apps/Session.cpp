#include "apps/Session.h"

#include "apps/CommandError.h"
#include "apps/Escape.h"
#include "apps/Format.h"
#include "model/Container.h"

namespace App {

void Cost::add(const Ormek::Answer& answer) {
    loaded = loaded || answer.source != Ormek::AnswerSource::Memory;
    elapsed += answer.elapsed;
}

Session::Session(Ormek::Client& client, Surroundings surroundings)
    : _client(client), _surroundings(std::move(surroundings)), _folder(client.rootId()) {}

void Session::checkWanted() {
    if (_surroundings.interrupted()) {
        throw CommandError("interrupted");
    }
    if (!out()) {
        throw CommandError("the output cannot be written");
    }
}

Ormek::Answer Session::answerTo(const Ormek::Query& query) {
    using Clock = std::chrono::steady_clock;
    // Ctrl-C does not wake whoever waits, so that it is looked for now and then.
    constexpr std::chrono::milliseconds Patience{100};
    const auto deadline = Clock::now() + _surroundings.limit;
    while (true) {
        checkWanted();
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        Ormek::Answer answer = _client.wait(query, std::min(left, Patience));
        if (answer.state == Ormek::AnswerState::Answered) {
            return answer;
        }
        if (answer.state == Ormek::AnswerState::Failed) {
            throw CommandError(answer.error ? answer.error->what() : "failed");
        }
        if (left <= Patience) {
            throw CommandError("no answer in time");
        }
    }
}

std::shared_ptr<Ormek::Item> Session::find(const std::string& path, Cost& cost) {
    const unsigned long from = path.starts_with('/') ? _client.rootId() : _folder;
    const Ormek::Answer answer = answerTo(_client.find(from, path));
    cost.add(answer);
    return answer.entries.at(0);
}

std::shared_ptr<Ormek::Item> Session::find(const std::string& path) {
    Cost cost;
    return find(path, cost);
}

std::string Session::folderPath() { return escaped(_client.pathOf(_folder)); }

void Session::printStatus(std::size_t shown, unsigned long total, const Cost& cost) {
    // What was asked for comes first when both go to the same place, and counts for nothing when
    // it did not get there.
    if (!out().flush()) {
        return;
    }
    _surroundings.err << std::to_string(shown) + " of " + std::to_string(total) + " entries, " +
                             (cost.loaded ? "loaded" : "from memory") + ", " +
                             formatDuration(cost.elapsed) + "\n"
                      << std::flush;
}

void Session::printError(const std::string& text) {
    if (!out().flush()) {
        return;
    }
    _surroundings.err << "ormek: " + printable(text) + "\n" << std::flush;
}

void Session::showProgress(std::size_t done, unsigned long total) {
    if (_surroundings.showProgress && out().flush()) {
        _surroundings.err << "\r" + std::to_string(done) + " of " + std::to_string(total)
                          << std::flush;
    }
}

void Session::clearProgress() {
    if (_surroundings.showProgress) {
        _surroundings.err << "\r\033[K" << std::flush;
    }
}

bool isFolder(const Ormek::Item& entry) {
    return dynamic_cast<const Ormek::Container*>(&entry) != nullptr;
}

}  // namespace App
