#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>

namespace Ormek {

class Item;

/// The last changes that entries of this process went through, so that an index by what has changed
/// can follow them instead of being made anew. From any thread.
class ChangeLog {
  public:
    /// An entry and the hash of what it said before. The entry may be gone: a pointer to compare,
    /// not to look into.
    struct Change {
        const Item* item;
        std::uint64_t before;
    };

    void add(const Item& item, std::uint64_t before) noexcept;
    /// Number of changes so far.
    unsigned long count() const noexcept { return _count.load(std::memory_order_acquire); }
    /// The change of that number, counted from 0; empty when it is too long ago to be remembered.
    std::optional<Change> at(unsigned long number) const noexcept;

  private:
    static constexpr unsigned long Remembered = 1024;

    // Guards the changes for the moment of a copy. A mutex could fail where nothing may.
    class Guard {
      public:
        explicit Guard(std::atomic_flag& taken) noexcept;
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;
        ~Guard();

      private:
        std::atomic_flag& _taken;
    };

    mutable std::atomic_flag _taken = ATOMIC_FLAG_INIT;
    std::atomic<unsigned long> _count{0};
    std::array<Change, Remembered> _changes{};
};

}  // namespace Ormek
