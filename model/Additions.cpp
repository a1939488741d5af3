#include "model/Additions.h"

#include <algorithm>
#include <utility>

#include "model/MakeRoom.h"

namespace Ormek {

unsigned long Additions::open() const {
    return static_cast<unsigned long>(std::count(_counted.begin(), _counted.end(), 0));
}

std::optional<unsigned long> Additions::find(const Item& item) const {
    return empty() ? std::nullopt : _entries.firstOf(item);
}

std::optional<unsigned long> Additions::findName(const std::string& name) const {
    return empty() ? std::nullopt : _entries.firstOfName(name);
}

void Additions::reserve(unsigned long more) {
    _entries.reserveInsertions(more);
    _counted.reserve(_counted.size() + more);
}

void Additions::insert(unsigned long index, Entry entry, bool counted) {
    makeRoom(_counted);
    _entries.insert(index, std::move(entry));
    _counted.insert(_counted.begin() + static_cast<std::ptrdiff_t>(index), counted ? 1 : 0);
}

void Additions::erase(unsigned long index) noexcept {
    _entries.erase(index);
    _counted.erase(_counted.begin() + static_cast<std::ptrdiff_t>(index));
}

void Additions::forget(const Item& item) noexcept {
    while (const auto index = empty() ? std::nullopt : _entries.firstSame(item)) {
        erase(*index);
    }
}

unsigned long Additions::remove(unsigned long id) noexcept {
    unsigned long counted = 0;
    while (const auto index = empty() ? std::nullopt : _entries.firstOfId(id)) {
        counted += isCounted(*index) ? 1 : 0;
        erase(*index);
    }
    return counted;
}

void Additions::count() noexcept {
    forEach([this](const Entry& entry, unsigned long index) {
        _counted[index] = isCounted(index) || entry->idLoaded() ? 1 : 0;
    });
}

void Additions::dropOver() noexcept {
    for (unsigned long index = size(); index-- > 0;) {
        if (isOver(index)) {
            erase(index);
        }
    }
}

}  // namespace Ormek
