#include "model/Listing.h"

#include <algorithm>
#include <limits>

#include "model/Container.h"

namespace Ormek {

namespace {

using Entry = Listing::Entry;

unsigned long endOf(unsigned long offset, unsigned long count) {
    const unsigned long last = std::numeric_limits<unsigned long>::max();
    return count > last - offset ? last : offset + count;
}

bool isFolder(const Entry& entry) { return dynamic_cast<const Container*>(entry.get()) != nullptr; }

bool isAmong(const std::vector<Entry>& entries, const Item& item) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Entry& entry) { return entry && sameEntry(*entry, item); });
}

}  // namespace

// --- Looking -------------------------------------------------------------------------------

// False once an addition has been given the id of an entry that the service delivered meanwhile.
bool Listing::stillStands(const Entry& addition) const { return !_entries.contains(*addition); }

unsigned long Listing::count() const {
    unsigned long entries = _entries.size();
    for (const Additions* additions : {&_front, &_back}) {
        additions->forEach([&](const Entry& addition, unsigned long /*index*/) {
            entries += stillStands(addition) ? 1 : 0;
        });
    }
    return entries;
}

std::vector<Entry> Listing::items() const {
    std::vector<Entry> all;
    all.reserve(_entries.size() + _front.size() + _back.size());
    const auto append = [&](const Additions& additions) {
        additions.forEach([&](const Entry& addition, unsigned long /*index*/) {
            if (stillStands(addition)) {
                all.push_back(addition);
            }
        });
    };
    append(_front);
    _entries.copyTo(all, 0, std::numeric_limits<unsigned long>::max());
    append(_back);
    return all;
}

// An addition that the total counts has a position of its own, and comes with that one's page.
void Listing::appendToPage(std::vector<Entry>& page, const Additions& additions) const {
    additions.forEach([&](const Entry& addition, unsigned long index) {
        if (!additions.isOver(index) && stillStands(addition)) {
            page.push_back(addition);
        }
    });
}

std::vector<Entry> Listing::page(unsigned long offset, unsigned long count) const {
    std::vector<Entry> entries;
    if (count == 0) {
        return entries;
    }
    const unsigned long end = endOf(offset, count);
    const unsigned long listingEnd = limit().value_or(_entries.end());
    const bool atEnd = end >= listingEnd && (offset < listingEnd || offset == 0);
    entries.reserve(std::min(count, _entries.size()) + (offset == 0 ? _front.size() : 0) +
                    (atEnd ? _back.size() : 0));
    if (offset == 0) {
        appendToPage(entries, _front);
    }
    _entries.copyTo(entries, offset, end);
    if (atEnd) {
        appendToPage(entries, _back);
    }
    return entries;
}

Entry Listing::itemByName(const std::string& name) const {
    if (const auto index = _front.findName(name)) {
        return _front.at(*index);
    }
    if (const auto position = _entries.firstOfName(name)) {
        return *_entries.at(*position);
    }
    const auto index = _back.findName(name);
    return index ? _back.at(*index) : nullptr;
}

bool Listing::contains(unsigned long id) const {
    return _entries.firstOfId(id).has_value() || _front.contains(id) || _back.contains(id);
}

bool Listing::isPageLoaded(unsigned long offset, unsigned long count) const {
    if (count == 0) {
        return std::binary_search(_emptyPages.begin(), _emptyPages.end(), offset);
    }
    const unsigned long end = endOf(offset, count);
    return _loaded.covers(offset, end) ||
           (offset < _totalCount && _loaded.covers(offset, std::min(end, _totalCount)));
}

bool Listing::isPageCurrent(unsigned long offset, unsigned long count) const {
    if (_doubted || (!_totals.judged && !_totals.explained)) {
        return false;
    }
    const unsigned long end = endOf(offset, count);
    if (_merging && offset < endOf(_announced->first, _announced->second) &&
        _announced->first < end) {
        return false;
    }
    return _held.covers(offset, std::min(end, limit().value_or(end)));
}

std::optional<unsigned long> Listing::heldPositionOf(unsigned long id) const {
    const auto position = _entries.firstOfId(id);
    return position && _held.contains(*position) ? position : std::nullopt;
}

// Where the listing ends, when that is known.
std::optional<unsigned long> Listing::limit() const {
    if (_totals.judged && !_totals.believed) {
        return std::nullopt;
    }
    return _totalCount;
}

