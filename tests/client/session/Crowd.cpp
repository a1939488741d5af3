#include "tests/client/session/Crowd.h"

#include <chrono>
#include <random>
#include <set>

namespace Ormek::Testing {

namespace {

constexpr unsigned long Threads = 2;
constexpr unsigned long Ids = 40;

}  // namespace

void Crowd::start() {
    _stopping = false;
    for (unsigned long seed = 1; seed <= Threads; ++seed) {
        _threads.emplace_back([this, seed] { ask(seed); });
    }
}

void Crowd::stop() {
    _stopping = true;
    for (std::thread& thread : _threads) {
        thread.join();
    }
    _threads.clear();
}

void Crowd::ask(unsigned long seed) {
    using std::chrono::milliseconds;
    std::mt19937_64 random(seed);
    while (!_stopping) {
        const unsigned long id = 1 + random() % Ids;
        switch (random() % 6) {
            case 0:
                look(_client.wait(_client.list(id, {}), milliseconds(1)));
                break;
            case 1:
                _client.collect();
                break;
            case 2:
                look(_client.wait(_client.find(_client.pathOf(id)), milliseconds(1)));
                break;
            case 3:
                _client.waiting();
                break;
            case 4:
                if (const auto item = _client.item(id)) {
                    _client.read([&] { item->name(); });
                }
                break;
            default:
                _client.waitUntilIdle(milliseconds(1));
        }
    }
}

void Crowd::look(const Answer& answer) {
    _client.read([&] {
        std::set<const Item*> entries;
        for (const auto& entry : answer.entries) {
            if (!entries.insert(entry.get()).second) {
                _complaint = "\"" + entry->name() + "\" is twice in an answer";
            }
        }
    });
}

}  // namespace Ormek::Testing
