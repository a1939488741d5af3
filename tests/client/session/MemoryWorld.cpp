#include "tests/client/session/MemoryWorld.h"

#include "tests/client/session/MemoryService.h"

namespace Ormek::Testing {

MemoryWorld::MemoryWorld(Contents& contents) : _contents(contents) {
    const unsigned long docs = _tree.make({0, MemoryTree::RootId, "docs", true, "", {}, 0}).id;
    write(MemoryTree::RootId, "a", false);
    write(docs, "b", false);
}

std::unique_ptr<Nimra::StorageService> MemoryWorld::service() {
    return std::make_unique<MemoryService>(_tree);
}

Tree MemoryWorld::tree() const { return treeOf(_tree.at(MemoryTree::RootId)); }

Tree MemoryWorld::treeOf(const MemoryTree::Node& node) const {
    Tree tree{node.isFolder, node.content, node.keyValues, {}};
    for (const MemoryTree::Node& child : _tree.children(node.id)) {
        tree.entries[child.name] = treeOf(child);
    }
    return tree;
}

std::string MemoryWorld::change(std::uint32_t what, std::uint32_t where, std::uint32_t how) {
    const bool reported = what / 7 % 3 != 0;
    std::string text = "change " + std::to_string(what % 7) + " of " + std::to_string(where) +
                       " by " + std::to_string(how) + (reported ? ", reported" : "");
    try {
        const std::size_t before = feed.size();
        tryChange(what % 7, where, how, reported);
        silent = silent || !reported;
        if (feed.size() > before && what % 5 == 0) {
            feed.push_back(feed.back());
        }
    } catch (const Nimra::ServiceError& error) {
        text += std::string(": ") + error.what();
    }
    return text;
}

void MemoryWorld::tryChange(std::uint32_t what, std::uint32_t where, std::uint32_t how,
                            bool reported) {
    const std::vector<unsigned long> all = _tree.ids();
    const std::vector<unsigned long> folders = _tree.folderIds();
    const unsigned long folderId = folders[where % folders.size()];
    const std::string& name = usableNames()[how % usableNames().size()];
    if (what == 0 || all.empty()) {
        write(folderId, name, reported);
        return;
    }
    if (what == 1) {
        report(_tree.make({0, folderId, name, true, "", {}, 0}), reported);
        return;
    }
    const unsigned long id = all[where % all.size()];
    if (what == 2) {
        report(_tree.relocate(id, _tree.at(id).parentId, name), reported);
    } else if (what == 3) {
        report(_tree.relocate(id, folders[how % folders.size()], _tree.at(id).name), reported);
    } else if (what == 4) {
        report(_tree.relocate(id, folders[how / 7 % folders.size()], name), reported);
    } else if (what == 5) {
        remove(id, reported);
    } else if (_tree.at(id).isFolder) {
        feed.push_back(Doubted{id});
    } else {
        forgetContents(id);
        const unsigned long number = _contents.next();
        _tree.setContent(id, Contents::of(number));
        _contents.made(number);
        report(_tree.at(id), reported);
    }
}

void MemoryWorld::write(unsigned long folderId, const std::string& name, bool reported) {
    const unsigned long number = _contents.next();
    const MemoryTree::Node& made =
        _tree.make({0, folderId, name, false, Contents::of(number), {}, 0});
    _contents.made(number);
    report(made, reported);
}

void MemoryWorld::remove(unsigned long id, bool reported) {
    forgetContents(id);
    _tree.remove(id);
    if (reported) {
        feed.push_back(Gone{id});
    }
}

void MemoryWorld::forgetContents(unsigned long id) {
    if (const auto number = Contents::numberOf(_tree.at(id).content)) {
        _contents.gone(*number);
    }
    for (const MemoryTree::Node& child : _tree.children(id)) {
        forgetContents(child.id);
    }
}

void MemoryWorld::report(const MemoryTree::Node& node, bool reported) {
    if (!reported) {
        return;
    }
    if (node.isFolder) {
        feed.push_back(MemoryService::folderOf(node));
    } else {
        feed.push_back(MemoryService::documentOf(node));
    }
}

}  // namespace Ormek::Testing
