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
  public:
    using Listener = std::function<void(const Event&)>;

    /// Returns an id, never 0, for `unsubscribe`. Only later events are told.
    unsigned long subscribe(Listener listener);
    /// An unknown id does nothing. A call that another thread is making may still go on.
    void unsubscribe(unsigned long id);
    bool hasListeners() const;

    /// Dropped at once when nobody listens.
    void push(Event event);
    /// Tells what is there, unless a call of this is doing so already: that one goes on until
    /// nothing is left. When a listener throws, its event counts as told to it and the exception
    /// passes; what is left waits for the next call.
    void deliver();

  private:
    struct Telling {
        Event event;
        unsigned long told;   // The listener that was told last.
        unsigned long until;  // The last one that was there when it happened.
    };

    using Tellings = std::list<Telling>;

    std::shared_ptr<const Listener> nextToTell(Tellings& told);

    mutable std::mutex _mutex;
    std::map<unsigned long, std::shared_ptr<const Listener>> _listeners;
    unsigned long _lastId = 0;
    Tellings _tellings;
    bool _delivering = false;
};

}  // namespace Ormek
