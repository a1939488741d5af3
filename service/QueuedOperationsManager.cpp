#include "service/QueuedOperationsManager.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "service/DataLoaderOperation.h"
#include "service/FileOperation.h"
#include "service/LocalIds.h"

namespace Ormek {

namespace {

using Kind = QueuedOperationsManager::Kind;
using Waiting = QueuedOperationsManager::Waiting;

/// Digits inside a url.
struct Number {
    std::size_t begin;
    std::size_t end;
    unsigned long value;
};

/// The two ids in the url of a session request, "/v1/documents/<folder>/<document>/session".
struct SessionIds {
    Number folder;
    Number document;
};

bool skip(const std::string& url, std::size_t& position, std::string_view text) {
    if (url.compare(position, text.size(), text) != 0) {
        return false;
    }
    position += text.size();
    return true;
}

std::optional<Number> readNumber(const std::string& url, std::size_t& position) {
    Number number{position, position, 0};
    const char* const begin = url.data() + position;
    const auto [end, error] = std::from_chars(begin, url.data() + url.size(), number.value);
    if (error != std::errc()) {
        return std::nullopt;
    }
    position += static_cast<std::size_t>(end - begin);
    number.end = position;
    return number;
}

std::optional<SessionIds> sessionIds(const std::string& url) {
    std::size_t position = 0;
    if (!skip(url, position, "/v1/documents/")) {
        return std::nullopt;
    }
    const std::optional<Number> folder = readNumber(url, position);
    if (!folder || !skip(url, position, "/")) {
        return std::nullopt;
    }
    const std::optional<Number> document = readNumber(url, position);
    if (!document || !skip(url, position, "/session") || position != url.size()) {
        return std::nullopt;
    }
    return SessionIds{*folder, *document};
}

/// In place and without allocating: a server id has no more digits than the local id it replaces.
void overwrite(std::string& url, const Number& number, unsigned long value) noexcept {
    if (value == number.value) {
        return;
    }
    char* const end = std::to_chars(url.data() + number.begin, url.data() + number.end, value).ptr;
    const auto written = static_cast<std::size_t>(end - url.data());
    url.erase(written, number.end - written);
}

Kind kindOf(const Nimra::FileOperation& operation) {
    switch (operation.kind()) {
        case 2:
            return Kind::Create;
        case 4:
            return Kind::Move;
        case 5:
            return Kind::Remove;
        case 6:
            return Kind::Rename;
        case 10:
            return Kind::Streams;
        case 13:
            return Kind::SaveMetaData;
        default:
            return Kind::Other;
    }
}

bool isCreation(const Nimra::FileOperation& operation) { return kindOf(operation) == Kind::Create; }

/// The document that an operation would create; 0 for any other operation.
unsigned long createdBy(const Nimra::Operation& operation) {
    const auto* file = dynamic_cast<const Nimra::FileOperation*>(&operation);
    return file && isCreation(*file) ? file->document().id : 0;
}

/// Calls `use` with each id that an operation cannot leave with while it is a local one. That of
/// the document that a creation makes is local by nature.
template <class Use>
void eachNeeded(const Nimra::FileOperation& operation, Use use) {
    const Nimra::Document& document = operation.document();
    if (isCreation(operation)) {
        use(document.parentId);
        return;
    }
    use(document.id);
    use(document.parentId);
    use(document.oldParentId);
}

template <class Use>
void eachNeeded(const Nimra::ItemFilter& filter, Use use) {
    if (const std::optional<SessionIds> ids = sessionIds(filter.url)) {
        use(ids->document.value);
        use(ids->folder.value);
    } else {
        std::for_each(filter.dataId.begin(), filter.dataId.end(), use);
    }
}

/// An operation of another class needs nothing that is known here.
template <class Use>
void eachNeeded(const Nimra::Operation& operation, Use use) {
    if (const auto* file = dynamic_cast<const Nimra::FileOperation*>(&operation)) {
        eachNeeded(*file, use);
    } else if (const auto* load = dynamic_cast<const Nimra::DataLoaderOperation*>(&operation)) {
        eachNeeded(load->filter(), use);
    }
}

/// The same for each item that an operation is about. 0 is none.
template <class Use>
void eachNamed(const Nimra::Operation& operation, Use use) {
    const auto useUnlessNone = [&](unsigned long id) {
        if (id != 0) {
            use(id);
        }
    };
    useUnlessNone(createdBy(operation));
    eachNeeded(operation, useUnlessNone);
}

bool needs(const Nimra::Operation& operation, unsigned long localId) {
    bool found = false;
    eachNeeded(operation, [&](unsigned long id) { found = found || id == localId; });
    return found && Nimra::isLocalId(localId);
}

bool needsWhatIsMadeBy(const QueuedOperationsManager::Operations& creations,
                       const Nimra::Operation& operation) {
    return std::any_of(creations.begin(), creations.end(), [&](const auto& creation) {
        return needs(operation, createdBy(*creation));
    });
}

/// A creation goes without a user.
void judge(const Nimra::FileOperation& operation, Waiting& waiting) {
    waiting.kind = kindOf(operation);
    waiting.forUser = !isCreation(operation) && operation.document().ownerId == 0;
    waiting.forLackingId = isCreation(operation) && operation.document().parentId == 0;
}

void judge(const Nimra::ItemFilter& filter, Waiting& waiting) {
    const bool isSession = sessionIds(filter.url).has_value();
    const std::vector<unsigned long>& ids = filter.dataId;
    waiting.kind = isSession ? Kind::Session : Kind::Load;
    waiting.forUser = isSession && filter.userId == 0;
    waiting.forLackingId =
        !isSession && (ids.empty() || std::count(ids.begin(), ids.end(), 0ul) != 0);
}

/// What an operation waits for, whatever is parked before it.
Waiting waitingOf(const Nimra::Operation& operation) {
    Waiting waiting;
    if (const auto* file = dynamic_cast<const Nimra::FileOperation*>(&operation)) {
        judge(*file, waiting);
    } else if (const auto* load = dynamic_cast<const Nimra::DataLoaderOperation*>(&operation)) {
        judge(load->filter(), waiting);
    }
    std::vector<unsigned long>& ids = waiting.localIds;
    eachNeeded(operation, [&](unsigned long id) {
        if (Nimra::isLocalId(id) && std::count(ids.begin(), ids.end(), id) == 0) {
            ids.push_back(id);
        }
    });
    return waiting;
}

/// Has an operation on a document that was not moved after all look for it where it stays. True for
/// a further move: what comes behind that one is about its folder.
bool forgetMove(Nimra::FileOperation& operation, const Nimra::Document& moved) {
    Nimra::Document& document = operation.document();
    if (document.id != moved.id) {
        return false;
    }
    const bool isMove = kindOf(operation) == Kind::Move;
    unsigned long& folderId = isMove ? document.oldParentId : document.parentId;
    folderId = folderId == moved.parentId ? moved.oldParentId : folderId;
    return isMove;
}

/// The same for the request of a session.
void forgetMove(Nimra::ItemFilter& filter, const Nimra::Document& moved) {
    const std::optional<SessionIds> ids = sessionIds(filter.url);
    if (ids && ids->document.value == moved.id && ids->folder.value == moved.parentId) {
        filter.url.replace(ids->folder.begin, ids->folder.end - ids->folder.begin,
                           std::to_string(moved.oldParentId));
    }
}

bool forgetMove(Nimra::Operation& operation, const Nimra::Document& moved) {
    if (auto* load = dynamic_cast<Nimra::DataLoaderOperation*>(&operation)) {
        forgetMove(load->filter(), moved);
        return false;
    }
    auto* file = dynamic_cast<Nimra::FileOperation*>(&operation);
    return file && forgetMove(*file, moved);
}

/// Whether `isMeant` is true of an item that an operation is about.
template <class IsMeant>
bool namesAny(const Nimra::Operation& operation, IsMeant isMeant) {
    bool found = false;
    eachNamed(operation, [&](unsigned long id) { found = found || isMeant(id); });
    return found;
}

}  // namespace

QueuedOperationsManager::~QueuedOperationsManager() = default;

void QueuedOperationsManager::push(Nimra::Operation* operation) {
    std::unique_ptr<Nimra::Operation> owned(operation);
    const std::lock_guard lock(_mutex);
    putRight(*owned);
    const bool isReady = waitingOf(*owned).ready();
    _operations.push_back(std::move(owned));
    _anyReady = _anyReady || isReady;
}

unsigned long QueuedOperationsManager::size() const {
    const std::lock_guard lock(_mutex);
    return _operations.size();
}

std::vector<Nimra::Operation*> QueuedOperationsManager::operations() const {
    const std::lock_guard lock(_mutex);
    std::vector<Nimra::Operation*> parked;
    parked.reserve(_operations.size());
    for (const auto& operation : _operations) {
        parked.push_back(operation.get());
    }
    return parked;
}

std::vector<QueuedOperationsManager::Waiting> QueuedOperationsManager::waiting() const {
    const std::lock_guard lock(_mutex);
    return assess();
}

// --- What becomes known --------------------------------------------------------------------

void QueuedOperationsManager::idKnown(unsigned long localId, unsigned long serverId) {
    if (!Nimra::isLocalId(localId)) {
        throw std::invalid_argument("not a local id: " + std::to_string(localId));
    }
    if (serverId == 0 || Nimra::isLocalId(serverId)) {
        throw std::invalid_argument("not a server id: " + std::to_string(serverId));
    }
    const std::lock_guard lock(_mutex);
    _localIds[serverId] = localId;
    _serverIds[localId] = serverId;
    putAllRight();
}

void QueuedOperationsManager::idGone(unsigned long serverId) {
    const std::lock_guard lock(_mutex);
    const auto gone = _localIds.find(serverId);
    if (gone == _localIds.end()) {
        return;
    }
    if (known(gone->second) == serverId) {
        _serverIds.erase(gone->second);
    }
    _localIds.erase(gone);
}

void QueuedOperationsManager::userKnown(unsigned long userId) {
    if (userId == 0) {
        throw std::invalid_argument("0 is no user");
    }
    const std::lock_guard lock(_mutex);
    _userId = userId;
    putAllRight();
}

unsigned long QueuedOperationsManager::serverId(unsigned long id) const {
    const std::lock_guard lock(_mutex);
    return known(id);
}

bool QueuedOperationsManager::names(const std::vector<unsigned long>& ids) const {
    const std::lock_guard lock(_mutex);
    const auto isOne = [&](unsigned long id) {
        return std::count(ids.begin(), ids.end(), id) != 0;
    };
    return std::any_of(_operations.begin(), _operations.end(),
                       [&](const auto& operation) { return namesAny(*operation, isOne); });
}

void QueuedOperationsManager::putAllRight() noexcept {
    _anyReady = true;
    for (const auto& operation : _operations) {
        putRight(*operation);
    }
}

void QueuedOperationsManager::putRight(Nimra::Operation& operation) const noexcept {
    if (auto* file = dynamic_cast<Nimra::FileOperation*>(&operation)) {
        Nimra::Document& document = file->document();
        document.id = known(document.id);
        document.parentId = known(document.parentId);
        document.oldParentId = known(document.oldParentId);
        document.ownerId = document.ownerId == 0 ? _userId : document.ownerId;
    } else if (auto* load = dynamic_cast<Nimra::DataLoaderOperation*>(&operation)) {
        Nimra::ItemFilter& filter = load->filter();
        for (unsigned long& id : filter.dataId) {
            id = known(id);
        }
        filter.userId = filter.userId == 0 ? _userId : filter.userId;
        if (const std::optional<SessionIds> ids = sessionIds(filter.url)) {
            // The later one first, so that the place of the other stays right.
            overwrite(filter.url, ids->document, known(ids->document.value));
            overwrite(filter.url, ids->folder, known(ids->folder.value));
        }
    }
}

unsigned long QueuedOperationsManager::known(unsigned long id) const noexcept {
    const auto found = _serverIds.find(id);
    return found == _serverIds.end() ? id : found->second;
}

// --- What leaves ---------------------------------------------------------------------------

QueuedOperationsManager::Operations QueuedOperationsManager::takeReady() {
    const std::lock_guard lock(_mutex);
    if (!_anyReady) {
        return {};
    }
    Operations taken;
    auto operation = _operations.begin();
    for (const Waiting& assessed : assess()) {
        const auto next = std::next(operation);
        if (assessed.ready()) {
            taken.splice(taken.end(), _operations, operation);
        }
        operation = next;
    }
    _anyReady = false;
    return taken;
}

QueuedOperationsManager::Operations QueuedOperationsManager::takeWaitingFor(unsigned long localId) {
    const std::lock_guard lock(_mutex);
    Operations taken;
    for (auto operation = _operations.begin(); operation != _operations.end();) {
        const auto next = std::next(operation);
        if (needsWhatIsMadeBy(taken, **operation) ||
            isLost(**operation, localId, _operations.size())) {
            taken.splice(taken.end(), _operations, operation);
        }
        operation = next;
    }
    _anyReady = true;
    return taken;
}

// Whether it needs that id, or a document whose creation does; `links` bounds how far that goes on,
// should creations need each other.
bool QueuedOperationsManager::isLost(const Nimra::Operation& operation, unsigned long localId,
                                     unsigned long links) const noexcept {
    return needs(operation, localId) ||
           (links != 0 &&
            std::any_of(_operations.begin(), _operations.end(), [&](const auto& creation) {
                return needs(operation, createdBy(*creation)) &&
                       isLost(*creation, localId, links - 1);
            }));
}

std::unique_ptr<Nimra::Operation> QueuedOperationsManager::cancel(unsigned long operationId) {
    const std::lock_guard lock(_mutex);
    const auto found =
        std::find_if(_operations.begin(), _operations.end(),
                     [&](const auto& operation) { return operation->id() == operationId; });
    if (found == _operations.end()) {
        return nullptr;
    }
    putRightBehind(found);
    return extract(found);
}

void QueuedOperationsManager::putRightBehind(Operations::iterator cancelled) {
    const auto* file = dynamic_cast<const Nimra::FileOperation*>(cancelled->get());
    if (!file || kindOf(*file) != Kind::Move) {
        return;
    }
    for (auto later = std::next(cancelled); later != _operations.end(); ++later) {
        if (forgetMove(**later, file->document())) {
            return;
        }
    }
}

std::unique_ptr<Nimra::Operation> QueuedOperationsManager::takeFirst() {
    const std::lock_guard lock(_mutex);
    return extract(_operations.begin());
}

std::unique_ptr<Nimra::Operation> QueuedOperationsManager::extract(
    Operations::iterator operation) noexcept {
    if (operation == _operations.end()) {
        return nullptr;
    }
    std::unique_ptr<Nimra::Operation> taken = std::move(*operation);
    _operations.erase(operation);
    _anyReady = true;
    return taken;
}

std::vector<QueuedOperationsManager::Waiting> QueuedOperationsManager::assess() const {
    std::vector<Waiting> all;
    all.reserve(_operations.size());
    std::unordered_set<unsigned long> held;  // Named by operations that stay.
    for (const auto& operation : _operations) {
        Waiting& waiting = all.emplace_back(waitingOf(*operation));
        waiting.operationId = operation->id();
        waiting.forEarlier =
            namesAny(*operation, [&](unsigned long id) { return held.count(id) != 0; });
        if (!waiting.ready()) {
            eachNamed(*operation, [&](unsigned long id) { held.insert(id); });
        }
    }
    return all;
}

}  // namespace Ormek
