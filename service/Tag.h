#pragma once

#include <string>

#include "service/KeyValues.h"
#include "service/PelData.h"

namespace Nimra {

/// A key-value entry. The order of the members is fixed.
class Tag : public PelData {
  public:
    /// Type 16, every string empty, every number 0.
    Tag();

    /// A copy of the key values.
    KeyValues keyValues() const { return _keyValues; }
    /// Inserts a pair whose key is not present yet.
    void addKeyValue(std::string key, KeyValue value);
    /// Inserts or overwrites a pair.
    void setKeyValue(std::string key, KeyValue value);

    unsigned long id = 0;
    unsigned long parentId = 0;
    unsigned long ownerId = 0;
    std::string tagKey;         ///< What the cached entry is kept under.
    std::string label;          ///< Carried along.
    std::string group;          ///< Carried along.
    std::string path;           ///< Carried along.
    unsigned long created = 0;  ///< Like the next two in the service's own unit.
    unsigned long updated = 0;
    unsigned long deleted = 0;
    unsigned long reservedFirst = 0;
    unsigned long reservedSecond = 0;
    std::string mimeType;  ///< Carried along.
    KeyValues _keyValues;
    std::string url;   ///< Carried along.
    std::string etag;  ///< Carried along.
};

}  // namespace Nimra
