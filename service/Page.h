#pragma once

#include <vector>

#include "service/Document.h"
#include "service/Folder.h"
#include "service/Tag.h"

namespace Nimra {

/// One page of a listing as a service delivers it. A listing of tags has tags alone, any other
/// listing none.
struct Page {
    std::vector<Folder> folders;
    std::vector<Document> documents;
    std::vector<Tag> tags;
    unsigned long totalCount = 0;  ///< Number of entries of the whole listing.
};

}  // namespace Nimra
