#include "backend/Worker.h"

#include <pthread.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "backend/StorageService.h"
#include "backend/SystemError.h"
#include "service/DataLoaderOperation.h"
#include "service/DataService.h"
#include "service/DocumentService.h"
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

/// What the numbers of document operations stand for.
enum Kind : unsigned {
    Create = 2,
    Move = 4,
    Remove = 5,
    Rename = 6,
    Streams = 10,
    SaveMetaData = 13,
};

constexpr unsigned char FolderType = 8;

/// Takes `prefix` off the front of the text; false when it does not start with it.
bool skip(std::string_view& text, std::string_view prefix) {
    const bool found = text.starts_with(prefix);
    text.remove_prefix(found ? prefix.size() : 0);
    return found;
}

/// The same for a number in plain decimal.
std::optional<unsigned long> skipNumber(std::string_view& text) {
    unsigned long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || !skip(text, std::to_string(number))) {
        return std::nullopt;
    }
    return number;
}

struct SessionRequest {
    unsigned long folderId;
    unsigned long documentId;
};

std::optional<SessionRequest> sessionRequest(std::string_view url) {
    if (!skip(url, "/v1/documents/")) {
        return std::nullopt;
    }
    const auto folderId = skipNumber(url);
    if (!folderId || !skip(url, "/")) {
        return std::nullopt;
    }
    const auto documentId = skipNumber(url);
    if (!documentId || url != "/session") {
        return std::nullopt;
    }
    return SessionRequest{*folderId, *documentId};
}

ItemEventProtocol* protocolOf(const Operation& operation) {
    if (const auto* load = dynamic_cast<const DataLoaderOperation*>(&operation)) {
        return load->protocol();
    }
    const auto* file = dynamic_cast<const FileOperation*>(&operation);
    return file ? file->protocol() : nullptr;
}

const FileOperation* asCreation(const Operation& operation) {
    const auto* file = dynamic_cast<const FileOperation*>(&operation);
    return file && file->kind() == Create ? file : nullptr;
}

/// Turns the document record of a folder that was asked for into that of the one that was made. It
/// is made already: nothing here may fail, not even for want of memory.
void become(Document& record, Folder&& folder) noexcept {
    record.id = folder.id;
    record.parentId = folder.parentId;
    record.ownerId = folder.ownerId;
    record.name = std::move(folder.name);
    record.created = folder.created;
    record.updated = folder.updated;
    record.deleted = folder.deleted;
    record.aclMode = folder.accessLevel;
}

Document makeFolder(DocumentService& service, const Document& wanted) {
    auto* storage = dynamic_cast<StorageService*>(&service);
    if (!storage) {
        throw ServiceError(Reason::Refused, "this service does not make folders");
    }
    if (!wanted._keyValues.empty()) {
        throw ServiceError(Reason::Refused,
                           "a folder is made without metadata: they can be saved afterwards");
    }
    Document record(0, 0, 0, wanted.name);
    record.type = FolderType;
    record.mimeType = "inode/directory";
    become(record, storage->makeFolder({wanted.id, wanted.parentId, wanted.ownerId, wanted.name}));
    return record;
}

std::exception_ptr failure(Reason reason, const std::string& text) {
    return std::make_exception_ptr(ServiceError(reason, text));
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
      _shutDown(failure(Reason::NotReachable, "the service was shut down before this was started")),
      _cancelled(failure(Reason::Refused, "cancelled before it was started")) {
    const SignalsBlocked duringStart;
    _thread = std::thread([this] { run(); });
}

Worker::~Worker() {
    stop();
    releaseSessions(_finished);
}

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
        startNext();
    }
}

void Worker::takeOver(OperationHandler& other) {
    if (&other == this) {
        return;
    }
    auto* worker = dynamic_cast<Worker*>(&other);
    while (auto operation = other.take()) {
        if (worker) {
            takeContent(*worker, *operation);
        }
        queueOperation(operation.release());
    }
}

/// The content of a creation that has left the queue of another worker.
void Worker::takeContent(Worker& other, const Operation& operation) {
    std::unique_ptr<ContentSource> content;
    {
        const std::lock_guard lock(other._mutex);
        content = other.contentOf(operation);
    }
    if (content) {
        setContent(asCreation(operation)->document().id, std::move(content));
    }
}

void Worker::setContent(unsigned long documentId, std::unique_ptr<ContentSource> content) {
    // What it replaces is destroyed outside the lock.
    const std::lock_guard lock(_mutex);
    if (content) {
        _contents[documentId].swap(content);
    } else if (const auto known = _contents.find(documentId); known != _contents.end()) {
        content = std::move(known->second);
        _contents.erase(known);
    }
}

bool Worker::cancel(unsigned long operationId) {
    const std::lock_guard lock(_mutex);
    std::unique_ptr<Operation> operation = take(operationId);
    if (!operation) {
        return false;
    }
    abandon(std::move(operation), _cancelled);
    return true;
}

