#include "tests/support/ListingModel.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Ormek::Testing {

namespace {

constexpr int TagType = 16;

bool same(const ModelEntry& a, const ModelEntry& b) {
    const bool sameId = a.id != 0 && a.id == b.id && a.type != TagType && b.type != TagType;
    return &a == &b || sameId;
}

bool all(const std::set<unsigned long>& positions, unsigned long begin, unsigned long end) {
    for (unsigned long position = begin; position < end; ++position) {
        if (positions.count(position) == 0) {
            return false;
        }
    }
    return true;
}

std::set<unsigned long> shifted(const std::set<unsigned long>& positions, unsigned long from,
                                unsigned long by) {
    std::set<unsigned long> moved;
    for (const unsigned long position : positions) {
        moved.insert(position >= from ? position + by : position);
    }
    return moved;
}

std::map<unsigned long, ModelEntryPtr> shifted(
    const std::map<unsigned long, ModelEntryPtr>& entries, unsigned long from, unsigned long by) {
    std::map<unsigned long, ModelEntryPtr> moved;
    for (const auto& [position, entry] : entries) {
        moved[position >= from ? position + by : position] = entry;
    }
    return moved;
}

constexpr unsigned long Up = -1UL;
constexpr unsigned long Down = 1;

}  // namespace

// --- Questions -----------------------------------------------------------------------------

bool ListingModel::standsAtAPosition(const ModelEntry& entry) const {
    return std::any_of(_at.begin(), _at.end(),
                       [&](const auto& standing) { return same(*standing.second, entry); });
}

bool ListingModel::contains(const ModelEntry& entry) const {
    const auto isIt = [&](const Addition& addition) { return same(*addition.entry, entry); };
    return standsAtAPosition(entry) || std::any_of(_front.begin(), _front.end(), isIt) ||
           std::any_of(_back.begin(), _back.end(), isIt);
}

std::vector<ModelEntryPtr> ListingModel::items() const {
    std::vector<ModelEntryPtr> entries;
    for (const Addition& addition : _front) {
        if (!standsAtAPosition(*addition.entry)) {
            entries.push_back(addition.entry);
        }
    }
    for (const auto& [position, entry] : _at) {
        entries.push_back(entry);
    }
    for (const Addition& addition : _back) {
        if (!standsAtAPosition(*addition.entry)) {
            entries.push_back(addition.entry);
        }
    }
    return entries;
}

bool ListingModel::isPageLoaded(unsigned long offset, unsigned long count) const {
    if (count == 0) {
        return _emptyPages.count(offset) != 0;
    }
    const unsigned long end = offset + count;
    return all(_loaded, offset, end) ||
           (offset < _total && all(_loaded, offset, std::min(end, _total)));
}

// While a page is on its way, it is not current, and with a total that nothing explains none is.
bool ListingModel::isPageCurrent(unsigned long offset, unsigned long count) const {
    const unsigned long end = offset + count;
    const bool isOnItsWay =
        _merging && offset < _announced->first + _announced->second && _announced->first < end;
    if (isOnItsWay || (_isNew && !_isExplained)) {
        return false;
    }
    return all(_held, offset, _isBelieved || _isNew ? std::min(end, _total) : end);
}

// --- Deliveries ----------------------------------------------------------------------------

void ListingModel::addPage(unsigned long offset, unsigned long count) {
    _vacancy.reset();
    if (count == 0) {
        _emptyPages.insert(offset);
    }
    for (unsigned long position = offset; position < offset + count; ++position) {
        _loaded.insert(position);
    }
    _announced = {offset, count};
    _merging = true;
    _evicted.clear();
}

void ListingModel::totalCount(unsigned long total) {
    _vacancy.reset();
    _total = total;
    _isNew = true;
    if (_lastBelieved) {
        unsigned long additions = 0;
        for (const Additions* end : {&_front, &_back}) {
            for (const Addition& addition : *end) {
                additions += addition.counted ? 0 : 1;
            }
        }
        _isExplained = total + _removals >= *_lastBelieved && total <= *_lastBelieved + additions;
    }
}

