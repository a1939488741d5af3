#pragma once

#include <chrono>
#include <condition_variable>
#include <exception>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <variant>

#include "backend/FileDescriptor.h"
#include "service/ContentSource.h"
#include "service/Document.h"
#include "service/DocumentSession.h"
#include "service/DocumentStream.h"
#include "service/OperationHandler.h"
#include "service/Page.h"

namespace Nimra {

class FileOperation;
class ItemEventProtocol;

/// Executes operations on a thread of its own, one after the other, in the order they were queued:
/// pages of listings, what a user does to a document or a folder, and sessions, which are asked for
/// as a listing of a document service by the url "/v1/documents/<folder>/<document>/session". A
/// folder is made by a creation whose record has type 8, if the service is a StorageService.
///
/// A finished operation waits, together with its answer, until `collect()` hands the answer to the
/// operation's protocol on the caller's thread and destroys the operation there. The worker never
/// calls a protocol and never destroys an operation on its own thread. Services and protocols are
/// not owned: they must live until the answers that concern them are collected or the worker is
/// gone. A session that reaches nobody, for want of a protocol, because that throws, or because the
/// answer is never collected, is released again.
///
/// Its thread has all signals blocked but those that a fault raises. Whoever calls a service on
/// another thread under a limit of the size of files must block or ignore SIGXFSZ there.
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

    /// An operation has started as soon as it is its turn: at once where nothing runs and the
    /// worker is not paused, else with the end of the one before it.
    void queueOperation(Operation* operation) override;
    /// Moves over what is queued in another handler, behind what is queued here. To lose nothing
    /// and keep the order, call it before this worker takes the other's name. From another worker
    /// the content of what is taken comes along.
    void takeOver(OperationHandler& other);

    /// What the creation of the document with this id (the local one, which the operation has)
    /// uploads; null takes it back. To be called before the operation is queued; without a source
    /// the document is empty. It serves one operation, and is destroyed with it. The creation of a
    /// folder, by a record of type 8, does not read it.
    void setContent(unsigned long documentId, std::unique_ptr<ContentSource> content);
    /// Takes an operation that has not started out of the queue and makes it a failed answer. False
    /// when it has started or is not here.
    bool cancel(unsigned long operationId);
    /// Makes a failed answer of an operation that was queued nowhere, as if it had been here.
    void cancel(std::unique_ptr<Operation> operation);

    /// Starts nothing more until `resume()`; what runs goes on. What is queued stays so, in order,
    /// and can be cancelled; `stop()` makes failed answers of it as ever. Pausing twice is pausing
    /// once.
    void pause();
    void resume();
    bool paused() const;

    /// Reports the operations that have finished by now, in order, each to its protocol (which may
    /// be null), outside any lock, and returns how many. Progress is reported too, before its
    /// operation's outcome, the latest alone; it does not count. A protocol may queue further
    /// operations and may collect. When one throws, its answer counts as reported, the exception
    /// passes, and the others wait for the next call; but one that throws std::bad_alloc is told
    /// again by the next call, until `stop()`. Of several threads that collect at once each reports
    /// other answers, in no order between them, and progress may then come behind its outcome: let
    /// one thread at a time do it.
    unsigned long collect();

    /// Number of operations that have finished so far, collected or not.
    unsigned long finishedCount() const;
    /// Whether there is nothing to wait for: nothing runs, no answer waits to be collected, and
    /// nothing is queued but what a pause holds back. An answer that is being reported no longer
    /// waits, even if its protocol is about to queue something.
    ///
    /// A worker that is busy becomes idle by the collecting of an answer alone, and so nobody
    /// sleeps past it who counts first, collects then, and waits with that count:
    ///
    ///     unsigned long seen = 0;
    ///     do {
    ///         seen = worker.finishedCount();
    ///         worker.collect();
    ///     } while (!worker.idle() && worker.waitForFinished(seen, deadline));
    ///
    /// What finishes after it was counted, whoever collects it, ends the wait at once. Counted
    /// after the collecting, it could wait uncollected while the loop sleeps.
    bool idle() const;
    /// Waits until more than `seen` operations have finished; false when the deadline came first.
    bool waitForFinished(unsigned long seen, std::chrono::steady_clock::time_point deadline) const;
    /// A descriptor that polls readable while answers or progress wait to be collected. Only to be
    /// polled.
    int fd() const { return _event.get(); }
    /// Number of operations that are queued or running.
    unsigned long pending() const;

    /// Waits for the running operation, ends the thread, and turns everything still queued, and
    /// whatever is queued later, into failed answers. May be called again. What runs is never
    /// interrupted: an upload is waited for however large it is, and a source that does not return
    /// for ever. Sources that may take long should be told to fail first.
    void stop();

  private:
    /// What a service has answered; nothing for a removal.
    using Answer = std::variant<std::monostate, Page, Document, OpenedDocument, DocumentSession>;
    using Contents = std::unordered_map<unsigned long, std::unique_ptr<ContentSource>>;

    /// How far an operation is, as far as that was not told yet.
    struct Progress {
        bool untold = false;
        unsigned long operationId = 0;
        ItemEventProtocol* protocol = nullptr;
        unsigned long done = 0;
        unsigned long total = 0;
    };

    /// An operation and, once it has finished, its answer.
    struct Job {
        std::unique_ptr<Operation> operation;
        std::unique_ptr<ContentSource> content;
        Progress progress;
        Answer answer;
        std::exception_ptr error;
    };
    using Jobs = std::list<Job>;

    void run();
    Answer execute(Job& job);
    Answer executeFile(const FileOperation& operation, ContentSource* content);
    void noteProgress(const FileOperation& operation, unsigned long done, unsigned long total);
    void startNext();
    bool awaitStarted(Jobs& job);
    Jobs jobFor(std::unique_ptr<Operation> operation);
    void finish(Jobs& job);
    void abandon(std::unique_ptr<Operation> operation, const std::exception_ptr& why);
    void abandonQueued();
    void updateEvent();
    std::unique_ptr<ContentSource> contentOf(const Operation& operation);
    void takeContent(Worker& other, const Operation& operation);
    Progress takeProgress();
    std::pair<Progress, Jobs> takeFinished();
    void putBack(Jobs& job);
    static void report(const Progress& progress);
    static void report(Job& job);
    static void report(ItemEventProtocol& protocol, Job& job);
    static void releaseSession(const Job& job) noexcept;
    static void releaseSessions(const Jobs& jobs) noexcept;

    FileDescriptor _event;  ///< An eventfd(2): non-zero while something can be collected.
    const std::exception_ptr _shutDown;
    const std::exception_ptr _cancelled;

    mutable std::mutex _mutex;
    std::condition_variable _wake;
    mutable std::condition_variable _done;
    Jobs _spare;    ///< One empty job for each queued operation, so that the thread allocates none.
    Jobs _started;  ///< The operation whose turn it is, until the thread has it.
    Jobs _finished;
    Contents _contents;  ///< By document, until their operations leave the queue.
    Progress _progress;  ///< Of the running operation.
    bool _eventSet = false;
    unsigned long _finishedCount = 0;
    bool _running = false;  ///< From the start of an operation until it has finished.
    bool _paused = false;
    bool _stopping = false;
    bool _stopped = false;

    std::thread _thread;  ///< Last: it uses all of the above.
};

}  // namespace Nimra
