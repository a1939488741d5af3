#include "model/RangeSet.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <limits>
#include <set>
#include <string>
#include <vector>

#include "tests/support/FixedCases.h"

namespace Ormek::Testing {
namespace {

constexpr unsigned long Last = std::numeric_limits<unsigned long>::max();
constexpr unsigned long Width = 14;

/// The same set, one position at a time.
class Positions {
  public:
    void add(unsigned long begin, unsigned long end) {
        for (unsigned long position = begin; position < end; ++position) {
            _positions.insert(position);
        }
    }
    void remove(unsigned long begin, unsigned long end) {
        for (unsigned long position = begin; position < end; ++position) {
            _positions.erase(position);
        }
    }
    void erase(unsigned long position) {
        _positions.erase(position);
        shift(position, -1UL);
    }
    void insertGap(unsigned long position) { shift(position, 1); }
    void insert(unsigned long position) {
        shift(position, 1);
        _positions.insert(position);
    }
    void clear() { _positions.clear(); }

    bool covers(unsigned long begin, unsigned long end) const {
        for (unsigned long position = begin; position < end; ++position) {
            if (_positions.count(position) == 0) {
                return false;
            }
        }
        return true;
    }

  private:
    void shift(unsigned long from, unsigned long by) {
        std::set<unsigned long> shifted;
        for (const unsigned long position : _positions) {
            shifted.insert(position < from ? position : position + by);
        }
        _positions = shifted;
    }

    std::set<unsigned long> _positions;
};

/// A run of edits, done to both; says after which one they differ.
void editBoth(RangeSet& ranges, Positions& positions) {
    const auto position = [] { return *rc::gen::inRange(0UL, Width); };
    for (int edit = *rc::gen::inRange(1, 40); edit > 0; --edit) {
        const unsigned long begin = position();
        const unsigned long end = position();
        switch (*rc::gen::weightedElement<int>({{6, 0}, {4, 1}, {3, 2}, {3, 3}, {3, 4}, {1, 5}})) {
            case 0:
                ranges.add(begin, end);
                positions.add(begin, end);
                break;
            case 1:
                ranges.remove(begin, end);
                positions.remove(begin, end);
                break;
            case 2:
                ranges.erase(begin);
                positions.erase(begin);
                break;
            case 3:
                ranges.insertGap(begin);
                positions.insertGap(begin);
                break;
            case 4:
                ranges.insert(begin);
                positions.insert(begin);
                break;
            default:
                ranges.clear();
                positions.clear();
        }
        for (unsigned long from = 0; from < 2 * Width; ++from) {
            RC_ASSERT(ranges.contains(from) == positions.covers(from, from + 1));
            for (unsigned long to = 0; to < 2 * Width; ++to) {
                RC_ASSERT(ranges.covers(from, to) == positions.covers(from, to));
            }
        }
    }
}

TEST(RangeSetTest, HasThePositionsThatOneByOneWouldBeThere) {
    EXPECT_TRUE(holds("a set of ranges is a set of positions", 150, 100, [] {
        RangeSet ranges;
        Positions positions;
        editBoth(ranges, positions);
    }));
}

TEST(RangeSetTest, ReachesToTheLastPositionThereIs) {
    RangeSet ranges;
    ranges.add(Last - 4, Last);
    EXPECT_TRUE(ranges.covers(Last - 4, Last));
    EXPECT_FALSE(ranges.covers(Last - 5, Last));
    ranges.remove(Last - 2, Last);
    EXPECT_TRUE(ranges.covers(Last - 4, Last - 2));
    EXPECT_FALSE(ranges.contains(Last - 2));
}

TEST(RangeSetTest, EndOfARangeThatReachesAsFarAsPositionsGoStaysThere) {
    RangeSet ranges;
    ranges.add(10, Last);
    ranges.insertGap(20);
    EXPECT_TRUE(ranges.covers(10, 20));
    EXPECT_FALSE(ranges.contains(20));
    EXPECT_TRUE(ranges.covers(21, Last));
    ranges.insert(5);
    ranges.insert(30);
    EXPECT_TRUE(ranges.contains(5));
    EXPECT_FALSE(ranges.contains(10));
    EXPECT_TRUE(ranges.covers(22, Last));
    ranges.remove(20, 22);
    ranges.insert(21);
    EXPECT_FALSE(ranges.contains(22));
    EXPECT_TRUE(ranges.covers(23, Last));
}

TEST(RangeSetTest, WhatMovesPastTheLastPositionIsGone) {
    RangeSet ranges;
    ranges.add(Last - 1, Last);
    for (int times = 0; times < 3; ++times) {
        ranges.insertGap(0);
        EXPECT_FALSE(ranges.covers(5, 6));
        EXPECT_FALSE(ranges.covers(Last - 1, Last));
    }
    ranges.add(Last - 1, Last);
    ranges.insert(0);
    ranges.insert(0);
    EXPECT_TRUE(ranges.covers(0, 2));
    EXPECT_FALSE(ranges.covers(5, 6));
    EXPECT_FALSE(ranges.covers(Last - 1, Last));
}

TEST(RangeSetTest, RangesThatMeetAreOne) {
    RangeSet ranges;
    ranges.add(0, 3);
    ranges.add(4, 6);
    ranges.erase(3);
    EXPECT_TRUE(ranges.covers(0, 5));
    EXPECT_FALSE(ranges.contains(5));
}

TEST(RangeSetTest, NothingIsLeftOfRangesThatMetAndWereRemoved) {
    RangeSet ranges;
    ranges.add(0, 5);
    ranges.add(6, 9);
    ranges.erase(5);
    ranges.remove(0, 7);
    ranges.erase(7);
    for (unsigned long position = 0; position < 9; ++position) {
        EXPECT_FALSE(ranges.contains(position)) << position;
    }
}

TEST(RangeSetTest, NothingIsAlwaysCovered) {
    const RangeSet ranges;
    EXPECT_TRUE(ranges.covers(0, 0));
    EXPECT_TRUE(ranges.covers(5, 5));
    EXPECT_TRUE(ranges.covers(6, 5));
    EXPECT_FALSE(ranges.contains(0));
}

}  // namespace
}  // namespace Ormek::Testing