void ListingModel::addItems(unsigned long offset, std::vector<ModelEntryPtr> delivered,
                            ModelPart part) {
    _vacancy.reset();
    const bool announced = _announced && _announced->first == offset;
    const unsigned long end = offset + (announced ? _announced->second : delivered.size());
    if (part != ModelPart::Whole) {
        std::vector<ModelEntryPtr> others;
        for (auto place = _at.lower_bound(offset); place != _at.end() && place->first < end;
             ++place) {
            const ModelEntryPtr& standing = place->second;
            const bool comesAgain = std::any_of(
                delivered.begin(), delivered.end(),
                [&](const ModelEntryPtr& entry) { return entry && same(*entry, *standing); });
            if (standing->isFolder != (part == ModelPart::Folders) && !comesAgain) {
                others.push_back(standing);
            }
        }
        // Folders stand before documents.
        delivered.insert(part == ModelPart::Folders ? delivered.end() : delivered.begin(),
                         others.begin(), others.end());
    }
    judgeTotal(offset, delivered);
    place(offset, end, std::move(delivered));
    bringBackEvicted(offset, end);
    dropWhatIsBehindTheTotal();
    _merging = false;
    _evicted.clear();
}

// A total that its own delivery contradicts is not believed; one that local edits do not explain
// takes every hold away.
void ListingModel::judgeTotal(unsigned long offset, const std::vector<ModelEntryPtr>& delivered) {
    if (!_isNew) {
        return;
    }
    _isNew = false;
    _isBelieved = true;
    for (unsigned long index = 0; index < delivered.size(); ++index) {
        _isBelieved = _isBelieved && (!delivered[index] || offset + index < _total);
    }
    if (!_isBelieved) {
        return;
    }
    if (!_isExplained) {
        _held.clear();
    }
    _held.erase(_held.lower_bound(_total), _held.end());
    _lastBelieved = _total;
    _removals = 0;
    for (Additions* end : {&_front, &_back}) {
        for (Addition& addition : *end) {
            addition.counted = addition.counted || addition.entry->idLoaded;
        }
    }
}

void ListingModel::place(unsigned long begin, unsigned long end,
                         std::vector<ModelEntryPtr> delivered) {
    // What is delivered beyond its page pushes nothing out of the next one.
    for (unsigned long position = end; position < begin + delivered.size(); ++position) {
        ModelEntryPtr& entry = delivered[position - begin];
        const auto standing = _at.find(position);
        if (standing != _at.end() && entry && !same(*standing->second, *entry)) {
            entry.reset();
        }
    }
    // An entry that stood elsewhere leaves a position that is no longer held.
    const auto before = _at;
    _at.erase(_at.lower_bound(begin), _at.lower_bound(end));
    for (unsigned long index = 0; index < delivered.size(); ++index) {
        for (const auto& [position, standing] : before) {
            const bool inPage = position >= begin && position < end;
            if (delivered[index] && !inPage && position != begin + index &&
                same(*standing, *delivered[index])) {
                _at.erase(position);
                _held.erase(position);
            }
        }
    }
    for (unsigned long index = 0; index < delivered.size(); ++index) {
        if (delivered[index]) {
            forgetAdditions(*delivered[index]);
            _at[begin + index] = delivered[index];
        }
    }
    for (unsigned long position = begin; position < end; ++position) {
        if (!_isBelieved || position < _total) {
            _held.insert(position);
        }
    }
}

void ListingModel::forgetAdditions(const ModelEntry& entry) {
    for (Additions* end : {&_front, &_back}) {
        end->erase(
            std::remove_if(end->begin(), end->end(),
                           [&](const Addition& addition) { return same(*addition.entry, entry); }),
            end->end());
    }
}

// What was taken by name while the page was merged comes back to where it was.
void ListingModel::bringBackEvicted(unsigned long begin, unsigned long end) {
    for (const Place& evicted : _evicted) {
        if (contains(*evicted.entry)) {
            continue;
        }
        if (evicted.additions) {
            Additions& additions = this->*evicted.additions;
            const auto index = std::min<std::size_t>(evicted.index, additions.size());
            additions.insert(additions.begin() + static_cast<std::ptrdiff_t>(index),
                             {evicted.entry, evicted.counted});
        } else if ((evicted.index < begin || evicted.index >= end) &&
                   _at.count(evicted.index) == 0) {
            _at[evicted.index] = evicted.entry;
        }
    }
}

// Once every position before the total is held, nothing else can be part of the listing.
void ListingModel::dropWhatIsBehindTheTotal() {
    if (!_isBelieved || !all(_held, 0, _total)) {
        return;
    }
    _at.erase(_at.lower_bound(_total), _at.end());
    for (Additions* end : {&_front, &_back}) {
        end->erase(std::remove_if(end->begin(), end->end(),
                                  [](const Addition& addition) {
                                      return addition.counted && addition.entry->idLoaded;
                                  }),
                   end->end());
    }
}

