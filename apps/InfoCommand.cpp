#include "apps/Arguments.h"
#include "apps/Commands.h"
#include "apps/Escape.h"
#include "apps/Format.h"
#include "apps/Table.h"
#include "model/Object.h"

namespace App {

namespace {

std::string yesOrNo(bool value) { return value ? "yes" : "no"; }

// The number itself too: it says more than a calendar, and is right whatever its unit.
std::string timeStamp(unsigned long value) {
    return value == 0 ? "-" : formatTime(value) + " (" + std::to_string(value) + ")";
}

void addPlace(Table& table, const Ormek::Item& entry) {
    table.add({"id", std::to_string(entry.id())});
    table.add({"id loaded", yesOrNo(entry.idLoaded())});
    table.add({"data loaded", yesOrNo(entry.dataLoaded())});
    table.add({"parent id", std::to_string(entry.parentId())});
    table.add({"old parent id", std::to_string(entry.oldParentId())});
    table.add({"owner id", std::to_string(entry.ownerId())});
    table.add({"drive id", std::to_string(entry.driveId())});
}

void addTimes(Table& table, const Ormek::Item& entry) {
    table.add({"created", timeStamp(entry.created())});
    table.add({"updated", timeStamp(entry.updated())});
    table.add({"deleted", timeStamp(entry.deleted())});
}

void addTexts(Table& table, const Ormek::Item& entry) {
    table.add({"description", escaped(entry.description())});
    table.add({"first text", escaped(entry.firstText())});
    table.add({"second text", escaped(entry.secondText())});
    table.add({"third text", escaped(entry.thirdText())});
}

void addAccess(Table& table, const Ormek::Item& entry) {
    table.add({"access level", std::to_string(entry.accessLevel())});
    for (const auto& [user, level] : entry.ACLMap()) {
        table.add({"access of user " + std::to_string(user), std::to_string(level)});
    }
    table.add({"shared", yesOrNo(entry.isShared())});
    for (const auto& [user, shares] : entry.shares()) {
        for (const Ormek::ShareData& share : shares) {
            table.add({"share of user " + std::to_string(user),
                       "id " + std::to_string(share.id) + ", with user " +
                           std::to_string(share.userId) + ", access " +
                           std::to_string(share.access) + ", created " + timeStamp(share.created)});
        }
    }
}

void addContent(Table& table, const Ormek::Object& document) {
    table.add({"size", std::to_string(document.length())});
    table.add({"mime type", escaped(document.mimeType())});
    for (const auto& [key, value] : document.keyValues()) {
        table.add({"key value",
                   escaped(key) + "=" + escaped(value.first) + (value.second ? " (flagged)" : "")});
    }
}

}  // namespace

void runInfo(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {1, 1});
    const auto entry = session.find(*arguments.path());
    const auto* document = dynamic_cast<const Ormek::Object*>(entry.get());
    Table table({{}, {}});
    table.add({"path", escaped(session.client().pathOf(entry->id()))});
    table.add({"name", escaped(entry->name())});
    table.add({"kind", document == nullptr ? "folder" : "file"});
    table.add({"type", std::to_string(entry->type())});
    addPlace(table, *entry);
    addTimes(table, *entry);
    addTexts(table, *entry);
    addAccess(table, *entry);
    if (document != nullptr) {
        addContent(table, *document);
    }
    table.print(session.out());
}

}  // namespace App
