#include "tests/client/session/SupervisedService.h"

#include <array>
#include <utility>

namespace Ormek::Testing {

SupervisedService::SupervisedService(std::unique_ptr<Nimra::StorageService> service,
                                     Supervisor& supervisor, Contents& contents)
    : _service(std::move(service)), _supervisor(supervisor), _contents(contents) {}

Nimra::Folder SupervisedService::root() { return _service->root(); }

Nimra::Page SupervisedService::load(const Nimra::ItemFilter& filter) {
    const auto turn = _supervisor.enter(Call::Load);
    Nimra::Page page = _service->load(filter);
    _supervisor.note({Call::Load, 0, 0, ""});
    return page;
}

Nimra::Document SupervisedService::create(const Nimra::Document& document,
                                          Nimra::ContentSource* content, const Progress& progress) {
    const auto turn = _supervisor.enter(Call::Create);
    Nimra::Document made = _service->create(document, content, progress);
    if (const auto* numbered = dynamic_cast<const NumberedSource*>(content)) {
        _contents.made(numbered->number());
    }
    _supervisor.note({Call::Create, made.id, made.parentId, made.name});
    return made;
}

Nimra::Folder SupervisedService::makeFolder(const Nimra::Folder& folder) {
    const auto turn = _supervisor.enter(Call::MakeFolder);
    Nimra::Folder made = _service->makeFolder(folder);
    _supervisor.note({Call::MakeFolder, made.id, made.parentId, made.name});
    return made;
}

Nimra::Document SupervisedService::move(const Nimra::Document& document) {
    const auto turn = _supervisor.enter(Call::Move);
    Nimra::Document moved = _service->move(document);
    _supervisor.note({Call::Move, moved.id, moved.parentId, ""});
    return moved;
}

void SupervisedService::remove(const Nimra::Document& document) {
    const auto turn = _supervisor.enter(Call::Remove);
    const std::optional<unsigned long> content = contentOf(document);
    _service->remove(document);
    if (content) {
        _contents.gone(*content);
    }
    _supervisor.note({Call::Remove, document.id, 0, ""});
}

Nimra::Document SupervisedService::rename(const Nimra::Document& document) {
    const auto turn = _supervisor.enter(Call::Rename);
    Nimra::Document renamed = _service->rename(document);
    _supervisor.note({Call::Rename, renamed.id, 0, renamed.name});
    return renamed;
}

Nimra::OpenedDocument SupervisedService::openStreams(const Nimra::Document& document) {
    const auto turn = _supervisor.enter(Call::Open);
    Nimra::OpenedDocument opened = _service->openStreams(document);
    _supervisor.note({Call::Open, document.id, 0, ""});
    return opened;
}

Nimra::Document SupervisedService::saveMetaData(const Nimra::Document& document) {
    const auto turn = _supervisor.enter(Call::SaveMetaData);
    Nimra::Document saved = _service->saveMetaData(document);
    _supervisor.note({Call::SaveMetaData, saved.id, 0, ""});
    return saved;
}

Nimra::DocumentSession SupervisedService::openSession(unsigned long folderId,
                                                      unsigned long documentId,
                                                      unsigned long userId) {
    const auto turn = _supervisor.enter(Call::Session);
    Nimra::DocumentSession session = _service->openSession(folderId, documentId, userId);
    _supervisor.note({Call::Session, documentId, 0, ""});
    return session;
}

void SupervisedService::releaseSession(const Nimra::DocumentSession& session) {
    _service->releaseSession(session);
}

std::optional<unsigned long> SupervisedService::contentOf(const Nimra::Document& document) {
    try {
        return Contents::numberOf(readAll(*_service->openStreams(document).stream));
    } catch (const Nimra::ServiceError&) {
        return std::nullopt;
    }
}

std::string readAll(const Nimra::DocumentStream& stream) {
    std::array<char, 4096> buffer{};
    std::string all;
    while (const std::size_t count = stream.read(all.size(), buffer.data(), buffer.size())) {
        all.append(buffer.data(), count);
    }
    return all;
}

}  // namespace Ormek::Testing
