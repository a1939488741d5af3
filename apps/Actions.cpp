#include "apps/Actions.h"

#include <algorithm>
#include <utility>

#include "apps/Escape.h"
#include "apps/EventText.h"

namespace App {

namespace {

std::string textOf(const std::optional<Nimra::ServiceError>& error) {
    return error ? error->what() : "nobody says why";
}

std::string numbered(unsigned long operationId, const std::string& text) {
    return std::to_string(operationId) + ": " + text;
}

}  // namespace

Actions::Actions(Ormek::Client& client, Console& console)
    : _client(client),
      _console(console),
      _subscription(client.subscribe([this](const Ormek::Event& event) { hear(event); })) {}

Actions::~Actions() { _client.unsubscribe(_subscription); }

void Actions::begin(Deed deed) {
    const unsigned long operationId = deed.action.operationId();
    if (operationId == 0) {
        throw CommandError(textOf(_client.poll(deed.action).error));
    }
    _console.say(numbered(operationId, deed.doing));
    _begun.emplace(operationId, Begun{std::move(deed)});
}

bool Actions::cancel(unsigned long operationId) {
    const auto found = _begun.find(operationId);
    if (found == _begun.end() || !_client.cancel(operationId)) {
        return false;
    }
    found->second.cancelled = true;
    return true;
}

// --- Waiting -------------------------------------------------------------------------------

std::chrono::milliseconds Actions::timeLeft(Clock::time_point since) const {
    const Clock::time_point deadline = std::max(since, _lastProgress) + _console.limit();
    return std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
}

void Actions::checkOnline() {
    if (!_client.online()) {
        throw CommandError("the service is off");
    }
}

Ormek::Outcome Actions::outcomeOf(const Ormek::Action& action) {
    try {
        if (action.operationId() != 0) {
            checkOnline();
        }
        Ormek::Outcome outcome = await(action);
        if (outcome.state == Ormek::ActionState::Failed) {
            throw CommandError(textOf(outcome.error));
        }
        return outcome;
    } catch (const CommandError&) {
        _client.cancel(action.operationId());
        throw;
    }
}

void Actions::settle() {
    while (!_client.waitUntilIdle(Patience)) {
        _console.checkWanted();
        report();
        showUpload();
    }
    _console.clearProgress();
    report();
}

bool Actions::isUnderWay() { return !_begun.empty() && _begun.size() > _client.waiting().size(); }

bool Actions::finish() {
    bool interrupted = false;
    while (!interrupted && isUnderWay() && !_client.waitUntilIdle(Patience)) {
        report();
        showUpload();
        interrupted = _console.interrupted();
    }
    _console.clearProgress();
    report();
    loseRest();
    return !std::exchange(_hasFailed, false);
}

// The service finishes what it has begun, but for uploads.
void Actions::loseRest() {
    if (_begun.empty()) {
        return;
    }
    std::map<unsigned long, std::string> unbegun;
    for (const auto& [operationId, begun] : _begun) {
        unbegun.emplace(operationId, begun.deed.doing + ", was not begun yet");
    }
    for (const Ormek::WaitingAction& waiting : _client.waiting()) {
        unbegun.insert_or_assign(waiting.operationId, describe(waiting));
    }
    // The last one first, so that none fails with another that it needs.
    for (auto next = unbegun.end(); next != unbegun.begin();) {
        --next;
        next = _client.cancel(next->first) ? next : unbegun.erase(next);
    }
    for (const auto& [operationId, text] : unbegun) {
        lose(operationId, text);
    }
    if (!_begun.empty()) {
        _givenUp->store(true);
        _client.waitUntilIdle(_console.limit());
        _givenUp->store(false);
    }
    report();
    while (!_begun.empty()) {
        const auto& [operationId, begun] = *_begun.begin();
        lose(operationId, begun.deed.doing + ", has no outcome yet");
    }
}

void Actions::lose(unsigned long operationId, const std::string& text) {
    _begun.erase(operationId);
    _console.say(numbered(operationId, "lost: " + text));
    _hasFailed = true;
    _hasLost = true;
}

bool Actions::showUpload() {
    if (_upload) {
        _console.clearProgress();
        _console.showProgress(_upload->done, _upload->total);
    }
    return _upload.has_value();
}

// --- What has come -------------------------------------------------------------------------

// Called by the client in the middle of any of its functions.
void Actions::hear(const Ormek::Event& event) {
    const auto* outcome = std::get_if<Ormek::Outcome>(&event);
    if (const auto* progress = std::get_if<Ormek::ActionProgress>(&event)) {
        _upload = *progress;
        _lastProgress = Clock::now();
    } else if (outcome && _upload && _upload->operationId == outcome->operationId) {
        _upload.reset();
    }
    if (outcome || _eventsWanted) {
        _news.push_back(event);
    }
}

bool Actions::hasNews() {
    _client.collect();
    return std::any_of(_news.begin(), _news.end(), [this](const Ormek::Event& event) {
        const auto* outcome = std::get_if<Ormek::Outcome>(&event);
        return _eventsWanted || (outcome && _begun.contains(outcome->operationId));
    });
}

void Actions::report() {
    _client.collect();
    while (!_news.empty()) {
        const Ormek::Event event = std::move(_news.front());
        _news.pop_front();
        if (_eventsWanted) {
            _console.say(eventText(_client, event));
        }
        if (const auto* outcome = std::get_if<Ormek::Outcome>(&event)) {
            conclude(*outcome);
        }
    }
}

void Actions::conclude(const Ormek::Outcome& outcome) {
    const auto found = _begun.find(outcome.operationId);
    if (found == _begun.end()) {
        return;
    }
    const Begun begun = std::move(found->second);
    _begun.erase(found);
    if (outcome.session) {
        _sessions.insert_or_assign(outcome.entryId, *outcome.session);
    }
    std::string text = "done";
    if (outcome.state == Ormek::ActionState::Failed) {
        text = begun.cancelled ? "cancelled" : "failed: " + printable(textOf(outcome.error));
        text += begun.deed.putBack ? "; " + begun.deed.putBack(outcome) : "";
        _hasFailed = _hasFailed || !begun.cancelled;
    }
    _console.say(numbered(outcome.operationId, text));
}

// --- What waits ----------------------------------------------------------------------------

std::string Actions::describe(const Ormek::WaitingAction& waiting) {
    const auto found = _begun.find(waiting.operationId);
    std::string text = found == _begun.end() ? "something" : found->second.deed.doing;
    const char* separator = ", waits for ";
    const auto add = [&](const std::string& what) {
        text += std::exchange(separator, " and for ") + what;
    };
    if (waiting.forService) {
        add("the service");
    }
    if (waiting.forEarlier) {
        add("an earlier action");
    }
    for (const unsigned long id : waiting.forCreationOf) {
        add(quoted(_client.pathOf(id)) + " to be made");
    }
    return text;
}

void Actions::printParked() {
    for (const Ormek::WaitingAction& waiting : _client.waiting()) {
        _console.out() << numbered(waiting.operationId, describe(waiting)) << '\n';
    }
}

// --- Sessions ------------------------------------------------------------------------------

std::optional<Nimra::DocumentSession> Actions::takeSession(
    const std::shared_ptr<Ormek::Item>& document) {
    report();
    const auto opening = std::find_if(_begun.begin(), _begun.end(), [&](const auto& entry) {
        const Ormek::Outcome outcome = _client.poll(entry.second.deed.action);
        return outcome.kind == Ormek::ActionKind::OpenSession &&
               _client.item(outcome.entryId) == document;
    });
    if (opening != _begun.end()) {
        checkOnline();
        await(opening->second.deed.action);
        report();
    }
    const auto found = _sessions.find(document->id());
    if (found == _sessions.end()) {
        return std::nullopt;
    }
    const Nimra::DocumentSession session = std::move(found->second);
    _sessions.erase(found);
    return session;
}

}  // namespace App
