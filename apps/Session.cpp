#include "apps/Session.h"

#include "apps/CommandError.h"
#include "apps/Escape.h"
#include "model/Container.h"

namespace App {

namespace {

Ormek::Answer checked(Ormek::Answer answer) {
    if (answer.state == Ormek::AnswerState::Failed) {
        throw CommandError(answer.error ? answer.error->what() : "failed");
    }
    return answer;
}

}  // namespace

Session::Session(Ormek::Client& client, Surroundings surroundings)
    : _client(client),
      _console(std::move(surroundings)),
      _actions(client, _console),
      _folder(client.rootId()) {}

Ormek::Answer Session::answerTo(const Ormek::Query& query) {
    return checked(_actions.await(query));
}

Ormek::Query Session::ask(const std::string& path) {
    return _client.find(path.starts_with('/') ? _client.rootId() : _folder, path);
}

std::shared_ptr<Ormek::Item> Session::find(const std::string& path, Cost& cost) {
    const Ormek::Answer answer = answerTo(ask(path));
    cost.add(answer);
    return answer.entries.at(0);
}

std::shared_ptr<Ormek::Item> Session::find(const std::string& path) {
    Cost cost;
    return find(path, cost);
}

std::shared_ptr<Ormek::Item> Session::findIfThere(const std::string& path) {
    const Ormek::Answer answer = _actions.await(ask(path));
    const bool isNotThere =
        answer.error &&
        (answer.error->reason() == Nimra::Reason::NotFound ||
         (answer.error->reason() == Nimra::Reason::NotReachable && !_client.online()));
    return isNotThere ? nullptr : checked(answer).entries.at(0);
}

std::string Session::folderPath() { return escaped(_client.pathOf(_folder)); }

bool isFolder(const Ormek::Item& entry) {
    return dynamic_cast<const Ormek::Container*>(&entry) != nullptr;
}

}  // namespace App
