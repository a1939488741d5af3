#include "model/ItemIndex.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <random>
#include <utility>
#include <vector>

#include "model/Object.h"
#include "tests/support/AllocationFaults.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

/// An entry and its number.
using Found = std::pair<const Item*, std::uint32_t>;

std::vector<Found> under(const ItemIndex& index, std::uint64_t hash) {
    std::vector<Found> found;
    index.find(hash, [&](const ItemIndex::Cell& cell) {
        found.emplace_back(cell.item, cell.number);
        return false;
    });
    return found;
}

class ItemIndexTest : public ::testing::Test {
  protected:
    void insert(std::uint64_t hash, std::size_t entry, std::uint32_t number) {
        index.reserve(1);
        index.insert(hash, &entries[entry], number);
    }

    std::array<Object, 8> entries;
    ItemIndex index;
};

TEST_F(ItemIndexTest, FindsNothingInAnEmptyIndex) {
    EXPECT_THAT(under(index, 0), IsEmpty());
    EXPECT_FALSE(index.has(0, &entries[0]));
    EXPECT_FALSE(index.erase(0, &entries[0], 1));
}

TEST_F(ItemIndexTest, FindsEverythingUnderAHash) {
    insert(5, 0, 1);
    insert(5, 1, 2);
    insert(6, 2, 3);
    insert(5, 0, 4);
    EXPECT_THAT(under(index, 5), UnorderedElementsAre(Found(&entries[0], 1), Found(&entries[1], 2),
                                                      Found(&entries[0], 4)));
    EXPECT_THAT(under(index, 6), ElementsAre(Found(&entries[2], 3)));
    EXPECT_THAT(under(index, 7), IsEmpty());
    EXPECT_TRUE(index.has(5, &entries[1]));
    EXPECT_FALSE(index.has(6, &entries[1]));
}

TEST_F(ItemIndexTest, StopsWhereItIsToldTo) {
    insert(5, 0, 1);
    insert(5, 1, 2);
    int visited = 0;
    EXPECT_TRUE(index.find(5, [&](const ItemIndex::Cell&) { return ++visited == 1; }));
    EXPECT_EQ(visited, 1);
    EXPECT_FALSE(index.find(5, [](const ItemIndex::Cell&) { return false; }));
}

TEST_F(ItemIndexTest, ErasesTheVeryCell) {
    insert(5, 0, 1);
    insert(5, 0, 2);
    insert(5, 1, 1);
    EXPECT_FALSE(index.erase(5, &entries[1], 2));
    EXPECT_FALSE(index.erase(6, &entries[0], 3));
    EXPECT_TRUE(index.erase(5, &entries[0], 1));
    EXPECT_FALSE(index.erase(5, &entries[0], 1));
    EXPECT_THAT(under(index, 5),
                UnorderedElementsAre(Found(&entries[0], 2), Found(&entries[1], 1)));
}

TEST_F(ItemIndexTest, RenumbersTheVeryCell) {
    insert(5, 0, 1);
    insert(5, 0, 2);
    insert(5, 1, 1);
    index.renumber(5, &entries[0], 1, 7);
    index.renumber(5, &entries[1], 9, 8);
    EXPECT_THAT(under(index, 5), UnorderedElementsAre(Found(&entries[0], 7), Found(&entries[0], 2),
                                                      Found(&entries[1], 1)));
}

TEST_F(ItemIndexTest, MovesAllCellsOfAnEntry) {
    insert(5, 0, 1);
    insert(5, 1, 2);
    insert(5, 0, 3);
    index.move(5, &entries[0], 6);
    EXPECT_THAT(under(index, 5), ElementsAre(Found(&entries[1], 2)));
    EXPECT_THAT(under(index, 6),
                UnorderedElementsAre(Found(&entries[0], 1), Found(&entries[0], 3)));
    index.move(6, &entries[0], 6);
    EXPECT_EQ(under(index, 6).size(), 2u);
}

TEST_F(ItemIndexTest, NothingIsLeftOnceItIsCleared) {
    for (std::uint64_t hash = 0; hash < 100; ++hash) {
        insert(hash, hash % 8, 1);
    }
    index.clear();
    for (std::uint64_t hash = 0; hash < 100; ++hash) {
        EXPECT_THAT(under(index, hash), IsEmpty());
    }
    const AllocationFaults faults(1);
    index.reserve(100);
    EXPECT_FALSE(faults.struck()) << "there was room for as many";
}

