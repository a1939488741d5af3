#pragma once

namespace Ormek::Testing {

/// Lets one attempt of the calling thread to lock a mutex fail, as a std::mutex passes on in a
/// std::system_error.
///
/// A program that links this has a pthread_mutex_lock of its own, which passes on to the library's.
/// What the C library locks for itself is not seen.
class LockFaults {
  public:
    /// Whether faults can strike at all: the thread sanitizer has to see every lock itself, and
    /// leaves no room.
    static bool arePossible();

    /// From now on the n-th lock of this thread fails with this error, the next one being the
    /// first; only that one. One at a time in each thread.
    LockFaults(unsigned long nth, int error);
    LockFaults(const LockFaults&) = delete;
    LockFaults& operator=(const LockFaults&) = delete;
    ~LockFaults();

    /// Whether it came to that.
    bool struck() const;
};

}  // namespace Ormek::Testing
