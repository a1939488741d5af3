#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "client/Client.h"

namespace Ormek::Testing {

/// Threads that go on asking a client for things, and look at the answers, until they are told to
/// stop.
class Crowd {
  public:
    explicit Crowd(Client& client) : _client(client) {}
    ~Crowd() { stop(); }
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    void start();
    /// Throws nothing.
    void stop();
    /// What anyone of them has found wrong; to be looked at when they have stopped.
    const std::string& complaint() const { return _complaint; }

  private:
    void ask(unsigned long seed);
    void look(const Answer& answer);

    Client& _client;
    std::atomic<bool> _stopping{false};
    std::vector<std::thread> _threads;
    std::string _complaint;  // Written inside `Client::read`.
};

}  // namespace Ormek::Testing
