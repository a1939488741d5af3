#include "apps/EventText.h"

#include <variant>

#include "apps/Escape.h"

namespace App {

namespace {

class Writer {
  public:
    explicit Writer(Ormek::Client& client) : _client(client) {}

    std::string operator()(const Ormek::EntryAdded& event) const {
        return "added " + entry(event.id, event.now);
    }
    std::string operator()(const Ormek::EntryRemoved& event) const {
        return "removed " + entry(event.id, event.was);
    }
    std::string operator()(const Ormek::EntryChanged& event) const {
        return "changed " + entry(event.id, event.was) + changes(event.was, event.now);
    }
    std::string operator()(const Ormek::EntryIdChanged& event) const {
        return "id " + std::to_string(event.oldId) + " is now " + std::to_string(event.newId);
    }
    std::string operator()(const Ormek::ListingInvalidated& event) const {
        return "listing of " + folder(event.folderId) + " is out of date";
    }
    std::string operator()(const Ormek::ActionProgress& event) const {
        return "operation " + std::to_string(event.operationId) + ": " +
               std::to_string(event.done) + " of " + std::to_string(event.total) + " bytes";
    }
    std::string operator()(const Ormek::Outcome& event) const {
        return "operation " + std::to_string(event.operationId) + ": " +
               (event.state == Ormek::ActionState::Done ? "done" : "failed");
    }

  private:
    std::string folder(unsigned long id) const {
        const std::string path = _client.pathOf(id);
        return path.empty() ? "folder " + std::to_string(id) : quoted(path);
    }

    std::string entry(unsigned long id, const Ormek::EntryValues& values) const {
        return (values.isFolder ? "folder " : "file ") + std::to_string(id) + ", " +
               quoted(values.name) + " in " + folder(values.folderId);
    }

    std::string changes(const Ormek::EntryValues& was, const Ormek::EntryValues& now) const {
        std::string text;
        const auto add = [&text](const std::string& what, const std::string& before,
                                 const std::string& after) {
            if (before != after) {
                text += "; " + what + " " + before + " -> " + after;
            }
        };
        add("name", quoted(was.name), quoted(now.name));
        add("folder", folder(was.folderId), folder(now.folderId));
        add("size", std::to_string(was.length), std::to_string(now.length));
        add("updated", std::to_string(was.updated), std::to_string(now.updated));
        add("type", quoted(was.mimeType), quoted(now.mimeType));
        for (const auto& [key, value] : was.keyValues) {
            add("key " + quoted(key), quoted(value.first), valueOf(now, key));
        }
        for (const auto& [key, value] : now.keyValues) {
            if (!was.keyValues.contains(key)) {
                add("key " + quoted(key), "none", quoted(value.first));
            }
        }
        return text;
    }

    static std::string valueOf(const Ormek::EntryValues& values, const std::string& key) {
        const auto found = values.keyValues.find(key);
        return found == values.keyValues.end() ? "none" : quoted(found->second.first);
    }

    Ormek::Client& _client;
};

}  // namespace

std::string eventText(Ormek::Client& client, const Ormek::Event& event) {
    return "event: " + std::visit(Writer(client), event);
}

}  // namespace App
