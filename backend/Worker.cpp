#include "backend/Worker.h"

#include <pthread.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <new>
#include <string>
#include <utility>

#include "backend/SystemError.h"
#include "service/DataLoaderOperation.h"
#include "service/DataService.h"
#include "service/FileOperation.h"
#include "service/ItemEventProtocol.h"

namespace Nimra {

namespace {

FileDescriptor makeEvent() {
    FileDescriptor event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!event) {
        throw systemError(errno, "cannot make an event descriptor");
    }
    return event;
}

/// Keeps signals away from threads started during its life, except those that a fault raises in
/// the thread itself: handlers run where the program expects them, on its own threads.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
            sigdelset(&blocked, fault);
        }
        pthread_sigmask(SIG_SETMASK, &blocked, &_before);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &_before, nullptr); }

  private:
    sigset_t _before{};
};

Page execute(const Operation& operation) {
    if (const auto* load = dynamic_cast<const DataLoaderOperation*>(&operation)) {
        if (!load->service()) {
            throw ServiceError(Reason::Refused, "there is no service for this listing");
        }
        return load->service()->load(load->filter());
    }
    if (const auto* file = dynamic_cast<const FileOperation*>(&operation)) {
        throw ServiceError(
            Reason::Refused,
            "document operations of kind " + std::to_string(file->kind()) + " are not supported");
    }
    throw ServiceError(Reason::Refused, "operations of this kind are not supported");
}

ItemEventProtocol* protocolOf(const Operation& operation) {
    if (const auto* load = dynamic_cast<const DataLoaderOperation*>(&operation)) {
        return load->protocol();
    }
    const auto* file = dynamic_cast<const FileOperation*>(&operation);
    return file ? file->protocol() : nullptr;
}

ServiceError asServiceError(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const ServiceError& known) {
        return known;
    } catch (const std::bad_alloc&) {
        return {Reason::Internal, "out of memory"};
    } catch (const std::exception& other) {
        return {Reason::Internal, other.what()};
    } catch (...) {
        return {Reason::Internal, "the service failed without saying why"};
    }
}

}  // namespace

Worker::Worker()
    : _event(makeEvent()),
      _shutDown(std::make_exception_ptr(ServiceError(
          Reason::NotReachable, "the service was shut down before this was started"))) {
    const SignalsBlocked duringStart;
    _thread = std::thread([this] { run(); });
}

Worker::~Worker() { stop(); }

void Worker::queueOperation(Operation* operation) {
    std::unique_ptr<Operation> owned(operation);
    if (!owned) {
        return;
    }
    Jobs job(1);
    {
        const std::lock_guard lock(_mutex);
        OperationHandler::queueOperation(owned.release());
        _spare.splice(_spare.end(), job);
        if (_stopped) {
            abandonQueued();
        }
    }
    _wake.notify_one();
}

void Worker::takeOver(OperationHandler& other) {
    if (&other == this) {
        return;
    }
    while (auto operation = other.take()) {
        queueOperation(operation.release());
    }
}

unsigned long Worker::finishedCount() const {
    const std::lock_guard lock(_mutex);
    return _finishedCount;
}

bool Worker::waitForFinished(unsigned long seen,
                             std::chrono::steady_clock::time_point deadline) const {
    std::unique_lock lock(_mutex);
    return _done.wait_until(lock, deadline, [&] { return _finishedCount > seen; });
}

unsigned long Worker::pending() const {
    const std::lock_guard lock(_mutex);
    return operations().size() + (_running ? 1 : 0);
}

void Worker::stop() {
    {
        const std::lock_guard lock(_mutex);
        _stopping = true;
    }
    _wake.notify_all();
    if (_thread.joinable()) {
        _thread.join();
    }
    const std::lock_guard lock(_mutex);
    _stopped = true;
    abandonQueued();
}

void Worker::run() {
    Jobs job;
    while (startNext(job)) {
        // Only the pointer to the exception is kept: nothing here can throw, and the answer's text
        // is made where it is collected.
        try {
            job.front().page = execute(*job.front().operation);
        } catch (...) {
            job.front().error = std::current_exception();
        }
        const std::lock_guard lock(_mutex);
        _running = false;
        finish(job);
    }
}

/// Waits for an operation and puts it into `job`; false when the worker is to stop.
bool Worker::startNext(Jobs& job) {
    std::unique_lock lock(_mutex);
    while (!_stopping) {
        if (auto operation = take()) {
            job.splice(job.end(), _spare, _spare.begin());
            job.front().operation = std::move(operation);
            _running = true;
            return true;
        }
        _wake.wait(lock);
    }
    return false;
}

/// Under the lock: makes the answer available.
void Worker::finish(Jobs& job) {
    if (_finished.empty()) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(_event.get(), &one, sizeof one);
    }
    _finished.splice(_finished.end(), job);
    ++_finishedCount;
    _done.notify_all();
}

/// Under the lock: turns what is queued into failed answers.
void Worker::abandonQueued() {
    while (auto operation = take()) {
        Jobs job;
        job.splice(job.end(), _spare, _spare.begin());
        job.front().operation = std::move(operation);
        job.front().error = _shutDown;
        finish(job);
    }
}

/// The answer that is first in turn, alone in its list; an empty list when there is none.
Worker::Jobs Worker::takeFinished() {
    Jobs job;
    const std::lock_guard lock(_mutex);
    if (_finished.empty()) {
        return job;
    }
    job.splice(job.end(), _finished, _finished.begin());
    if (_finished.empty()) {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto read = ::read(_event.get(), &count, sizeof count);
    }
    return job;
}

/// Tells the operation's protocol how it ended.
void Worker::report(Job& job) {
    ItemEventProtocol* protocol = protocolOf(*job.operation);
    if (!protocol) {
        return;
    }
    const unsigned long id = job.operation->id();
    if (job.error) {
        protocol->failed(id, asServiceError(job.error));
    } else if (const auto* load = dynamic_cast<const DataLoaderOperation*>(job.operation.get())) {
        protocol->pageLoaded(id, load->filter(), job.page);
    }
}

unsigned long Worker::collect() {
    const unsigned long finished = [this] {
        const std::lock_guard lock(_mutex);
        return _finished.size();
    }();
    unsigned long collected = 0;
    while (collected < finished) {
        Jobs job = takeFinished();
        if (job.empty()) {
            break;
        }
        ++collected;
        report(job.front());
    }
    return collected;
}

}  // namespace Nimra
