#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "service/PelData.h"

namespace Nimra {

/// A folder. The order of the members is fixed.
class Folder : public PelData {
  public:
    /// Type 8, every string empty, every number 0.
    Folder();
    Folder(unsigned long folderId, unsigned long parent, unsigned long userId,
           std::string folderName);

    std::string firstLeading;   ///< The item's second text attribute: the two are crossed.
    std::string secondLeading;  ///< The item's first text attribute.
    std::int32_t accessLevel = 0;
    unsigned long id = 0;
    unsigned long parentId = 0;
    unsigned long oldParentId = 0;
    unsigned long ownerId = 0;
    unsigned long driveId = 0;
    std::string firstTrailing;   ///< Carried along.
    std::string secondTrailing;  ///< Carried along.
    std::string thirdTrailing;   ///< Carried along.
    std::string fourthTrailing;  ///< The item's third text attribute.
    unsigned long created = 0;   ///< Like the next two in the service's own unit.
    unsigned long updated = 0;
    unsigned long deleted = 0;
    std::vector<Folder> children;
};

}  // namespace Nimra
