#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>

#include "client/Event.h"

namespace Ormek {

/// Events on their way to whoever subscribed. Safe to call from any thread; listeners are called
/// by `deliver()` alone, one at a time, in the order of the events. Neither listeners nor events
/// are called or destroyed under a lock.
class EventQueue {
    struct Telling;

  public:
    using Listener = std::function<void(const Event&)>;
    /// Room for one event that is told later, whatever memory there is by then.
    using Room = std::list<Telling>;

    /// Returns an id, never 0, for `unsubscribe`. Only later events are told.
    unsigned long subscribe(Listener listener);
    /// An unknown id does nothing. A call that another thread is making may still go on.
    void unsubscribe(unsigned long id);
    bool hasListeners() const;

    static Room makeRoom();
    /// Dropped at once when nobody listens.
    void push(Event event);
    /// The same, without memory for more.
    void push(Room room, Event event);
    /// Tells what is there, unless a call of this is doing so already: that one goes on until
    /// nothing is left. When a listener throws, its event counts as told to it and the exception
    /// passes; what is left waits for the next call.
    void deliver();

  private:
    struct Telling {
        Event event;
        unsigned long told = 0;   // The listener that was told last.
        unsigned long until = 0;  // The last one that was there when it happened.
    };

    std::shared_ptr<const Listener> nextToTell(std::list<Telling>& told);

    mutable std::mutex _mutex;
    std::map<unsigned long, std::shared_ptr<const Listener>> _listeners;
    unsigned long _lastId = 0;
    std::list<Telling> _tellings;
    bool _delivering = false;
};

}  // namespace Ormek
