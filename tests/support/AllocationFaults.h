#pragma once

namespace Ormek::Testing {

/// Lets one allocation of the calling thread fail, as when memory runs out, and counts the rest.
///
/// A program that links this has its own operator new and delete, in every form; they pass on to
/// those they stand in for. Allocations by malloc() alone are not seen.
class AllocationFaults {
  public:
    /// From now on the n-th allocation of this thread fails, the next one being the first; only
    /// that one. One at a time in each thread.
    explicit AllocationFaults(unsigned long nth);
    AllocationFaults(const AllocationFaults&) = delete;
    AllocationFaults& operator=(const AllocationFaults&) = delete;
    ~AllocationFaults();

    /// Whether it came to that.
    bool struck() const;
    /// How often this thread has allocated since, the failed time included.
    unsigned long allocations() const;

    /// Blocks that are allocated at this moment, by whatever thread.
    static unsigned long liveBlocks();
};

/// The same for the other threads: one allocation of theirs fails, whichever thread makes it, and
/// none of the thread that made this. One at a time in the process.
class AllocationFaultsElsewhere {
  public:
    explicit AllocationFaultsElsewhere(unsigned long nth);
    AllocationFaultsElsewhere(const AllocationFaultsElsewhere&) = delete;
    AllocationFaultsElsewhere& operator=(const AllocationFaultsElsewhere&) = delete;
    ~AllocationFaultsElsewhere();

    bool struck() const;
};

}  // namespace Ormek::Testing
