#pragma once

#include <map>
#include <mutex>
#include <string>

#include "backend/StorageService.h"
#include "tests/client/session/MemoryTree.h"

namespace Ormek::Testing {

/// Serves a tree in memory as Nimra::FolderService serves a folder, but for the ids: an entry keeps
/// its own whoever moves or renames it. The tree must outlive it.
class MemoryService : public Nimra::StorageService {
  public:
    explicit MemoryService(MemoryTree& tree) : _tree(tree) {}

    static Nimra::Document documentOf(const MemoryTree::Node& node);
    static Nimra::Folder folderOf(const MemoryTree::Node& node);

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
    MemoryTree& _tree;
    std::mutex _sessionsMutex;
    std::map<unsigned long, std::string> _sessions;  // Token by document.
    unsigned long _lastSession = 0;
};

}  // namespace Ormek::Testing
