#pragma once

#include <cstddef>
#include <string_view>

namespace Nimra {

/// Folders can be opened; everything else that a folder holds is a document.
enum class EntryKind : unsigned char { Folder, Document };

/// An entry as reading its folder gives it. The name ends in a NUL byte that `length` does not
/// count, and belongs to whoever handed the entry out.
struct FolderEntry {
    const char* name;
    unsigned short length;  ///< A record of getdents64(2) is no longer than this can tell.
    EntryKind kind;

    std::string_view view() const { return {name, length}; }
};

}  // namespace Nimra
