#include "tests/client/session/Session.h"

#include <limits>
#include <utility>

#include "model/Container.h"
#include "service/OperationHandler.h"
#include "tests/client/session/Broken.h"
#include "tests/client/session/DiskWorld.h"
#include "tests/client/session/MemoryWorld.h"
#include "tests/client/session/SupervisedService.h"

namespace Ormek::Testing {

namespace {

// Far longer than any call takes, so that only what hangs is found out.
constexpr std::chrono::seconds Patience{60};

std::unique_ptr<World> worldAt(Session::Place place, Contents& contents) {
    if (place == Session::Place::Disk) {
        return std::make_unique<DiskWorld>(contents);
    }
    return std::make_unique<MemoryWorld>(contents);
}

std::string inQuotes(const std::string& name) { return '"' + name + '"'; }

std::string textOf(const Target& target) {
    const auto* path = std::get_if<std::string>(&target.which());
    return path ? inQuotes(*path) : std::to_string(std::get<unsigned long>(target.which()));
}

bool canBeName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

NumberedSource::Manner mannerOf(std::uint32_t number) {
    if (number % 16 == 6) {
        return NumberedSource::Manner::BreaksOff;
    }
    return number % 32 == 5 ? NumberedSource::Manner::LiesAboutItsSize
                            : NumberedSource::Manner::Sound;
}

}  // namespace

Session::Session(Place place, Manner manner, Figures& figures)
    : _manner(manner),
      _figures(figures),
      _world(worldAt(place, _contents)),
      _client(std::make_unique<Client>(
          std::make_unique<SupervisedService>(_world->service(), _supervisor, _contents))),
      _worker(dynamic_cast<Nimra::Worker*>(Nimra::OperationHandler::getHandler("Requests"))),
      _crowd(*_client) {
    ++_figures.sessions;
    know(_client->rootId());
    _client->subscribe([this](const Event& event) { hear(event); });
    // A listener may call the client.
    _caller = _client->subscribe([this](const Event&) { _client->pathOf(_client->rootId()); });
}

Session::~Session() {
    _crowd.stop();
    _supervisor.open();
}

void Session::run(const std::vector<Step>& steps) {
    try {
        if (_manner == Manner::InTurns) {
            _supervisor.close();
        } else if (_manner == Manner::Crowded) {
            _crowd.start();
        }
        for (const Step& step : steps) {
            ++_figures.steps;
            take(step);
            if (_manner != Manner::Crowded) {
                checkPresent();
                checkWanted();
            }
        }
        // Half of the sessions end in the middle of something.
        if (steps.size() % 2 == 0) {
            settle({Step::Settle, static_cast<std::uint32_t>(steps.size()), 0, 0});
        }
        end();
    } catch (const std::exception& error) {
        std::string text = std::string(error.what()) + "\nafter";
        for (const std::string& line : _log) {
            text += "\n  " + line;
        }
        throw Broken(text);
    }
}

void Session::take(const Step& step) {
    switch (step.kind) {
        case Step::CreateDocument:
            return createDocument(step);
        case Step::CreateFolder:
            return createFolder(step);
        case Step::Rename:
            return rename(step);
        case Step::Move:
            return move(step);
        case Step::Remove:
            return remove(step);
        case Step::SaveMetaData:
            return saveMetaData(step);
        case Step::Open:
            return open(step, ActionKind::Open);
        case Step::OpenSession:
            return open(step, ActionKind::OpenSession);
        case Step::ReleaseSession:
            return releaseSession(step);
        case Step::Cancel:
            return cancel(step);
        case Step::List:
            return list(step);
        case Step::Tags:
            return tags(step);
        case Step::Find:
            return find(step);
        case Step::Look:
            return look(step);
        case Step::Serve:
            return serve(step);
        case Step::Collect:
            return collect();
        case Step::GoOffline:
            return goOffline(true);
        case Step::GoOnline:
            return goOffline(false);
        case Step::Fail:
            return fail(step);
        case Step::ChangeElsewhere:
            return changeElsewhere(step);
        case Step::Feed:
            return _world->feed.empty() ? doubt(step) : feed(1 + step.a % 3);
        case Step::DropHandles:
            return dropHandles(step);
        case Step::Settle:
            return settle(step);
    }
}

// --- What steps are about ----------------------------------------------------------------------

void Session::note(const std::string& text) { _log.push_back(text); }

// Mostly one that is there; now and then one that never was, or is no longer.
unsigned long Session::anyEntry(std::uint32_t number) {
    constexpr unsigned long NeverThere = 123'456'789;
    std::vector<unsigned long> ids;
    for (const unsigned long id : _ids) {
        if (number % 16 == 15 || (id != _client->rootId() && _client->item(id))) {
            ids.push_back(id);
        }
    }
    return ids.empty() || number % 128 == 127 ? NeverThere : ids[number / 3 % ids.size()];
}

unsigned long Session::anyFolder(std::uint32_t number) {
    std::vector<unsigned long> ids;
    for (const unsigned long id : _ids) {
        if (number % 32 == 31 || std::dynamic_pointer_cast<Container>(_client->item(id))) {
            ids.push_back(id);
        }
    }
    return number % 3 == 0 ? _client->rootId() : ids[number / 3 % ids.size()];
}

Target Session::targetOf(unsigned long id, std::uint32_t number) {
    const std::string path = number % 4 == 3 ? _client->pathOf(id) : "";
    return path.empty() ? Target(id) : Target(path);
}

Nimra::KeyValues Session::keyValues(std::uint32_t number) {
    Nimra::KeyValues values;
    for (std::uint32_t key = 0; key < number % 3; ++key) {
        values["key" + std::to_string(key)] = {"value " + std::to_string(number), number % 2 == 1};
    }
    return values;
}

ListOptions Session::options(const Step& step) {
    const std::vector<std::uint32_t> counts{1, 2, 3, 100, 5};
    const std::vector<std::string> searches{"", "", "", "a", "b", "zz"};
    ListOptions options;
    options.count = counts[step.b % counts.size()];
    options.offset = step.b / 5 % 3 * options.count;
    options.search = searches[step.c % searches.size()];
    options.kind = static_cast<ListKind>(step.c / 6 % 4 % 3);
    options.order = step.c / 24 % 4 == 3 ? ListOrder::Descending : ListOrder::Ascending;
    options.freshness = step.c / 96 % 4 == 3 ? Freshness::Reload : Freshness::Cached;
    return options;
}

// --- Actions -----------------------------------------------------------------------------------

void Session::asked(const Action& action, ActionBook::Asked asked, const std::string& text) {
    note(text + ": operation " + std::to_string(action.operationId()) + ", entry " +
         std::to_string(action.entryId()));
    asked.entryId = action.entryId();
    if (action.operationId() == 0) {
        ++_figures.refusedAtOnce;
        const Outcome outcome = _client->poll(action);
        expect(outcome.state == ActionState::Failed && outcome.error && action.entryId() == 0,
               "refused at once, but not failed");
        note(std::string("  refused: ") + outcome.error->what());
    } else {
        ++_figures.actions;
        know(action.entryId());
    }
    _book.ask(action, std::move(asked));
    drain();
}

void Session::createDocument(const Step& step) {
    const unsigned long folderId = anyFolder(step.a);
    const std::string& name = anyName(step.b);
    std::unique_ptr<NumberedSource> source;
    if (step.c % 8 != 7) {
        source = std::make_unique<NumberedSource>(_contents.next(), mannerOf(step.c));
    }
    const unsigned long number = source ? source->number() : 0;
    const Nimra::KeyValues values = step.c % 4 == 0 ? keyValues(step.c) : Nimra::KeyValues();
    const Action action = _client->createDocument(folderId, name, std::move(source), values);
    expect(canBeName(name) || action.operationId() == 0, inQuotes(name) + " was taken for a name");
    asked(action, {ActionKind::CreateDocument, 0, folderId, name, values, number, {}, {}},
          "create document " + inQuotes(name) + " in " + std::to_string(folderId));
}

void Session::createFolder(const Step& step) {
    const unsigned long folderId = anyFolder(step.a);
    const std::string& name = anyName(step.b);
    const Action action = _client->createFolder(folderId, name);
    expect(canBeName(name) || action.operationId() == 0, inQuotes(name) + " was taken for a name");
    asked(action, {ActionKind::CreateFolder, 0, folderId, name, {}, 0, {}, {}},
          "create folder " + inQuotes(name) + " in " + std::to_string(folderId));
}

void Session::rename(const Step& step) {
    const Target target = targetOf(anyEntry(step.a), step.c);
    const std::string& name = anyName(step.b);
    const Action action = _client->rename(target, name);
    expect(canBeName(name) || action.operationId() == 0, inQuotes(name) + " was taken for a name");
    asked(action, {ActionKind::Rename, 0, 0, name, {}, 0, {}, {}},
          "rename " + textOf(target) + " to " + inQuotes(name));
}

void Session::move(const Step& step) {
    const Target target = targetOf(anyEntry(step.a), step.c);
    const unsigned long folderId = anyFolder(step.b);
    asked(_client->move(target, folderId), {ActionKind::Move, 0, folderId, "", {}, 0, {}, {}},
          "move " + textOf(target) + " to " + std::to_string(folderId));
}

void Session::remove(const Step& step) {
    const Target target = targetOf(anyEntry(step.a), step.c);
    asked(_client->remove(target), {ActionKind::Remove, 0, 0, "", {}, 0, {}, {}},
          "remove " + textOf(target));
}

void Session::saveMetaData(const Step& step) {
    const Target target = targetOf(anyEntry(step.a), step.c);
    const Nimra::KeyValues values = keyValues(step.b);
    asked(_client->saveMetaData(target, values),
          {ActionKind::SaveMetaData, 0, 0, "", values, 0, {}, {}},
          "save metadata of " + textOf(target));
}

void Session::open(const Step& step, ActionKind kind) {
    const Target target = targetOf(anyEntry(step.a), step.c);
    const bool session = kind == ActionKind::OpenSession;
    asked(session ? _client->openSession(target) : _client->open(target),
          {kind, 0, 0, "", {}, 0, {}, {}},
          std::string(session ? "session on " : "open ") + textOf(target));
}

void Session::releaseSession(const Step& step) {
    if (_sessions.empty()) {
        return;
    }
    const std::size_t index = step.a % _sessions.size();
    note("release the session on " + std::to_string(_sessions[index].documentId));
    _client->releaseSession(_sessions[index]);
    _sessions.erase(_sessions.begin() + static_cast<std::ptrdiff_t>(index));
}

void Session::cancel(const Step& step) {
    const std::vector<unsigned long> pending = _book.pending();
    if (pending.empty()) {
        return;
    }
    const unsigned long operationId = pending[step.a % pending.size()];
    const bool cancelled = _client->cancel(operationId);
    note("cancel operation " + std::to_string(operationId) + (cancelled ? "" : ": too late"));
    drain();
    if (cancelled && _manner != Manner::Crowded) {
        const auto& outcome = _book.all().at(operationId).outcome;
        expect(outcome && outcome->error && outcome->error->reason() == Nimra::Reason::Refused,
               "cancelled, but it has not failed as refused");
    }
}

// --- Questions ---------------------------------------------------------------------------------

void Session::list(const Step& step) {
    const Page page{anyFolder(step.a), options(step)};
    const std::string text = "list " + std::to_string(page.folderId) + " from " +
                             std::to_string(page.options.offset) + ", " +
                             std::to_string(page.options.count) + " entries, kind " +
                             std::to_string(static_cast<int>(page.options.kind)) + ", search " +
                             inQuotes(page.options.search) +
                             (page.options.order == ListOrder::Descending ? ", descending" : "") +
                             (page.options.freshness == Freshness::Reload ? ", anew" : "");
    const Query query = _client->list(page.folderId, page.options);
    const Answer answer = _client->poll(query);
    note(text + (answer.state == AnswerState::Pending ? "" : ": answered at once"));
    drain();
    ++_figures.queries;
    if (answer.state == AnswerState::Answered && answer.source == AnswerSource::Memory) {
        checkListing(page, answer);
    }
    _questions.push_back({query, text});
}

void Session::tags(const Step& step) {
    const unsigned long folderId = anyFolder(step.a);
    const std::string text = "list tags of " + std::to_string(folderId);
    note(text);
    _questions.push_back({_client->tags(folderId, options(step)), text});
    ++_figures.queries;
    drain();
}

void Session::find(const Step& step) {
    std::string path = step.a % 4 == 0 ? "" : _client->pathOf(anyEntry(step.a));
    path = path == "/" ? "" : path;
    path += step.b % 3 == 0 ? "" : "/" + usableNames()[step.b / 3 % usableNames().size()];
    path += step.b % 11 == 10 ? "/../." : "";
    const auto freshness = step.c % 4 == 3 ? Freshness::Reload : Freshness::Cached;
    const std::string text =
        "find " + inQuotes(path) + (freshness == Freshness::Reload ? " anew" : "");
    note(text);
    const Query query = _client->find(path, freshness);
    const Answer answer = _client->poll(query);
    drain();
    ++_figures.queries;
    if (answer.state == AnswerState::Answered && answer.source == AnswerSource::Memory &&
        path.find("/..") == std::string::npos && _manner != Manner::Crowded) {
        const std::string found = _client->pathOf(answer.entries.front()->id());
        expect(found == (path.empty() ? "/" : path),
               "found for " + inQuotes(path) + " was " + inQuotes(found));
    }
    _questions.push_back({query, text});
}

void Session::look(const Step& step) {
    note("look");
    std::set<unsigned long> folders;
    for (const unsigned long id : _ids) {
        const auto item = _client->item(id);
        if (std::dynamic_pointer_cast<Container>(item)) {
            folders.insert(item->id());
        }
    }
    // Whatever is held is shown offline, and nothing is loaded.
    const bool online = _client->online();
    _client->setOnline(false);
    for (const unsigned long folderId : folders) {
        Page page{folderId, {}};
        page.options.count = std::numeric_limits<std::uint32_t>::max();
        lookAt(page);
        page.options = options(step);
        page.options.freshness = Freshness::Cached;
        lookAt(page);
    }
    if (online) {
        _client->setOnline(true);
        drain();
    }
}

// --- The service and the world -----------------------------------------------------------------

void Session::serve(const Step& step) {
    if (_manner != Manner::InTurns) {
        return;
    }
    for (std::uint32_t calls = 0; calls < 1 + step.a % 4; ++calls) {
        const bool runs = _worker->pending() > _worker->operations().size();
        if (!runs) {
            return;
        }
        note("the service works");
        const unsigned long finished = _worker->finishedCount();
        _supervisor.letPassOne();
        const auto deadline = std::chrono::steady_clock::now() + Patience;
        expect(_worker->waitForFinished(finished, deadline), "the service hangs");
    }
}

void Session::collect() {
    const unsigned long loads = _supervisor.done(Call::Load);
    const unsigned long count = _client->collect();
    note("collect: " + std::to_string(count));
    drain();
    std::erase_if(_questions, [this](const Question& question) {
        const Answer answer = _client->poll(question.query);
        checkAnswer(answer, question.text);
        return answer.state != AnswerState::Pending;
    });
    drain();
    if (_manner == Manner::InTurns) {
        _loadsCollected = loads;
    }
}

void Session::goOffline(bool offline) {
    note(offline ? "offline" : "online");
    _figures.offlineStretches += offline ? 1 : 0;
    _client->setOnline(!offline);
    drain();
    expect(_client->online() != offline, "not switched");
}

void Session::fail(const Step& step) {
    using Nimra::Reason;
    const std::vector<Call> calls{Call::Load,         Call::Create, Call::MakeFolder, Call::Move,
                                  Call::Remove,       Call::Rename, Call::Rename,     Call::Open,
                                  Call::SaveMetaData, Call::Create, Call::Session};
    const std::vector<Reason> reasons{Reason::NotFound, Reason::Exists,       Reason::NoPermission,
                                      Reason::NoSpace,  Reason::NotReachable, Reason::Refused,
                                      Reason::Internal};
    const Call call = calls[step.a % calls.size()];
    note("the next call of kind " + std::to_string(static_cast<int>(call)) + " is to fail");
    _supervisor.failNext(call, {reasons[step.b % reasons.size()], "made to fail"});
}

void Session::changeElsewhere(const Step& step) {
    const auto turn = _supervisor.interrupt();
    ++_figures.changesElsewhere;
    note("somebody else: " + _world->change(step.a, step.b, step.c));
}

void Session::feed(std::size_t count) {
    for (; count != 0 && !_world->feed.empty(); --count) {
        const World::Report report = std::move(_world->feed.front());
        _world->feed.pop_front();
        if (const auto* document = std::get_if<Nimra::Document>(&report)) {
            note("the feed tells of document " + std::to_string(document->id) + ", " +
                 inQuotes(document->name) + " in " + std::to_string(document->parentId));
            _client->onRemoteChange(*document);
        } else if (const auto* folder = std::get_if<Nimra::Folder>(&report)) {
            note("the feed tells of folder " + std::to_string(folder->id) + ", " +
                 inQuotes(folder->name) + " in " + std::to_string(folder->parentId));
            _client->onRemoteChange(*folder);
        } else if (const auto* gone = std::get_if<World::Gone>(&report)) {
            note("the feed tells that " + std::to_string(gone->id) + " is gone");
            _client->onRemoteRemoval(gone->id);
        } else {
            _client->onRemoteDoubt(std::get<World::Doubted>(report).folderId);
        }
        drain();
    }
}

void Session::doubt(const Step& step) {
    const unsigned long folderId = anyFolder(step.a);
    note("the feed tells of something in " + std::to_string(folderId));
    _client->onRemoteDoubt(folderId);
    drain();
}

void Session::dropHandles(const Step& step) {
    note("drop handles");
    _book.dropHandles();
    std::erase_if(_questions, [&](const Question&) { return step.a % 2 == 0; });
}

// --- The end -----------------------------------------------------------------------------------

void Session::end() {
    note("the client is destroyed");
    _crowd.stop();
    _figures.loads += _client->statistics().loads;
    _supervisor.open();
    _client->unsubscribe(_caller);
    _client.reset();
    for (const Event& event : std::exchange(_events, {})) {
        if (const auto* outcome = std::get_if<Outcome>(&event)) {
            checkOutcome(*outcome);
        } else if (const auto* changed = std::get_if<EntryIdChanged>(&event)) {
            _book.take(*changed);
        }
    }
    _book.checkAllHaveOutcomes();
    _book.checkAgainst(_supervisor);
    _figures.calls += _supervisor.passed();
    _figures.madeToFail += _supervisor.madeToFail();
}

}  // namespace Ormek::Testing
