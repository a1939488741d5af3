#include "model/ChangeLog.h"

#include <thread>

namespace Ormek {

ChangeLog::Guard::Guard(std::atomic_flag& taken) noexcept : _taken(taken) {
    while (_taken.test_and_set(std::memory_order_acquire)) {
        std::this_thread::yield();
    }
}

ChangeLog::Guard::~Guard() { _taken.clear(std::memory_order_release); }

void ChangeLog::add(const Item& item, std::uint64_t before) noexcept {
    const Guard guard(_taken);
    const unsigned long number = _count.load(std::memory_order_relaxed);
    _changes[number % Remembered] = {&item, before};
    _count.store(number + 1, std::memory_order_release);
}

std::optional<ChangeLog::Change> ChangeLog::at(unsigned long number) const noexcept {
    const Guard guard(_taken);
    if (_count.load(std::memory_order_relaxed) - number > Remembered) {
        return std::nullopt;
    }
    return _changes[number % Remembered];
}

}  // namespace Ormek
