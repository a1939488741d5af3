#pragma once

#include <malloc.h>

namespace Ormek::Bench {

/// How often this thread has asked for memory by `new` so far.
struct Allocations {
    unsigned long blocks = 0;

    static Allocations ofThisThread();
    /// Bytes of all blocks in use in this process, the allocator's headers included.
    static unsigned long inUse() {
        const struct mallinfo2 information = mallinfo2();
        return information.uordblks + information.hblkhd;
    }

    Allocations operator-(const Allocations& other) const { return {blocks - other.blocks}; }
};

}  // namespace Ormek::Bench
