#include "model/ChangeLog.h"

namespace Ormek {

void ChangeLog::add(const Item& item, std::uint64_t before) {
    const std::lock_guard lock(_mutex);
    const unsigned long number = _count.load(std::memory_order_relaxed);
    _changes[number % Remembered] = {&item, before};
    _count.store(number + 1, std::memory_order_release);
}

std::optional<ChangeLog::Change> ChangeLog::at(unsigned long number) const noexcept {
    const std::lock_guard lock(_mutex);
    if (_count.load(std::memory_order_relaxed) - number > Remembered) {
        return std::nullopt;
    }
    return _changes[number % Remembered];
}

}  // namespace Ormek
