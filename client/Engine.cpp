#include "client/Engine.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "backend/SystemError.h"
#include "service/LocalIds.h"

namespace Ormek {

namespace {

constexpr const char* HandlerName = "Requests";
constexpr int ListingService = 0;
constexpr int DocumentService = 4;
constexpr int TagService = 16;

constexpr std::int32_t DocumentType = 4;
constexpr std::int32_t FolderType = 8;

std::atomic<bool> clientExists{false};

Nimra::ServiceError notFound(const std::string& text) { return {Nimra::Reason::NotFound, text}; }

Nimra::ServiceError noSuchFolder(unsigned long id) {
    return notFound("no folder with the id " + std::to_string(id) + " is known");
}

Nimra::ServiceError noSuchEntry(const std::string& path) {
    return notFound("\"" + path + "\": no such file or folder");
}

Nimra::ServiceError offline() {
    return {Nimra::Reason::NotReachable, "the service is switched off"};
}

Nimra::FileDescriptor opened(int fd, const char* what) {
    if (fd < 0) {
        throw Nimra::systemError(errno, what);
    }
    return Nimra::FileDescriptor(fd);
}

void watch(const Nimra::FileDescriptor& watcher, int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    if (::epoll_ctl(watcher.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        throw Nimra::systemError(errno, "cannot watch for answers");
    }
}

}  // namespace

Client::Engine::OnlyOne::OnlyOne() {
    if (clientExists.exchange(true)) {
        throw std::logic_error(
            "Ormek::Client: another client exists in this process, and the operation handler "
            "\"Requests\" serves one at a time");
    }
}

Client::Engine::OnlyOne::~OnlyOne() { clientExists = false; }

Client::Engine::Engine(std::unique_ptr<Nimra::StorageService> service, unsigned long userId,
                       Clock clock)
    : _service(std::move(service)),
      _userId(userId),
      _clock(std::move(clock)),
      _merged(opened(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "cannot make an event descriptor")),
      _readable(opened(::epoll_create1(EPOLL_CLOEXEC), "cannot watch for answers")) {
    if (!_service || !_clock || _userId == 0) {
        throw std::invalid_argument("Ormek::Client: a service, a user and a clock are needed");
    }
    watch(_readable, _worker.fd());
    watch(_readable, _merged.get());
    const Nimra::Folder root = _service->root();
    if (root.id == 0) {
        throw Nimra::ServiceError(Nimra::Reason::Internal, "the service's root has no id");
    }
    _services = {
        {ListingService, _service.get()},
        {DocumentService, _service.get()},
        {TagService, _service.get()},
    };
    _cache.setServices(&_services);
    _cache.setObjectUpdater(&_updater);
    _cache.setOpWithoutIdsQueue(&_parked);
    _parked.userKnown(_userId);
    _rootId = root.id;
    _cache.addFolder(root, false);
    // Marks the root's id as loaded; otherwise everything made in it would wait for ever.
    _cache.updateItemId(_rootId, _rootId);
    _worker.takeOver(*Nimra::OperationHandler::getHandler(HandlerName));
    Nimra::OperationHandler::registerHandler(HandlerName, &_worker);
}

Client::Engine::~Engine() {
    if (Nimra::OperationHandler::getHandler(HandlerName) == &_worker) {
        Nimra::OperationHandler::registerHandler(HandlerName, nullptr);
    }
}

// An answer may lead to a further operation, which a stopped worker fails at once; and telling of
// one may fail. Every turn takes something away.
void Client::Engine::concludeAll() noexcept {
    bool more = true;
    while (more) {
        try {
            more = _worker.collect() != 0 || concludeFirstParked();
        } catch (...) {
            more = true;
        }
    }
    // What a service did that there was no memory to take.
    for (auto& [operationId, undertaking] : std::exchange(_undertakings, {})) {
        conclude(undertaking, operationId, {_outOfMemory, nullptr, std::nullopt});
    }
}

bool Client::Engine::concludeFirstParked() {
    const auto parked = _parked.takeFirst();
    if (parked) {
        failed(parked->id(),
               {Nimra::Reason::NotReachable, "the service was shut down before this was started"});
    }
    return parked != nullptr;
}

// --- Questions -----------------------------------------------------------------------------

Client::Engine::State Client::Engine::list(unsigned long folderId, const ListOptions& options) {
    State state = ask();
    folderId = current(folderId);
    if (!isFolder(folderId)) {
        fail(state, noSuchFolder(folderId));
        return state;
    }
    const FilterInternal filter = filterFor(folderId, options);
    const bool fresh = options.freshness == Freshness::Reload;
    if (Nimra::isLocalId(folderId)) {
        answerLocally(state, filter);
        return state;
    }
    Directory directory = _cache.getDirectory(filter);
    noteWhole(filter, directory);
    if (!online()) {
        answerOffline(state, directory, filter);
        return state;
    }
    if (!fresh && join(state, filter)) {
        return state;
    }
    if (fresh && directory) {
        reload(state, LoadKind::Listing, filter, directory);
        return state;
    }
    const unsigned long operationId = _cache.get(filter, directory, this);
    noteWhole(filter, directory);
    if (operationId != 0) {
        await(state, LoadKind::Listing, filter, directory, operationId);
    } else if (isCurrent(directory, filter)) {
        answer(state, *directory, filter);
    } else {
        reload(state, LoadKind::Listing, filter, directory);
    }
    return state;
}

Client::Engine::State Client::Engine::tags(unsigned long folderId, const ListOptions& options) {
    State state = ask();
    folderId = current(folderId);
    if (!isFolder(folderId)) {
        fail(state, noSuchFolder(folderId));
        return state;
    }
    FilterInternal filter = filterFor(folderId, options);
    filter.setDataType(TagService);
    if (Nimra::isLocalId(folderId)) {
        // The service has no tags of what it does not know.
        finish(state, AnswerState::Answered);
        return state;
    }
    if (!online()) {
        answerOffline(state, _cache.getKeyValueDirectory(filter), filter);
        return state;
    }
    const bool fresh = options.freshness == Freshness::Reload;
    if (!fresh && join(state, filter)) {
        return state;
    }
    Directory directory;
    // A directory of tags counts as answered once it exists, whatever became of its load.
    const unsigned long operationId = _cache.getKeyValues(filter, directory, this);
    if (operationId != 0) {
        await(state, LoadKind::Tags, filter, directory, operationId);
    } else if (!fresh && isCurrent(directory, filter)) {
        answer(state, *directory, filter);
    } else {
        reload(state, LoadKind::Tags, filter, directory);
    }
    return state;
}

Client::Engine::State Client::Engine::find(unsigned long folderId, const std::string& path,
                                           Freshness freshness) {
    State state = ask();
    state->walk = {path, folderId, partsOf(path), freshness};
    walk(state);
    return state;
}

unsigned long Client::Engine::merge() {
    try {
        const unsigned long answers = _worker.collect();
        if (answers != 0) {
            wake();
        }
        release();
        return answers;
    } catch (...) {
        wake();
        throw;
    }
}

void Client::Engine::wake() noexcept { ::eventfd_write(_merged.get(), 1); }

unsigned long Client::Engine::collect() {
    const unsigned long answers = _worker.collect();
    eventfd_t drained = 0;
    ::eventfd_read(_merged.get(), &drained);
    release();
    return answers;
}

Client::Engine::State Client::Engine::ask() {
    auto state = std::make_shared<Query::State>();
    state->asked = _clock();
    return state;
}

bool Client::Engine::isFolder(unsigned long id) { return !isHidden(id) && isFolderHeld(id); }

bool Client::Engine::isWhole(const FilterInternal& filter) const {
    return filter.sameListing(filterFor(filter.dataIds().front(), {}));
}

void Client::Engine::noteWhole(const FilterInternal& filter, const Directory& directory) {
    if (directory && isWhole(filter)) {
        _listings.setWhole(filter.dataIds().front(), directory);
    }
}

FilterInternal Client::Engine::filterFor(unsigned long folderId) const {
    FilterInternal filter;
    filter.setDataId({folderId});
    filter.contextId = folderId;
    filter.setUserId(_userId);
    return filter;
}

FilterInternal Client::Engine::filterFor(unsigned long folderId, const ListOptions& options) const {
    FilterInternal filter = filterFor(folderId);
    filter.setOffset(options.offset);
    filter.setCount(options.count);
    filter.setQuery(options.search);
    filter.setAscending(options.order == ListOrder::Ascending);
    filter.setContainerFirst(true);
    if (options.kind != ListKind::Everything) {
        filter.setDataType(options.kind == ListKind::Folders ? FolderType : DocumentType);
    }
    return filter;
}

// Whatever is in a folder that the service does not know was made here, or moved there.
void Client::Engine::answerLocally(const State& state, const FilterInternal& filter) {
    const unsigned long folderId = filter.dataIds().front();
    const bool isNew = !_cache.getDirectory(filter);
    const Directory directory = _listings.open(filter);
    noteWhole(filter, directory);
    if (isNew) {
        hideRemoved(folderId);
    }
    std::vector<std::shared_ptr<Item>> all = directory->items();
    std::sort(all.begin(), all.end(), [&](const auto& a, const auto& b) {
        const bool aIsFolder = _cache.castContainer(a) != nullptr;
        const bool bIsFolder = _cache.castContainer(b) != nullptr;
        return aIsFolder != bIsFolder  ? aIsFolder
               : filter.getAscending() ? a->name() < b->name()
                                       : b->name() < a->name();
    });
    const auto end =
        std::min<std::uint64_t>(std::uint64_t{filter.getOffset()} + filter.getCount(), all.size());
    for (std::uint64_t position = filter.getOffset(); position < end; ++position) {
        state->answer.entries.push_back(all[position]);
    }
    state->answer.held = all.size();
    state->answer.total = all.size();
    finish(state, AnswerState::Answered);
}

// A listing that was opened just now has what is being removed, and is to have it back.
void Client::Engine::hideRemoved(unsigned long folderId) {
    for (const std::shared_ptr<Item>& child : _cache.getChildren(folderId)) {
        if (isHidden(child->id())) {
            _listings.remember(folderId, child->id());
            _listings.leave(folderId, child->id());
        }
    }
}

void Client::Engine::answerOffline(const State& state, const Directory& directory,
                                   const FilterInternal& filter) {
    if (directory) {
        fill(state->answer, *directory, filter);
    }
    if (directory && dynamic_cast<const QueryResultInternal&>(*directory).isPageLoaded(filter)) {
        finish(state, AnswerState::Answered);
    } else {
        fail(state, offline());
    }
}

// --- Paths ---------------------------------------------------------------------------------

void Client::Engine::walk(const State& state) {
    Query::State::Walk& walk = state->walk;
    walk.entryId = current(walk.entryId);
    std::shared_ptr<Item> entry =
        isHidden(walk.entryId) ? nullptr : _cache.getItemInternal(walk.entryId);
    while (entry && !walk.rest.empty()) {
        if (!_cache.castContainer(entry)) {
            fail(state,
                 notFound("\"" + walk.path + "\": \"" + entry->name() + "\" is not a folder"));
            return;
        }
        const std::string name = walk.rest.front();
        if (name == "..") {
            const bool atRoot = walk.entryId == _rootId;
            entry = atRoot ? entry : _cache.getItemInternal(entry->parentId());
        } else {
            // The service has nothing to say of a folder that it does not know.
            const bool reload = walk.freshness == Freshness::Reload && walk.rest.size() == 1 &&
                                !Nimra::isLocalId(walk.entryId);
            entry = reload ? nullptr : heldEntry(walk.entryId, name);
            if (!entry) {
                lookUp(state, walk.entryId, name);
                return;
            }
        }
        walk.rest.pop_front();
        walk.entryId = entry ? entry->id() : 0;
    }
    if (entry) {
        answer(state, entry);
    } else {
        fail(state, notFound("\"" + walk.path + "\": a folder on the way is not known"));
    }
}

std::deque<std::string> Client::Engine::partsOf(const std::string& path) {
    std::deque<std::string> parts;
    std::size_t begin = 0;
    while (begin <= path.size()) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        std::string part = path.substr(begin, end - begin);
        if (!part.empty() && part != ".") {
            parts.push_back(std::move(part));
        }
        begin = end + 1;
    }
    return parts;
}

std::shared_ptr<Item> Client::Engine::heldEntry(unsigned long folderId, const std::string& name) {
    if (const unsigned long edited = _edits.find(folderId, name)) {
        return _cache.getItemInternal(edited);
    }
    if (const Directory listing = _listings.whole(folderId)) {
        auto entry = listing->itemByName(name);
        if (entry && entry->parentId() == folderId && !isHidden(entry->id())) {
            return entry;
        }
    }
    const auto found = _found.find({folderId, name});
    if (found == _found.end()) {
        return nullptr;
    }
    auto entry = _cache.getItemInternal(found->second);
    if (entry && entry->parentId() == folderId && entry->name() == name &&
        !isHidden(found->second)) {
        return entry;
    }
    _found.erase(found);
    return nullptr;
}

// The page goes into a result set that nobody else knows, so that what was looked up by name is
// cached without leaving a directory behind for each name.
void Client::Engine::lookUp(const State& state, unsigned long folderId, const std::string& name) {
    if (Nimra::isLocalId(folderId)) {
        fail(state, noSuchEntry(state->walk.path));
        return;
    }
    if (!online()) {
        fail(state, offline());
        return;
    }
    FilterInternal filter = filterFor(folderId);
    filter.setPath(name);
    filter.setCount(1);
    reload(state, LoadKind::LookUp, filter, _cache.add(QueryResult()));
}

void Client::Engine::lookedUp(const State& state, const Directory& directory) {
    Query::State::Walk& walk = state->walk;
    const std::string name = walk.rest.front();
    // The service was asked before whatever was done here since.
    const unsigned long edited = _edits.find(walk.entryId, name);
    const std::shared_ptr<Item> entry =
        edited != 0 ? _cache.getItemInternal(edited) : directory->itemByName(name);
    if (!entry) {
        doubtListing(walk.entryId, name);
        fail(state, noSuchEntry(walk.path));
        return;
    }
    _found[{walk.entryId, name}] = entry->id();
    walk.entryId = entry->id();
    walk.rest.pop_front();
    if (walk.rest.empty()) {
        answer(state, entry);
    } else {
        this->walk(state);
    }
}

// Listings that show what the service says is not there lose it, and are asked for again.
void Client::Engine::doubtListing(unsigned long folderId, const std::string& name) {
    _found.erase({folderId, name});
    const Directory listing = _listings.whole(folderId);
    if (const auto entry = listing ? listing->itemByName(name) : nullptr) {
        _listings.leave(folderId, entry->id());
        invalidate(folderId);
        doubt(folderId, entry->id());
    }
}

// --- Answers -------------------------------------------------------------------------------

void Client::Engine::answer(const State& state, const QueryResult& directory,
                            const FilterInternal& filter) {
    fill(state->answer, directory, filter);
    finish(state, AnswerState::Answered);
}

void Client::Engine::fill(Answer& answer, const QueryResult& directory,
                          const FilterInternal& filter) {
    answer.entries = directory.page(filter.getOffset(), filter.getCount());
    answer.held = directory.count();
    answer.total = directory.totalCount();
}

void Client::Engine::answer(const State& state, const std::shared_ptr<Item>& entry) {
    state->answer.entries = {entry};
    state->answer.held = 1;
    state->answer.total = 1;
    finish(state, AnswerState::Answered);
}

void Client::Engine::fail(const State& state, const Nimra::ServiceError& error) {
    state->answer.error = error;
    finish(state, AnswerState::Failed);
}

void Client::Engine::failWithoutWords(Query::State& state) noexcept {
    state.answer.entries.clear();
    state.answer.state = AnswerState::Failed;
    state.answer.error.reset();
}

void Client::Engine::finish(const State& state, AnswerState outcome) {
    Answer& answer = state->answer;
    answer.state = outcome;
    answer.elapsed = _clock() - state->asked;
    if (answer.source != AnswerSource::Memory) {
        _statistics.inLoads += answer.elapsed;
    } else if (outcome == AnswerState::Answered) {
        _statistics.inMemory += answer.elapsed;
        ++_statistics.answeredFromMemory;
    }
}

// --- Looking -------------------------------------------------------------------------------

std::shared_ptr<Item> Client::Engine::item(unsigned long id) {
    return _cache.getItemInternal(current(id));
}

std::string Client::Engine::pathOf(unsigned long id) {
    std::string path;
    id = current(id);
    // Changes made elsewhere can, for a while, leave folders that contain each other.
    for (unsigned long steps = _cache.itemsSize(); id != _rootId && steps != 0; --steps) {
        const std::shared_ptr<Item> entry = _cache.getItemInternal(id);
        if (!entry) {
            return {};
        }
        path.insert(0, "/" + entry->name());
        id = entry->parentId();
    }
    if (id != _rootId) {
        return {};
    }
    return path.empty() ? "/" : path;
}

Statistics Client::Engine::statistics() {
    Statistics now = _statistics;
    now.entries = _cache.itemsSize();
    now.keyValueEntries = _cache.keyValues().size();
    now.directories = _cache.directories().size() + _cache.keyValueDirectories().size();
    now.parkedOperations = _parked.size();
    return now;
}

}  // namespace Ormek
