#pragma once

#include <cstdint>
#include <string>

#include "service/KeyValues.h"
#include "service/PelData.h"

namespace Nimra {

/// A file with its metadata. The order of the members is fixed.
class Document : public PelData {
  public:
    /// Type 4, state 1; every other number is 0, every other string empty.
    Document(unsigned long documentId, unsigned long folderId, unsigned long userId,
             std::string documentName);

    /// A copy of the key values.
    KeyValues keyValues() const { return _keyValues; }
    /// The name with `&`, `<`, `>`, `"` and `'` as XML 1.0 (section 4.6) escapes them.
    std::string escapedName() const;
    /// Inserts a pair whose key is not present yet.
    void addKeyValue(std::string key, KeyValue value);
    /// Inserts or overwrites a pair.
    void setKeyValue(std::string key, KeyValue value);

    unsigned long id;
    unsigned long parentId;
    unsigned long oldParentId = 0;  ///< The folder that is left; set by a move only.
    unsigned long ownerId;
    unsigned long reservedId = 0;
    std::string contentUrl;    ///< Carried along.
    std::string thumbnailUrl;  ///< Carried along.
    std::string etag;          ///< Carried along.
    std::string mimeType;
    unsigned long created = 0;  ///< Like the next two in the service's own unit.
    unsigned long updated = 0;
    unsigned long deleted = 0;
    bool locked = false;  ///< Carried along.
    std::string description;
    std::string language;  ///< Carried along.
    std::int32_t aclMode = 0;
    std::int32_t state = 1;
    unsigned long reserved = 0;
    unsigned long length = 0;  ///< Size of the content in bytes.
    std::string checksum;      ///< Carried along.
    std::string nameCopy;      ///< The name as the record was built with it.
    std::string comment;       ///< Carried along.
    KeyValues _keyValues;
};

}  // namespace Nimra
