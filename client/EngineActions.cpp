// What a user does, and what becomes of it.

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>

#include "client/Engine.h"
#include "client/EntryStates.h"
#include "service/LocalIds.h"

namespace Ormek {

namespace {

constexpr const char* HandlerName = "Requests";
constexpr unsigned int CreateKind = 2;
constexpr unsigned char FolderType = 8;

std::string quoted(const std::string& name) { return '"' + name + '"'; }

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
        refuse(quoted(name) + " cannot be an entry's name");
    }
    if (name.find('/') != std::string::npos) {
        refuse(quoted(name) + ": a name cannot have a slash in it");
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
            refuseUnknown(quoted(path) + ": " + quoted(part) + " is not held");
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
        refuse(quoted(item->name()) + " is not a folder");
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
    const unsigned long folderId = item->parentId();
    auto state = std::make_shared<Action::State>();
    state->outcome.kind = kind;
    state->outcome.entryId = id;
    Undertakings prepared;
    prepared.emplace(0, Undertaking{kind, id, state, EventQueue::makeRoom()});
    const Before before = isCreation(kind) ? Before{{id, std::nullopt}} : this->before({id});
    if (isEdit(kind)) {
        const Shown served = isCreation(kind) ? std::nullopt : Shown(stateOf(*item));
        _edits.begin(id, served, {0, kind, to});
    }
    try {
        state->outcome.operationId = send();
    } catch (...) {
        dropContent({kind, id, {}, {}});
        takeBack(id, 0);
        throw;
    }
    const unsigned long operationId = state->outcome.operationId;
    if (isEdit(kind)) {
        _edits.number(id, operationId);
        // Loads that are asked for from now on follow it to the service, unless it has to wait.
        doubtTags(folderId, id);
        doubtTags(to.folderId, id);
    }
    auto node = prepared.extract(0);
    node.key() = operationId;
    _undertakings.insert(std::move(node));
    tell(before);
    release();
    return {std::move(state), operationId, id};
}

// Leaves a step out of what is shown of an entry. What there is no memory to put right is loaded
// again.
void Client::Engine::takeBack(unsigned long id, unsigned long operationId) noexcept {
    if (!_edits.has(id)) {
        return;
    }
    const bool isServed = _edits.isServed(id);
    try {
        const Shown was = _edits.shown(id);
        const Shown now = _edits.end(id, operationId);
        show(id, was, now);
        if (now) {
            doubt(now->folderId, id);
        }
    } catch (...) {
        giveUp(id, operationId);
    }
    if (_edits.has(id)) {
        return;
    }
    _listings.forget(id);
    if (!isServed) {
        drop(id);
    }
}

// Leaves it out without a look at what is to be shown.
void Client::Engine::giveUp(unsigned long id, unsigned long operationId) noexcept {
    try {
        _edits.end(id, operationId);
    } catch (...) {
        // Out it is.
    }
    if (const std::shared_ptr<Item> item = _cache.getItemInternal(id)) {
        _listings.invalidate(item->parentId());
    }
}

// An operation goes behind the parked ones that name the same items. Without a user the cache parks
// it, and the queue, which knows the user, lets it go in its turn.
unsigned long Client::Engine::userFor(const std::vector<unsigned long>& ids) const {
    return _parked.names(ids) ? 0 : _userId;
}

// One that fails at once may make others ready: whoever is at it already goes on until none is.
// What there is no memory to let go is let go by a later call.
void Client::Engine::release() noexcept {
    if (std::exchange(_releasing, true)) {
        return;
    }
    try {
        for (auto ready = _parked.takeReady(); !ready.empty(); ready = _parked.takeReady()) {
            std::for_each(ready.begin(), ready.end(), [this](auto& one) { send(std::move(one)); });
        }
    } catch (...) {
    }
    _releasing = false;
}

void Client::Engine::send(std::unique_ptr<Nimra::Operation> operation) noexcept {
    const unsigned long operationId = operation->id();
    try {
        Nimra::OperationHandler::getHandler(HandlerName)->queueOperation(operation.release());
    } catch (...) {
        failed(operationId, _outOfMemory);
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
            refuse(quoted(item->name()) + " is in that folder already");
        }
        if (isWithin(newFolderId, id)) {
            refuse(quoted(item->name()) + " cannot be moved into itself");
        }
        return undertake(ActionKind::Move, item, {newFolderId, {}, {}}, [&] {
            // The cache looks at the item alone, and would send it at once.
            const unsigned long userId =
                Nimra::isLocalId(newFolderId) ? 0 : userFor({id, oldFolderId, newFolderId});
            _listings.remember(oldFolderId, id);
            believe(oldFolderId, id);
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
                object->setKeyValues(_edits.shown(id)->keyValues);
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
            refuse(quoted(item->name()) + " is a folder");
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
            refuse(quoted(item->name()) + " is a folder: sessions are for documents");
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
        try {
            _worker.cancel(std::move(parked));
        } catch (...) {
            failed(operationId, _cancelled);
        }
        return true;
    }
    return _undertakings.contains(operationId) && _worker.cancel(operationId);
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
    Undertakings taken = takeUndertaking(operationId);
    if (taken.empty()) {
        return;
    }
    Undertaking& undertaking = taken.at(operationId);
    const unsigned long id = undertaking.entryId;
    const bool isMade = isCreation(undertaking.kind);
    if (isMade && (document.id == 0 || Nimra::isLocalId(document.id))) {
        // Something was made, under whatever id.
        if (const std::shared_ptr<Item> item = _cache.getItemInternal(id)) {
            invalidate(item->parentId());
        }
        failAction(operationId, std::move(taken), _noIdGiven);
    } else if (applyTwice(undertaking, operationId, document)) {
        conclude(undertaking, operationId, {});
        if (undertaking.kind == ActionKind::Remove) {
            forgetId(current(id));
        }
    } else if (isMade && Nimra::isLocalId(current(id))) {
        failAction(operationId, std::move(taken), _outOfMemory);
    } else {
        giveUp(current(id), operationId);
        conclude(undertaking, operationId, {});
    }
    release();
}

// Otherwise the ids of all that was ever made here would be kept.
void Client::Engine::forgetId(unsigned long id) {
    if (!_cache.getItemInternal(id)) {
        _parked.idGone(id);
    }
}

// False when memory has run out twice. What could not be put right is loaded again.
bool Client::Engine::applyTwice(const Undertaking& undertaking, unsigned long operationId,
                                const Nimra::Document& record) noexcept {
    for (int attempts = 0; attempts < 2; ++attempts) {
        try {
            applySuccess(undertaking, operationId, record);
            return true;
        } catch (...) {
            _listings.invalidate(record.parentId);
        }
    }
    return false;
}

// What has been done of it already is left as it is when it is done again.
void Client::Engine::applySuccess(const Undertaking& undertaking, unsigned long operationId,
                                  const Nimra::Document& record) {
    if (isCreation(undertaking.kind) && _edits.has(undertaking.entryId)) {
        giveServerId(undertaking.entryId, record.id);
    }
    const unsigned long id = current(undertaking.entryId);
    // What lies in a folder that is not held is out of sight.
    const bool removed = undertaking.kind == ActionKind::Remove || !isFolderHeld(record.parentId);
    const Shown served = removed ? std::nullopt : Shown(stateOf(record));
    const Before before = this->before({id});
    const Shown was = shownOf(id);
    const Shown stood = _edits.served(id);
    _listings.invalidateTags(stood ? stood->folderId : 0, id);
    _listings.invalidateTags(record.parentId, id);
    _edits.served(id, served);
    _edits.end(id, operationId);
    const Shown now = _edits.has(id) ? _edits.shown(id) : served;
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

// The entry, what lies in it, what waits for it and its listings follow at one stroke. When memory
// runs out on the way, it can be done again.
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
    _listings.rekey(localId, serverId);
    events.push(EntryIdChanged{localId, serverId});
    // From here on nothing needs memory.
    _cache.updateItemId(localId, serverId);
    if (_cache.castContainer(item)) {
        _cache.updateItemParentIds(localId, serverId);
    }
    _edits.rekey(localId, serverId);
    _doubtful.erase(localId);
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
    Undertakings taken = takeUndertaking(operationId);
    if (!taken.empty()) {
        failAction(operationId, std::move(taken), error);
        release();
        return;
    }
    const Load load = takeLoad(operationId);
    if (load.directory) {
        loadFailed(load, error);
    }
}

// Whatever waits for an entry that was not made fails with it.
void Client::Engine::failAction(unsigned long operationId, Undertakings failing,
                                const Nimra::ServiceError& error) noexcept {
    addWaitingFor(failing.at(operationId), failing);
    undo(failing, error.reason());
    const Nimra::ServiceError reason = reasonFor(error);
    for (auto& [id, undertaking] : failing) {
        conclude(undertaking, id, {id == operationId ? error : reason, nullptr, std::nullopt});
    }
}

Nimra::ServiceError Client::Engine::reasonFor(const Nimra::ServiceError& error) noexcept {
    try {
        return {error.reason(), std::string("what this needs could not be made: ") + error.what()};
    } catch (...) {
        return error;
    }
}

void Client::Engine::addWaitingFor(const Undertaking& undertaking, Undertakings& failing) noexcept {
    if (!isCreation(undertaking.kind)) {
        return;
    }
    dropContent(undertaking);
    for (const auto& operation : _parked.takeWaitingFor(undertaking.entryId)) {
        Undertakings taken = takeUndertaking(operation->id());
        for (const auto& [operationId, waiting] : taken) {
            dropContent(waiting);
        }
        failing.merge(taken);
    }
}

// Of a creation that will not be sent. Others on the same entry must not touch it.
void Client::Engine::dropContent(const Undertaking& undertaking) {
    if (isCreation(undertaking.kind)) {
        _worker.setContent(undertaking.entryId, nullptr);
    }
}

// The last one first, and told as one change.
void Client::Engine::undo(const Undertakings& failing, Nimra::Reason reason) noexcept {
    Before before;
    try {
        std::set<unsigned long> ids;
        for (const auto& [operationId, undertaking] : failing) {
            ids.insert(current(undertaking.entryId));
        }
        before = this->before({ids.begin(), ids.end()});
    } catch (...) {
        // Without memory for more, the outcomes alone are told.
    }
    std::for_each(failing.rbegin(), failing.rend(),
                  [&](const auto& one) { undo(one.second, one.first, reason); });
    tell(before);
}

void Client::Engine::undo(const Undertaking& undertaking, unsigned long operationId,
                          Nimra::Reason reason) noexcept {
    if (!isEdit(undertaking.kind)) {
        return;
    }
    const unsigned long id = current(undertaking.entryId);
    const std::shared_ptr<Item> item = _cache.getItemInternal(id);
    const unsigned long folderId = item ? item->parentId() : 0;
    takeBack(id, operationId);
    // The service knows of an entry, or of the lack of one, that is not known here.
    if (reason == Nimra::Reason::NotFound || reason == Nimra::Reason::Exists) {
        invalidate(folderId);
        if (item && item->parentId() != folderId) {
            invalidate(item->parentId());
        }
    }
}

void Client::Engine::streamsOpened(unsigned long operationId, const Nimra::Document& /*document*/,
                                   std::shared_ptr<Nimra::DocumentStream> stream) {
    for (auto& [id, undertaking] : takeUndertaking(operationId)) {
        conclude(undertaking, id, {std::nullopt, std::move(stream), std::nullopt});
    }
}

void Client::Engine::sessionOpened(unsigned long operationId,
                                   const Nimra::DocumentSession& session) {
    const auto known = _undertakings.find(operationId);
    if (known == _undertakings.end()) {
        return;
    }
    // Without memory for this the answer comes again.
    Result result{std::nullopt, nullptr, session};
    if (const std::shared_ptr<Action::State> state = known->second.state.lock()) {
        state->outcome.session = session;
    }
    Undertakings taken = takeUndertaking(operationId);
    conclude(taken.at(operationId), operationId, std::move(result));
}

void Client::Engine::progress(unsigned long operationId, unsigned long done, unsigned long total) {
    events.push(ActionProgress{operationId, done, total});
}

// One or none, in the node that it had: what is taken needs no memory to be dealt with.
Client::Engine::Undertakings Client::Engine::takeUndertaking(unsigned long operationId) noexcept {
    Undertakings taken;
    taken.insert(_undertakings.extract(operationId));
    return taken;
}

// Whoever waits hears of the end, whatever memory there is, or would wait for ever.
void Client::Engine::conclude(Undertaking& undertaking, unsigned long operationId,
                              Result result) noexcept {
    Outcome outcome;
    outcome.state = result.error ? ActionState::Failed : ActionState::Done;
    outcome.kind = undertaking.kind;
    outcome.operationId = operationId;
    outcome.entryId = current(undertaking.entryId);
    outcome.error = std::move(result.error);
    outcome.stream = std::move(result.stream);
    outcome.session = std::move(result.session);
    try {
        outcome.entry = valuesOf(outcome.entryId);
    } catch (...) {
        // It is told without.
    }
    if (const std::shared_ptr<Action::State> state = undertaking.state.lock()) {
        keep(outcome, state->outcome);
    }
    events.push(std::move(undertaking.room), std::move(outcome));
}

// Without memory for what the entry says, all else is kept.
void Client::Engine::keep(const Outcome& outcome, Outcome& kept) noexcept {
    kept.state = outcome.state;
    kept.entryId = outcome.entryId;
    kept.error = outcome.error;
    kept.stream = outcome.stream;
    try {
        kept.entry = outcome.entry;
    } catch (...) {
        kept.entry.reset();
    }
}

}  // namespace Ormek
