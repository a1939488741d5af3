#include "tests/client/session/ActionBook.h"

#include <algorithm>
#include <utility>

#include "tests/client/session/Broken.h"

namespace Ormek::Testing {

namespace {

Call callOf(ActionKind kind) {
    switch (kind) {
        case ActionKind::CreateDocument:
            return Call::Create;
        case ActionKind::CreateFolder:
            return Call::MakeFolder;
        case ActionKind::Rename:
            return Call::Rename;
        case ActionKind::Move:
            return Call::Move;
        case ActionKind::Remove:
            return Call::Remove;
        case ActionKind::SaveMetaData:
            return Call::SaveMetaData;
        case ActionKind::Open:
            return Call::Open;
        case ActionKind::OpenSession:
            return Call::Session;
    }
    return Call::Load;
}

const char* nameOf(ActionKind kind) {
    switch (kind) {
        case ActionKind::CreateDocument:
            return "creation of a document";
        case ActionKind::CreateFolder:
            return "creation of a folder";
        case ActionKind::Rename:
            return "renaming";
        case ActionKind::Move:
            return "move";
        case ActionKind::Remove:
            return "removal";
        case ActionKind::SaveMetaData:
            return "saving of metadata";
        case ActionKind::Open:
            return "opening";
        case ActionKind::OpenSession:
            return "session request";
    }
    return "?";
}

bool isCreation(ActionKind kind) {
    return kind == ActionKind::CreateDocument || kind == ActionKind::CreateFolder;
}

std::string textOf(unsigned long operationId, const ActionBook::Asked& asked) {
    return std::string(nameOf(asked.kind)) + " " + std::to_string(operationId) + " of " +
           std::to_string(asked.entryId);
}

}  // namespace

void ActionBook::ask(const Action& action, Asked asked) {
    asked.handle = action;
    if (action.operationId() != 0) {
        const bool isNew = _all.emplace(action.operationId(), std::move(asked)).second;
        expect(isNew, "operation id given twice: " + std::to_string(action.operationId()));
    }
}

void ActionBook::take(const Outcome& outcome) {
    const auto known = _all.find(outcome.operationId);
    expect(known != _all.end(), "an outcome without an action: " + toText(outcome));
    Asked& asked = known->second;
    const std::string text = textOf(outcome.operationId, asked);
    expect(!asked.outcome, "a second outcome of the " + text + ": " + toText(outcome));
    expect(outcome.kind == asked.kind, "an outcome of another kind for the " + text);
    expect(outcome.state != ActionState::Pending, "a pending outcome of the " + text);
    expect(outcome.entryId == current(asked.entryId),
           "an outcome of another entry for the " + text + ": " + toText(outcome));
    const bool done = outcome.state == ActionState::Done;
    expect(done != outcome.error.has_value(), "reason and result differ of the " + text);
    expect((outcome.stream != nullptr) == (done && asked.kind == ActionKind::Open),
           "a stream too many or too few of the " + text);
    expect(outcome.session.has_value() == (done && asked.kind == ActionKind::OpenSession),
           "a session too many or too few of the " + text);
    asked.outcome = outcome;
}

void ActionBook::take(const EntryIdChanged& event) {
    const bool isNew = _serverIds.emplace(event.oldId, event.newId).second;
    expect(isNew, "a second id for " + std::to_string(event.oldId));
}

unsigned long ActionBook::current(unsigned long id) const {
    const auto found = _serverIds.find(id);
    return found == _serverIds.end() ? id : found->second;
}

std::vector<unsigned long> ActionBook::pending() const {
    std::vector<unsigned long> all;
    for (const auto& [operationId, asked] : _all) {
        if (!asked.outcome) {
            all.push_back(operationId);
        }
    }
    return all;
}

std::map<unsigned long, ActionBook::Wanted> ActionBook::wanted() const {
    std::map<unsigned long, Wanted> all;
    for (const unsigned long operationId : pending()) {
        const Asked& asked = _all.at(operationId);
        Wanted& wanted = all[current(asked.entryId)];
        if (isCreation(asked.kind) || asked.kind == ActionKind::Move) {
            wanted.folderId = current(asked.folderId);
        }
        if (isCreation(asked.kind) || asked.kind == ActionKind::Rename) {
            wanted.name = asked.name;
        }
        wanted.created = wanted.created || isCreation(asked.kind);
        wanted.moves += asked.kind == ActionKind::Move ? 1 : 0;
        if (asked.kind == ActionKind::SaveMetaData) {
            for (const auto& [key, value] : asked.keyValues) {
                wanted.keyValues[key] = value;
            }
        }
        wanted.removed = wanted.removed || asked.kind == ActionKind::Remove;
    }
    return all;
}

void ActionBook::dropHandles() {
    for (auto& [operationId, asked] : _all) {
        asked.handle.reset();
    }
}

void ActionBook::checkAllHaveOutcomes() const {
    for (const auto& [operationId, asked] : _all) {
        expect(asked.outcome.has_value(), "no outcome of the " + textOf(operationId, asked));
    }
}

void ActionBook::checkAgainst(const Supervisor& supervisor) const {
    std::map<Call, unsigned long> done;
    for (const auto& [operationId, asked] : _all) {
        if (asked.outcome && asked.outcome->state == ActionState::Done) {
            ++done[callOf(asked.kind)];
        }
    }
    for (const Call call : {Call::Create, Call::MakeFolder, Call::Move, Call::Remove, Call::Rename,
                            Call::Open, Call::SaveMetaData, Call::Session}) {
        expect(done[call] == supervisor.done(call),
               std::to_string(done[call]) + " calls of kind " +
                   std::to_string(static_cast<int>(call)) + " were reported as done, but " +
                   std::to_string(supervisor.done(call)) + " were");
    }
    checkOrder(supervisor.deeds());
}

// What was done to an entry is what was asked for, in that order, failures left out.
void ActionBook::checkOrder(const std::vector<Supervisor::Deed>& deeds) const {
    std::map<unsigned long, std::vector<Supervisor::Deed>> byEntry;
    for (const Supervisor::Deed& deed : deeds) {
        byEntry[deed.id].push_back(deed);
    }
    for (const auto& [operationId, asked] : _all) {
        const auto found = byEntry.find(current(asked.entryId));
        const bool done = asked.outcome && asked.outcome->state == ActionState::Done;
        if (!done || asked.kind == ActionKind::Open || asked.kind == ActionKind::OpenSession) {
            continue;
        }
        const std::string text = textOf(operationId, asked);
        expect(found != byEntry.end() && !found->second.empty(),
               "the service knows nothing of the " + text);
        expect(fits(asked, found->second.front()),
               "the service did something else than the " + text + ", or in another order");
        found->second.erase(found->second.begin());
    }
}

bool ActionBook::fits(const Asked& asked, const Supervisor::Deed& deed) const {
    if (callOf(asked.kind) != deed.call) {
        return false;
    }
    const bool named = isCreation(asked.kind) || asked.kind == ActionKind::Rename;
    const bool placed = isCreation(asked.kind) || asked.kind == ActionKind::Move;
    return (!named || asked.name == deed.name) &&
           (!placed || current(asked.folderId) == deed.folderId);
}

std::string toText(const Outcome& outcome) {
    return "operation " + std::to_string(outcome.operationId) + ", " + nameOf(outcome.kind) +
           " of " + std::to_string(outcome.entryId) +
           (outcome.error ? std::string(": ") + outcome.error->what() : ": done");
}

}  // namespace Ormek::Testing
