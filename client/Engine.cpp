#include "client/Engine.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <stdexcept>

#include "backend/SystemError.h"

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

bool samePage(const FilterInternal& a, const FilterInternal& b) {
    return a.getOffset() == b.getOffset() && a.getCount() == b.getCount() && a.sameListing(b);
}

bool isCurrent(const std::shared_ptr<QueryResult>& directory, const FilterInternal& filter) {
    const auto& internal = dynamic_cast<const QueryResultInternal&>(*directory);
    return internal.isPageLoaded(filter) && internal.isPageCurrent(filter);
}

std::deque<std::string> partsOf(const std::string& path) {
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

template <class Record>
void refresh(ItemInternal& item, const Record& record) {
    item.name(record.name);
    item.parentId(record.parentId);
    item.ownerId(record.ownerId);
    item.created(record.created);
    item.updated(record.updated);
    item.deleted(record.deleted);
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
    if (!_service || !_clock) {
        throw std::invalid_argument("Ormek::Client: a service and a clock are needed");
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
    _rootId = root.id;
    _cache.addFolder(root, false);
    // Marks the root's id as loaded; otherwise everything made in it would wait for ever.
    _cache.updateItemId(_rootId, _rootId);
    _worker.takeOver(*Nimra::OperationHandler::getHandler(HandlerName));
    Nimra::OperationHandler::registerHandler(HandlerName, &_worker);
}

Client::Engine::~Engine() {
    _worker.stop();
    // An answer may lead to a further operation, which a stopped worker fails at once; and whoever
    // is told may throw.
    bool more = true;
    while (more) {
        try {
            more = _worker.collect() != 0;
        } catch (...) {
            more = true;
        }
    }
    if (Nimra::OperationHandler::getHandler(HandlerName) == &_worker) {
        Nimra::OperationHandler::registerHandler(HandlerName, nullptr);
    }
}

// --- Questions -----------------------------------------------------------------------------

Client::Engine::State Client::Engine::list(unsigned long folderId, const ListOptions& options) {
    State state = ask();
    if (!isFolder(folderId)) {
        fail(state, notFound("no folder with the id " + std::to_string(folderId) + " is known"));
        return state;
    }
    const FilterInternal filter = filterFor(folderId, options);
    const bool fresh = options.freshness == Freshness::Reload;
    if (!fresh && join(state, filter)) {
        return state;
    }
    Directory directory = fresh ? _cache.getDirectory(filter) : nullptr;
    if (directory) {
        reload(state, LoadKind::Listing, filter, directory);
        return state;
    }
    const unsigned long operationId = _cache.get(filter, directory, this);
    if (filter.sameListing(filterFor(folderId, {}))) {
        _listings[folderId] = directory;
    }
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
    if (!isFolder(folderId)) {
        fail(state, notFound("no folder with the id " + std::to_string(folderId) + " is known"));
        return state;
    }
    FilterInternal filter = filterFor(folderId, options);
    filter.setDataType(TagService);
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
            ::eventfd_write(_merged.get(), 1);
        }
        return answers;
    } catch (...) {
        ::eventfd_write(_merged.get(), 1);
        throw;
    }
}

unsigned long Client::Engine::collect() {
    const unsigned long answers = _worker.collect();
    eventfd_t drained = 0;
    ::eventfd_read(_merged.get(), &drained);
    return answers;
}

Client::Engine::State Client::Engine::ask() {
    auto state = std::make_shared<Query::State>();
    state->asked = _clock();
    return state;
}

