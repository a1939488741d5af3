#pragma once

#include <chrono>
#include <condition_variable>
#include <exception>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "backend/FileDescriptor.h"
#include "service/OperationHandler.h"
#include "service/Page.h"

namespace Nimra {

/// Executes operations on a thread of its own, one after the other, in the order they were queued.
///
/// A finished operation waits, together with its answer, until `collect()` hands the answer to the
/// operation's protocol on the caller's thread and destroys the operation there. The worker never
/// calls a protocol and never destroys an operation on its own thread. Services and protocols are
/// not owned: a service must live until its operations have finished, a protocol until its answers
/// are collected or the worker is gone.
///
/// A worker has no name: its owner registers it, and removes it before destroying it. Every
/// function may be called from any thread, but `stop()` and the destructor from the owner's only,
/// and not from a service.
class Worker : public OperationHandler {
  public:
    /// Throws std::system_error or ServiceError when the system has no thread or descriptor left.
    Worker();
    /// Stops. Answers that were not collected are dropped.
    ~Worker() override;

    void queueOperation(Operation* operation) override;
    /// Moves over what is queued in another handler, behind what is queued here. To lose nothing
    /// and keep the order, call it before this worker takes the other's name.
    void takeOver(OperationHandler& other);

    /// Reports the operations that have finished by now, in order, each to its protocol (which may
    /// be null), outside any lock, and returns how many. A protocol may queue further operations
    /// and may collect. When one throws, its answer counts as reported, the exception passes, and
    /// the others wait for the next call.
    unsigned long collect();

    /// Number of operations that have finished so far, collected or not.
    unsigned long finishedCount() const;
    /// Waits until more than `seen` operations have finished; false when the deadline came first.
    bool waitForFinished(unsigned long seen, std::chrono::steady_clock::time_point deadline) const;
    /// A descriptor that polls readable while answers wait to be collected. Only to be polled.
    int fd() const { return _event.get(); }
    /// Number of operations that are queued or running.
    unsigned long pending() const;

    /// Waits for the running operation, ends the thread, and turns everything still queued, and
    /// whatever is queued later, into failed answers. May be called again.
    void stop();

  private:
    /// An operation and, once it has finished, its answer.
    struct Job {
        std::unique_ptr<Operation> operation;
        Page page;
        std::exception_ptr error;
    };
    using Jobs = std::list<Job>;

    void run();
    bool startNext(Jobs& job);
    void finish(Jobs& job);
    void abandonQueued();
    Jobs takeFinished();
    static void report(Job& job);

    FileDescriptor _event;  ///< An eventfd(2): non-zero while `_finished` is not empty.
    const std::exception_ptr _shutDown;

    mutable std::mutex _mutex;
    std::condition_variable _wake;
    mutable std::condition_variable _done;
    Jobs _spare;  ///< One empty job for each queued operation, so that the thread allocates none.
    Jobs _finished;
    unsigned long _finishedCount = 0;
    bool _running = false;
    bool _stopping = false;
    bool _stopped = false;

    std::thread _thread;  ///< Last: it uses all of the above.
};

}  // namespace Nimra
