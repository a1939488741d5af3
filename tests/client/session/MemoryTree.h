#pragma once

#include <map>
#include <string>
#include <vector>

#include "service/KeyValues.h"
#include "service/ServiceError.h"

namespace Ormek::Testing {

/// A tree of folders and documents whose entries keep their ids for good. Functions throw
/// Nimra::ServiceError where a service would, and then nothing has changed.
class MemoryTree {
  public:
    static constexpr unsigned long RootId = 1;

    struct Node {
        unsigned long id = 0;
        unsigned long parentId = 0;
        std::string name;
        bool isFolder = false;
        std::string content;
        Nimra::KeyValues keyValues;
        unsigned long updated = 0;
    };

    MemoryTree();

    const Node& at(unsigned long id) const;
    const Node& folder(unsigned long id) const;
    /// All ids but the root's.
    std::vector<unsigned long> ids() const;
    std::vector<unsigned long> folderIds() const;
    /// In no order.
    std::vector<Node> children(unsigned long folderId) const;

    const Node& make(Node node);
    const Node& relocate(unsigned long id, unsigned long folderId, const std::string& name);
    void setKeyValues(unsigned long id, Nimra::KeyValues values);
    void setContent(unsigned long id, std::string content);
    /// With all that is in it.
    void remove(unsigned long id);

  private:
    void checkIsFree(unsigned long folderId, const std::string& name) const;
    Node& existing(unsigned long id);

    std::map<unsigned long, Node> _nodes;
    unsigned long _lastId = RootId;
    unsigned long _clock = 0;
};

}  // namespace Ormek::Testing
