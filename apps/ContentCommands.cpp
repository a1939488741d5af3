#include <vector>

#include "apps/Arguments.h"
#include "apps/CommandError.h"
#include "apps/Commands.h"
#include "apps/Creation.h"
#include "apps/Escape.h"
#include "apps/LocalFile.h"
#include "apps/NewLocalFile.h"

namespace App {

namespace {

/// Behind the last slash; all of it without one.
std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

/// The place in a folder that is there, or else the one that the path itself says.
NewPlace placeFor(Session& session, const std::string& name, const std::string& path) {
    auto entry = session.findIfThere(path);
    if (entry && isFolder(*entry)) {
        return {std::move(entry), name};
    }
    if (!entry && path.ends_with('/')) {
        throw CommandError("there is no folder " + quoted(path));
    }
    return newPlaceAt(session, path);
}

std::shared_ptr<Nimra::DocumentStream> openContent(Session& session, unsigned long id) {
    return session.actions().outcomeOf(session.client().open(id)).stream;
}

/// Hands over a content piece by piece, so that it may be of any size.
template <class Take>
void copy(Session& session, const Nimra::DocumentStream& content, Take take) {
    constexpr std::size_t PieceSize = std::size_t{1} << 18U;
    std::vector<char> piece(PieceSize);
    unsigned long done = 0;
    while (const std::size_t size = content.read(done, piece.data(), piece.size())) {
        session.console().checkWanted();
        take(piece.data(), size);
        done += size;
    }
}

}  // namespace

void runPut(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {1, 2});
    const std::string& local = arguments.paths()[0];
    const std::string path = arguments.paths().size() > 1 ? arguments.paths()[1] : ".";
    auto content = std::make_unique<LocalFile>(local, session.actions().givenUp());
    const NewPlace place = placeFor(session, nameOf(local), path);
    const Ormek::Action action =
        session.client().createDocument(place.folder->id(), place.name, std::move(content));
    beginCreation(session, action, "putting " + quoted(local) + " to ");
}

void runGet(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {2, 2});
    const auto entry = session.find(arguments.paths()[0]);
    const std::string& local = arguments.paths()[1];
    NewLocalFile file(local);
    const auto content = openContent(session, entry->id());
    const unsigned long size = content->size();
    unsigned long done = 0;
    copy(session, *content, [&](const char* piece, std::size_t length) {
        file.write(piece, length);
        done += length;
        session.console().showProgress(done, size);
    });
    file.publish();
    session.console().say(std::to_string(done) + " bytes of " + quoted(entry->name()) + " are in " +
                          quoted(local));
}

void runCat(Session& session, const Command::Words& words) {
    const Arguments arguments(words, {}, {1, 1});
    const auto entry = session.find(*arguments.path());
    const auto content = openContent(session, entry->id());
    copy(session, *content, [&](const char* piece, std::size_t length) {
        session.out().write(piece, static_cast<std::streamsize>(length));
    });
}

}  // namespace App
