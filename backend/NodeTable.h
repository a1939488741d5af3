#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "backend/FolderEntry.h"

namespace Nimra {

/// Which id stands for which entry of a folder tree. The root has id 1; other entries get the next
/// number when they are first asked for, and no number is given twice. An entry is known by its
/// folder, its name and its kind, and keeps its id until it is forgotten; of one name in a folder
/// at most one kind is known. One thread at a time.
class NodeTable {
    struct ByName;

  public:
    struct Node;
    using Children = std::unordered_set<Node*, ByName, ByName>;

    struct Node {
        unsigned long id;
        unsigned long parentId;
        std::string name;
        EntryKind kind;
        std::unique_ptr<Children> children;  ///< Null while none is known: most have none.
    };

    static constexpr unsigned long RootId = 1;

    /// `forgotten` is told each id that is forgotten; it must not throw nor use the table.
    explicit NodeTable(std::function<void(unsigned long)> forgotten = {});

    /// Null for an id that was never given or whose entry was forgotten.
    const Node* find(unsigned long id) const;
    /// The names on the way from the root, joined by '/'; empty for the root. The id must be known.
    std::string path(unsigned long id) const;

    /// The id of an entry, a new one if need be. A namesake of the other kind is forgotten. The
    /// parent must be a known folder.
    unsigned long idOf(unsigned long parentId, std::string_view name, EntryKind kind);

    /// Makes room for one more entry in a known folder: the next `move()` into it needs no memory.
    void reserve(unsigned long parentId);
    /// Puts a known entry into another known folder, or under another name, or both; it and what
    /// lies below it keep their ids. A namesake there is forgotten. The folder must not lie below
    /// the entry.
    void move(unsigned long id, unsigned long parentId, std::string name);
    /// Whether an entry is that folder or lies below it. Both must be known.
    bool isWithin(unsigned long id, unsigned long folderId) const;

    /// Forgets an entry and what lies below it, and needs no memory for it. Does nothing for the
    /// root or an unknown id.
    void forget(unsigned long id);
    /// Forgets the entry that was given the last number, if it has this one. As nobody was told of
    /// it, the number is the next one again.
    void takeBack(unsigned long id);
    /// Forgets the entry of that name in a folder, and what lies below it.
    void forget(unsigned long parentId, std::string_view name);
    /// Forgets the entries of a folder that are not among those that it has now.
    void retain(unsigned long parentId, std::span<const FolderEntry> present);

    /// Number of entries known, the root included.
    std::size_t size() const { return _nodes.size(); }

  private:
    struct ByName {
        using is_transparent = void;

        std::size_t operator()(std::string_view name) const;
        std::size_t operator()(const Node* node) const;
        bool operator()(const Node* a, const Node* b) const;
        bool operator()(std::string_view name, const Node* node) const;
        bool operator()(const Node* node, std::string_view name) const;
    };

    Children* childrenOf(unsigned long id);
    Children& madeChildrenOf(unsigned long id);
    void release(Node& top);

    std::function<void(unsigned long)> _forgotten;
    // Nodes stay where they are, so the tables of children can point to them.
    std::unordered_map<unsigned long, Node> _nodes;
    unsigned long _lastId = RootId;
};

}  // namespace Nimra
