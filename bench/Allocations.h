#pragma once

namespace Ormek::Bench {

/// What this thread has asked for by `new` so far.
struct Allocations {
    /// How often.
    long blocks = 0;
    /// Bytes that it has not given back, the allocator's headers included.
    long bytes = 0;

    static Allocations ofThisThread();

    Allocations operator-(const Allocations& other) const {
        return {blocks - other.blocks, bytes - other.bytes};
    }
};

}  // namespace Ormek::Bench