// --- Deliveries ----------------------------------------------------------------------------

void Listing::invalidate() {
    _vacancy.reset();
    _held.clear();
    _doubted = true;
}

void Listing::addPage(unsigned long offset, unsigned long count) {
    if (count != 0) {
        _loaded.add(offset, endOf(offset, count));
    } else {
        const auto place = std::lower_bound(_emptyPages.begin(), _emptyPages.end(), offset);
        if (place == _emptyPages.end() || *place != offset) {
            _emptyPages.insert(place, offset);
        }
    }
    _vacancy.reset();
    _announced = {offset, count};
    _merging = true;
    _evicted.clear();
}

void Listing::totalCount(unsigned long total) {
    _vacancy.reset();
    _totalCount = total;
    _totals.judged = false;
    // What a merge adds before the page itself comes is no local edit.
    _totals.explained = isExplained(total);
}

void Listing::addItems(unsigned long offset, std::vector<Entry> delivered, PagePart part) {
    const Page page = pageAt(offset, delivered.size());
    std::vector<Entry> arranged = arrange(page, std::move(delivered), part);
    RangeSet held = _held;
    const Totals totals = judge(offset, arranged, held);
    dropBlocked(page, arranged);
    const std::vector<unsigned long> left = positionsLeft(page, arranged);
    for (const unsigned long position : left) {
        held.remove(position, position + 1);
    }
    held.add(page.begin, totals.believed ? std::min(page.end, _totalCount) : page.end);
    makeRoom(page.begin, page.begin + arranged.size());

    // Nothing fails from here on.
    _vacancy.reset();
    if (!_totals.judged && totals.believed) {
        _front.count();
        _back.count();
    }
    for (const unsigned long position : left) {
        _entries.take(position);
    }
    for (const Entry& entry : arranged) {
        if (entry) {
            forget(*entry);
        }
    }
    place(page, std::move(arranged));
    std::swap(_held, held);
    _totals = totals;
    _doubted = false;
    restoreEvicted(page);
    leaveBehindTotal();
    _merging = false;
    _evicted.clear();
}

// What is delivered beyond the page leaves what stands at a position of which it brings nothing.
void Listing::place(const Page& page, std::vector<Entry> arranged) noexcept {
    const unsigned long length = page.end - page.begin;
    for (unsigned long index = length; index < arranged.size(); ++index) {
        const Entry* standing = _entries.at(page.begin + index);
        if (!arranged[index] && standing) {
            arranged[index] = *standing;
        }
    }
    if (arranged.size() < length) {
        _entries.vacate(page.begin + arranged.size(), page.end);
    }
    _entries.replace(page.begin, std::move(arranged));
}

Listing::Page Listing::pageAt(unsigned long offset, unsigned long delivered) const {
    const bool announced = _announced && _announced->first == offset;
    return {offset, endOf(offset, announced ? _announced->second : delivered)};
}

// The page as it will stand: folders before documents, and a delivery of the one kind leaves the
// other in place.
std::vector<Entry> Listing::arrange(const Page& page, std::vector<Entry> delivered,
                                    PagePart part) const {
    const unsigned long last = std::numeric_limits<unsigned long>::max();
    if (part != PagePart::Whole) {
        std::vector<Entry> others;
        _entries.copyTo(others, page.begin, page.end);
        others.erase(std::remove_if(others.begin(), others.end(),
                                    [&](const Entry& entry) {
                                        return isFolder(entry) == (part == PagePart::Folders) ||
                                               isAmong(delivered, *entry);
                                    }),
                     others.end());
        const auto place = part == PagePart::Folders ? delivered.end() : delivered.begin();
        delivered.insert(place, others.begin(), others.end());
    }
    if (delivered.size() > last - page.begin) {
        delivered.resize(last - page.begin);
    }
    return delivered;
}

// A delivery longer than its page pushes nothing out of the next one: what is in its way stays.
void Listing::dropBlocked(const Page& page, std::vector<Entry>& arranged) const {
    for (unsigned long index = page.end - page.begin; index < arranged.size(); ++index) {
        const Entry* standing = _entries.at(page.begin + index);
        if (standing && arranged[index] && !sameEntry(**standing, *arranged[index])) {
            arranged[index].reset();
        }
    }
}

