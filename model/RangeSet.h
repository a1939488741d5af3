#pragma once

#include <cstddef>
#include <vector>

namespace Ormek {

/// A set of positions, kept as the fewest ranges that make it up, in ascending order.
class RangeSet {
  public:
    /// Adds `begin` … `end - 1`. Changes nothing when memory runs out.
    void add(unsigned long begin, unsigned long end);
    /// Takes `begin` … `end - 1` out. Changes nothing when memory runs out.
    void remove(unsigned long begin, unsigned long end);
    /// Takes one position out; what stands behind it moves up by one.
    void erase(unsigned long position) noexcept;
    /// Makes room for one insertGap() or insert(), which cannot fail then.
    void reserve();
    /// Puts in a position that is not in the set; what stands from there on moves down.
    void insertGap(unsigned long position);
    /// Puts in a position that is in the set; what stands from there on moves down.
    void insert(unsigned long position);
    void clear() noexcept { _ranges.clear(); }

    bool contains(unsigned long position) const noexcept { return covers(position, position + 1); }
    /// Whether all of `begin` … `end - 1` is in the set; always so when that is nothing.
    bool covers(unsigned long begin, unsigned long end) const noexcept;

  private:
    struct Range {
        unsigned long begin;
        unsigned long end;
    };

    // The first range that ends behind `position`.
    std::size_t firstEndingBehind(unsigned long position) const noexcept;
    static void moveEnd(Range& range) noexcept;
    void moveDown(std::size_t index) noexcept;

    std::vector<Range> _ranges;
};

}  // namespace Ormek
