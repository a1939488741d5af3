// What holds at any time.

#include <algorithm>
#include <limits>
#include <type_traits>
#include <utility>
#include <variant>

#include "model/Container.h"
#include "model/Object.h"
#include "tests/client/session/Broken.h"
#include "tests/client/session/Session.h"
#include "tests/client/session/SupervisedService.h"

namespace Ormek::Testing {

namespace {

std::string textOf(const Item& item) {
    return toText(valuesOf(item)) + ", id " + std::to_string(item.id());
}

// Maps are in the order of their keys.
bool hasAll(const Nimra::KeyValues& values, const Nimra::KeyValues& wanted) {
    return std::includes(values.begin(), values.end(), wanted.begin(), wanted.end());
}

}  // namespace

// --- Events ------------------------------------------------------------------------------------

void Session::hear(const Event& event) {
    const std::lock_guard lock(_eventsMutex);
    _events.push_back(event);
}

void Session::drain() {
    std::vector<Event> events;
    {
        const std::lock_guard lock(_eventsMutex);
        events.swap(_events);
    }
    // Between any two events a page may have brought back without a word what was gone.
    const bool mayReturn =
        _manner != Manner::InTurns || _supervisor.done(Call::Load) != _loadsCollected;
    const auto doubt = [&] {
        if (mayReturn) {
            _picture.doubtAbsence();
        }
    };
    doubt();
    for (const Event& event : events) {
        std::visit(
            [this](const auto& one) {
                using Kind = std::decay_t<decltype(one)>;
                if constexpr (std::is_same_v<Kind, Outcome>) {
                    note("  told: " + toText(one));
                    checkOutcome(one);
                } else if constexpr (std::is_same_v<Kind, EntryIdChanged>) {
                    note("  told: " + std::to_string(one.oldId) + " is now " +
                         std::to_string(one.newId));
                    _book.take(one);
                    _picture.take(one);
                    know(one.newId);
                } else if constexpr (std::is_same_v<Kind, EntryRemoved>) {
                    note("  told: removed " + std::to_string(one.id) + ", " + toText(one.was));
                    _picture.take(one);
                } else if constexpr (std::is_same_v<Kind, EntryAdded> ||
                                     std::is_same_v<Kind, EntryChanged>) {
                    note("  told: " + std::to_string(one.id) + " is " + toText(one.now));
                    _picture.take(one);
                    know(one.id);
                }
            },
            event);
        doubt();
    }
}

void Session::know(unsigned long id) { _ids.insert(id); }

void Session::checkOutcome(const Outcome& outcome) {
    _book.take(outcome);
    ++(outcome.state == ActionState::Done ? _figures.done : _figures.failed);
    if (outcome.stream) {
        checkStream(*outcome.stream);
    }
    if (outcome.session) {
        expect(outcome.session->documentId == outcome.entryId, "a session on something else");
        _sessions.push_back(*outcome.session);
    }
    if (!_client) {
        return;
    }
    const std::optional<EntryValues> believed = _picture.valuesOf(outcome.entryId);
    if (believed) {
        expect(outcome.entry.has_value(),
               toText(*believed) + " has gone without a word, by " + toText(outcome));
        expect(*outcome.entry == *believed,
               toText(*outcome.entry) + " has come without a word, by " + toText(outcome));
    } else if (_picture.isGone(outcome.entryId) && !_picture.mayBeBack(outcome.entryId)) {
        expect(!outcome.entry, "is there, without a word, by " + toText(outcome));
    }
}

void Session::checkStream(const Nimra::DocumentStream& stream) {
    const std::string content = readAll(stream);
    expect(content.empty() || Contents::numberOf(content), "opened was half a content");
}

// --- What is there -----------------------------------------------------------------------------

void Session::checkPresent() {
    for (const auto& [id, values] : _picture.present()) {
        const auto item = _client->item(id);
        expect(item != nullptr,
               toText(values) + ", id " + std::to_string(id) + " has gone without a word");
        expect(item->id() == id,
               "id " + std::to_string(id) + " gives " + std::to_string(item->id()));
        expect(valuesOf(*item) == values,
               toText(values) + " has become without a word " + textOf(*item));
    }
}

void Session::checkWanted() {
    for (const auto& [id, wanted] : _book.wanted()) {
        const auto item = _client->item(id);
        if (wanted.removed || _picture.isGone(id) || !item) {
            continue;
        }
        const std::string text = textOf(*item) + " does not show the ";
        expect(!wanted.name || item->name() == *wanted.name, text + "name of an action");
        expect(!wanted.folderId || item->parentId() == *wanted.folderId,
               text + "folder of an action");
        const auto* object = dynamic_cast<const Object*>(item.get());
        expect(!object || hasAll(object->keyValues(), wanted.keyValues),
               text + "metadata of an action");
    }
}

// --- Answers -----------------------------------------------------------------------------------

void Session::checkAnswer(const Answer& answer, const std::string& text) {
    std::set<const Item*> entries;
    _client->read([&] {
        for (const auto& entry : answer.entries) {
            expect(entry != nullptr, "no entry in the answer to: " + text);
            expect(entries.insert(entry.get()).second,
                   textOf(*entry) + " is twice in the answer to: " + text);
            know(entry->id());
        }
    });
    expect((answer.state == AnswerState::Failed) == answer.error.has_value(),
           "error and state differ in the answer to: " + text);
}

// Of an answer that says how things are now.
void Session::checkListing(const Page& page, const Answer& answer) {
    checkAnswer(answer, "list " + std::to_string(page.folderId));
    if (_manner == Manner::Crowded) {
        return;
    }
    const auto wanted = _book.wanted();
    std::set<unsigned long> ids;
    for (const auto& entry : answer.entries) {
        const std::string text =
            textOf(*entry) + ", listed in " + std::to_string(page.folderId) + ", ";
        expect(ids.insert(entry->id()).second, text + "has an id that is there twice");
        expect(_client->item(entry->id()) == entry, text + "is another one than by its id");
        expect(entry->parentId() == _book.current(page.folderId), text + "lies elsewhere");
        const bool isFolder = dynamic_cast<const Container*>(entry.get()) != nullptr;
        expect(page.options.kind == ListKind::Everything ||
                   isFolder == (page.options.kind == ListKind::Folders),
               text + "is of the other kind");
        expect(entry->name().find(page.options.search) != std::string::npos,
               text + "is not what was searched for");
        const auto known = wanted.find(entry->id());
        expect(known == wanted.end() || !known->second.removed, text + "is being removed");
        _picture.see(entry->id(), valuesOf(*entry));
    }
}

void Session::lookAt(const Page& page) {
    const Query query = _client->list(page.folderId, page.options);
    const Answer answer = _client->poll(query);
    drain();
    if (answer.state == AnswerState::Pending) {
        return;
    }
    checkListing(page, answer);
    const bool whole = page.options.count == std::numeric_limits<std::uint32_t>::max();
    if (whole && answer.state == AnswerState::Answered && _manner != Manner::Crowded) {
        checkArrivals(page.folderId, answer);
    }
}

// What was made here or moved here, and has no outcome yet, is shown.
void Session::checkArrivals(unsigned long folderId, const Answer& answer) {
    for (const auto& [id, wanted] : _book.wanted()) {
        const bool arrives =
            (wanted.created && wanted.moves == 0) || (!wanted.created && wanted.moves == 1);
        if (!arrives || wanted.removed || _picture.isGone(id) || wanted.folderId != folderId) {
            continue;
        }
        const auto isIt = [id = id](const auto& entry) { return entry->id() == id; };
        expect(std::any_of(answer.entries.begin(), answer.entries.end(), isIt),
               "id " + std::to_string(id) + " is not shown in " + std::to_string(folderId));
    }
}

void Session::checkHandles() {
    for (const auto& [operationId, asked] : _book.all()) {
        if (asked.handle && asked.outcome) {
            const Outcome outcome = _client->poll(*asked.handle);
            expect(outcome.state == asked.outcome->state && outcome.entry == asked.outcome->entry,
                   "polled is another outcome than was told: " + toText(outcome));
        }
    }
}

}  // namespace Ormek::Testing
