#pragma once

#include <string>

#include "service/KeyValues.h"

namespace Ormek {

/// What an entry said at one moment. A value.
struct EntryValues {
    unsigned long folderId = 0;  ///< The folder it lies in.
    std::string name;
    bool isFolder = false;
    unsigned long length = 0;   ///< In bytes; 0 for folders.
    unsigned long updated = 0;  ///< In the service's own unit.
    std::string mimeType;
    Nimra::KeyValues keyValues;

    bool operator==(const EntryValues&) const = default;
};

}  // namespace Ormek
