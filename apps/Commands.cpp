#include "apps/Commands.h"

#include <algorithm>
#include <array>
#include <unordered_set>

#include "apps/Arguments.h"
#include "apps/CommandError.h"
#include "apps/Escape.h"
#include "apps/Format.h"
#include "apps/Pages.h"
#include "apps/Table.h"
#include "model/Object.h"

namespace App {

namespace {

using Kind = Arguments::Kind;

void runCd(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {0, 1});
    const auto entry = session.find(arguments.path().value_or("/"));
    if (!isFolder(*entry)) {
        throw CommandError(quoted(entry->name()) + " is not a folder");
    }
    session.enter(entry->id());
}

void runPwd(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {0, 0});
    const std::string path = session.folderPath();
    if (path.empty()) {
        throw CommandError("the current folder is no longer known");
    }
    session.out() << path << '\n';
}

void printTag(std::ostream& out, const Ormek::Item& tag) {
    out << escaped(tag.name());
    if (const auto* object = dynamic_cast<const Ormek::Object*>(&tag)) {
        for (const auto& [key, value] : object->keyValues()) {
            out << "  " << escaped(key) << '=' << escaped(value.first);
        }
    }
    out << '\n';
}

void runTags(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {{"--refresh", Kind::Flag}}, {0, 1});
    Cost cost;
    const auto entry = session.find(arguments.path().value_or("."), cost);
    const bool ofFolder = isFolder(*entry);

    Ormek::ListOptions options;
    options.count = 1000;
    options.search = ofFolder ? "" : entry->name();
    options.freshness =
        arguments.has("--refresh") ? Ormek::Freshness::Reload : Ormek::Freshness::Cached;
    const unsigned long folder = ofFolder ? entry->id() : entry->parentId();

    // A tag stays the same object for as long as it is held.
    std::unordered_set<std::shared_ptr<Ormek::Item>> seen;
    const auto show = [&](const Listing::Entries& tags) {
        std::size_t shown = 0;
        for (const auto& tag : tags) {
            const bool wanted = ofFolder || tag->name() == entry->name();
            if (wanted && seen.insert(tag).second) {
                printTag(session.out(), *tag);
                ++shown;
            }
        }
        return shown;
    };
    const auto ask = [&](const Ormek::ListOptions& page) {
        return session.client().tags(folder, page);
    };
    showPages(session, {ask, show}, options, Extent::EveryPage, cost);
}

void runStats(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {0, 0});
    const Ormek::Statistics now = session.client().statistics();
    Table table({{}, {}});
    const auto add = [&table](const char* what, unsigned long number) {
        table.add({what, std::to_string(number)});
    };
    add("queries answered from memory", now.answeredFromMemory);
    add("loads", now.loads);
    add("joined loads", now.joinedLoads);
    add("failed loads", now.failedLoads);
    add("entries", now.entries);
    add("tags", now.keyValueEntries);
    add("directories", now.directories);
    add("parked operations", now.parkedOperations);
    table.add({"time spent in memory", formatDuration(now.inMemory)});
    table.add({"time spent in loads", formatDuration(now.inLoads)});
    table.print(session.out());
}

bool isOn(const std::string& word) {
    if (word != "on" && word != "off") {
        throw CommandError(quoted(word) + " is neither on nor off");
    }
    return word == "on";
}

void runEvents(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {1, 1});
    session.actions().wantEvents(isOn(*arguments.path()));
}

void runOffline(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {0, 0});
    session.client().setOnline(false);
    session.console().say("the service is off");
}

void runOnline(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {0, 0});
    session.client().setOnline(true);
    session.console().say("the service is on");
}

void runParked(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {0, 0});
    session.actions().printParked();
}

void runCancel(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {1, 1});
    const unsigned long operation = wholeNumber(*arguments.path());
    if (!session.actions().cancel(operation)) {
        throw CommandError(std::to_string(operation) + " is over, under way, or was never begun");
    }
    session.actions().report();
}

void runWait(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {0, 0});
    session.actions().settle();
}

std::string usageOf(const Command& command) {
    const std::string blank = command.usage.empty() ? "" : " ";
    return std::string(command.name) + blank + std::string(command.usage);
}

