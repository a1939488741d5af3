#include "service/QueuedOperationsManager.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "service/DataLoaderOperation.h"
#include "service/FileOperation.h"
#include "service/LocalIds.h"

namespace Ormek {

namespace {

using Kind = QueuedOperationsManager::Kind;

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

/// What an operation says about itself.
struct Facts {
    Kind kind = Kind::Other;
    std::vector<unsigned long> named;   // Without 0; an id may be there twice.
    std::vector<unsigned long> needed;  // Local ids that must become known, each once.
    bool lacksUser = false;
    bool lacksId = false;

    void name(unsigned long id) {
        if (id != 0) {
            named.push_back(id);
        }
    }
    void need(unsigned long id) {
        name(id);
        if (Nimra::isLocalId(id) && std::count(needed.begin(), needed.end(), id) == 0) {
            needed.push_back(id);
        }
    }
};

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
void judge(const Nimra::FileOperation& operation, Facts& facts) {
    facts.kind = kindOf(operation);
    if (isCreation(operation)) {
        facts.name(operation.document().id);
        facts.lacksId = operation.document().parentId == 0;
    } else {
        facts.lacksUser = operation.document().ownerId == 0;
    }
}

void judge(const Nimra::ItemFilter& filter, Facts& facts) {
    if (sessionIds(filter.url)) {
        facts.kind = Kind::Session;
        facts.lacksUser = filter.userId == 0;
        return;
    }
    facts.kind = Kind::Load;
    const std::vector<unsigned long>& ids = filter.dataId;
    facts.lacksId = ids.empty() || std::count(ids.begin(), ids.end(), 0ul) != 0;
}

Facts factsOf(const Nimra::Operation& operation) {
    Facts facts;
    if (const auto* file = dynamic_cast<const Nimra::FileOperation*>(&operation)) {
        judge(*file, facts);
    } else if (const auto* load = dynamic_cast<const Nimra::DataLoaderOperation*>(&operation)) {
        judge(load->filter(), facts);
    }
    eachNeeded(operation, [&](unsigned long id) { facts.need(id); });
    return facts;
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

bool anyIn(const std::set<unsigned long>& set, const std::vector<unsigned long>& ids) {
    return std::any_of(ids.begin(), ids.end(),
                       [&](unsigned long id) { return set.count(id) != 0; });
}

}  // namespace

QueuedOperationsManager::~QueuedOperationsManager() = default;

void QueuedOperationsManager::push(Nimra::Operation* operation) {
    std::unique_ptr<Nimra::Operation> owned(operation);
    const std::lock_guard lock(_mutex);
    putRight(*owned);
    const Facts facts = factsOf(*owned);
    _operations.push_back(std::move(owned));
    _anyReady = _anyReady || (facts.needed.empty() && !facts.lacksUser && !facts.lacksId);
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
    _serverIds[localId] = serverId;
    putAllRight();
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
    return std::any_of(_operations.begin(), _operations.end(), [&](const auto& operation) {
        const std::vector<unsigned long> named = factsOf(*operation).named;
        return std::any_of(ids.begin(), ids.end(), [&](unsigned long id) {
            return std::count(named.begin(), named.end(), id) != 0;
        });
    });
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

QueuedOperationsManager::Operations QueuedOperationsManager::takeWaitingFor(
    unsigned long localId) noexcept {
    const std::lock_guard lock(_mutex);
    Operations taken;
    // A creation is parked before what needs the document that it creates.
    for (auto operation = _operations.begin(); operation != _operations.end();) {
        const auto next = std::next(operation);
        if (needs(**operation, localId) || needsWhatIsMadeBy(taken, **operation)) {
            taken.splice(taken.end(), _operations, operation);
        }
        operation = next;
    }
    _anyReady = true;
    return taken;
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

std::unique_ptr<Nimra::Operation> QueuedOperationsManager::takeFirst() noexcept {
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
    std::set<unsigned long> held;  // Named by operations that stay.
    for (const auto& operation : _operations) {
        Facts facts = factsOf(*operation);
        Waiting waiting;
        waiting.operationId = operation->id();
        waiting.kind = facts.kind;
        waiting.localIds = std::move(facts.needed);
        waiting.forUser = facts.lacksUser;
        waiting.forLackingId = facts.lacksId;
        waiting.forEarlier = anyIn(held, facts.named);
        if (!waiting.ready()) {
            held.insert(facts.named.begin(), facts.named.end());
        }
        all.push_back(std::move(waiting));
    }
    return all;
}

}  // namespace Ormek
