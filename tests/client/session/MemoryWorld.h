#pragma once

#include "tests/client/session/Contents.h"
#include "tests/client/session/MemoryTree.h"
#include "tests/client/session/World.h"

namespace Ormek::Testing {

/// A tree in memory whose entries keep their ids for good. The feed tells of some of what others
/// change, in order, now and then twice, of some that something has changed, and of the rest not at
/// all.
class MemoryWorld : public World {
  public:
    explicit MemoryWorld(Contents& contents);

    std::unique_ptr<Nimra::StorageService> service() override;
    Tree tree() const override;
    std::string change(std::uint32_t what, std::uint32_t where, std::uint32_t how) override;

  private:
    Tree treeOf(const MemoryTree::Node& node) const;
    void tryChange(std::uint32_t what, std::uint32_t where, std::uint32_t how, bool reported);
    void write(unsigned long folderId, const std::string& name, bool reported);
    void remove(unsigned long id, bool reported);
    void forgetContents(unsigned long id);
    void report(const MemoryTree::Node& node, bool reported);

    MemoryTree _tree;
    Contents& _contents;
};

}  // namespace Ormek::Testing
