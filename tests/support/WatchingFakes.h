#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <utility>

#include "tests/support/DirectoryCacheProbe.h"
#include "tests/support/Fakes.h"

namespace Ormek::Testing {

/// Hands each operation to a function after it has kept it.
class WatchingHandler : public RecordingHandler {
  public:
    using Watch = std::function<void(Nimra::Operation*)>;

    explicit WatchingHandler(Watch watch) : _watch(std::move(watch)) {}
    void queueOperation(Nimra::Operation* operation) override {
        OperationHandler::queueOperation(operation);
        _watch(operation);
    }

  private:
    Watch _watch;
};

/// The same for what is parked.
class WatchingQueue : public QueuedOperationsManager {
  public:
    using Watch = WatchingHandler::Watch;

    explicit WatchingQueue(Watch watch) : _watch(std::move(watch)) {}
    void push(Nimra::Operation* operation) override {
        QueuedOperationsManager::push(operation);
        _watch(operation);
    }

  private:
    Watch _watch;
};

/// Whether any thread holds the mutex. A thread of its own asks, since the caller may be that one.
inline bool isHeld(std::mutex& mutex) {
    return std::async(std::launch::async,
                      [&mutex] { return !std::unique_lock(mutex, std::try_to_lock); })
        .get();
}

/// Whether `call`, made on another thread, comes back while this one holds the mutexes.
template <class... Mutexes>
bool returnsWhileHeld(std::function<void()> call, Mutexes&... mutexes) {
    std::future<void> done;  // Waits, when it is destroyed, until the mutexes are free.
    const std::scoped_lock held(mutexes...);
    done = std::async(std::launch::async, std::move(call));
    return done.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
}

/// The same for both mutexes of a cache.
inline bool returnsWhileBothAreHeld(DirectoryCacheProbe& probe, std::function<void()> call) {
    return returnsWhileHeld(std::move(call), probe.mutex(), probe.itemsMutex());
}

}  // namespace Ormek::Testing