// The positions outside the page that its entries are moved away from.
std::vector<unsigned long> Listing::positionsLeft(const Page& page,
                                                  const std::vector<Entry>& arranged) const {
    std::vector<unsigned long> left;
    unsigned long arrival = page.begin;
    for (const Entry& entry : arranged) {
        const bool moves = entry && !_entries.standsOnlyAt(arrival, *entry);
        const auto positions = moves ? _entries.positionsOf(*entry) : std::vector<unsigned long>();
        for (const unsigned long position : positions) {
            const bool inPage = position >= page.begin && position < page.end;
            if (!inPage && position != arrival) {
                left.push_back(position);
            }
        }
        ++arrival;
    }
    return left;
}

void Listing::forget(const Item& item) noexcept {
    _front.forget(item);
    _back.forget(item);
}

// For a delivery and for what comes back after it. On failure the listing ends where it ended.
void Listing::makeRoom(unsigned long begin, unsigned long end) {
    const unsigned long listingEnd = _entries.end();
    try {
        _entries.reserve(begin, end, _evicted.size());
        reserveEvicted();
    } catch (...) {
        _entries.truncate(listingEnd);
        throw;
    }
}

void Listing::reserveEvicted() {
    for (const Vacancy& evicted : _evicted) {
        if (evicted.place == Vacancy::Place::Position) {
            _entries.reserve(evicted.position, evicted.position + 1);
        } else {
            additionsAt(evicted.place).reserve(_evicted.size());
        }
    }
}

// Otherwise two namesakes on different pages would evict each other for ever.
void Listing::restoreEvicted(const Page& page) noexcept {
    for (Vacancy& evicted : _evicted) {
        const unsigned long position = evicted.position;
        const bool inPage = position >= page.begin && position < page.end;
        if (contains(*evicted.entry)) {
            continue;
        }
        if (evicted.place != Vacancy::Place::Position) {
            Additions& additions = additionsAt(evicted.place);
            additions.insert(std::min(position, additions.size()), std::move(evicted.entry),
                             evicted.counted);
        } else if (!inPage && !_entries.at(position)) {
            _entries.put(position, std::move(evicted.entry));
        }
    }
}

// --- Totals --------------------------------------------------------------------------------

bool Listing::isExplained(unsigned long total) const {
    if (!_totals.last) {
        return true;
    }
    const unsigned long additions = _front.open() + _back.open();
    const unsigned long last = *_totals.last;
    return total >= last - std::min(last, _totals.removals) && total <= endOf(last, additions);
}

// What becomes of the totals with this delivery; a total that nothing here explains takes all
// holds away.
Listing::Totals Listing::judge(unsigned long offset, const std::vector<Entry>& delivered,
                               RangeSet& held) const {
    Totals totals = _totals;
    if (_totals.judged) {
        return totals;
    }
    totals.judged = true;
    const unsigned long inside = _totalCount > offset ? _totalCount - offset : 0;
    totals.believed = delivered.size() <= inside ||
                      std::all_of(delivered.begin() + static_cast<std::ptrdiff_t>(inside),
                                  delivered.end(), [](const Entry& entry) { return !entry; });
    if (!totals.believed) {
        return totals;
    }
    if (!totals.explained) {
        held.clear();
    }
    // What lay behind the end of the listing says nothing about it when it has grown.
    held.remove(_totalCount, std::numeric_limits<unsigned long>::max());
    totals.last = _totalCount;
    totals.removals = 0;
    return totals;
}

// Once every position before the total is known, nothing else can be part of the listing.
void Listing::leaveBehindTotal() noexcept {
    if (!_totals.believed || !_held.covers(0, _totalCount)) {
        return;
    }
    _entries.truncate(_totalCount);
    _front.dropOver();
    _back.dropOver();
}

// --- Local edits ---------------------------------------------------------------------------

bool Listing::contains(const Item& item) const {
    return _entries.contains(item) || _front.contains(item) || _back.contains(item);
}

void Listing::addItem(Entry item, bool front) {
    if (!item) {
        return;
    }
    if (_vacancy && front) {
        fill(*_vacancy, item);
    } else if (!contains(*item)) {
        Additions& additions = front ? _front : _back;
        additions.insert(front ? 0 : additions.size(), std::move(item), false);
    }
    _vacancy.reset();
}

void Listing::removeItem(unsigned long id) {
    _vacancy.reset();
    while (const auto position = _entries.firstOfId(id)) {
        eraseAt(*position);
    }
    _totals.removals += _front.remove(id) + _back.remove(id);
}

