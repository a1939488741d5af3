#include "client/EventQueue.h"

#include <utility>

namespace Ormek {

unsigned long EventQueue::subscribe(Listener listener) {
    auto shared = std::make_shared<const Listener>(std::move(listener));
    const std::lock_guard lock(_mutex);
    _listeners.emplace(_lastId + 1, std::move(shared));
    return ++_lastId;
}

void EventQueue::unsubscribe(unsigned long id) {
    std::shared_ptr<const Listener> unsubscribed;  // Destroyed outside the lock.
    const std::lock_guard lock(_mutex);
    const auto found = _listeners.find(id);
    if (found != _listeners.end()) {
        unsubscribed = std::move(found->second);
        _listeners.erase(found);
    }
}

bool EventQueue::hasListeners() const {
    const std::lock_guard lock(_mutex);
    return !_listeners.empty();
}

void EventQueue::push(Event event) {
    const std::lock_guard lock(_mutex);
    if (!_listeners.empty()) {
        _tellings.push_back({std::move(event), 0, _lastId});
    }
}

void EventQueue::deliver() {
    std::unique_lock lock(_mutex);
    if (_delivering) {
        return;
    }
    _delivering = true;
    try {
        while (const auto listener = nextToTell()) {
            // It stays where it is while others are added: only this call takes any out.
            const Event& event = _tellings.front().event;
            lock.unlock();
            (*listener)(event);
            lock.lock();
        }
    } catch (...) {
        lock.lock();
        _delivering = false;
        throw;
    }
    _delivering = false;
}

// Under the lock: empty when everybody has been told everything.
std::shared_ptr<const EventQueue::Listener> EventQueue::nextToTell() {
    while (!_tellings.empty()) {
        Telling& telling = _tellings.front();
        const auto next = _listeners.upper_bound(telling.told);
        if (next != _listeners.end() && next->first <= telling.until) {
            telling.told = next->first;
            return next->second;
        }
        _tellings.pop_front();
    }
    return nullptr;
}

}  // namespace Ormek
