#include "service/Folder.h"

#include <utility>

namespace Nimra {

Folder::Folder() : PelData(8) {}

Folder::Folder(unsigned long folderId, unsigned long parent, unsigned long userId,
               std::string folderName)
    : PelData(std::move(folderName), 8), id(folderId), parentId(parent), ownerId(userId) {}

}  // namespace Nimra
