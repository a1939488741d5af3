#include "model/RangeSet.h"

#include <algorithm>

#include "model/MakeRoom.h"

namespace Ormek {

std::size_t RangeSet::firstEndingBehind(unsigned long position) const noexcept {
    const auto found =
        std::upper_bound(_ranges.begin(), _ranges.end(), position,
                         [](unsigned long value, const Range& range) { return value < range.end; });
    return static_cast<std::size_t>(found - _ranges.begin());
}

void RangeSet::add(unsigned long begin, unsigned long end) {
    if (begin >= end) {
        return;
    }
    // Ranges that touch the new one are joined with it.
    const std::size_t first = begin == 0 ? 0 : firstEndingBehind(begin - 1);
    std::size_t last = first;
    Range joined{begin, end};
    while (last < _ranges.size() && _ranges[last].begin <= end) {
        joined.begin = std::min(joined.begin, _ranges[last].begin);
        joined.end = std::max(joined.end, _ranges[last].end);
        ++last;
    }
    const auto place = _ranges.begin() + static_cast<std::ptrdiff_t>(first);
    if (first == last) {
        _ranges.insert(place, joined);
        return;
    }
    *place = joined;
    _ranges.erase(place + 1, _ranges.begin() + static_cast<std::ptrdiff_t>(last));
}

void RangeSet::remove(unsigned long begin, unsigned long end) {
    if (begin >= end) {
        return;
    }
    std::size_t index = firstEndingBehind(begin);
    if (index < _ranges.size() && _ranges[index].begin < begin) {
        if (_ranges[index].end > end) {
            const Range behind{end, _ranges[index].end};
            _ranges.insert(_ranges.begin() + static_cast<std::ptrdiff_t>(index) + 1, behind);
        }
        _ranges[index].end = begin;
        ++index;
    }
    std::size_t last = index;
    while (last < _ranges.size() && _ranges[last].end <= end) {
        ++last;
    }
    if (last < _ranges.size() && _ranges[last].begin < end) {
        _ranges[last].begin = end;
    }
    _ranges.erase(_ranges.begin() + static_cast<std::ptrdiff_t>(index),
                  _ranges.begin() + static_cast<std::ptrdiff_t>(last));
}

void RangeSet::erase(unsigned long position) noexcept {
    std::size_t index = firstEndingBehind(position);
    if (index < _ranges.size() && _ranges[index].begin <= position) {
        --_ranges[index].end;
        if (_ranges[index].begin == _ranges[index].end) {
            _ranges.erase(_ranges.begin() + static_cast<std::ptrdiff_t>(index));
        } else {
            ++index;
        }
    }
    for (std::size_t behind = index; behind < _ranges.size(); ++behind) {
        --_ranges[behind].begin;
        --_ranges[behind].end;
    }
    if (index > 0 && index < _ranges.size() && _ranges[index - 1].end == _ranges[index].begin) {
        _ranges[index - 1].end = _ranges[index].end;
        _ranges.erase(_ranges.begin() + static_cast<std::ptrdiff_t>(index));
    }
}

// The end of a range that reaches as far as positions go stays where it is.
void RangeSet::moveEnd(Range& range) noexcept { range.end += range.end + 1 == 0 ? 0 : 1; }

// Moves the ranges from this one on by one position. What lay at the last position there is goes.
void RangeSet::moveDown(std::size_t index) noexcept {
    for (; index < _ranges.size(); ++index) {
        ++_ranges[index].begin;
        moveEnd(_ranges[index]);
    }
    if (!_ranges.empty() && _ranges.back().begin == _ranges.back().end) {
        _ranges.pop_back();
    }
}

void RangeSet::reserve() { makeRoom(_ranges); }

void RangeSet::insertGap(unsigned long position) {
    std::size_t index = firstEndingBehind(position);
    if (index < _ranges.size() && _ranges[index].begin < position) {
        const Range behind{position, _ranges[index].end};
        _ranges.insert(_ranges.begin() + static_cast<std::ptrdiff_t>(index) + 1, behind);
        _ranges[index].end = position;
        ++index;
    }
    moveDown(index);
}

void RangeSet::insert(unsigned long position) {
    // A range that ends there is made longer.
    std::size_t index = position == 0 ? 0 : firstEndingBehind(position - 1);
    if (index < _ranges.size() && _ranges[index].begin <= position) {
        moveEnd(_ranges[index]);
    } else {
        const Range alone{position, position + 1};
        _ranges.insert(_ranges.begin() + static_cast<std::ptrdiff_t>(index), alone);
    }
    moveDown(index + 1);
}

bool RangeSet::covers(unsigned long begin, unsigned long end) const noexcept {
    if (begin >= end) {
        return true;
    }
    const std::size_t index = firstEndingBehind(begin);
    return index < _ranges.size() && _ranges[index].begin <= begin && _ranges[index].end >= end;
}

}  // namespace Ormek
