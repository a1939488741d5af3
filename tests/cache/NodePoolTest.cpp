#include "cache/NodePool.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <unordered_map>
#include <vector>

#include "tests/support/AllocationFaults.h"

namespace Ormek::Testing {
namespace {

using testing::Each;
using testing::Ge;
using testing::Le;
using testing::UnorderedElementsAreArray;

constexpr std::size_t NodeSize = 32;

std::vector<void*> take(NodePool& pool, std::size_t number) {
    std::vector<void*> nodes(number);
    std::generate(nodes.begin(), nodes.end(), [&] { return pool.take(NodeSize); });
    return nodes;
}

TEST(NodePool, NodesDoNotOverlap) {
    NodePool pool;
    std::vector<void*> nodes = take(pool, 10'000);
    for (void* const node : nodes) {
        std::memset(node, 0xff, NodeSize);  // The address sanitizer sees what lies outside.
    }
    std::sort(nodes.begin(), nodes.end(), std::less<>());
    std::vector<std::ptrdiff_t> distances;
    for (std::size_t i = 1; i < nodes.size(); ++i) {
        distances.push_back(static_cast<char*>(nodes[i]) - static_cast<char*>(nodes[i - 1]));
    }
    EXPECT_THAT(distances, Each(Ge(static_cast<std::ptrdiff_t>(NodeSize))));
}

TEST(NodePool, NodesOfOneChunkLieSideBySide) {
    NodePool pool;
    char* const first = static_cast<char*>(pool.take(NodeSize));
    EXPECT_EQ(pool.take(NodeSize), first + NodeSize);
    EXPECT_EQ(pool.take(NodeSize), first + 2 * NodeSize);
}

TEST(NodePool, UsesAgainWhatWasGivenBackBeforeItAsksForMore) {
    NodePool pool;
    const std::vector<void*> nodes = take(pool, 1000);
    for (void* const node : nodes) {
        pool.give(node);
    }
    std::vector<void*> again(nodes.size());
    {
        const AllocationFaults none(1);
        std::generate(again.begin(), again.end(), [&] { return pool.take(NodeSize); });
    }
    EXPECT_THAT(again, UnorderedElementsAreArray(nodes));
}

TEST(NodePool, FreesEverythingWithItself) {
    const unsigned long before = AllocationFaults::liveBlocks();
    {
        NodePool pool;
        for (int i = 0; i < 1000; ++i) {
            pool.take(NodeSize);
        }
        EXPECT_GT(AllocationFaults::liveBlocks(), before);
    }
    EXPECT_EQ(AllocationFaults::liveBlocks(), before);
}

TEST(NodePool, AsksForMemoryLessOftenTheMoreNodesThereAre) {
    NodePool pool;
    std::vector<unsigned long> asked;
    for (int round = 0; round < 10; ++round) {
        const AllocationFaults none(0);
        for (int i = 0; i < 10'000; ++i) {
            pool.take(NodeSize);
        }
        asked.push_back(none.allocations());
    }
    EXPECT_GT(asked.front(), 10U);
    EXPECT_THAT(asked.back(), Le(4U));
}

TEST(NodePool, IsAsItWasWhenThereIsNoMemory) {
    NodePool pool;
    char* first = nullptr;
    unsigned long tried = 0;
    for (bool passed = false; !passed; ++tried) {
        const unsigned long before = AllocationFaults::liveBlocks();
        const AllocationFaults faults(tried + 1);
        try {
            first = static_cast<char*>(pool.take(NodeSize));
            passed = true;
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(AllocationFaults::liveBlocks(), before);
        }
    }
    EXPECT_GT(tried, 2U);
    EXPECT_EQ(pool.take(NodeSize), first + NodeSize);
}

TEST(NodePool, KeepsTheNodesOfAMapAndNotItsTable) {
    NodePool pool;
    PooledMap<unsigned long, std::shared_ptr<int>> map{pool};
    for (unsigned long key = 0; key < 1000; ++key) {
        map.emplace(key, nullptr);
    }
    map.clear();
    const AllocationFaults none(1);  // No node is allocated, and the table has the room.
    for (unsigned long key = 0; key < 1000; ++key) {
        map.emplace(key, nullptr);
    }
    EXPECT_EQ(map.size(), 1000U);
}

TEST(NodePool, AMapIsInTheOrderOfAnyOther) {
    NodePool pool;
    PooledMap<unsigned long, int> pooled{pool};
    std::unordered_map<unsigned long, int> plain;
    for (unsigned long key = 1; key < 100'000; key *= 3) {
        pooled.emplace(key, 0);
        plain.emplace(key, 0);
        plain.erase(key / 9);
        pooled.erase(key / 9);
    }
    EXPECT_TRUE(std::equal(pooled.begin(), pooled.end(), plain.begin(), plain.end()));
}

}  // namespace
}  // namespace Ormek::Testing
