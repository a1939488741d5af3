// What holds when everything has settled: listings, store and service agree.

#include <algorithm>
#include <limits>
#include <utility>

#include "model/Container.h"
#include "model/Object.h"
#include "service/LocalIds.h"
#include "tests/client/session/Broken.h"
#include "tests/client/session/Session.h"

namespace Ormek::Testing {

namespace {

constexpr std::chrono::seconds Patience{60};
// Every round of a listing that is not current loads a page of it, and nothing changes meanwhile.
constexpr int Rounds = 30;

std::vector<std::string> expectedNames(const Tree& tree, const ListOptions& options) {
    std::vector<std::string> folders;
    std::vector<std::string> documents;
    for (const auto& [name, entry] : tree.entries) {
        if (name.find(options.search) != std::string::npos) {
            (entry.isFolder ? folders : documents).push_back(name);
        }
    }
    if (options.order == ListOrder::Descending) {
        std::reverse(folders.begin(), folders.end());
        std::reverse(documents.begin(), documents.end());
    }
    if (options.kind == ListKind::Documents) {
        return documents;
    }
    if (options.kind == ListKind::Everything) {
        folders.insert(folders.end(), documents.begin(), documents.end());
    }
    return folders;
}

std::string textOf(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += text.empty() ? "" : ", ";
        text += '"' + name + '"';
    }
    return text.empty() ? "nothing" : text;
}

using Tags = std::vector<std::pair<std::string, Nimra::KeyValues>>;

std::string textOf(const Tags& tags) {
    std::vector<std::string> texts;
    for (const auto& [name, keyValues] : tags) {
        texts.push_back(name);
        for (const auto& [key, value] : keyValues) {
            texts.back() += ' ' + key + '=' + value.first;
        }
    }
    return textOf(texts);
}

}  // namespace

void Session::settle(const Step& step) {
    note("settle");
    _crowd.stop();
    expect(_crowd.complaint().empty(), _crowd.complaint());
    settleDown();
    const Tree tree = _world->tree();
    const unsigned long rootId = _client->rootId();
    if (!_world->silent) {
        compareAsHeld(rootId, tree, step);
    }
    refresh(rootId, step);
    Compared compared;
    compared.ids.insert(rootId);
    compare(rootId, "", tree, step, compared);
    for (const unsigned long id : _ids) {
        const auto item = _client->item(id);
        expect(!item || compared.ids.count(item->id()) != 0,
               "id " + std::to_string(id) + " is still there, but not in any folder");
    }
    expect(_client->statistics().entries == compared.ids.size(),
           std::to_string(_client->statistics().entries) + " entries in the store, but " +
               std::to_string(compared.ids.size()) + " in the listings");
    expect(compared.contents == _contents.present(), "contents are lost, broken or there twice");
    checkPresent();
    checkHandles();
    ++_figures.comparisons;
    _figures.entriesCompared += compared.ids.size();
    if (_manner == Manner::InTurns) {
        _supervisor.close();
    } else if (_manner == Manner::Crowded) {
        _crowd.start();
    }
}

// Until nothing is under way, waits or is still to be told.
void Session::settleDown() {
    feed(_world->feed.size());
    _client->setOnline(true);
    _supervisor.open();
    expect(_client->waitUntilIdle(Patience), "never idle");
    _client->collect();
    drain();
    for (const WaitingAction& waiting : _client->waiting()) {
        throw Broken("operation " + std::to_string(waiting.operationId) + " waits for ever");
    }
    expect(_client->statistics().parkedOperations == 0, "something is parked for ever");
    _book.checkAllHaveOutcomes();
    _book.checkAgainst(_supervisor);
    for (const Question& question : _questions) {
        const Answer answer = _client->poll(question.query);
        expect(answer.state != AnswerState::Pending, "never answered: " + question.text);
        checkAnswer(answer, question.text);
    }
    _questions.clear();
}

Answer Session::answerTo(const Query& query) {
    const Answer answer = _client->wait(query, Patience);
    drain();
    return answer;
}

// Where the feed has told of everything, no reload is needed: whatever is current is right.
void Session::compareAsHeld(unsigned long folderId, const Tree& tree, const Step& step) {
    Page page{folderId, options(step)};
    page.options.freshness = Freshness::Cached;
    compareAnswer(page, answerTo(_client->list(folderId, page.options)), tree);
    compareTags(folderId, Freshness::Cached, tree);
    Page whole{folderId, {}};
    const Answer answer = answerTo(_client->list(folderId, whole.options));
    if (!compareAnswer(whole, answer, tree)) {
        return;
    }
    for (const auto& entry : answer.entries) {
        if (std::dynamic_pointer_cast<Container>(entry)) {
            compareAsHeld(entry->id(), tree.entries.at(entry->name()), step);
        }
    }
}

// False when it has failed, as was planned.
bool Session::compareAnswer(const Page& page, const Answer& answer, const Tree& tree) {
    if (answer.state != AnswerState::Answered) {
        return false;
    }
    std::vector<std::string> expected = expectedNames(tree, page.options);
    const std::size_t begin = std::min<std::size_t>(page.options.offset, expected.size());
    const std::size_t count = std::min<std::size_t>(page.options.count, expected.size() - begin);
    const auto first = expected.begin() + static_cast<std::ptrdiff_t>(begin);
    expected = {first, first + static_cast<std::ptrdiff_t>(count)};
    std::vector<std::string> names;
    for (const auto& entry : answer.entries) {
        names.push_back(entry->name());
    }
    expect(names == expected, "without a reload, listed in " + std::to_string(page.folderId) +
                                  " are " + textOf(names) + ", but there are " + textOf(expected));
    return true;
}

