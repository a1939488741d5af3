#include "tests/client/session/MemoryTree.h"

#include <utility>

namespace Ormek::Testing {

namespace {

using Nimra::Reason;
using Nimra::ServiceError;

void checkName(const std::string& name) {
    constexpr std::size_t Longest = 255;
    if (name.empty() || name.size() > Longest) {
        throw ServiceError(Reason::Refused, "no entry can have that name");
    }
}

}  // namespace

MemoryTree::MemoryTree() { _nodes[RootId] = {RootId, 0, "", true, "", {}, 0}; }

const MemoryTree::Node& MemoryTree::at(unsigned long id) const {
    const auto found = _nodes.find(id);
    if (found == _nodes.end()) {
        throw ServiceError(Reason::NotFound, "there is no entry " + std::to_string(id));
    }
    return found->second;
}

MemoryTree::Node& MemoryTree::existing(unsigned long id) {
    return const_cast<Node&>(std::as_const(*this).at(id));
}

const MemoryTree::Node& MemoryTree::folder(unsigned long id) const {
    const Node& node = at(id);
    if (!node.isFolder) {
        throw ServiceError(Reason::Refused, "no folder");
    }
    return node;
}

std::vector<unsigned long> MemoryTree::ids() const {
    std::vector<unsigned long> all;
    for (const auto& [id, node] : _nodes) {
        if (id != RootId) {
            all.push_back(id);
        }
    }
    return all;
}

std::vector<unsigned long> MemoryTree::folderIds() const {
    std::vector<unsigned long> all;
    for (const auto& [id, node] : _nodes) {
        if (node.isFolder) {
            all.push_back(id);
        }
    }
    return all;
}

std::vector<MemoryTree::Node> MemoryTree::children(unsigned long folderId) const {
    std::vector<Node> all;
    for (const auto& [id, node] : _nodes) {
        if (node.parentId == folderId) {
            all.push_back(node);
        }
    }
    return all;
}

void MemoryTree::checkIsFree(unsigned long folderId, const std::string& name) const {
    for (const Node& node : children(folderId)) {
        if (node.name == name) {
            throw ServiceError(Reason::Exists, "the name is taken");
        }
    }
}

const MemoryTree::Node& MemoryTree::make(Node node) {
    checkName(node.name);
    checkIsFree(folder(node.parentId).id, node.name);
    node.id = ++_lastId;
    node.updated = ++_clock;
    return _nodes[node.id] = std::move(node);
}

const MemoryTree::Node& MemoryTree::relocate(unsigned long id, unsigned long folderId,
                                             const std::string& name) {
    Node& node = existing(id);
    checkName(name);
    for (unsigned long above = folder(folderId).id; above != 0; above = at(above).parentId) {
        if (above == id) {
            throw ServiceError(Reason::Refused, "not into itself");
        }
    }
    if (node.parentId != folderId || node.name != name) {
        checkIsFree(folderId, name);
    }
    node.parentId = folderId;
    node.name = name;
    node.updated = ++_clock;
    return node;
}

void MemoryTree::setKeyValues(unsigned long id, Nimra::KeyValues values) {
    Node& node = existing(id);
    node.keyValues = std::move(values);
    node.updated = ++_clock;
}

void MemoryTree::setContent(unsigned long id, std::string content) {
    Node& node = existing(id);
    node.content = std::move(content);
    node.updated = ++_clock;
}

void MemoryTree::remove(unsigned long id) {
    for (const Node& child : children(id)) {
        remove(child.id);
    }
    _nodes.erase(at(id).id);
}

}  // namespace Ormek::Testing
