#include "client/Client.h"

#include <algorithm>
#include <type_traits>

#include "client/Engine.h"

namespace Ormek {

Client::Client(std::unique_ptr<Nimra::StorageService> service, unsigned long userId, Clock clock)
    : _engine(std::make_unique<Engine>(std::move(service), userId, std::move(clock))) {}

Client::~Client() {
    const auto deliver = [this] {
        // Nobody is left to hear of what a listener throws.
        try {
            _engine->events.deliver();
        } catch (...) {
            return true;
        }
        return false;
    };
    {
        const std::lock_guard lock(_engine->mutex);
        _engine->end();
    }
    // Outside the lock: what the running operation calls may call the client.
    _engine->worker().stop();
    {
        const std::lock_guard lock(_engine->mutex);
        _engine->concludeAll();
    }
    while (deliver()) {
    }
}

// Serialised; whoever subscribed is told afterwards.
template <class Use>
auto Client::call(Use use) {
    const auto serialised = [&] {
        const std::lock_guard lock(_engine->mutex);
        return use();
    };
    if constexpr (std::is_void_v<decltype(use())>) {
        serialised();
        tell();
    } else {
        auto result = serialised();
        tell();
        return result;
    }
}

// What is left when a listener throws is told by the next call: there is to be one.
void Client::tell() {
    try {
        _engine->events.deliver();
    } catch (...) {
        _engine->wake();
        throw;
    }
}

unsigned long Client::rootId() const { return _engine->rootId(); }

// --- Questions -----------------------------------------------------------------------------

Query Client::list(unsigned long folderId, const ListOptions& options) {
    return call([&] { return Query(_engine->list(folderId, options)); });
}

Query Client::tags(unsigned long folderId, const ListOptions& options) {
    return call([&] { return Query(_engine->tags(folderId, options)); });
}

Query Client::find(const std::string& path, Freshness freshness) {
    return find(rootId(), path, freshness);
}

Query Client::find(unsigned long folderId, const std::string& path, Freshness freshness) {
    return call([&] { return Query(_engine->find(folderId, path, freshness)); });
}

Answer Client::poll(const Query& query) {
    if (!query._state) {
        Answer none;
        none.state = AnswerState::Failed;
        none.error.emplace(Nimra::Reason::Refused, "nothing was asked");
        return none;
    }
    return call([&] {
        if (query._state->answer.state == AnswerState::Pending) {
            _engine->merge();
        }
        return query._state->answer;
    });
}

Answer Client::wait(const Query& query, std::chrono::milliseconds limit) {
    Answer answer;
    waitUntil(limit, [&] {
        answer = poll(query);
        return answer.state != AnswerState::Pending;
    });
    return answer;
}

template <class IsDone>
bool Client::waitUntil(std::chrono::milliseconds limit, IsDone isDone) {
    // Far enough for anybody, and near enough not to overflow the clock.
    constexpr std::chrono::hours Longest{24 * 365};
    const auto deadline = std::chrono::steady_clock::now() +
                          std::clamp<std::chrono::milliseconds>(limit, {}, Longest);
    Nimra::Worker& worker = _engine->worker();
    while (true) {
        const unsigned long seen = worker.finishedCount();
        if (isDone()) {
            return true;
        }
        if (!worker.waitForFinished(seen, deadline)) {
            return false;
        }
    }
}

unsigned long Client::collect() {
    return call([&] { return _engine->collect(); });
}

int Client::fd() const { return _engine->fd(); }

// --- Actions -------------------------------------------------------------------------------

Action Client::createDocument(const Target& folder, const std::string& name,
                              std::unique_ptr<Nimra::ContentSource> content,
                              const Nimra::KeyValues& keyValues) {
    // Neither asked nor destroyed while the calls are serialised.
    const unsigned long length = content ? content->size() : 0;
    return call([&] { return _engine->createDocument(folder, name, content, length, keyValues); });
}

Action Client::createFolder(const Target& folder, const std::string& name) {
    return call([&] { return _engine->createFolder(folder, name); });
}

Action Client::rename(const Target& entry, const std::string& newName) {
    return call([&] { return _engine->rename(entry, newName); });
}

Action Client::move(const Target& entry, const Target& folder) {
    return call([&] { return _engine->move(entry, folder); });
}

Action Client::remove(const Target& entry) {
    return call([&] { return _engine->remove(entry); });
}

Action Client::saveMetaData(const Target& entry, const Nimra::KeyValues& keyValues) {
    return call([&] { return _engine->saveMetaData(entry, keyValues); });
}

Action Client::open(const Target& document) {
    return call([&] { return _engine->open(document); });
}

Action Client::openSession(const Target& document) {
    return call([&] { return _engine->openSession(document); });
}

void Client::releaseSession(const Nimra::DocumentSession& session) {
    _engine->releaseSession(session);
}

Outcome Client::poll(const Action& action) {
    if (!action._state) {
        Outcome none;
        none.state = ActionState::Failed;
        none.error.emplace(Nimra::Reason::Refused, "nothing was done");
        return none;
    }
    return call([&] {
        if (action._state->outcome.state == ActionState::Pending) {
            _engine->merge();
        }
        return action._state->outcome;
    });
}

Outcome Client::wait(const Action& action, std::chrono::milliseconds limit) {
    Outcome outcome;
    waitUntil(limit, [&] {
        outcome = poll(action);
        return outcome.state != ActionState::Pending;
    });
    return outcome;
}

bool Client::cancel(unsigned long operationId) {
    return call([&] {
        const bool cancelled = _engine->cancel(operationId);
        _engine->merge();
        return cancelled;
    });
}

std::vector<WaitingAction> Client::waiting() {
    return call([&] { return _engine->waiting(); });
}

bool Client::waitUntilIdle(std::chrono::milliseconds limit) {
    return waitUntil(limit, [&] {
        return call([&] {
            _engine->merge();
            return _engine->worker().idle();
        });
    });
}

void Client::setOnline(bool online) {
    call([&] { _engine->setOnline(online); });
}

bool Client::online() {
    return call([&] { return _engine->online(); });
}

// --- Changes made elsewhere ----------------------------------------------------------------

void Client::onRemoteChange(const Nimra::Document& document) {
    call([&] { _engine->onRemoteChange(document); });
}

void Client::onRemoteChange(const Nimra::Folder& folder) {
    call([&] { _engine->onRemoteChange(folder); });
}

void Client::onRemoteRemoval(unsigned long id) {
    call([&] { _engine->onRemoteRemoval(id); });
}

void Client::onRemoteDoubt(unsigned long folderId) {
    call([&] { _engine->onRemoteDoubt(folderId); });
}

// --- Events --------------------------------------------------------------------------------

unsigned long Client::subscribe(Listener listener) {
    return _engine->events.subscribe(std::move(listener));
}

void Client::unsubscribe(unsigned long subscription) { _engine->events.unsubscribe(subscription); }

// --- Looking -------------------------------------------------------------------------------

std::shared_ptr<Item> Client::item(unsigned long id) {
    return call([&] { return _engine->item(id); });
}

std::string Client::pathOf(unsigned long id) {
    return call([&] { return _engine->pathOf(id); });
}

void Client::read(const std::function<void()>& look) {
    const std::lock_guard lock(_engine->mutex);
    look();
}

Statistics Client::statistics() {
    return call([&] { return _engine->statistics(); });
}

}  // namespace Ormek
