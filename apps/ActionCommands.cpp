#include "apps/Arguments.h"
#include "apps/CommandError.h"
#include "apps/Commands.h"
#include "apps/Creation.h"
#include "apps/Escape.h"

namespace App {

namespace {

std::string folderOf(Session& session, const Ormek::EntryValues& entry) {
    return quoted(session.client().pathOf(entry.folderId));
}

/// What is said of a key of an entry that it has, or has not.
std::string keyText(const Ormek::EntryValues& entry, const std::string& key) {
    if (entry.isFolder) {
        // Those of folders are not held.
        return quoted(key) + " of " + quoted(entry.name) + " is what it was";
    }
    const auto found = entry.keyValues.find(key);
    return found == entry.keyValues.end()
               ? quoted(entry.name) + " has no " + quoted(key)
               : quoted(key) + " of " + quoted(entry.name) + " is " + quoted(found->second.first);
}

}  // namespace

void runRename(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {2, 2});
    const auto entry = session.find(arguments.paths()[0]);
    const std::string oldName = quoted(entry->name());
    const std::string newName = quoted(arguments.paths()[1]);
    const auto putBack = [oldName, newName](const Ormek::Outcome& outcome) {
        if (!outcome.entry) {
            return oldName + " is gone";
        }
        const std::string now = quoted(outcome.entry->name);
        return now == oldName ? newName + " is " + oldName + " again" : "it is " + now + " now";
    };
    const Ormek::Action action = session.client().rename(entry->id(), arguments.paths()[1]);
    session.actions().begin({action, "renaming " + oldName + " to " + newName, putBack});
}

void runMv(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {2, 2});
    const auto entry = session.find(arguments.paths()[0]);
    const auto folder = session.find(arguments.paths()[1]);
    const std::string name = quoted(entry->name());
    const std::string path = quoted(session.client().pathOf(folder->id()));
    const std::string oldPath = quoted(session.client().pathOf(entry->parentId()));
    const auto putBack = [&session, name, oldPath](const Ormek::Outcome& outcome) {
        if (!outcome.entry) {
            return name + " is gone";
        }
        const std::string now = folderOf(session, *outcome.entry);
        return quoted(outcome.entry->name) + " is in " + now + (now == oldPath ? " again" : " now");
    };
    const Ormek::Action action = session.client().move(entry->id(), folder->id());
    session.actions().begin({action, "moving " + name + " to " + path, putBack});
}

void runRm(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {1, 1});
    const auto entry = session.find(*arguments.path());
    const std::string name = quoted(entry->name());
    const auto putBack = [&session, name](const Ormek::Outcome& outcome) {
        return outcome.entry ? quoted(outcome.entry->name) + " is back in " +
                                   folderOf(session, *outcome.entry)
                             : name + " is gone all the same";
    };
    const Ormek::Action action = session.client().remove(entry->id());
    session.actions().begin({action, "removing " + name, putBack});
}

void runMkdir(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {1, 1});
    const NewPlace place = newPlaceAt(session, *arguments.path());
    beginCreation(session, session.client().createFolder(place.folder->id(), place.name),
                  "making the folder ");
}

void runSet(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {3, 3});
    const auto entry = session.find(arguments.paths()[0]);
    const std::string& key = arguments.paths()[1];
    const std::string& value = arguments.paths()[2];
    const std::string name = quoted(entry->name());
    const auto putBack = [key, name](const Ormek::Outcome& outcome) {
        return outcome.entry ? keyText(*outcome.entry, key) : name + " is gone";
    };
    const Ormek::Action action =
        session.client().saveMetaData(entry->id(), {{key, {value, false}}});
    session.actions().begin(
        {action, "setting " + quoted(key) + " of " + name + " to " + quoted(value), putBack});
}

namespace {

void releaseSession(Session& session, const std::shared_ptr<Ormek::Item>& document) {
    const auto opened = session.actions().takeSession(document);
    if (!opened) {
        throw CommandError("no session was opened on " + quoted(document->name()));
    }
    session.client().releaseSession(*opened);
    session.console().say("the session on " + quoted(document->name()) + " is released");
}

}  // namespace

void runSession(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {{"--release", Arguments::Kind::Flag}}, {1, 1});
    const auto entry = session.find(*arguments.path());
    if (arguments.has("--release")) {
        releaseSession(session, entry);
        return;
    }
    session.actions().begin({session.client().openSession(entry->id()),
                             "opening a session on " + quoted(entry->name()), nullptr});
}

}  // namespace App
