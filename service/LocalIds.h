#pragma once

#include <atomic>
#include <limits>

namespace Nimra {

/// Ids for items that the service does not know yet. They come from a range of their own, the ids
/// with the top bit set, which no service uses. Safe to call from any thread.
inline constexpr unsigned long FirstLocalId = std::numeric_limits<unsigned long>::max() / 2 + 1;

constexpr bool isLocalId(unsigned long id) { return id >= FirstLocalId; }

/// A local id that was never given before in this process.
inline unsigned long createLocalId() {
    static std::atomic<unsigned long> next{FirstLocalId};
    return next++;
}

}  // namespace Nimra