// --- Local edits ---------------------------------------------------------------------------

void ListingModel::addItem(const ModelEntryPtr& entry, bool front) {
    if (!entry) {
        return;
    }
    const bool filled = front && _vacancy && fillVacancy(entry);
    if (!filled && !contains(*entry)) {
        Additions& additions = front ? _front : _back;
        additions.insert(front ? additions.begin() : additions.end(), {entry, false});
    }
    _vacancy.reset();
}

bool ListingModel::fillVacancy(const ModelEntryPtr& entry) {
    const Place& vacancy = *_vacancy;
    const bool returns = vacancy.entry == entry;
    if (!returns && contains(*entry)) {
        return false;
    }
    if (vacancy.additions) {
        Additions& additions = this->*vacancy.additions;
        additions.insert(additions.begin() + static_cast<std::ptrdiff_t>(vacancy.index),
                         {entry, returns && vacancy.counted});
        _removals -= vacancy.counted ? 1 : 0;
    } else {
        if (vacancy.held) {
            makeRoom(vacancy.index);
            if (returns) {
                _held.insert(vacancy.index);
            }
        }
        _at[vacancy.index] = entry;
        --_removals;
    }
    if (_merging && !returns) {
        _evicted.push_back(vacancy);
    }
    return true;
}

void ListingModel::makeRoom(unsigned long position) {
    _at = shifted(_at, position, Down);
    _held = shifted(_held, position, Down);
    shiftEvicted(position, Down);
}

// A held position goes with its entry.
void ListingModel::takeOut(unsigned long position) {
    _at.erase(position);
    if (_held.erase(position) != 0) {
        _at = shifted(_at, position, Up);
        _held = shifted(_held, position, Up);
        shiftEvicted(position, Up);
    }
    ++_removals;
}

void ListingModel::shiftEvicted(unsigned long position, unsigned long by) {
    for (Place& evicted : _evicted) {
        if (!evicted.additions && evicted.index >= position) {
            evicted.index += by;
        }
    }
}

void ListingModel::removeItem(unsigned long id) {
    _vacancy.reset();
    if (id == 0) {
        return;
    }
    std::vector<unsigned long> positions;
    for (const auto& [position, entry] : _at) {
        if (entry->id == id) {
            positions.insert(positions.begin(), position);
        }
    }
    for (const unsigned long position : positions) {
        takeOut(position);
    }
    for (Additions* end : {&_front, &_back}) {
        Additions left;
        for (const Addition& addition : *end) {
            if (addition.entry->id != id) {
                left.push_back(addition);
            } else if (addition.counted) {
                ++_removals;
            }
        }
        *end = left;
    }
}

bool ListingModel::removeItemByName(const ModelEntryPtr& entry) {
    const std::optional<Place> found = entry ? findByName(entry) : std::nullopt;
    _vacancy.reset();
    if (!found) {
        return false;
    }
    if (found->additions) {
        Additions& additions = this->*found->additions;
        additions.erase(additions.begin() + static_cast<std::ptrdiff_t>(found->index));
        _removals += found->counted ? 1 : 0;
    } else {
        takeOut(found->index);
    }
    _vacancy = found;
    return true;
}

// The very entry, or else the first of its name.
std::optional<ListingModel::Place> ListingModel::findByName(const ModelEntryPtr& entry) const {
    const auto first = [this](auto isWanted) -> std::optional<Place> {
        const auto among = [&](Additions ListingModel::*additions) -> std::optional<Place> {
            unsigned long index = 0;
            for (const Addition& addition : this->*additions) {
                if (isWanted(addition.entry)) {
                    return Place{additions, index, false, addition.counted, addition.entry};
                }
                ++index;
            }
            return std::nullopt;
        };
        if (const auto found = among(&ListingModel::_front)) {
            return found;
        }
        for (const auto& [position, standing] : _at) {
            if (isWanted(standing)) {
                return Place{nullptr, position, _held.count(position) != 0, false, standing};
            }
        }
        return among(&ListingModel::_back);
    };
    if (const auto itself = first([&](const ModelEntryPtr& other) { return other == entry; })) {
        return itself;
    }
    return first([&](const ModelEntryPtr& other) { return other->name == entry->name; });
}

}  // namespace Ormek::Testing
