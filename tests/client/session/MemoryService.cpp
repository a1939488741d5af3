#include "tests/client/session/MemoryService.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Ormek::Testing {

namespace {

using Nimra::Reason;
using Nimra::ServiceError;
using Node = MemoryTree::Node;

constexpr std::int32_t DocumentType = 4;
constexpr std::int32_t FolderType = 8;
constexpr std::int32_t TagType = 16;

[[noreturn]] void refuse(const char* text) { throw ServiceError(Reason::Refused, text); }

bool matches(const Node& node, const Nimra::ItemFilter& filter) {
    const bool kindFits = filter.dataType == 0 ||
                          (filter.dataType == TagType && !node.keyValues.empty()) ||
                          filter.dataType == (node.isFolder ? FolderType : DocumentType);
    return kindFits && node.name.find(filter.query) != std::string::npos &&
           (filter.path.empty() || node.name == filter.path);
}

void sort(std::vector<Node>& nodes, const Nimra::ItemFilter& filter) {
    const bool foldersFirst = filter.containerFirst && filter.dataType != TagType;
    std::sort(nodes.begin(), nodes.end(), [&](const Node& a, const Node& b) {
        if (foldersFirst && a.isFolder != b.isFolder) {
            return a.isFolder;
        }
        return filter.ascending ? a.name < b.name : b.name < a.name;
    });
}

Nimra::Tag tagOf(const Node& node) {
    Nimra::Tag tag;
    tag.id = node.id;
    tag.parentId = node.parentId;
    tag.ownerId = 1;
    tag.name = node.name;
    tag.tagKey = std::to_string(node.id);
    tag.updated = node.updated;
    tag._keyValues = node.keyValues;
    return tag;
}

/// As actions return it.
Nimra::Document recordOf(const Node& node) {
    Nimra::Document record = MemoryService::documentOf(node);
    if (node.isFolder) {
        record.type = FolderType;
    }
    return record;
}

std::string readAll(Nimra::ContentSource& source) {
    std::array<char, 4096> buffer{};
    std::string all;
    while (const std::size_t count = source.read(buffer.data(), buffer.size())) {
        all.append(buffer.data(), count);
    }
    if (source.size() != 0 && source.size() != all.size()) {
        refuse("the content has another size than was promised");
    }
    return all;
}

class MemoryStream : public Nimra::DocumentStream {
  public:
    explicit MemoryStream(std::string content) : _content(std::move(content)) {}

    unsigned long size() const override { return _content.size(); }
    std::size_t read(unsigned long offset, char* buffer, std::size_t size) const override {
        const std::size_t begin = std::min<std::size_t>(offset, _content.size());
        return _content.copy(buffer, size, begin);
    }

  private:
    std::string _content;
};

}  // namespace

Nimra::Document MemoryService::documentOf(const Node& node) {
    Nimra::Document record(node.id, node.parentId, 1, node.name);
    record.length = node.content.size();
    record.updated = node.updated;
    record._keyValues = node.keyValues;
    return record;
}

Nimra::Folder MemoryService::folderOf(const Node& node) {
    Nimra::Folder record(node.id, node.parentId, 1, node.name);
    record.updated = node.updated;
    return record;
}

Nimra::Folder MemoryService::root() { return folderOf(_tree.at(MemoryTree::RootId)); }

Nimra::Page MemoryService::load(const Nimra::ItemFilter& filter) {
    std::vector<Node> nodes = _tree.children(_tree.folder(filter.dataId.at(0)).id);
    std::erase_if(nodes, [&](const Node& node) { return !matches(node, filter); });
    sort(nodes, filter);
    Nimra::Page page;
    page.totalCount = nodes.size();
    const std::size_t begin = std::min<std::size_t>(filter.offset, nodes.size());
    const std::size_t end = begin + std::min<std::size_t>(filter.count, nodes.size() - begin);
    for (std::size_t position = begin; position < end; ++position) {
        const Node& node = nodes[position];
        if (filter.dataType == TagType) {
            page.tags.push_back(tagOf(node));
        } else if (node.isFolder) {
            page.folders.push_back(folderOf(node));
        } else {
            page.documents.push_back(documentOf(node));
        }
    }
    return page;
}

Nimra::Document MemoryService::create(const Nimra::Document& document,
                                      Nimra::ContentSource* content, const Progress& progress) {
    std::string bytes = content ? readAll(*content) : "";
    if (progress && content) {
        progress(bytes.size(), bytes.size());
    }
    return recordOf(_tree.make(
        {0, document.parentId, document.name, false, std::move(bytes), document.keyValues(), 0}));
}

Nimra::Folder MemoryService::makeFolder(const Nimra::Folder& folder) {
    return folderOf(_tree.make({0, folder.parentId, folder.name, true, "", {}, 0}));
}

Nimra::Document MemoryService::move(const Nimra::Document& document) {
    return recordOf(_tree.relocate(document.id, document.parentId, _tree.at(document.id).name));
}

void MemoryService::remove(const Nimra::Document& document) {
    if (!_tree.children(_tree.at(document.id).id).empty()) {
        refuse("the folder is not empty");
    }
    _tree.remove(document.id);
    const std::lock_guard lock(_sessionsMutex);
    _sessions.erase(document.id);
}

Nimra::Document MemoryService::rename(const Nimra::Document& document) {
    return recordOf(_tree.relocate(document.id, _tree.at(document.id).parentId, document.name));
}

Nimra::OpenedDocument MemoryService::openStreams(const Nimra::Document& document) {
    const Node& node = _tree.at(document.id);
    if (node.isFolder) {
        refuse("a folder has no content");
    }
    return {recordOf(node), std::make_shared<MemoryStream>(node.content)};
}

Nimra::Document MemoryService::saveMetaData(const Nimra::Document& document) {
    Nimra::KeyValues values = _tree.at(document.id).keyValues;
    for (const auto& [key, value] : document.keyValues()) {
        values[key] = {value.first, false};
    }
    _tree.setKeyValues(document.id, std::move(values));
    return recordOf(_tree.at(document.id));
}

Nimra::DocumentSession MemoryService::openSession(unsigned long /*folderId*/,
                                                  unsigned long documentId, unsigned long userId) {
    const Node& node = _tree.at(documentId);
    if (node.isFolder) {
        refuse("sessions are for documents");
    }
    const std::lock_guard lock(_sessionsMutex);
    if (_sessions.count(documentId) != 0) {
        refuse("there is a session");
    }
    const std::string token = std::to_string(++_lastSession);
    _sessions[documentId] = token;
    return {node.parentId, documentId, userId, token};
}

void MemoryService::releaseSession(const Nimra::DocumentSession& session) {
    const std::lock_guard lock(_sessionsMutex);
    const auto found = _sessions.find(session.documentId);
    if (found == _sessions.end() || found->second != session.token) {
        throw ServiceError(Reason::NotFound, "there is no such session");
    }
    _sessions.erase(found);
}

}  // namespace Ormek::Testing