bool Client::Engine::isFolder(unsigned long id) {
    return _cache.castContainer(_cache.getItemInternal(id)) != nullptr;
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

// --- Loads ---------------------------------------------------------------------------------

bool Client::Engine::join(const State& state, const FilterInternal& filter) {
    const auto underWay = std::find_if(_loads.begin(), _loads.end(), [&](const auto& entry) {
        return entry.second.kind != LoadKind::LookUp && samePage(entry.second.filter, filter);
    });
    // What is held and current is answered from memory all the same.
    if (underWay == _loads.end() || isCurrent(underWay->second.directory, filter)) {
        return false;
    }
    underWay->second.waiters.push_back(state);
    state->answer.source = AnswerSource::JoinedLoad;
    ++_statistics.joinedLoads;
    return true;
}

void Client::Engine::await(const State& state, LoadKind kind, const FilterInternal& filter,
                           const Directory& directory, unsigned long operationId) {
    ++_statistics.loads;
    state->answer.source = AnswerSource::Load;
    _loads.emplace(operationId, Load{kind, filter, directory, {state}});
}

void Client::Engine::reload(const State& state, LoadKind kind, FilterInternal filter,
                            Directory directory) {
    filter.setByPassCache(true);
    const unsigned long operationId =
        kind == LoadKind::Tags ? _cache.loadFromService(_services[TagService], filter, this)
                               : _cache.get(filter, directory, this);
    await(state, kind, filter, directory, operationId);
}

Client::Engine::Load Client::Engine::takeLoad(unsigned long operationId) {
    const auto found = _loads.find(operationId);
    if (found == _loads.end()) {
        return {LoadKind::LookUp, {}, nullptr, {}};
    }
    Load load = std::move(found->second);
    _loads.erase(found);
    return load;
}

void Client::Engine::pageLoaded(unsigned long operationId, const Nimra::ItemFilter& /*filter*/,
                                Nimra::Page& page) {
    const Load load = takeLoad(operationId);
    if (!load.directory) {
        return;
    }
    try {
        mergePage(load, page);
    } catch (const std::exception& error) {
        ++_statistics.failedLoads;
        const Nimra::ServiceError reason(Nimra::Reason::Internal, error.what());
        concludeEach(load, [&](const State& state) { fail(state, reason); });
        return;
    } catch (...) {
        ++_statistics.failedLoads;
        concludeEach(load, [](const State& state) { failWithoutWords(*state); });
        return;
    }
    concludeEach(load, [&](const State& state) {
        if (load.kind == LoadKind::LookUp) {
            lookedUp(state, load.directory);
        } else {
            answer(state, *load.directory, load.filter);
        }
    });
}

void Client::Engine::failed(unsigned long operationId, const Nimra::ServiceError& error) {
    ++_statistics.failedLoads;
    const Load load = takeLoad(operationId);
    concludeEach(load, [&](const State& state) {
        if (load.kind != LoadKind::LookUp) {
            state->answer.held = load.directory->count();
            state->answer.total = load.directory->totalCount();
        }
        fail(state, error);
    });
}

// Whoever waits must hear of the end, even without memory to say why, or would wait for ever.
template <class Conclude>
void Client::Engine::concludeEach(const Load& load, Conclude conclude) {
    for (const Waiter& waiter : load.waiters) {
        const State state = waiter.lock();
        if (!state) {
            continue;
        }
        try {
            conclude(state);
        } catch (...) {
            failWithoutWords(*state);
        }
    }
}

void Client::Engine::mergePage(const Load& load, Nimra::Page& page) {
    if (load.kind == LoadKind::Tags) {
        refreshTags(page.tags);
        _cache.addKeyValues(load.filter, load.directory, std::move(page.tags), page.totalCount);
        return;
    }
    refreshFolders(page.folders);
    if (page.documents.empty() && load.filter.getDataType() == FolderType) {
        _cache.addItems(load.filter, load.directory, std::move(page.folders), page.totalCount);
    } else if (page.folders.empty() && load.filter.getDataType() == DocumentType) {
        _cache.addItems(load.filter, load.directory, std::move(page.documents), page.totalCount);
    } else {
        _cache.addItems(load.filter, load.directory, std::move(page.folders),
                        std::move(page.documents), page.totalCount);
    }
    // What was found by name before may be gone now.
    if (load.kind == LoadKind::Listing) {
        const unsigned long folderId = load.filter.getDataId().front();
        auto found = _found.lower_bound({folderId, {}});
        while (found != _found.end() && found->first.first == folderId) {
            found = _found.erase(found);
        }
    }
}

// The cache refreshes documents it knows when they are delivered again, but not folders.
void Client::Engine::refreshFolders(const std::vector<Nimra::Folder>& folders) {
    for (const Nimra::Folder& folder : folders) {
        const auto container = _cache.castContainer(_cache.getItemInternal(folder.id));
        if (const auto internal = OrmekCast::castItemInternal(container)) {
            refresh(*internal, folder);
            internal->driveId(folder.driveId);
            internal->firstText(folder.secondLeading);
            internal->secondText(folder.firstLeading);
            internal->thirdText(folder.fourthTrailing);
            internal->shares(folder.shares);
            internal->setACLMap(folder.ownerId, folder.accessLevel);
        }
    }
}

// Nor does it refresh tags: what is kept under a key stays.
void Client::Engine::refreshTags(const std::vector<Nimra::Tag>& tags) {
    for (const Nimra::Tag& tag : tags) {
        const auto kept = _cache.keyValues().find(tag.tagKey);
        if (kept == _cache.keyValues().end()) {
            continue;
        }
        if (const auto object = OrmekCast::castObjectInternal(_cache.castObject(kept->second))) {
            // Another tag under the same key is the service's mistake, and not for us to mix.
            if (object->id() != tag.id) {
                continue;
            }
            refresh(*object, tag);
            object->setKeyValues(tag.keyValues());
        }
    }
}

// --- Paths ---------------------------------------------------------------------------------

void Client::Engine::walk(const State& state) {
    Query::State::Walk& walk = state->walk;
    std::shared_ptr<Item> entry = _cache.getItemInternal(walk.entryId);
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
            const bool reload = walk.freshness == Freshness::Reload && walk.rest.size() == 1;
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

std::shared_ptr<Item> Client::Engine::heldEntry(unsigned long folderId, const std::string& name) {
    const auto listing = _listings.find(folderId);
    if (listing != _listings.end()) {
        auto entry = listing->second->itemByName(name);
        if (entry && entry->parentId() == folderId) {
            return entry;
        }
    }
    const auto found = _found.find({folderId, name});
    if (found == _found.end()) {
        return nullptr;
    }
    auto entry = _cache.getItemInternal(found->second);
    if (entry && entry->parentId() == folderId && entry->name() == name) {
        return entry;
    }
    _found.erase(found);
    return nullptr;
}

// The page goes into a result set that nobody else knows, so that what was looked up by name is
// cached without leaving a directory behind for each name.
void Client::Engine::lookUp(const State& state, unsigned long folderId, const std::string& name) {
    FilterInternal filter = filterFor(folderId);
    filter.setPath(name);
    filter.setCount(1);
    reload(state, LoadKind::LookUp, filter, _cache.add(QueryResult()));
}

void Client::Engine::lookedUp(const State& state, const Directory& directory) {
    Query::State::Walk& walk = state->walk;
    const std::shared_ptr<Item> entry = directory->itemByName(walk.rest.front());
    if (!entry) {
        doubtListing(walk.entryId, walk.rest.front());
        fail(state, notFound("\"" + walk.path + "\": no such file or folder"));
        return;
    }
    _found[{walk.entryId, walk.rest.front()}] = entry->id();
    walk.entryId = entry->id();
    walk.rest.pop_front();
    if (walk.rest.empty()) {
        answer(state, entry);
    } else {
        this->walk(state);
    }
}

// A listing that shows what the service says is not there loses it, and is asked for again.
void Client::Engine::doubtListing(unsigned long folderId, const std::string& name) {
    _found.erase({folderId, name});
    const auto listing = _listings.find(folderId);
    if (listing == _listings.end()) {
        return;
    }
    auto& directory = dynamic_cast<QueryResultInternal&>(*listing->second);
    if (const auto entry = directory.itemByName(name)) {
        directory.removeItem(entry->id());
        directory.invalidate();
    }
}

// --- Answers -------------------------------------------------------------------------------

void Client::Engine::answer(const State& state, const QueryResult& directory,
                            const FilterInternal& filter) {
    state->answer.entries = directory.page(filter.getOffset(), filter.getCount());
    state->answer.held = directory.count();
    state->answer.total = directory.totalCount();
    finish(state, AnswerState::Answered);
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

std::shared_ptr<Item> Client::Engine::item(unsigned long id) { return _cache.getItemInternal(id); }

std::string Client::Engine::pathOf(unsigned long id) {
    std::string path;
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
