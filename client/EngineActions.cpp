// What a user does, and what becomes of it.

#include <algorithm>
#include <set>
#include <stdexcept>

#include "client/Engine.h"
#include "client/EntryStates.h"
#include "service/LocalIds.h"

namespace Ormek {

namespace {

constexpr const char* HandlerName = "Requests";
constexpr unsigned int CreateKind = 2;
constexpr unsigned char FolderType = 8;

[[noreturn]] void refuse(const std::string& text) {
    throw Nimra::ServiceError(Nimra::Reason::Refused, text);
}

[[noreturn]] void refuseUnknown(const std::string& text) {
    throw Nimra::ServiceError(Nimra::Reason::NotFound, text);
}

void checkName(const std::string& name) {
    if (name.empty()) {
        refuse("an entry needs a name");
    }
    if (name == "." || name == "..") {
        refuse("\"" + name + "\" cannot be an entry's name");
    }
    if (name.find('/') != std::string::npos) {
        refuse("\"" + name + "\": a name cannot have a slash in it");
    }
    if (name.find('\0') != std::string::npos) {
        refuse("a name cannot have a NUL in it");
    }
}

bool isCreation(ActionKind kind) {
    return kind == ActionKind::CreateDocument || kind == ActionKind::CreateFolder;
}

bool isEdit(ActionKind kind) { return kind != ActionKind::Open && kind != ActionKind::OpenSession; }

bool isContainer(const Item& item) { return dynamic_cast<const Container*>(&item) != nullptr; }

}  // namespace

// --- What an action is about ---------------------------------------------------------------

std::shared_ptr<Item> Client::Engine::held(const Target& target) {
    if (const auto* path = std::get_if<std::string>(&target.which())) {
        return heldByPath(*path);
    }
    const unsigned long id = current(std::get<unsigned long>(target.which()));
    std::shared_ptr<Item> item = isHidden(id) ? nullptr : _cache.getItemInternal(id);
    if (!item) {
        refuseUnknown("no entry with the id " + std::to_string(id) + " is held");
    }
    return item;
}

std::shared_ptr<Item> Client::Engine::heldByPath(const std::string& path) {
    std::shared_ptr<Item> item = _cache.getItemInternal(_rootId);
    for (const std::string& part : partsOf(path)) {
        if (part == "..") {
            const bool atRoot = item->id() == _rootId;
            item = atRoot ? item : _cache.getItemInternal(item->parentId());
        } else {
            item = heldIn(item->id(), part);
        }
        if (!item) {
            refuseUnknown("\"" + path + "\": \"" + part + "\" is not held");
        }
    }
    return item;
}

// Also what only listings of another order, of one kind or of a search have brought.
std::shared_ptr<Item> Client::Engine::heldIn(unsigned long folderId, const std::string& name) {
    if (auto entry = heldEntry(folderId, name)) {
        return entry;
    }
    const std::vector<std::shared_ptr<Item>> children = _cache.getChildren(folderId);
    const auto found = std::find_if(children.begin(), children.end(), [&](const auto& child) {
        return child->name() == name && !isHidden(child->id());
    });
    return found == children.end() ? nullptr : *found;
}

std::shared_ptr<Item> Client::Engine::actedOn(const Target& target) {
    std::shared_ptr<Item> item = held(target);
    if (item->id() == _rootId) {
        refuse("this cannot be done to the root folder");
    }
    return item;
}

std::shared_ptr<Item> Client::Engine::folderFor(const Target& target) {
    std::shared_ptr<Item> item = held(target);
    if (!isContainer(*item)) {
        refuse("\"" + item->name() + "\" is not a folder");
    }
    return item;
}

bool Client::Engine::isWithin(unsigned long id, unsigned long folderId) {
    // Changes made elsewhere can, for a while, leave folders that contain each other.
    for (unsigned long steps = _cache.itemsSize(); steps != 0; --steps) {
        if (id == folderId) {
            return true;
        }
        const std::shared_ptr<Item> item = _cache.getItemInternal(id);
        if (!item) {
            return false;
        }
        id = item->parentId();
    }
    return false;
}

// --- Undertaking ---------------------------------------------------------------------------

// What is refused here never reaches the cache.
template <class Attempt>
Action Client::Engine::attempt(ActionKind kind, Attempt attempt) {
    try {
        if (_ended) {
            throw Nimra::ServiceError(Nimra::Reason::NotReachable, "the service was shut down");
        }
        return attempt();
    } catch (const Nimra::ServiceError& refusal) {
        auto state = std::make_shared<Action::State>();
        state->outcome.state = ActionState::Failed;
        state->outcome.kind = kind;
        state->outcome.error = refusal;
        return {std::move(state), 0, 0};
    }
}

// Applies an action and hands it over, by `send`, which returns its operation's id. Whatever can
// fail does so before the operation is on its way, or the edit is taken back.
template <class Send>
Action Client::Engine::undertake(ActionKind kind, const std::shared_ptr<Item>& item,
                                 const Edits::State& to, Send send) {
    const unsigned long id = item->id();
    auto state = std::make_shared<Action::State>();
    state->outcome.kind = kind;
    state->outcome.entryId = id;
    Undertakings prepared;
    prepared.emplace(0, Undertaking{kind, id, state});
    const Before before = isCreation(kind) ? Before{{id, std::nullopt}} : this->before({id});
    if (isEdit(kind)) {
        const Shown served = isCreation(kind) ? std::nullopt : Shown(stateOf(*item));
        _edits.begin(id, served, {0, kind, to});
    }
    try {
        state->outcome.operationId = send();
    } catch (...) {
        dropContent({kind, id, {}});
        takeBack(id, 0);
        throw;
    }
    const unsigned long operationId = state->outcome.operationId;
    if (isEdit(kind)) {
        _edits.number(id, operationId);
    }
    auto node = prepared.extract(0);
    node.key() = operationId;
    _undertakings.insert(std::move(node));
    tell(before);
    release();
    return {std::move(state), operationId, id};
}

// Leaves a step out of what is shown of an entry.
void Client::Engine::takeBack(unsigned long id, unsigned long operationId) {
    if (!_edits.has(id)) {
        return;
    }
    const Shown was = _edits.shown(id);
    const Shown now = _edits.end(id, operationId);
    show(id, was, now);
    if (now) {
        doubt(now->folderId, id);
    }
    if (_edits.has(id)) {
        return;
    }
    _listings.forget(id);
    if (!now) {
        drop(id);
    }
}

// An operation goes behind the parked ones that name the same items. Without a user the cache parks
// it, and the queue, which knows the user, lets it go in its turn.
unsigned long Client::Engine::userFor(const std::vector<unsigned long>& ids) const {
    return _parked.names(ids) ? 0 : _userId;
}

void Client::Engine::release() {
    for (auto& operation : _parked.takeReady()) {
        const unsigned long operationId = operation->id();
        try {
            Nimra::OperationHandler::getHandler(HandlerName)->queueOperation(operation.release());
        } catch (const std::exception& error) {
            failed(operationId, {Nimra::Reason::Internal, error.what()});
        }
    }
}

// --- The actions ---------------------------------------------------------------------------

Action Client::Engine::createDocument(const Target& folder, const std::string& name,
                                      std::unique_ptr<Nimra::ContentSource>& content,
                                      unsigned long length, const Nimra::KeyValues& keyValues) {
    return attempt(ActionKind::CreateDocument, [&] {
        const unsigned long folderId = folderFor(folder)->id();
        checkName(name);
        Nimra::Document record(Nimra::createLocalId(), folderId, _userId, name);
        record.length = length;
        record._keyValues = keyValues;
        const std::shared_ptr<Object> object = _cache.getObject(record);
        const auto send = [&] {
            // The cache looks at the folder alone, and would send it at once.
            const bool overtakes = !Nimra::isLocalId(folderId) && _parked.names({folderId});
            return overtakes ? sendCreation(record)
                             : _cache.createObject(object, keyValues, _userId, this);
        };
        return undertake(ActionKind::CreateDocument, object, stateOf(*object), [&] {
            _worker.setContent(record.id, std::move(content));
            _listings.enter(_cache.cacheObjectPtrInternal(object));
            return send();
        });
    });
}

Action Client::Engine::createFolder(const Target& folder, const std::string& name) {
    return attempt(ActionKind::CreateFolder, [&] {
        const unsigned long folderId = folderFor(folder)->id();
        checkName(name);
        Nimra::Document record(Nimra::createLocalId(), folderId, _userId, name);
        record.type = FolderType;
        const std::shared_ptr<Container> container =
            _cache.getContainer({record.id, folderId, _userId, name});
        return undertake(ActionKind::CreateFolder, container, stateOf(*container), [&] {
            _cache.cacheContainerPtrInternal(container);
            _listings.enter(container);
            return sendCreation(record);
        });
    });
}

// For creations that the cache has no operation for.
unsigned long Client::Engine::sendCreation(const Nimra::Document& record) {
    Nimra::ItemEventProtocol* const listener = this;
    auto operation = std::make_unique<Nimra::FileOperation>(Nimra::OperationHandler::createId(),
                                                            record, CreateKind, listener);
    operation->setService(_service.get());
    const unsigned long operationId = operation->id();
    if (Nimra::isLocalId(record.parentId) || _parked.names({record.parentId})) {
        _parked.push(operation.release());
    } else {
        Nimra::OperationHandler::getHandler(HandlerName)->queueOperation(operation.release());
    }
    return operationId;
}

Action Client::Engine::rename(const Target& target, const std::string& newName) {
    return attempt(ActionKind::Rename, [&] {
        const std::shared_ptr<Item> item = actedOn(target);
        checkName(newName);
        const unsigned long id = item->id();
        const unsigned long folderId = item->parentId();
        return undertake(ActionKind::Rename, item, {0, newName, {}}, [&] {
            _listings.remember(folderId, id);
            const unsigned long operationId =
                _cache.renameObject(folderId, id, userFor({id, folderId}), newName, this);
            _listings.refit(item);
            return operationId;
        });
    });
}

Action Client::Engine::move(const Target& target, const Target& folder) {
    return attempt(ActionKind::Move, [&] {
        const std::shared_ptr<Item> item = actedOn(target);
        const unsigned long id = item->id();
        const unsigned long oldFolderId = item->parentId();
        const unsigned long newFolderId = folderFor(folder)->id();
        if (newFolderId == oldFolderId) {
            refuse("\"" + item->name() + "\" is in that folder already");
        }
        if (isWithin(newFolderId, id)) {
            refuse("\"" + item->name() + "\" cannot be moved into itself");
        }
        return undertake(ActionKind::Move, item, {newFolderId, {}, {}}, [&] {
            // The cache looks at the item alone, and would send it at once.
            const unsigned long userId =
                Nimra::isLocalId(newFolderId) ? 0 : userFor({id, oldFolderId, newFolderId});
            _listings.remember(oldFolderId, id);
            return _cache.moveObject(userId, oldFolderId, id, newFolderId, item->name(), this);
        });
    });
}

Action Client::Engine::remove(const Target& target) {
    return attempt(ActionKind::Remove, [&] {
        const std::shared_ptr<Item> item = actedOn(target);
        const unsigned long id = item->id();
        const unsigned long folderId = item->parentId();
        return undertake(ActionKind::Remove, item, {}, [&] {
            // The cache takes it out of one listing only.
            _listings.remember(folderId, id);
            _listings.leave(folderId, id);
            return _cache.removeObject(folderId, id, userFor({id, folderId}), this);
        });
    });
}

Action Client::Engine::saveMetaData(const Target& target, const Nimra::KeyValues& keyValues) {
    return attempt(ActionKind::SaveMetaData, [&] {
        const std::shared_ptr<Item> item = actedOn(target);
        const auto object = OrmekCast::castObjectInternal(_cache.castObject(item));
        const unsigned long id = item->id();
        const unsigned long folderId = item->parentId();
        return undertake(ActionKind::SaveMetaData, item, {0, {}, keyValues}, [&] {
            if (object) {
                object->setKeyValues(keyValues);
            }
            return _cache.saveMetaData(userFor({id, folderId}), folderId, id, item->name(),
                                       object ? object->length() : 0,
                                       object ? object->mimeType() : "", keyValues, this);
        });
    });
}

Action Client::Engine::open(const Target& target) {
    return attempt(ActionKind::Open, [&] {
        const std::shared_ptr<Item> item = actedOn(target);
        const unsigned long id = item->id();
        const unsigned long folderId = item->parentId();
        if (isContainer(*item)) {
            refuse("\"" + item->name() + "\" is a folder");
        }
        return undertake(ActionKind::Open, item, {}, [&] {
            return _cache.getStreams(folderId, id, userFor({id, folderId}), item->name(), this);
        });
    });
}

Action Client::Engine::openSession(const Target& target) {
    return attempt(ActionKind::OpenSession, [&] {
        const std::shared_ptr<Item> item = actedOn(target);
        const unsigned long id = item->id();
        const unsigned long folderId = item->parentId();
        if (isContainer(*item)) {
            refuse("\"" + item->name() + "\" is a folder: sessions are for documents");
        }
        return undertake(ActionKind::OpenSession, item, {}, [&] {
            const bool waits = Nimra::isLocalId(id) || Nimra::isLocalId(folderId);
            return _cache.getObjectSession(folderId, id, waits ? 0 : userFor({id, folderId}), this);
        });
    });
}

void Client::Engine::releaseSession(const Nimra::DocumentSession& session) {
    try {
        _service->releaseSession(session);
    } catch (const Nimra::ServiceError& error) {
        // It ended with its document.
        if (error.reason() != Nimra::Reason::NotFound) {
            throw;
        }
    }
}

bool Client::Engine::cancel(unsigned long operationId) {
    // By way of the worker, so that whoever waits for the outcome wakes up.
    if (auto parked = _parked.cancel(operationId)) {
        _worker.cancel(std::move(parked));
        return true;
    }
    return _undertakings.count(operationId) != 0 && _worker.cancel(operationId);
}

void Client::Engine::setOnline(bool online) {
    if (online) {
        _worker.resume();
    } else {
        _worker.pause();
    }
}

std::vector<WaitingAction> Client::Engine::waiting() {
    std::map<unsigned long, QueuedOperationsManager::Waiting> parked;
    for (QueuedOperationsManager::Waiting& waiting : _parked.waiting()) {
        parked.emplace(waiting.operationId, std::move(waiting));
    }
    std::vector<unsigned long> queued;
    if (!online()) {
        // Nobody takes any while the worker is paused, and this call is the only one.
        for (const Nimra::Operation* operation : _worker.operations()) {
            queued.push_back(operation->id());
        }
    }
    std::vector<WaitingAction> all;
    for (const auto& [operationId, undertaking] : _undertakings) {
        const auto waiting = parked.find(operationId);
        const bool isQueued = std::count(queued.begin(), queued.end(), operationId) != 0;
        if (waiting == parked.end() && !isQueued) {
            continue;
        }
        WaitingAction action;
        action.operationId = operationId;
        action.kind = undertaking.kind;
        action.entryId = current(undertaking.entryId);
        action.forService = !online();
        if (waiting != parked.end()) {
            action.forEarlier = waiting->second.forEarlier;
            action.forCreationOf = std::move(waiting->second.localIds);
        }
        all.push_back(std::move(action));
    }
    return all;
}

// --- Outcomes ------------------------------------------------------------------------------

void Client::Engine::finished(unsigned long operationId, const Nimra::Document& document) {
    const auto undertaking = takeUndertaking(operationId);
    if (!undertaking) {
        return;
    }
    if (isCreation(undertaking->kind) && (document.id == 0 || Nimra::isLocalId(document.id))) {
        failAction(*undertaking, operationId,
                   {Nimra::Reason::Internal, "the service gave no id to what it made"});
        return;
    }
    try {
        applySuccess(*undertaking, operationId, document);
    } catch (...) {
        // What could not be put right is loaded again.
        _listings.invalidate(document.parentId);
    }
    conclude(*undertaking, operationId, {});
    release();
}

void Client::Engine::applySuccess(const Undertaking& undertaking, unsigned long operationId,
                                  const Nimra::Document& record) {
    if (isCreation(undertaking.kind)) {
        giveServerId(undertaking.entryId, record.id);
    }
    const unsigned long id = current(undertaking.entryId);
    // What lies in a folder that is not held is out of sight.
    const bool removed = undertaking.kind == ActionKind::Remove || !isFolderHeld(record.parentId);
    const Before before = this->before({id});
    const Shown was = _edits.shown(id);
    _edits.served(id, removed ? std::nullopt : Shown(stateOf(record)));
    const Shown now = _edits.end(id, operationId);
    show(id, was, now);
    if (!removed && now) {
        refreshFrom(id, record, *now);
    }
    if (!_edits.has(id)) {
        _listings.forget(id);
    }
    if (!now && !_edits.has(id)) {
        drop(id);
    }
    // Where it stands in the service's order is not known.
    if (!removed && undertaking.kind != ActionKind::SaveMetaData) {
        doubt(record.parentId, id);
        invalidate(record.parentId);
    }
    tell(before);
}

// The record as the service has it now, under what is to be shown of it.
void Client::Engine::refreshFrom(unsigned long id, Nimra::Document record,
                                 const Edits::State& shown) {
    const std::shared_ptr<Item> item = _cache.getItemInternal(id);
    apply(shown, record);
    record.id = id;
    if (const auto object = OrmekCast::castObjectInternal(_cache.castObject(item))) {
        refreshObject(*object, record);
    } else if (const auto folder = OrmekCast::castItemInternal(item)) {
        folder->created(record.created);
        folder->updated(record.updated);
        folder->setACLMap(record.ownerId, record.aclMode);
    }
}

// The entry, what lies in it, what waits for it and its listings follow at one stroke.
void Client::Engine::giveServerId(unsigned long localId, unsigned long serverId) {
    const std::shared_ptr<Item> item = _cache.getItemInternal(localId);
    const bool isKnown = _cache.getItemInternal(serverId) != nullptr;
    // Where the other one is hidden, it is the local one that will be told to have gone.
    const Before before = this->before({valuesOf(serverId) ? serverId : localId});
    const Shown was = shownOf(serverId);
    // A page, or a change told, has brought it already: the local one leaves.
    if (item && isKnown) {
        _listings.leave(item->parentId(), localId);
    }
    _parked.idKnown(localId, serverId);
    _cache.updateItemId(localId, serverId);
    if (_cache.castContainer(item)) {
        _cache.updateItemParentIds(localId, serverId);
    }
    _edits.rekey(localId, serverId);
    _listings.rekey(localId, serverId);
    events.push(EntryIdChanged{localId, serverId});
    // The other one takes over what was done to it meanwhile, and its places.
    if (isKnown) {
        show(serverId, was, _edits.shown(serverId));
        if (!isHidden(serverId)) {
            _listings.enter(_cache.getItemInternal(serverId));
        }
        tell(before);
    }
}

void Client::Engine::failed(unsigned long operationId, const Nimra::ServiceError& error) {
    if (const auto undertaking = takeUndertaking(operationId)) {
        failAction(*undertaking, operationId, error);
        release();
        return;
    }
    const Load load = takeLoad(operationId);
    if (load.directory) {
        loadFailed(load, error);
    }
}

// Whatever waits for an entry that was not made fails with it.
void Client::Engine::failAction(const Undertaking& undertaking, unsigned long operationId,
                                const Nimra::ServiceError& error) {
    const std::vector<Failing> waiting = takeWaitingFor(undertaking);
    std::vector<Failing> all{{operationId, undertaking}};
    all.insert(all.end(), waiting.begin(), waiting.end());
    undo(all, error.reason());
    conclude(undertaking, operationId, {error, nullptr, std::nullopt});
    const Nimra::ServiceError reason(
        error.reason(), std::string("what this needs could not be made: ") + error.what());
    for (const Failing& one : waiting) {
        conclude(one.undertaking, one.operationId, {reason, nullptr, std::nullopt});
    }
}

std::vector<Client::Engine::Failing> Client::Engine::takeWaitingFor(
    const Undertaking& undertaking) {
    std::vector<Failing> waiting;
    if (!isCreation(undertaking.kind)) {
        return waiting;
    }
    dropContent(undertaking);
    for (const auto& operation : _parked.takeWaitingFor(undertaking.entryId)) {
        if (auto taken = takeUndertaking(operation->id())) {
            dropContent(*taken);
            waiting.push_back({operation->id(), std::move(*taken)});
        }
    }
    return waiting;
}

// Of a creation that will not be sent. Others on the same entry must not touch it.
void Client::Engine::dropContent(const Undertaking& undertaking) {
    if (isCreation(undertaking.kind)) {
        _worker.setContent(undertaking.entryId, nullptr);
    }
}

// The last one first, and told as one change.
void Client::Engine::undo(const std::vector<Failing>& failing, Nimra::Reason reason) noexcept {
    Before before;
    try {
        std::set<unsigned long> ids;
        for (const Failing& one : failing) {
            ids.insert(current(one.undertaking.entryId));
        }
        before = this->before({ids.begin(), ids.end()});
    } catch (...) {
        before.clear();
    }
    for (auto one = failing.rbegin(); one != failing.rend(); ++one) {
        undo(*one, reason);
    }
    try {
        tell(before);
    } catch (...) {
        // Without memory for more, the outcome alone is told.
    }
}

void Client::Engine::undo(const Failing& failing, Nimra::Reason reason) noexcept {
    if (!isEdit(failing.undertaking.kind)) {
        return;
    }
    const unsigned long id = current(failing.undertaking.entryId);
    unsigned long folderId = 0;
    try {
        const Shown was = _edits.shown(id);
        folderId = was ? was->folderId : 0;
        takeBack(id, failing.operationId);
        // The service knows of an entry, or of the lack of one, that is not known here.
        if (reason == Nimra::Reason::NotFound || reason == Nimra::Reason::Exists) {
            const Shown now = shownOf(id);
            invalidate(now ? now->folderId : folderId);
            if (now && now->folderId != folderId) {
                invalidate(folderId);
            }
        }
    } catch (...) {
        _listings.invalidate(folderId);
    }
}

void Client::Engine::streamsOpened(unsigned long operationId, const Nimra::Document& /*document*/,
                                   std::shared_ptr<Nimra::DocumentStream> stream) {
    if (const auto undertaking = takeUndertaking(operationId)) {
        conclude(*undertaking, operationId, {std::nullopt, std::move(stream), std::nullopt});
    }
}

void Client::Engine::sessionOpened(unsigned long operationId,
                                   const Nimra::DocumentSession& session) {
    if (const auto undertaking = takeUndertaking(operationId)) {
        conclude(*undertaking, operationId, {std::nullopt, nullptr, session});
    }
}

void Client::Engine::progress(unsigned long operationId, unsigned long done, unsigned long total) {
    events.push(ActionProgress{operationId, done, total});
}

std::optional<Client::Engine::Undertaking> Client::Engine::takeUndertaking(
    unsigned long operationId) {
    const auto found = _undertakings.find(operationId);
    if (found == _undertakings.end()) {
        return std::nullopt;
    }
    std::optional<Undertaking> taken(std::move(found->second));
    _undertakings.erase(found);
    return taken;
}

// Whoever waits must hear of the end, even without memory for the rest, or would wait for ever.
void Client::Engine::conclude(const Undertaking& undertaking, unsigned long operationId,
                              Result result) {
    const std::shared_ptr<Action::State> state = undertaking.state.lock();
    const ActionState ended = result.error ? ActionState::Failed : ActionState::Done;
    if (state) {
        state->outcome.state = ended;
    }
    Outcome outcome;
    outcome.state = ended;
    outcome.kind = undertaking.kind;
    outcome.operationId = operationId;
    outcome.entryId = current(undertaking.entryId);
    outcome.entry = valuesOf(outcome.entryId);
    outcome.error = std::move(result.error);
    outcome.stream = std::move(result.stream);
    outcome.session = std::move(result.session);
    if (state) {
        state->outcome = outcome;
    }
    events.push(std::move(outcome));
}

}  // namespace Ormek
