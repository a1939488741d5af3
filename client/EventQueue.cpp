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

EventQueue::Room EventQueue::makeRoom() { return Room(1); }

void EventQueue::push(Event event) { push(makeRoom(), std::move(event)); }

void EventQueue::push(Room room, Event event) {
    room.front().event = std::move(event);
    const std::lock_guard lock(_mutex);
    if (!_listeners.empty()) {
        room.front().until = _lastId;
        _tellings.splice(_tellings.end(), room);
    }
}

void EventQueue::deliver() {
    std::list<Telling> told;  // Destroyed outside the lock.
    std::unique_lock lock(_mutex);
    if (_delivering) {
        return;
    }
    _delivering = true;
    try {
        auto listener = nextToTell(told);
        while (listener) {
            // It stays where it is while others are added: only this call takes any out.
            const Event& event = _tellings.front().event;
            lock.unlock();
            told.clear();
            (*listener)(event);
            listener.reset();
            lock.lock();
            listener = nextToTell(told);
        }
    } catch (...) {
        lock.lock();
        _delivering = false;
        throw;
    }
    _delivering = false;
}

// Under the lock: empty when everybody has been told everything. Moves what has been to `told`.
std::shared_ptr<const EventQueue::Listener> EventQueue::nextToTell(std::list<Telling>& told) {
    while (!_tellings.empty()) {
        Telling& telling = _tellings.front();
        const auto next = _listeners.upper_bound(telling.told);
        if (next != _listeners.end() && next->first <= telling.until) {
            telling.told = next->first;
            return next->second;
        }
        told.splice(told.end(), _tellings, _tellings.begin());
    }
    return nullptr;
}

}  // namespace Ormek
