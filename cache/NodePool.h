#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Ormek {

/// Memory for the nodes of one container. They lie side by side, so that a look-up among a million
/// reads less memory than where each lies beside its entry. What is given back is used again; all
/// of it is freed with the pool. No lock.
class NodePool {
  public:
    NodePool() = default;
    NodePool(const NodePool&) = delete;
    NodePool& operator=(const NodePool&) = delete;

    /// Room for a node of `size` bytes, which is the same in every call, no less than a pointer's,
    /// and a multiple of the node's alignment. Throws std::bad_alloc and is as it was then.
    void* take(std::size_t size) {
        if (_given) {
            return std::exchange(_given, _given->next);
        }
        if (_fresh == _end) {
            addChunk(size);
        }
        return std::exchange(_fresh, _fresh + size);
    }
    void give(void* node) noexcept { _given = new (node) Given{_given}; }

  private:
    struct Given {
        Given* next;
    };

    // By an eighth of what there is, so that no more than that lies idle.
    void addChunk(std::size_t size) {
        const std::size_t bytes = std::max(Least, _nodes / 8) * size;
        _fresh = _chunks.emplace_back(bytes).data();
        _end = _fresh + bytes;
        _nodes += bytes / size;
    }

    static constexpr std::size_t Least = 32;

    std::vector<std::vector<std::byte>> _chunks;
    std::size_t _nodes = 0;
    std::byte* _fresh = nullptr;
    std::byte* _end = nullptr;
    Given* _given = nullptr;
};

/// Lets a standard container keep its nodes in a pool, which outlives it and serves it alone. Its
/// table of pointers, if it has one, comes from the heap.
template <class T>
class NodeAllocator {
  public:
    using value_type = T;

    NodeAllocator(NodePool& pool) noexcept : _pool(&pool) {}
    template <class U>
    NodeAllocator(const NodeAllocator<U>& other) noexcept : _pool(other._pool) {}

    T* allocate(std::size_t number) {
        if constexpr (IsNode) {
            return static_cast<T*>(_pool->take(sizeof(T)));
        } else {
            return std::allocator<T>().allocate(number);
        }
    }
    void deallocate(T* memory, std::size_t number) noexcept {
        if constexpr (IsNode) {
            _pool->give(memory);
        } else {
            std::allocator<T>().deallocate(memory, number);
        }
    }

    friend bool operator==(const NodeAllocator& a, const NodeAllocator& b) noexcept {
        return a._pool == b._pool;
    }
    friend bool operator!=(const NodeAllocator& a, const NodeAllocator& b) noexcept {
        return !(a == b);
    }

  private:
    template <class U>
    friend class NodeAllocator;

    static constexpr bool IsNode = !std::is_pointer_v<T>;

    NodePool* _pool;
};

/// A map whose nodes lie in a pool, with which it is made.
template <class Key, class Value>
using PooledMap = std::unordered_map<Key, Value, std::hash<Key>, std::equal_to<Key>,
                                     NodeAllocator<std::pair<const Key, Value>>>;

}  // namespace Ormek
