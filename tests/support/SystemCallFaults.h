#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Ormek::Testing {

/// A call of the system, by the name of the C function. openat() that may create a file is
/// "openat+create", and syscall() is named after what it calls.
///
/// SystemCallFaults.cpp defines functions that take the place of the C library's in a program that
/// links it, and forward to them. They alone can be made to fail and are written down: whoever
/// calls them, in whichever thread, the tested code, a library or the test itself, but not the C
/// library from inside.
struct SystemCall {
    std::string name;
    std::string path;  ///< Of the descriptor that it was given first; empty if there was none.
};

/// A mishap that befalls one call, once. Of several for the same call the first that was made does.
class CallFault {
  public:
    CallFault(const CallFault&) = delete;
    CallFault& operator=(const CallFault&) = delete;

    /// Whether it has come to it. Of a function that is not defined here it never does.
    bool happened() const;

  protected:
    /// For the `nth` call of that name from now on; an error of 0 makes it a short one.
    CallFault(std::string call, int error, unsigned nth);
    ~CallFault();

  private:
    friend class Watch;

    std::string _call;
    int _error;
    unsigned _left;
};

/// The `nth` call of that name from now on does nothing and fails with that error number.
class FailingCall : public CallFault {
  public:
    FailingCall(std::string call, int error, unsigned nth = 1)
        : CallFault(std::move(call), error, nth) {}
};

/// The `nth` call of that name from now on transfers one byte only, if it was to transfer any.
class ShortCall : public CallFault {
  public:
    explicit ShortCall(std::string call, unsigned nth = 1) : CallFault(std::move(call), 0, nth) {}
};

/// The `nth` call from now on, of whatever name, is the last thing that the process does, or the
/// first that it does not do any more: it is killed. A call that is to fail as well has failed
/// then.
class KillingCall {
  public:
    enum class Moment { BeforeTheCall, AfterTheCall };

    KillingCall(unsigned nth, Moment moment);
    KillingCall(const KillingCall&) = delete;
    KillingCall& operator=(const KillingCall&) = delete;
    ~KillingCall();

  private:
    friend class Watch;

    unsigned _left;
    Moment _moment;
};

/// During its life reading a folder gives no kinds of entries, as on some file systems.
class UnknownKinds {
  public:
    UnknownKinds();
    UnknownKinds(const UnknownKinds&) = delete;
    UnknownKinds& operator=(const UnknownKinds&) = delete;
    ~UnknownKinds();
};

/// During its life fsync(), syncfs() and sync() succeed without doing anything, so that a test of
/// many actions does not wait for the disk. They count as calls all the same.
class UnsyncedDisk {
  public:
    UnsyncedDisk();
    UnsyncedDisk(const UnsyncedDisk&) = delete;
    UnsyncedDisk& operator=(const UnsyncedDisk&) = delete;
    ~UnsyncedDisk();
};

/// Writes down the calls during its life, failed ones too.
class CallTrace {
  public:
    CallTrace();
    CallTrace(const CallTrace&) = delete;
    CallTrace& operator=(const CallTrace&) = delete;
    ~CallTrace();

    std::vector<SystemCall> calls() const;

  private:
    friend class Watch;

    std::vector<SystemCall> _calls;
};

}  // namespace Ormek::Testing