// A held position goes with its entry; one that is not held says nothing about what stands behind.
void Listing::eraseAt(unsigned long position) noexcept {
    if (_held.contains(position)) {
        _entries.erase(position);
        _held.erase(position);
        shiftEvicted(position, true);
    } else {
        _entries.take(position);
    }
    ++_totals.removals;
}

void Listing::shiftEvicted(unsigned long position, bool up) noexcept {
    for (Vacancy& evicted : _evicted) {
        if (evicted.place == Vacancy::Place::Position && evicted.position >= position) {
            evicted.position += up ? -1UL : 1UL;
        }
    }
}

bool Listing::removeItemByName(const Entry& item) {
    std::optional<Vacancy> vacancy = item ? findByName(item) : std::nullopt;
    _vacancy.reset();
    if (!vacancy) {
        return false;
    }
    const unsigned long position = vacancy->position;
    if (vacancy->place != Vacancy::Place::Position) {
        additionsAt(vacancy->place).erase(position);
        _totals.removals += vacancy->counted ? 1 : 0;
    } else {
        eraseAt(position);
    }
    _vacancy = std::move(vacancy);
    return true;
}

// A removal undone: what moved up moves down again. Whether this is still the place is not known.
void Listing::restoreItem(Entry item, unsigned long position) {
    if (!item || contains(*item)) {
        _vacancy.reset();
        return;
    }
    RangeSet held = _held;
    held.insertGap(position);
    _entries.insert(position, std::move(item));
    shiftEvicted(position, false);
    _totals.removals -= _totals.removals == 0 ? 0 : 1;
    std::swap(_held, held);
    _vacancy.reset();
}

bool Listing::containsObject(const Item& item) const {
    return _entries.containsObject(item) || _front.containsObject(item) ||
           _back.containsObject(item);
}

// One that stands here is taken out and put back, which changes nothing.
void Listing::replaceItem(const Entry& item, bool front) {
    if (item && containsObject(*item)) {
        _vacancy.reset();
        return;
    }
    const bool removed = removeItemByName(item);
    addItem(item, removed || front);
}

Additions& Listing::additionsAt(Vacancy::Place place) {
    return place == Vacancy::Place::Front ? _front : _back;
}

// This very entry, or else the first one of its name.
std::optional<Listing::Vacancy> Listing::findByName(const Entry& item) const {
    using Place = Vacancy::Place;
    const auto among = [](const Additions& additions, Place place,
                          std::optional<unsigned long> index) -> std::optional<Vacancy> {
        if (!index) {
            return std::nullopt;
        }
        return Vacancy{place, *index, false, additions.isCounted(*index), additions.at(*index)};
    };
    const auto atPosition = [this](unsigned long position) {
        return Vacancy{Place::Position, position, _held.contains(position), false,
                       *_entries.at(position)};
    };
    if (auto found = among(_front, Place::Front, _front.find(*item))) {
        return found;
    }
    if (const auto position = _entries.firstOf(*item)) {
        return atPosition(*position);
    }
    if (auto found = among(_back, Place::Back, _back.find(*item))) {
        return found;
    }
    const std::string name = item->name();
    if (auto found = among(_front, Place::Front, _front.findName(name))) {
        return found;
    }
    if (const auto position = _entries.firstOfName(name)) {
        return atPosition(*position);
    }
    return among(_back, Place::Back, _back.findName(name));
}

// Puts an entry where one of its name has just been removed, unless it stands elsewhere.
void Listing::fill(const Vacancy& vacancy, const Entry& item) {
    const bool returns = vacancy.entry == item;
    if (!returns && contains(*item)) {
        return;
    }
    const unsigned long position = vacancy.position;
    const bool evicts = _merging && !returns;
    if (evicts) {
        _evicted.reserve(_evicted.size() + 1);
    }
    if (vacancy.place != Vacancy::Place::Position) {
        additionsAt(vacancy.place).insert(position, item, returns && vacancy.counted);
        _totals.removals -= vacancy.counted ? 1 : 0;
    } else if (vacancy.held) {
        _held.reserve();
        _entries.insert(position, item);
        returns ? _held.insert(position) : _held.insertGap(position);
        shiftEvicted(position, false);
        --_totals.removals;
    } else {
        _entries.reserve(position, position + 1);
        _entries.put(position, item);
        --_totals.removals;
    }
    if (evicts) {
        _evicted.push_back(vacancy);
    }
}

}  // namespace Ormek
