#include "apps/Creation.h"

#include "apps/CommandError.h"
#include "apps/Escape.h"

namespace App {

NewPlace newPlaceAt(Session& session, const std::string& path) {
    const std::string trimmed = path.substr(0, path.find_last_not_of('/') + 1);
    const std::size_t nameBegin = trimmed.rfind('/') + 1;  // 0 without a slash.
    const bool isAtRoot = path.starts_with('/');
    auto folder =
        session.find(isAtRoot ? "/" + trimmed.substr(0, nameBegin) : trimmed.substr(0, nameBegin));
    if (!isFolder(*folder)) {
        throw CommandError(quoted(folder->name()) + " is not a folder");
    }
    return {std::move(folder), trimmed.substr(nameBegin)};
}

void beginCreation(Session& session, const Ormek::Action& action, const std::string& doing) {
    const std::string path = quoted(session.client().pathOf(action.entryId()));
    const auto putBack = [path](const Ormek::Outcome&) { return path + " is gone"; };
    session.actions().begin({action, doing + path, putBack});
}

}  // namespace App