// Also fine when it has failed, as was planned.
void Session::compareTags(unsigned long folderId, Freshness freshness, const Tree& tree) {
    ListOptions options;
    options.freshness = freshness;
    const Answer answer = answerTo(_client->tags(folderId, options));
    if (answer.state != AnswerState::Answered) {
        return;
    }
    Tags tags;
    for (const auto& tag : answer.entries) {
        const auto* object = dynamic_cast<const Object*>(tag.get());
        tags.emplace_back(tag->name(), object ? object->keyValues() : Nimra::KeyValues());
    }
    Tags expected;
    for (const auto& [name, entry] : tree.entries) {
        if (!entry.keyValues.empty()) {
            expected.emplace_back(name, entry.keyValues);
        }
    }
    expect(tags == expected, "the tags of " + std::to_string(folderId) + " are " + textOf(tags) +
                                 ", but there are " + textOf(expected));
}

// Whatever was planned to fail fails now.
void Session::refresh(unsigned long folderId, const Step& step) {
    ListOptions options;
    options.freshness = Freshness::Reload;
    options.count = 1 + step.b % 7;
    std::set<unsigned long> folders;
    for (bool more = true; more; options.offset += options.count) {
        const Answer answer = answerTo(_client->list(folderId, options));
        if (answer.state == AnswerState::Failed) {
            options.offset -= options.count;
            continue;
        }
        checkAnswer(answer, "list anew");
        for (const auto& entry : answer.entries) {
            if (std::dynamic_pointer_cast<Container>(entry)) {
                folders.insert(entry->id());
            }
        }
        more = options.offset + options.count < answer.total;
    }
    for (const unsigned long id : folders) {
        refresh(id, step);
    }
}

void Session::compare(unsigned long folderId, const std::string& path, const Tree& tree,
                      const Step& step, Compared& compared) {
    Page page{folderId, {}};
    page.options.count = 1 + step.c % 6;
    compareListing(page, tree);
    Page other{folderId, options(step)};
    compareListing(other, tree);
    compareTags(folderId, Freshness::Reload, tree);
    for (const auto& item : listed(page)) {
        const unsigned long id = item->id();
        expect(compared.ids.insert(id).second, "id " + std::to_string(id) + " is in two folders");
        const Tree& entry = tree.entries.at(item->name());
        const std::string itsPath = path + '/' + item->name();
        compareEntry(folderId, itsPath, entry, item);
        if (entry.isFolder) {
            compare(id, itsPath, entry, step, compared);
        } else if (const auto number = Contents::numberOf(entry.content)) {
            ++compared.contents[*number];
        } else {
            expect(entry.content.empty(), itsPath + " has half a content");
        }
    }
}

void Session::compareListing(const Page& page, const Tree& tree) {
    // Only whole folders were refreshed.
    Page fresh = page;
    const bool whole = page.options.search.empty() && page.options.kind == ListKind::Everything &&
                       page.options.order == ListOrder::Ascending;
    if (!whole) {
        fresh.options.freshness = Freshness::Reload;
        fresh.options.offset = 0;
        listed(fresh);
    }
    std::vector<std::string> names;
    for (const auto& item : listed(page)) {
        names.push_back(item->name());
    }
    const std::vector<std::string> expected = expectedNames(tree, page.options);
    expect(names == expected, "listed in " + std::to_string(page.folderId) + " are " +
                                  textOf(names) + ", but there are " + textOf(expected));
}

// All pages one after the other, until each comes from memory.
std::vector<std::shared_ptr<Item>> Session::listed(const Page& page) {
    for (int round = 0; round < Rounds; ++round) {
        std::vector<std::shared_ptr<Item>> items;
        ListOptions options = page.options;
        options.freshness = round == 0 ? page.options.freshness : Freshness::Cached;
        bool allHeld = true;
        unsigned long total = 1;
        for (options.offset = 0; options.offset < total; options.offset += options.count) {
            const Answer answer = answerTo(_client->list(page.folderId, options));
            allHeld = allHeld && answer.state == AnswerState::Answered &&
                      answer.source == AnswerSource::Memory;
            total = answer.total;
            items.insert(items.end(), answer.entries.begin(), answer.entries.end());
        }
        if (allHeld) {
            return items;
        }
    }
    throw Broken("the listing of " + std::to_string(page.folderId) + " is never current");
}

void Session::compareEntry(unsigned long folderId, const std::string& path, const Tree& tree,
                           const std::shared_ptr<Item>& item) {
    const unsigned long id = item->id();
    const std::string text = '"' + path + "\", id " + std::to_string(id) + ", ";
    know(id);
    expect(!Nimra::isLocalId(id), text + "has a local id");
    expect(item->idLoaded(), text + "is marked as local");
    expect(_client->item(id) == item, text + "is another one than by its id");
    expect(item->parentId() == folderId, text + "says it lies elsewhere");
    const std::string itsPath = _client->pathOf(id);
    expect(itsPath == path, text + "has the path \"" + itsPath + '"');
    const auto* object = dynamic_cast<const Object*>(item.get());
    expect(tree.isFolder == (object == nullptr), text + "is of the other kind");
    expect(!object || object->length() == tree.content.size(), text + "has another length");
    expect(!object || object->keyValues() == tree.keyValues, text + "has other metadata");
    const Answer found = answerTo(_client->find(path));
    expect(found.state == AnswerState::Answered && found.entries.front() == item,
           text + "is not found");
    _picture.see(id, valuesOf(*item));
}

}  // namespace Ormek::Testing