TEST_F(ItemIndexTest, RoomIsKeptWhenItIsCleared) {
    index.reserve(12);
    index.clear();
    const AllocationFaults faults(1);
    index.reserve(12);
    EXPECT_FALSE(faults.struck());
}

TEST_F(ItemIndexTest, InsertsWithoutMemoryWhereRoomWasMade) {
    for (std::size_t count = 1; count < 200; ++count) {
        ItemIndex some;
        some.reserve(count);
        const AllocationFaults faults(1);
        for (std::size_t hash = 0; hash < count; ++hash) {
            some.insert(hash, entries.data(), static_cast<std::uint32_t>(hash));
        }
        ASSERT_FALSE(faults.struck());
        for (std::size_t hash = 0; hash <= count; ++hash) {
            ASSERT_EQ(some.has(hash, entries.data()), hash < count) << count;
        }
    }
}

TEST_F(ItemIndexTest, CellsThatComeAndGoNeedNoMoreRoom) {
    for (std::uint64_t hash = 0; hash < 100; ++hash) {
        insert(hash, 0, 1);
    }
    insert(100, 0, 1);
    const AllocationFaults faults(1);
    for (std::uint64_t hash = 100; hash < 5000; ++hash) {
        ASSERT_TRUE(index.erase(hash, &entries[0], 1));
        insert(hash + 1, 0, 1);
    }
    EXPECT_FALSE(faults.struck());
}

TEST_F(ItemIndexTest, KeepsWhatItHasWithoutMemoryForMore) {
    for (std::uint64_t hash = 0; hash < 12; ++hash) {
        insert(hash, 0, 1);
    }
    {
        const AllocationFaults faults(1);
        EXPECT_THROW(index.reserve(1000), std::bad_alloc);
    }
    for (std::uint64_t hash = 0; hash < 12; ++hash) {
        EXPECT_TRUE(index.has(hash, &entries[0]));
    }
}

/// The same, as a list of all cells.
struct PlainCell {
    std::uint64_t hash;
    const Item* item;
    std::uint32_t number;
};

TEST_F(ItemIndexTest, FindsWhatAListOfAllCellsWould) {
    std::mt19937 random{14};
    const auto below = [&](std::uint32_t end) {
        return static_cast<std::uint32_t>(random() % end);
    };
    std::vector<PlainCell> plain;
    const auto isOne = [](const PlainCell& cell, std::uint64_t hash, const Item* item) {
        return cell.hash == hash && cell.item == item;
    };
    for (int step = 0; step < 3000; ++step) {
        const std::uint64_t hash = below(40);
        const Item* item = &entries[below(8)];
        const std::uint32_t number = below(3);
        const std::uint32_t kind = below(8);
        if (kind < 4 && plain.size() < 60) {
            index.reserve(1);
            index.insert(hash, item, number);
            plain.push_back({hash, item, number});
        } else if (kind < 7) {
            const auto found = std::find_if(plain.begin(), plain.end(), [&](const PlainCell& cell) {
                return isOne(cell, hash, item) && cell.number == number;
            });
            // Which one goes when none is under this hash is not said.
            if (found == plain.end() && std::any_of(plain.begin(), plain.end(), [&](auto& cell) {
                    return cell.item == item && cell.number == number;
                })) {
                continue;
            }
            ASSERT_EQ(index.erase(hash, item, number), found != plain.end());
            if (found != plain.end()) {
                plain.erase(found);
            }
        } else {
            const std::uint64_t to = below(40);
            index.move(hash, item, to);
            for (PlainCell& cell : plain) {
                cell.hash = isOne(cell, hash, item) ? to : cell.hash;
            }
        }
        const std::uint64_t looked = below(41);
        std::vector<Found> expected;
        for (const PlainCell& cell : plain) {
            if (cell.hash == looked) {
                expected.emplace_back(cell.item, cell.number);
            }
        }
        std::vector<Found> found = under(index, looked);
        std::sort(expected.begin(), expected.end());
        std::sort(found.begin(), found.end());
        ASSERT_EQ(found, expected) << step;
    }
}

}  // namespace
}  // namespace Ormek::Testing
