#include "tests/client/session/Supervisor.h"

#include <utility>

namespace Ormek::Testing {

void Supervisor::close() {
    const std::lock_guard lock(_mutex);
    _open = false;
    _tickets = 0;
}

void Supervisor::open() {
    const std::lock_guard lock(_mutex);
    _open = true;
    _mayPass.notify_all();
}

void Supervisor::letPassOne() {
    const std::lock_guard lock(_mutex);
    ++_tickets;
    _mayPass.notify_all();
}

void Supervisor::failNext(Call call, Nimra::ServiceError error) {
    const std::lock_guard lock(_mutex);
    _planned[call].push_back(std::move(error));
}

std::unique_lock<std::mutex> Supervisor::enter(Call call) {
    std::unique_lock lock(_mutex);
    _mayPass.wait(lock, [this] { return _open || _tickets != 0; });
    if (!_open) {
        --_tickets;
    }
    ++_passed;
    auto& planned = _planned[call];
    if (!planned.empty()) {
        const Nimra::ServiceError error = planned.front();
        planned.pop_front();
        ++_failed;
        throw error;
    }
    lock.unlock();
    return interrupt();
}

std::unique_lock<std::mutex> Supervisor::interrupt() { return std::unique_lock(_tree); }

void Supervisor::note(Deed deed) {
    const std::lock_guard lock(_mutex);
    ++_done[deed.call];
    if (deed.call != Call::Load && deed.call != Call::Open && deed.call != Call::Session) {
        _deeds.push_back(std::move(deed));
    }
}

std::vector<Supervisor::Deed> Supervisor::deeds() const {
    const std::lock_guard lock(_mutex);
    return _deeds;
}

unsigned long Supervisor::done(Call call) const {
    const std::lock_guard lock(_mutex);
    const auto found = _done.find(call);
    return found == _done.end() ? 0 : found->second;
}

unsigned long Supervisor::passed() const {
    const std::lock_guard lock(_mutex);
    return _passed;
}

unsigned long Supervisor::madeToFail() const {
    const std::lock_guard lock(_mutex);
    return _failed;
}

}  // namespace Ormek::Testing
