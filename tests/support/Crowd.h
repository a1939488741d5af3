#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace Ormek::Testing {

/// Threads that start their work at the same moment.
class Crowd {
  public:
    Crowd() = default;
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;
    ~Crowd() { finish(); }

    void add(std::function<void()> work) {
        _threads.emplace_back([this, work = std::move(work)] {
            while (!_started) {
                std::this_thread::yield();
            }
            work();
        });
    }
    /// Lets them go, and waits until all have come back.
    void finish() {
        _started = true;
        for (std::thread& thread : _threads) {
            thread.join();
        }
        _threads.clear();
    }

  private:
    std::atomic<bool> _started{false};
    std::vector<std::thread> _threads;
};

/// How many of a crowd's threads are still at work, for those that go on until the others are done.
class Working {
  public:
    explicit Working(int threads) : _threads(threads) {}
    void oneIsDone() { --_threads; }
    bool goesOn() const { return _threads != 0; }

  private:
    std::atomic<int> _threads;
};

}  // namespace Ormek::Testing
