#pragma once

#include <memory>

#include "backend/StorageService.h"
#include "tests/client/session/Contents.h"
#include "tests/client/session/Supervisor.h"

namespace Ormek::Testing {

/// A service whose calls are up to a supervisor. Keeps the book of contents. Both must outlive it.
class SupervisedService : public Nimra::StorageService {
  public:
    SupervisedService(std::unique_ptr<Nimra::StorageService> service, Supervisor& supervisor,
                      Contents& contents);

    Nimra::Folder root() override;
    Nimra::Page load(const Nimra::ItemFilter& filter) override;
    Nimra::Document create(const Nimra::Document& document, Nimra::ContentSource* content,
                           const Progress& progress) override;
    Nimra::Folder makeFolder(const Nimra::Folder& folder) override;
    Nimra::Document move(const Nimra::Document& document) override;
    void remove(const Nimra::Document& document) override;
    Nimra::Document rename(const Nimra::Document& document) override;
    Nimra::OpenedDocument openStreams(const Nimra::Document& document) override;
    Nimra::Document saveMetaData(const Nimra::Document& document) override;
    Nimra::DocumentSession openSession(unsigned long folderId, unsigned long documentId,
                                       unsigned long userId) override;
    void releaseSession(const Nimra::DocumentSession& session) override;

  private:
    std::optional<unsigned long> contentOf(const Nimra::Document& document);

    std::unique_ptr<Nimra::StorageService> _service;
    Supervisor& _supervisor;
    Contents& _contents;
};

/// All that a stream has.
std::string readAll(const Nimra::DocumentStream& stream);

}  // namespace Ormek::Testing
