#include "client/Client.h"

#include <algorithm>

#include "client/Engine.h"

namespace Ormek {

Client::Client(std::unique_ptr<Nimra::StorageService> service, unsigned long userId, Clock clock)
    : _engine(std::make_unique<Engine>(std::move(service), userId, std::move(clock))) {}

Client::~Client() = default;

unsigned long Client::rootId() const { return _engine->rootId(); }

Query Client::list(unsigned long folderId, const ListOptions& options) {
    const std::lock_guard lock(_engine->mutex);
    return Query(_engine->list(folderId, options));
}

Query Client::tags(unsigned long folderId, const ListOptions& options) {
    const std::lock_guard lock(_engine->mutex);
    return Query(_engine->tags(folderId, options));
}

Query Client::find(const std::string& path, Freshness freshness) {
    return find(rootId(), path, freshness);
}

Query Client::find(unsigned long folderId, const std::string& path, Freshness freshness) {
    const std::lock_guard lock(_engine->mutex);
    return Query(_engine->find(folderId, path, freshness));
}

Answer Client::poll(const Query& query) {
    if (!query._state) {
        Answer none;
        none.state = AnswerState::Failed;
        none.error.emplace(Nimra::Reason::Refused, "nothing was asked");
        return none;
    }
    const std::lock_guard lock(_engine->mutex);
    if (query._state->answer.state == AnswerState::Pending) {
        _engine->merge();
    }
    return query._state->answer;
}

Answer Client::wait(const Query& query, std::chrono::milliseconds limit) {
    // Far enough for anybody, and near enough not to overflow the clock.
    constexpr std::chrono::hours Longest{24 * 365};
    const auto deadline = std::chrono::steady_clock::now() +
                          std::clamp<std::chrono::milliseconds>(limit, {}, Longest);
    Nimra::Worker& worker = _engine->worker();
    while (true) {
        const unsigned long seen = worker.finishedCount();
        Answer answer = poll(query);
        if (answer.state != AnswerState::Pending || !worker.waitForFinished(seen, deadline)) {
            return answer;
        }
    }
}

unsigned long Client::collect() {
    const std::lock_guard lock(_engine->mutex);
    return _engine->collect();
}

int Client::fd() const { return _engine->fd(); }

std::shared_ptr<Item> Client::item(unsigned long id) {
    const std::lock_guard lock(_engine->mutex);
    return _engine->item(id);
}

std::string Client::pathOf(unsigned long id) {
    const std::lock_guard lock(_engine->mutex);
    return _engine->pathOf(id);
}

void Client::read(const std::function<void()>& look) {
    const std::lock_guard lock(_engine->mutex);
    look();
}

Statistics Client::statistics() {
    const std::lock_guard lock(_engine->mutex);
    return _engine->statistics();
}

}  // namespace Ormek