void Worker::cancel(std::unique_ptr<Operation> operation) {
    if (!operation) {
        return;
    }
    Jobs job(1);
    const std::lock_guard lock(_mutex);
    _spare.splice(_spare.end(), job);
    abandon(std::move(operation), _cancelled);
}

void Worker::pause() {
    const std::lock_guard lock(_mutex);
    _paused = true;
}

void Worker::resume() {
    const std::lock_guard lock(_mutex);
    _paused = false;
    startNext();
}

bool Worker::paused() const {
    const std::lock_guard lock(_mutex);
    return _paused;
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

bool Worker::idle() const {
    const std::lock_guard lock(_mutex);
    // While it stops, what a pause holds back becomes answers.
    const bool heldBack = _paused && !_stopping;
    return !_running && _finished.empty() && (heldBack || operations().empty());
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
    while (awaitStarted(job)) {
        // Only the pointer to the exception is kept: nothing here can throw, and the answer's text
        // is made where it is collected.
        try {
            job.front().answer = execute(job.front());
        } catch (...) {
            job.front().error = std::current_exception();
        }
        const std::lock_guard lock(_mutex);
        _running = false;
        job.front().progress = std::exchange(_progress, {});
        finish(job);
        startNext();
    }
}

Worker::Answer Worker::execute(Job& job) {
    if (const auto* file = dynamic_cast<const FileOperation*>(job.operation.get())) {
        return executeFile(*file, job.content.get());
    }
    const auto* load = dynamic_cast<const DataLoaderOperation*>(job.operation.get());
    if (!load) {
        throw ServiceError(Reason::Refused, "operations of this kind are not supported");
    }
    if (!load->service()) {
        throw ServiceError(Reason::Refused, "there is no service for this listing");
    }
    if (auto* documents = dynamic_cast<DocumentService*>(load->service())) {
        if (const auto request = sessionRequest(load->filter().url)) {
            return documents->openSession(request->folderId, request->documentId,
                                          load->filter().userId);
        }
    }
    return load->service()->load(load->filter());
}

Worker::Answer Worker::executeFile(const FileOperation& operation, ContentSource* content) {
    const std::string kind = "document operations of kind " + std::to_string(operation.kind());
    DocumentService* service = operation.service();
    if (!service) {
        throw ServiceError(Reason::Refused, "there is no service for " + kind);
    }
    const Document& document = operation.document();
    switch (operation.kind()) {
        case Create:
            if (document.type == FolderType) {
                return makeFolder(*service, document);
            }
            return service->create(document, content, [&](unsigned long done, unsigned long total) {
                noteProgress(operation, done, total);
            });
        case Move:
            return service->move(document);
        case Remove:
            service->remove(document);
            return {};
        case Rename:
            return service->rename(document);
        case Streams:
            return service->openStreams(document);
        case SaveMetaData:
            return service->saveMetaData(document);
        default:
            throw ServiceError(Reason::Refused, kind + " are not supported");
    }
}

void Worker::noteProgress(const FileOperation& operation, unsigned long done, unsigned long total) {
    const std::lock_guard lock(_mutex);
    _progress = {true, operation.id(), operation.protocol(), done, total};
    updateEvent();
}

/// Under the lock, after each change of what may run: starts what is first in the queue if it is
/// its turn. It is not left to the thread to do so when it wakes: whoever pauses the worker before
/// that would leave it with nothing to do and nothing finished, and nobody waiting would learn of
/// it.
void Worker::startNext() {
    if (_running || _paused || _stopping) {
        return;
    }
    if (auto operation = take()) {
        _started = jobFor(std::move(operation));
        _running = true;
        _wake.notify_one();
    }
}

/// Waits for an operation to be started and puts it into `job`; false when the worker is to stop.
bool Worker::awaitStarted(Jobs& job) {
    std::unique_lock lock(_mutex);
    _wake.wait(lock, [this] { return !_started.empty() || _stopping; });
    job = std::exchange(_started, {});
    return !job.empty();
}

/// Under the lock: the job, alone in its list, of an operation that has left the queue.
Worker::Jobs Worker::jobFor(std::unique_ptr<Operation> operation) {
    Jobs job;
    job.splice(job.end(), _spare, _spare.begin());
    job.front().content = contentOf(*operation);
    job.front().operation = std::move(operation);
    return job;
}

/// Under the lock: what an operation that has left the queue is to upload; null for nothing.
std::unique_ptr<ContentSource> Worker::contentOf(const Operation& operation) {
    const FileOperation* creation = asCreation(operation);
    const auto known = creation ? _contents.find(creation->document().id) : _contents.end();
    if (known == _contents.end()) {
        return nullptr;
    }
    std::unique_ptr<ContentSource> content = std::move(known->second);
    _contents.erase(known);
    return content;
}

/// Under the lock: makes the answer available.
void Worker::finish(Jobs& job) {
    _finished.splice(_finished.end(), job);
    ++_finishedCount;
    updateEvent();
    _done.notify_all();
}

/// Under the lock: makes an operation that has left the queue a failed answer.
void Worker::abandon(std::unique_ptr<Operation> operation, const std::exception_ptr& why) {
    Jobs job = jobFor(std::move(operation));
    job.front().error = why;
    finish(job);
}

/// Under the lock: turns what is queued into failed answers.
void Worker::abandonQueued() {
    while (auto operation = take()) {
        abandon(std::move(operation), _shutDown);
    }
}

/// Under the lock, after each change of what can be collected.
void Worker::updateEvent() {
    const bool waiting = !_finished.empty() || _progress.untold;
    if (waiting == _eventSet) {
        return;
    }
    std::uint64_t count = 1;
    if (waiting) {
        [[maybe_unused]] const auto written = ::write(_event.get(), &count, sizeof count);
    } else {
        [[maybe_unused]] const auto read = ::read(_event.get(), &count, sizeof count);
    }
    _eventSet = waiting;
}

/// The untold progress of the running operation.
Worker::Progress Worker::takeProgress() {
    const std::lock_guard lock(_mutex);
    const Progress progress = std::exchange(_progress, {});
    updateEvent();
    return progress;
}

/// The answer that is first in turn, alone in its list, or its progress, as long as that is untold:
/// whoever is told of it may collect, so that another answer may be the first then.
std::pair<Worker::Progress, Worker::Jobs> Worker::takeFinished() {
    std::pair<Progress, Jobs> taken;
    const std::lock_guard lock(_mutex);
    if (_finished.empty()) {
        return taken;
    }
    taken.first = std::exchange(_finished.front().progress, {});
    if (!taken.first.untold) {
        taken.second.splice(taken.second.end(), _finished, _finished.begin());
        updateEvent();
    }
    return taken;
}

/// An answer that there was no memory to take is the first in turn again, unless nobody is going to
/// come back for it.
void Worker::putBack(Jobs& job) {
    const std::lock_guard lock(_mutex);
    if (!_stopped) {
        _finished.splice(_finished.begin(), job);
        updateEvent();
    }
}

void Worker::report(const Progress& progress) {
    if (progress.untold && progress.protocol) {
        progress.protocol->progress(progress.operationId, progress.done, progress.total);
    }
}

/// Tells the operation's protocol how it ended.
void Worker::report(Job& job) {
    ItemEventProtocol* protocol = protocolOf(*job.operation);
    if (!protocol) {
        releaseSession(job);
        return;
    }
    report(*protocol, job);
}

void Worker::report(ItemEventProtocol& protocol, Job& job) {
    const Operation& operation = *job.operation;
    const unsigned long id = operation.id();
    if (job.error) {
        protocol.failed(id, asServiceError(job.error));
    } else if (auto* page = std::get_if<Page>(&job.answer)) {
        protocol.pageLoaded(id, dynamic_cast<const DataLoaderOperation&>(operation).filter(),
                            *page);
    } else if (const auto* document = std::get_if<Document>(&job.answer)) {
        protocol.finished(id, *document);
    } else if (const auto* opened = std::get_if<OpenedDocument>(&job.answer)) {
        protocol.streamsOpened(id, opened->document, opened->stream);
    } else if (const auto* session = std::get_if<DocumentSession>(&job.answer)) {
        protocol.sessionOpened(id, *session);
    } else {
        protocol.finished(id, dynamic_cast<const FileOperation&>(operation).document());
    }
}

/// Ends the session that the answer is, if it is one.
void Worker::releaseSession(const Job& job) noexcept {
    const auto* session = std::get_if<DocumentSession>(&job.answer);
    const auto* load = dynamic_cast<const DataLoaderOperation*>(job.operation.get());
    auto* service = session && load ? dynamic_cast<DocumentService*>(load->service()) : nullptr;
    if (!service) {
        return;
    }
    try {
        service->releaseSession(*session);
    } catch (...) {
        // Then it has ended already, or the service keeps it: nobody is left who could be told.
    }
}

void Worker::releaseSessions(const Jobs& jobs) noexcept {
    for (const Job& job : jobs) {
        releaseSession(job);
    }
}

unsigned long Worker::collect() {
    const unsigned long finished = [this] {
        const std::lock_guard lock(_mutex);
        return _finished.size();
    }();
    unsigned long collected = 0;
    while (collected < finished) {
        auto [progress, job] = takeFinished();
        if (progress.untold) {
            report(progress);
            continue;
        }
        if (job.empty()) {
            break;
        }
        ++collected;
        try {
            report(job.front());
        } catch (const std::bad_alloc&) {
            putBack(job);
            releaseSessions(job);
            throw;
        } catch (...) {
            releaseSessions(job);
            throw;
        }
    }
    report(takeProgress());
    return collected;
}

}  // namespace Nimra
