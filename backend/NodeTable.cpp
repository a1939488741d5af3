#include "backend/NodeTable.h"

#include <functional>
#include <utility>
#include <vector>

namespace Nimra {

std::size_t NodeTable::ByName::operator()(std::string_view name) const {
    return std::hash<std::string_view>()(name);
}

std::size_t NodeTable::ByName::operator()(const Node* node) const {
    return (*this)(std::string_view(node->name));
}

bool NodeTable::ByName::operator()(const Node* a, const Node* b) const {
    return a->name == b->name;
}

bool NodeTable::ByName::operator()(std::string_view name, const Node* node) const {
    return name == node->name;
}

bool NodeTable::ByName::operator()(const Node* node, std::string_view name) const {
    return name == node->name;
}

NodeTable::NodeTable(std::function<void(unsigned long)> forgotten)
    : _forgotten(std::move(forgotten)) {
    _nodes.emplace(RootId, Node{RootId, 0, "", EntryKind::Folder, nullptr});
}

const NodeTable::Node* NodeTable::find(unsigned long id) const {
    const auto found = _nodes.find(id);
    return found == _nodes.end() ? nullptr : &found->second;
}

std::string NodeTable::path(unsigned long id) const {
    std::vector<const Node*> chain;
    for (const Node* node = find(id); node->id != RootId; node = find(node->parentId)) {
        chain.push_back(node);
    }
    std::string path;
    while (!chain.empty()) {
        if (!path.empty()) {
            path += '/';
        }
        path += chain.back()->name;
        chain.pop_back();
    }
    return path;
}

NodeTable::Children* NodeTable::childrenOf(unsigned long id) {
    const auto found = _nodes.find(id);
    return found == _nodes.end() ? nullptr : found->second.children.get();
}

NodeTable::Children& NodeTable::madeChildrenOf(unsigned long id) {
    Node& node = _nodes.at(id);
    if (!node.children) {
        node.children = std::make_unique<Children>();
    }
    return *node.children;
}

unsigned long NodeTable::idOf(unsigned long parentId, std::string_view name, EntryKind kind) {
    Children& siblings = madeChildrenOf(parentId);
    if (const auto known = siblings.find(name); known != siblings.end()) {
        if ((*known)->kind == kind) {
            return (*known)->id;
        }
        forget((*known)->id);
    }
    // A number that is lost to a failure below is not missed.
    const unsigned long id = ++_lastId;
    const auto added = _nodes.emplace(id, Node{id, parentId, std::string(name), kind, nullptr});
    try {
        siblings.insert(&added.first->second);
    } catch (...) {
        _nodes.erase(added.first);
        throw;
    }
    return id;
}

void NodeTable::reserve(unsigned long parentId) {
    Children& children = madeChildrenOf(parentId);
    children.reserve(children.size() + 1);
}

void NodeTable::move(unsigned long id, unsigned long parentId, std::string name) {
    reserve(parentId);
    // From here on nothing needs memory.
    Node& node = _nodes.at(id);
    Children& from = *_nodes.at(node.parentId).children;
    Children& to = *_nodes.at(parentId).children;
    auto own = from.extract(&node);
    // Taken out first: what is known about the namesake may be so old that this lies below it.
    forget(parentId, name);
    node.parentId = parentId;
    node.name = std::move(name);
    to.insert(std::move(own));
}

bool NodeTable::isWithin(unsigned long id, unsigned long folderId) const {
    while (id != folderId && id != RootId) {
        id = find(id)->parentId;
    }
    return id == folderId;
}

void NodeTable::forget(unsigned long id) {
    const auto found = _nodes.find(id);
    if (id == RootId || found == _nodes.end()) {
        return;
    }
    Node& node = found->second;
    Children& siblings = *_nodes.at(node.parentId).children;
    const auto own = siblings.find(std::string_view(node.name));
    if (own != siblings.end() && *own == &node) {
        siblings.erase(own);
    }
    release(node);
}

void NodeTable::takeBack(unsigned long id) {
    if (id == _lastId) {
        forget(id);
        --_lastId;
    }
}

void NodeTable::forget(unsigned long parentId, std::string_view name) {
    const Children* children = childrenOf(parentId);
    if (!children) {
        return;
    }
    if (const auto known = children->find(name); known != children->end()) {
        forget((*known)->id);
    }
}

/// Removes a node that its parent has let go, and all below it, from the bottom up. Needs neither
/// memory nor, for a tree can be deep, more of the stack than a few variables.
void NodeTable::release(Node& top) {
    const unsigned long topId = top.id;
    for (Node* node = &top;;) {
        if (node->children && !node->children->empty()) {
            const auto first = node->children->begin();
            Node* below = *first;
            node->children->erase(first);
            node = below;
            continue;
        }
        const unsigned long id = node->id;
        const unsigned long parentId = node->parentId;
        _nodes.erase(id);
        if (_forgotten) {
            _forgotten(id);
        }
        if (id == topId) {
            return;
        }
        node = &_nodes.at(parentId);
    }
}

void NodeTable::retain(unsigned long parentId, std::span<const FolderEntry> present) {
    Children* known = childrenOf(parentId);
    if (!known) {
        return;
    }
    Children kept;
    kept.reserve(known->size());
    for (const FolderEntry& entry : present) {
        const auto found = known->find(entry.view());
        if (found != known->end() && (*found)->kind == entry.kind) {
            kept.insert(known->extract(found));
        }
    }
    known->swap(kept);
    for (Node* gone : kept) {
        release(*gone);
    }
}

}  // namespace Nimra