void runHelp(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {0, 1});
    std::ostream& out = session.out();
    if (const auto name = arguments.path()) {
        const Command* command = findCommand(*name);
        if (command == nullptr) {
            throw CommandError("there is no command " + quoted(*name));
        }
        out << usageOf(*command) << "\n    " << command->help << '\n' << command->more;
        return;
    }
    for (const Command& command : commands()) {
        out << usageOf(command) << "\n    " << command.help << '\n';
    }
}

void runQuit(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {0, 0});
    session.quit();
}

constexpr std::array<Command, 23> CommandTable{{
    {"ls", "[PATH] [-1] [-0] [-l] [--offset N] [--count N] [--all] [--search TEXT] [--refresh]",
     "Lists a page of a folder: type, size, time and name.",
     "    -1             names alone, one a line, escaped as in C\n"
     "    -0             names alone, as they are, each ended by a NUL\n"
     "    -l             also id, mime type and time of creation\n"
     "    --offset N     leaves out the first N entries\n"
     "    --count N      lists at most N entries (100); with --all, the size of a page (1000)\n"
     "    --all          lists every page\n"
     "    --search TEXT  only names that contain TEXT\n"
     "    --refresh      loads the page even if it is held\n",
     runLs},
    {"cd", "[PATH]", "Makes a folder the current one; without PATH, the root.", "", runCd},
    {"pwd", "", "Prints the path of the current folder.", "", runPwd},
    {"info", "PATH", "Prints everything that is known of an entry.", "", runInfo},
    {"tags", "[PATH] [--refresh]", "Prints the key values of an entry, or of all in a folder.",
     "    --refresh      loads them even if they are held\n", runTags},
    {"stats", "", "Prints what came from memory, what was loaded, and what is held.", "", runStats},
    {"rename", "PATH NEWNAME", "Gives an entry another name.", "", runRename},
    {"mv", "PATH FOLDER", "Moves an entry into a folder, under the name that it has.", "", runMv},
    {"rm", "PATH", "Removes an entry; a folder only if it is empty.", "", runRm},
    {"mkdir", "PATH", "Makes a folder.", "", runMkdir},
    {"put", "LOCALFILE [PATH]",
     "Uploads a file of this machine into the current folder, or to PATH.",
     "    PATH is a folder, for a file of the same name in it, or the new file itself.\n"
     "    The upload goes on behind; where the program waits, it shows how far that is.\n",
     runPut},
    {"get", "PATH LOCALFILE", "Writes the content of a file into a new file of this machine.", "",
     runGet},
    {"cat", "PATH", "Prints the content of a file, byte by byte.", "", runCat},
    {"set", "PATH KEY VALUE", "Sets a key value of an entry; it keeps its others.", "", runSet},
    {"session", "[--release] PATH", "Opens a session on a file, which keeps other sessions away.",
     "    --release      ends the one that was opened\n", runSession},
    {"events", "on|off", "Prints what happens to the entries, or no longer does.", "", runEvents},
    {"offline", "", "Switches the service off: actions show, and wait.", "", runOffline},
    {"online", "", "Switches the service on: what waits goes to it, in order.", "", runOnline},
    {"parked", "", "Prints which actions wait, and for what.", "", runParked},
    {"cancel", "OPERATION", "Cancels an action that is not under way yet.", "", runCancel},
    {"wait", "", "Waits until nothing is under way; what is parked does not count.", "", runWait},
    {"help", "[COMMAND]", "Explains the commands, or one of them.", "", runHelp},
    {"quit", "", "Ends the program, as does Ctrl-D, when nothing is under way any more.",
     "    What is parked is lost. Ctrl-C ends the waiting.\n", runQuit},
}};

}  // namespace

std::span<const Command> commands() { return CommandTable; }

const Command* findCommand(std::string_view name) {
    const auto* found =
        std::find_if(CommandTable.begin(), CommandTable.end(),
                     [name](const Command& command) { return command.name == name; });
    return found == CommandTable.end() ? nullptr : found;
}

}  // namespace App
